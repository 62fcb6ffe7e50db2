// "delete": removed items of the caller's for good, as a task (what lies
// below them in the bin goes with them).
#include "webapi/orvel/recycle/delete.h"

#include "orvel/client/client_common.h"

namespace {
constexpr const char kLogSource[] = "recycle-delete";
}  // namespace

RecycleDeleteHandler::RecycleDeleteHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Recycle", "delete", 1, 1);
}

int RecycleDeleteHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                 BridgeResponse& response) {
  PObject files;
  if (!orvel::client::ReadStringList(request, response, "files", &files)) return -1;
  PObject args = PObject::MakeMap();
  args["files"] = files;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "recycle_delete", args, &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["task_id"] = result["task_id"].asString();
  response.SetJsonResponse(std::move(data));
  return 0;
}
