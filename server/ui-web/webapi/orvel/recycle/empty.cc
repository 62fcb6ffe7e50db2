// "empty": the caller's whole recycle bin for good, as one task.
#include "webapi/orvel/recycle/empty.h"

#include "orvel/client/client_common.h"

namespace {
constexpr const char kLogSource[] = "recycle-empty";
}  // namespace

RecycleEmptyHandler::RecycleEmptyHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Recycle", "empty", 1, 1);
}

int RecycleEmptyHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "recycle_empty", PObject::MakeMap(),
                                  &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["task_id"] = result["task_id"].asString();
  response.SetJsonResponse(std::move(data));
  return 0;
}
