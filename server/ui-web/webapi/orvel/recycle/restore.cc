// "restore": removed items of the caller's back into the folders they came
// from (made again when gone), keeping their ids, marks and shares.
#include "webapi/orvel/recycle/restore.h"

#include "orvel/client/client_common.h"

namespace {
constexpr const char kLogSource[] = "recycle-restore";
}  // namespace

RecycleRestoreHandler::RecycleRestoreHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Recycle", "restore", 1, 1);
}

int RecycleRestoreHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                  BridgeResponse& response) {
  PObject files;
  if (!orvel::client::ReadStringList(request, response, "files", &files)) return -1;
  std::string conflict;
  if (!orvel::client::ReadOptionalString(request, response, "conflict", "stop", &conflict)) return -1;
  if (conflict != "stop" && conflict != "autorename") {
    response.SetError(114, "conflict must be stop or autorename", __LINE__);
    return -1;
  }
  PObject args = PObject::MakeMap();
  args["files"] = files;
  args["conflict"] = conflict;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "recycle_restore", args, &result)) {
    return -1;
  }
  Json::Value items(Json::arrayValue);
  for (const PObject& record : result["items"].asArray()) items.append(orvel::client::ItemJson(record));
  Json::Value data(Json::objectValue);
  data["items"] = std::move(items);
  response.SetJsonResponse(std::move(data));
  return 0;
}
