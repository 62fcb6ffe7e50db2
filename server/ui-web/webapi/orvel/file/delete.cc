// "delete": removes items into the recycle bin or for good, as one service
// task whose id is returned.
#include "delete.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "delete";
}  // namespace

DeleteHandler::DeleteHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "delete", 0, 0);
}

DeleteHandler::~DeleteHandler() = default;

int DeleteHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                          BridgeResponse& response) {
  const Json::Value files = request.GetParamRef("files", Json::Value(Json::arrayValue));
  const bool permanent = request.GetParamRef("permanent", false).asBool();
  if (files.empty()) {
    response.SetError(114, "no file seleted", __LINE__);
    return -1;
  }
  std::vector<std::string> paths;
  for (const Json::Value& file : files) {
    const std::string path = file.asString();
    if (path.empty()) {
      ORVEL_LOG_ERROR("path is required");
      response.SetError(114, "path is required", __LINE__);
      return -1;
    }
    paths.push_back(path);
  }
  std::string task_id;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "RemoveFile failed", "remove file failed"},
                   [&](Nimbard& client) { return client.DeleteFile(paths, permanent, task_id); })) {
    return -1;
  }
  Json::Value result(Json::objectValue);
  result["async_task_id"] = task_id;
  response.SetJsonResponse(result);
  return 0;
}
