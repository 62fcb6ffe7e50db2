// What the handlers of "ZEMO.ZemoraOrvel.Sharing" share: the set-up every
// handler makes, the parameters only this API reads (roles, the member of a
// share, a link's expiry and password) and the daemon's answers as JSON.
// Each reader returns false after recording error 114 on response.
#pragma once

#include <json/json.h>

#include <string>

#include "bridge/request-handler.h"
#include "orvelcommon/pobject.h"

namespace orvel::sharing {

constexpr const char kApi[] = "ZEMO.ZemoraOrvel.Sharing";

// The common set-up of a handler: a session needed (a link visitor too when
// visitors), read or write method, version 1.
void SetUp(RequestHandler* handler, const char* method, bool writes, bool visitors);

// "path", required.
bool ReadPath(const BridgeRequest& request, BridgeResponse& response, PObject* args);
// "kind" ("user" by default, or "group") and "name" of a share's member.
bool ReadMember(const BridgeRequest& request, BridgeResponse& response, PObject* args);
// "role" when present, one of `allowed` (joined by ", " in the message);
// "" means "use the default".
bool ReadRole(const BridgeRequest& request, BridgeResponse& response,
              std::initializer_list<const char*> allowed, PObject* args);
// "expires" (Unix time, 0 = never) and "password" ("" = none) when present.
// A password in the URL is refused: URLs end up in logs and histories.
bool ReadLinkOptions(const BridgeRequest& request, BridgeResponse& response, PObject* args);
// Whether the request's query string (not its body) names `name`.
bool InQueryString(const BridgeRequest& request, const std::string& name);

// A link of the daemon's answer as the API shows it.
Json::Value LinkJson(const PObject& link);

}  // namespace orvel::sharing
