// "update": changes an item's name, times, flags, properties, labels, star
// and optionally its content (inline "file_content" or an upload's
// "file_tmp"), all in one request map to the service.
#include "update.h"

#include "bridge/module-log.h"
#include "nimbard/file.h"
#include "nimbard/nimbard.h"
#include "orvel/common/orvel_upload_request.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "update";

void CopyScalars(BridgeRequest& request, PObject& out) {
  if (request.HasParam("name")) out["name"] = request.GetParamRef("name", "").asString();
  for (const char* name : {"created_time", "access_time", "modified_time"}) {
    if (request.HasParam(name)) out[name] = request.GetParamRef(name, 0).asUInt64();
  }
  for (const char* name : {"encrypted", "removed"}) {
    if (request.HasParam(name)) out[name] = request.GetParamRef(name, false).asBool();
  }
  if (request.HasParam("properties")) {
    const Json::Value properties = request.GetParamRef("properties", Json::Value());
    PObject dict = PObject::MakeMap();
    if (properties.isObject()) {
      for (const std::string& key : properties.getMemberNames()) {
        dict[key] = properties[key].asString();
      }
    }
    out["properties"] = dict;
  }
}

// false when an element does not parse (logged).
bool CopyLabels(BridgeRequest& request, PObject& out) {
  PObject labels = PObject::MakeArray();
  for (const Json::Value& element : request.GetParamRef("labels", Json::Value())) {
    Nimbard::LabelEditAction action;
    PObject converted;
    if (JsonReqToLabelAction(element, action) < 0 ||
        Nimbard::LabelActionToPObject(action, converted) < 0) {
      ORVEL_LOG_ERROR("invalid label format");
      return false;
    }
    labels.push_back(converted);
  }
  out["labels"] = labels;
  return true;
}

bool CopyStarred(BridgeRequest& request, PObject& out) {
  Nimbard::StarEditAction action;
  PObject converted;
  if (JsonReqToStarAction(request.GetParamRef("starred", Json::Value()), action) < 0 ||
      Nimbard::StarActionToPObject(action, converted) < 0) {
    ORVEL_LOG_ERROR("invalid starred format");
    return false;
  }
  PObject list = PObject::MakeArray();
  list.push_back(converted);
  out["starred"] = list;
  return true;
}
}  // namespace

UpdateInfoHandler::UpdateInfoHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(7);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "update", 0, 0);
}

UpdateInfoHandler::~UpdateInfoHandler() = default;

int UpdateInfoHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                              BridgeResponse& response) {
  return UpdateFileInfo(auth, request, response);
}

int UpdateInfoHandler::UpdateFileInfo(const RequestAuthentication& auth, BridgeRequest& request,
                                      BridgeResponse& response) {
  PObject req = PObject::MakeMap();
  req["path"] = request.GetParamRef("path", "").asString();
  CopyScalars(request, req);
  // An unparsable label or star ends the request without an error code.
  if (request.HasParam("labels") && !CopyLabels(request, req)) return -1;
  if (request.HasParam("starred") && !CopyStarred(request, req)) return -1;
  if (request.HasParam("mute")) req["mute"] = request.GetParamRef("mute", false).asBool();
  if (request.HasParam("file_content") && request.HasParam("file_tmp")) {
    ORVEL_LOG_ERROR("invalid duplicated file.\n");
    response.SetError(117, "invalid duplicated file", __LINE__);
    return -1;
  }
  if (request.HasParam("file_content")) {
    req["file_content"] = request.GetParamRef("file_content", "").asString();
  }
  if (request.HasParam("file_tmp") &&
      HandleFileRequest(request.GetParamRef("file_tmp", "").asString(), req, response) < 0) {
    return -1;
  }
  Nimbard::FileInfo info;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "update file information failed",
                    "update file information failed", ServiceFailure::kPlain},
                   [&](Nimbard& client) { return client.UpdateFileInfo(req, info); })) {
    return -1;
  }
  Json::Value item;
  if (ConvertFileInfoToJSon(info, item) < 0) {
    ORVEL_LOG_ERROR("build response failed\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  response.SetJsonResponse(item);
  return 0;
}

int UpdateInfoHandler::HandleFileRequest(const std::string& file_tmp, PObject& request,
                                         BridgeResponse& response) {
  File file(file_tmp);
  if (!file.Exists()) {
    ORVEL_LOG_ERROR("path '%s' cannot be uploaded. (vanish)\n", file_tmp.c_str());
    response.SetError(1003, "file doesn't exist", __LINE__);
    return -1;
  }
  if (orvel::module::PrepareFileBlock(kLogSource, file, request) < 0) return -1;
  request["file_data_path"] = file_tmp;
  return 0;
}
