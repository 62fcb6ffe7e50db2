// "get": one task of the caller's. Another user's task answers exactly as an
// unknown id does (the service cannot tell them apart for the caller).
#include "webapi/orvel/task/get.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/task/task-json.h"

namespace {
constexpr const char kLogSource[] = "task-get";
}  // namespace

TaskGetHandler::TaskGetHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Task", "get", 1, 1);
}

int TaskGetHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                           BridgeResponse& response) {
  std::string task_id;
  if (!orvel::client::ReadRequiredString(request, response, "task_id", &task_id)) return -1;
  PObject args = PObject::MakeMap();
  args["task_id"] = task_id;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "task_get", args, &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["task"] = orvel::client::TaskJson(result["task"]);
  response.SetJsonResponse(std::move(data));
  return 0;
}
