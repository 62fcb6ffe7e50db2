// "unlock_link": a visitor (with or without a session) gives the password of
// the link of "sharing_token". The daemon checks it (throttled per client
// address) and hands out a grant, which goes back only as an HttpOnly,
// SameSite=Strict cookie limited to /webapi/: never in the answer's body or
// a URL, so page scripts and logs do not see it. entry.cgi sends the cookie
// on to the daemon with every later request (docs/framework.md).
#include "webapi/orvel/sharing/unlock-link.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/sharing/sharing_params.h"

namespace {
constexpr const char kLogSource[] = "sharing-unlock-link";

std::string GrantCookie(const std::string& grant, bool secure) {
  return "link_grant=" + grant + "; Path=/webapi/; HttpOnly; SameSite=Strict" +
         (secure ? "; Secure" : "");
}
}  // namespace

SharingUnlockLinkHandler::SharingUnlockLinkHandler() {
  orvel::sharing::SetUp(this, "unlock_link", true, true);
}

int SharingUnlockLinkHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                     BridgeResponse& response) {
  std::string token, password;
  if (!orvel::client::ReadRequiredString(request, response, "sharing_token", &token)) return -1;
  if (orvel::sharing::InQueryString(request, "password")) {
    response.SetError(114, "password must be sent in the request body, not in the URL", __LINE__);
    return -1;
  }
  if (!orvel::client::ReadRequiredString(request, response, "password", &password)) return -1;
  PObject args = PObject::MakeMap();
  args["password"] = password;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "link_unlock", args, &result))
    return -1;
  const std::string grant = result["grant"].asString();
  if (!grant.empty()) {
    response.SetHeader("Set-Cookie", GrantCookie(grant, request.GetUrlProto() == "https"));
    response.SetHeader("Cache-Control", "no-store");
  }
  Json::Value data(Json::objectValue);
  data["unlocked"] = true;
  data["expires"] = Json::Int64(result["expires"].asInt64());
  response.SetJsonResponse(std::move(data));
  return 0;
}
