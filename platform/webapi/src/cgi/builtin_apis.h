// The APIs entry.cgi serves itself: "ZEMO.API.Auth" (login, logout; versions
// 1 to 7) and "ZEMO.API.Info" (query; version 1). Their functions are
// registered like module methods and run before the identity is lowered
// (Auth writes the user database). Not thread-safe.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "cgi/api_registry.h"
#include "cgi/cgi_env.h"
#include "cgi/form_params.h"
#include "cgi/session.h"

namespace zemo::cgi {

constexpr const char kAuthApi[] = "ZEMO.API.Auth";
constexpr const char kInfoApi[] = "ZEMO.API.Info";
constexpr const char kCgiPath[] = "entry.cgi";

// What the Auth methods need beside the request; all pointers outlive the
// request.
struct AuthContext {
  const CgiEnv* env = nullptr;
  const RawParams* raw = nullptr;         // parameters as sent (passwords stay strings)
  UserDbHandle* users = nullptr;
  const ResolvedSession* session = nullptr;
  int64_t now = 0;  // the login throttle's clock (SyncConfigMgr::ThrottleNow)
};

// The API names modules may not serve.
std::set<std::string> BuiltinApiNames();

void RegisterAuthApi(const AuthContext& ctx, ApiRegistry* registry);
// Info answers from the registry as it is when the query runs.
void RegisterInfoApi(const ApiRegistry* registry_view, ApiRegistry* registry);

// The Set-Cookie values of a login and a logout.
std::string SessionCookie(const std::string& sid, bool secure);
std::string ExpiredSessionCookie(bool secure);

}  // namespace zemo::cgi
