// "upload_from_tpx": imports files that already lie in the server's own
// folders; the service runs the import as a task and returns its id.
#include "upload-from-tpx.h"

#include "bridge/module-log.h"
#include "nimbard/nimbard.h"
#include "orvel/common/orvel_upload_request.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "upload-from-tpx";
}  // namespace

UploadFromTpxHandler::UploadFromTpxHandler() {
  SetRequiredDatabase(1);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "upload_from_tpx", 0, 0);
}

UploadFromTpxHandler::~UploadFromTpxHandler() = default;

bool UploadFromTpxHandler::PrepareRequest(BridgeRequest& request, PObject& out) {
  const std::string path = request.GetParamRef("path", "").asString();
  if (path.empty()) return false;
  out["path"] = path;
  out["conflict_policy"] =
      orvel::module::ConflictPolicy(request.GetParamRef("conflict_action", "stop").asString());
  const Json::Value tpx_paths = request.GetParamRef("tpx_paths", Json::Value());
  if (!tpx_paths.isArray()) return false;
  PObject list = PObject::MakeArray();
  for (const Json::Value& element : tpx_paths) list.push_back(element.asString());
  out["tpx_paths"] = list;
  return true;
}

int UploadFromTpxHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                 BridgeResponse& response) {
  PObject req = PObject::MakeMap();
  if (!PrepareRequest(request, req)) {
    ORVEL_LOG_ERROR("prepare upload request failed");
    response.SetError(1000, "prepare upload request failed", __LINE__);
    return -1;
  }
  std::string task_id;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "upload file failed", "upload file failed",
                    ServiceFailure::kPlain},
                   [&](Nimbard& client) { return client.UploadFileFromTPX(req, task_id); })) {
    return -1;
  }
  Json::Value result(Json::objectValue);
  result["async_task_id"] = task_id;
  response.SetJsonResponse(result);
  return 0;
}
