// "list": a page of the caller's recycle bin by removal time; each entry is
// the Files API's item object with "original_path", "removed_time" and
// "removed_by".
#include "webapi/orvel/recycle/list.h"

#include "orvel/client/client_common.h"

namespace {
constexpr const char kLogSource[] = "recycle-list";
}  // namespace

RecycleListHandler::RecycleListHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Recycle", "list", 1, 1);
}

int RecycleListHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                               BridgeResponse& response) {
  orvel::client::Paging paging;
  if (!orvel::client::ReadPaging(request, response, 100, 1000, &paging)) return -1;
  std::string direction;
  if (!orvel::client::ReadOptionalString(request, response, "sort_direction", "desc", &direction)) return -1;
  if (direction != "asc" && direction != "desc") {
    response.SetError(114, "sort_direction must be asc or desc", __LINE__);
    return -1;
  }
  PObject args = PObject::MakeMap();
  args["offset"] = static_cast<unsigned long long>(paging.offset);
  args["limit"] = static_cast<unsigned long long>(paging.limit);
  args["sort_direction"] = direction;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "recycle_list", args, &result)) {
    return -1;
  }
  Json::Value items(Json::arrayValue);
  for (const PObject& entry : result["items"].asArray()) {
    Json::Value item = orvel::client::ItemJson(entry["item"]);
    item["original_path"] = entry["item"]["original_path"].asString();
    item["removed_time"] = static_cast<Json::Int64>(entry["removed_time"].asInt64());
    item["removed_by"] = entry["removed_by"].asString();
    items.append(std::move(item));
  }
  Json::Value data(Json::objectValue);
  data["items"] = std::move(items);
  data["offset"] = static_cast<Json::UInt64>(paging.offset);
  data["total"] = static_cast<Json::UInt64>(result["total"].asUInt64());
  response.SetJsonResponse(std::move(data));
  return 0;
}
