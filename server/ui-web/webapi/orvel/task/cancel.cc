// "cancel": cancels one of the caller's tasks. A queued task ends
// "cancelled" at once; a running one at its next item (a copy keeps the
// items it copied); an ended task is answered as it is. Another user's task
// answers exactly as an unknown id does.
#include "webapi/orvel/task/cancel.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/task/task-json.h"

namespace {
constexpr const char kLogSource[] = "task-cancel";
}  // namespace

TaskCancelHandler::TaskCancelHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Task", "cancel", 1, 1);
}

int TaskCancelHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                              BridgeResponse& response) {
  std::string task_id;
  if (!orvel::client::ReadRequiredString(request, response, "task_id", &task_id)) return -1;
  PObject args = PObject::MakeMap();
  args["task_id"] = task_id;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "task_cancel", args, &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["task"] = orvel::client::TaskJson(result["task"]);
  response.SetJsonResponse(std::move(data));
  return 0;
}
