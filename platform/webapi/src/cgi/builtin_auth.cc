// ZEMO.API.Auth: "login" checks an account's password and opens a new
// session (a new id at every login; the session the request presented, if
// any, is closed), answering {"sid", "token"} and setting the cookie "id";
// "logout" closes the presented session and expires the cookie. Logins go
// through the login throttle (login_throttle.h) before the password is
// looked at. Not thread-safe.
#include "cgi/api_codes.h"
#include "cgi/builtin_apis.h"
#include "cgi/dispatcher.h"
#include "cgi/login_throttle.h"
#include "internal/log.h"

namespace zemo::cgi {

namespace {

static constexpr char kLogSource[] = "auth";

constexpr VersionRange kAuthVersions{1, 7};

std::string CookieAttributes(bool secure) {
  return std::string("; path=/; HttpOnly; SameSite=Lax") + (secure ? "; Secure" : "");
}

// Refuses accounts that may not log in, after the password matched (so a
// stranger learns nothing about the account's state).
bool AccountUsable(const orvel::UserRecord& user, ZEMO::APIResponse* response) {
  if (!user.enabled || !user.system_enabled) {
    SetErrorMessage(response, kErrAccountDisabled, "account disabled");
    return false;
  }
  if (user.expired) {
    SetErrorMessage(response, kErrAccountDisabled, "account expired");
    return false;
  }
  return true;
}

void LogThrottleError(const orvel::Status& st) {
  if (!st.ok()) WEBAPI_LOG(Logger::kError, "login throttle: %s", st.ToString().c_str());
}

// True (with the answer set) when the throttle holds this login back: 407
// with the seconds left, logged with the address.
bool Throttled(const AuthContext& ctx, const std::string& account, LoginThrottle* throttle,
               ZEMO::APIResponse* response) {
  int64_t wait = 0;
  orvel::Status st = throttle->Wait(&wait);
  if (!st.ok()) {
    LogThrottleError(st);
    SetErrorMessage(response, kErrInternal, "user database unavailable");
    return true;
  }
  if (wait == 0) return false;
  WEBAPI_LOG(Logger::kWarning, "login of '%s' from %s refused: throttled for %lld s",
             account.c_str(), ctx.env->remote_addr.c_str(), static_cast<long long>(wait));
  Json::Value details(Json::objectValue);
  details["message"] = "too many failed logins, try again later";
  details["retry_after"] = Json::Int64(wait);
  response->SetError(kErrLoginThrottled, details);
  return true;
}

bool CheckPassword(const AuthContext& ctx, orvel::UserDb* db, orvel::UserRecord* user,
                   ZEMO::APIResponse* response) {
  bool has_account = false, has_passwd = false;
  std::string account = StringParam(*ctx.raw, "account", &has_account);
  std::string passwd = StringParam(*ctx.raw, "passwd", &has_passwd);
  if (account.empty()) {
    SetErrorMessage(response, kErrBadParam, "account is required");
    return false;
  }
  LoginThrottle throttle(db, ctx.now, account, ctx.env->remote_addr);
  if (Throttled(ctx, account, &throttle, response)) return false;
  orvel::Status st = db->CheckPassword(account, passwd, user);
  if (st.code() == orvel::kErrPermission || st.code() == orvel::kErrNotFound) {
    WEBAPI_LOG(Logger::kInfo, "login of '%s' from %s refused", account.c_str(),
               ctx.env->remote_addr.c_str());
    LogThrottleError(throttle.Failed());
    SetErrorMessage(response, kErrWrongPassword, "wrong account or password");
    return false;
  }
  if (!st.ok()) {
    WEBAPI_LOG(Logger::kError, "password check failed: %s", st.ToString().c_str());
    SetErrorMessage(response, kErrInternal, "user database unavailable");
    return false;
  }
  LogThrottleError(throttle.Succeeded());
  return AccountUsable(*user, response);
}

void Login(const AuthContext& ctx, ZEMO::APIResponse* response) {
  orvel::UserDb* db = nullptr;
  orvel::Status st = ctx.users->Get(&db);
  orvel::UserRecord user;
  if (!st.ok()) {
    WEBAPI_LOG(Logger::kError, "user database: %s", st.ToString().c_str());
    return SetErrorMessage(response, kErrInternal, "user database unavailable");
  }
  if (!CheckPassword(ctx, db, &user, response)) return;
  orvel::SessionRecord session;
  st = db->CreateSession(user.name, &session);
  if (!st.ok()) {
    WEBAPI_LOG(Logger::kError, "cannot create session: %s", st.ToString().c_str());
    return SetErrorMessage(response, kErrInternal, "cannot create session");
  }
  if (!ctx.session->sid.empty()) db->DeleteSession(ctx.session->sid);
  Json::Value data(Json::objectValue);
  data["sid"] = session.sid;
  data["token"] = session.token;
  response->SetHeader("Set-Cookie", SessionCookie(session.sid, ctx.env->https));
  response->SetHeader("Cache-Control", "no-store");
  response->SetSuccess(data);
}

void Logout(const AuthContext& ctx, ZEMO::APIResponse* response) {
  if (!ctx.session->sid.empty()) {
    orvel::UserDb* db = nullptr;
    orvel::Status st = ctx.users->Get(&db);
    if (st.ok()) st = db->DeleteSession(ctx.session->sid);
    if (!st.ok() && st.code() != orvel::kErrNotFound) {
      WEBAPI_LOG(Logger::kError, "cannot delete session: %s", st.ToString().c_str());
      return SetErrorMessage(response, kErrInternal, "cannot delete session");
    }
  }
  response->SetHeader("Set-Cookie", ExpiredSessionCookie(ctx.env->https));
  response->SetHeader("Cache-Control", "no-store");
  response->SetSuccess();
}

}  // namespace

std::string SessionCookie(const std::string& sid, bool secure) {
  return "id=" + sid + CookieAttributes(secure);
}

std::string ExpiredSessionCookie(bool secure) {
  return "id=" + CookieAttributes(secure) + "; Max-Age=0; Expires=Thu, 01 Jan 1970 00:00:00 GMT";
}

std::set<std::string> BuiltinApiNames() { return {kAuthApi, kInfoApi}; }

void RegisterAuthApi(const AuthContext& ctx, ApiRegistry* registry) {
  registry->AddRange(kAuthApi, "login", kAuthVersions,
                     ApiMethod{[ctx](ZEMO::APIRequest*, ZEMO::APIResponse* r) { Login(ctx, r); },
                               nullptr, "built-in"});
  registry->AddRange(kAuthApi, "logout", kAuthVersions,
                     ApiMethod{[ctx](ZEMO::APIRequest*, ZEMO::APIResponse* r) { Logout(ctx, r); },
                               nullptr, "built-in"});
}

}  // namespace zemo::cgi
