// "unshare": ends the share of one of the caller's items with a user or a
// group; a member without a share is not found.
#include "webapi/orvel/sharing/unshare.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/sharing/sharing_params.h"

namespace {
constexpr const char kLogSource[] = "sharing-unshare";
}  // namespace

SharingUnshareHandler::SharingUnshareHandler() { orvel::sharing::SetUp(this, "unshare", true, false); }

int SharingUnshareHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                  BridgeResponse& response) {
  PObject args = PObject::MakeMap();
  if (!orvel::sharing::ReadPath(request, response, &args) ||
      !orvel::sharing::ReadMember(request, response, &args))
    return -1;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "unshare", args, &result))
    return -1;
  response.SetJsonResponse(Json::Value(Json::objectValue));
  return 0;
}
