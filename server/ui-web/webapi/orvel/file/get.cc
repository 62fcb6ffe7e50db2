// "get": the item object of one item, with optional extra fields.
#include "get.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "get";
}  // namespace

GetInfoHandler::GetInfoHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(7);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "get", 0, 0);
}

GetInfoHandler::~GetInfoHandler() = default;

int GetInfoHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                           BridgeResponse& response) {
  if (request.GetParamRef("path", "").asString().empty()) {
    ORVEL_LOG_ERROR("path is required");
    response.SetError(114, "request node id is empty", __LINE__);
    return -1;
  }
  return GetFileInfo(auth, request, response);
}

int GetInfoHandler::GetFileInfo(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  const std::string path = request.GetParamRef("path", "").asString();
  Nimbard::FileInfoQueryParam query;
  try {
    query.extra << request.GetParamRef("extra", Json::Value(Json::arrayValue));
  } catch (const Json::Exception&) {
    response.SetError(114, "invalid extra", __LINE__);
    return -1;
  }
  Nimbard::FileInfo info;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "GetFileInfo failed", "get file infomation failed"},
                   [&](Nimbard& client) { return client.GetFileInfo(path, info, query); })) {
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
