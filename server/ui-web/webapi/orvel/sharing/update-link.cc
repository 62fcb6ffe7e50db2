// "update_link": role, expiry ("expires": 0 removes it) or password ("" removes
// it) of one of the caller's links by "token". A new or removed password ends
// every visitor's unlocking of the link.
#include "webapi/orvel/sharing/update-link.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/sharing/sharing_params.h"

namespace {
constexpr const char kLogSource[] = "sharing-update-link";
}  // namespace

SharingUpdateLinkHandler::SharingUpdateLinkHandler() {
  orvel::sharing::SetUp(this, "update_link", true, false);
}

int SharingUpdateLinkHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                     BridgeResponse& response) {
  PObject args = PObject::MakeMap();
  std::string token;
  if (!orvel::client::ReadRequiredString(request, response, "token", &token) ||
      !orvel::sharing::ReadRole(request, response, {"viewer", "editor"}, &args) ||
      !orvel::sharing::ReadLinkOptions(request, response, &args))
    return -1;
  args["token"] = token;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "link_update", args, &result))
    return -1;
  Json::Value data(Json::objectValue);
  data["link"] = orvel::sharing::LinkJson(result);
  response.SetJsonResponse(std::move(data));
  return 0;
}
