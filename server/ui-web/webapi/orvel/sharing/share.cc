// "share": shares one of the caller's items with a user or a group ("kind",
// "name") with a role (viewer by default); sharing again changes the role.
#include "webapi/orvel/sharing/share.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/sharing/sharing_params.h"

namespace {
constexpr const char kLogSource[] = "sharing-share";
}  // namespace

SharingShareHandler::SharingShareHandler() { orvel::sharing::SetUp(this, "share", true, false); }

int SharingShareHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  PObject args = PObject::MakeMap();
  if (!orvel::sharing::ReadPath(request, response, &args) ||
      !orvel::sharing::ReadMember(request, response, &args) ||
      !orvel::sharing::ReadRole(request, response, {"viewer", "commenter", "editor"}, &args))
    return -1;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "share", args, &result)) return -1;
  response.SetJsonResponse(Json::Value(Json::objectValue));
  return 0;
}
