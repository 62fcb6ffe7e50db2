// "delete_link": removes one of the caller's links by "token"; its visitors
// and their unlockings end with it.
#include "webapi/orvel/sharing/delete-link.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/sharing/sharing_params.h"

namespace {
constexpr const char kLogSource[] = "sharing-delete-link";
}  // namespace

SharingDeleteLinkHandler::SharingDeleteLinkHandler() {
  orvel::sharing::SetUp(this, "delete_link", true, false);
}

int SharingDeleteLinkHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                     BridgeResponse& response) {
  PObject args = PObject::MakeMap();
  std::string token;
  if (!orvel::client::ReadRequiredString(request, response, "token", &token)) return -1;
  args["token"] = token;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "link_delete", args, &result))
    return -1;
  response.SetJsonResponse(Json::Value(Json::objectValue));
  return 0;
}
