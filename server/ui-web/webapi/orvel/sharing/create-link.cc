// "create_link": a new sharing link to one of the caller's items, with a
// role (viewer by default, or editor), an optional expiry and an optional
// password. Answers the link and the item's permanent link.
#include "webapi/orvel/sharing/create-link.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/sharing/sharing_params.h"

namespace {
constexpr const char kLogSource[] = "sharing-create-link";
}  // namespace

SharingCreateLinkHandler::SharingCreateLinkHandler() {
  orvel::sharing::SetUp(this, "create_link", true, false);
}

int SharingCreateLinkHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                     BridgeResponse& response) {
  PObject args = PObject::MakeMap();
  if (!orvel::sharing::ReadPath(request, response, &args) ||
      !orvel::sharing::ReadRole(request, response, {"viewer", "editor"}, &args) ||
      !orvel::sharing::ReadLinkOptions(request, response, &args))
    return -1;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "link_create", args, &result))
    return -1;
  Json::Value data(Json::objectValue);
  data["link"] = orvel::sharing::LinkJson(result);
  data["permanent_link"] = result["permanent_link"].asString();
  response.SetJsonResponse(std::move(data));
  return 0;
}
