// "delete": removes items into the recycle bin or for good, as one service
// task whose id is returned.
#include "delete.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"

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
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, GetSudoUser());
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
  if (client.DeleteFile(paths, permanent, task_id) < 0) {
    ORVEL_LOG_ERROR("RemoveFile failed: %s (%d)", client.GetLastErrorMessage().c_str(),
                    client.GetLastError());
    response.SetError(OrvelErrCodeGetFromBackend(client.GetLastError()), "remove file failed",
                      __LINE__);
    return -1;
  }
  Json::Value result(Json::objectValue);
  result["async_task_id"] = task_id;
  response.SetJsonResponse(result);
  return 0;
}
