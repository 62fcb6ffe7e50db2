// "list": the shares and links of one of the caller's items. An item the
// caller cannot see answers as an unknown one; one the caller sees but does
// not own is refused (only the owner shares).
#include "webapi/orvel/sharing/list.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/sharing/sharing_params.h"

namespace {
constexpr const char kLogSource[] = "sharing-list";
}  // namespace

SharingListHandler::SharingListHandler() { orvel::sharing::SetUp(this, "list", false, false); }

int SharingListHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                               BridgeResponse& response) {
  PObject args = PObject::MakeMap();
  if (!orvel::sharing::ReadPath(request, response, &args)) return -1;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "sharing_list", args, &result))
    return -1;
  Json::Value data(Json::objectValue);
  data["item"] = orvel::client::ItemJson(result["item"]);
  data["shares"] = Json::Value(Json::arrayValue);
  for (const PObject& s : result["shares"].asArray()) data["shares"].append(orvel::client::ToJson(s));
  data["links"] = Json::Value(Json::arrayValue);
  for (const PObject& l : result["links"].asArray()) data["links"].append(orvel::sharing::LinkJson(l));
  response.SetJsonResponse(std::move(data));
  return 0;
}
