// Session resolution; see session.h. Not thread-safe.
#include "cgi/session.h"

#include "internal/log.h"

namespace zemo::cgi {

namespace {

static constexpr char kLogSource[] = "session";

// Looks sid up: OK with *found set, or the database's error.
orvel::Status Lookup(UserDbHandle* users, const std::string& sid, const SessionLimits& limits,
                     orvel::SessionRecord* rec, bool* found) {
  *found = false;
  orvel::UserDb* db = nullptr;
  ORVEL_RETURN_IF_ERROR(users->Get(&db));
  orvel::Status st = db->LookupSession(sid, limits.idle_seconds, limits.max_seconds, rec);
  if (st.code() == orvel::kErrNotFound) return orvel::Status::OK();
  ORVEL_RETURN_IF_ERROR(st);
  *found = true;
  return orvel::Status::OK();
}

// The session of "_sid", or of the cookie when the token matches it.
orvel::Status FindSession(const CgiEnv& env, const RawParams& params, const SessionLimits& limits,
                          UserDbHandle* users, orvel::SessionRecord* rec, bool* found) {
  *found = false;
  bool has_sid = false;
  std::string sid = StringParam(params, "_sid", &has_sid);
  if (!sid.empty()) {
    ORVEL_RETURN_IF_ERROR(Lookup(users, sid, limits, rec, found));
    if (*found) return orvel::Status::OK();
  }
  bool has_cookie = false;
  std::string cookie_sid = CookieValue(env.cookie, "id", &has_cookie);
  bool has_token_param = false;
  std::string token = env.token_header;
  if (token.empty()) token = StringParam(params, "_token", &has_token_param);
  if (cookie_sid.empty() || token.empty()) return orvel::Status::OK();
  ORVEL_RETURN_IF_ERROR(Lookup(users, cookie_sid, limits, rec, found));
  if (*found && !SecretEquals(token, rec->token)) {
    WEBAPI_LOG(Logger::kInfo, "cookie session ignored: token does not match");
    *found = false;
  }
  return orvel::Status::OK();
}

// Why the account may not act any more, or nullptr when it may.
const char* AccountUnusable(const orvel::UserRecord& user) {
  if (!user.enabled || !user.system_enabled) return "disabled";
  if (user.expired) return "expired";
  return nullptr;
}

// Ends every session of an account that may not act (its caller is then
// anonymous). A failure to delete is logged; the caller stays anonymous.
void EndSessionsOf(orvel::UserDb* db, const std::string& user, const char* why) {
  WEBAPI_LOG(Logger::kInfo, "sessions of '%s' ended: account %s", user.c_str(), why);
  orvel::Status st = db->DeleteUserSessions(user);
  if (!st.ok()) WEBAPI_LOG(Logger::kError, "cannot end sessions: %s", st.ToString().c_str());
}

}  // namespace

orvel::Status UserDbHandle::Get(orvel::UserDb** db) {
  if (!db_) ORVEL_RETURN_IF_ERROR(orvel::UserDb::Open(path_, &db_));
  *db = db_.get();
  return orvel::Status::OK();
}

bool SecretEquals(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    diff |= static_cast<unsigned char>(a[i] ^ b[i]);
  }
  return diff == 0;
}

orvel::Status ResolveSession(const CgiEnv& env, const RawParams& params, const SessionLimits& limits,
                             UserDbHandle* users, ResolvedSession* out) {
  *out = ResolvedSession();
  orvel::SessionRecord rec;
  bool found = false;
  ORVEL_RETURN_IF_ERROR(FindSession(env, params, limits, users, &rec, &found));
  if (!found) return orvel::Status::OK();
  orvel::UserDb* db = nullptr;
  ORVEL_RETURN_IF_ERROR(users->Get(&db));
  orvel::UserRecord user;
  orvel::Status st = db->GetUser(rec.user, &user);
  if (st.code() == orvel::kErrNotFound) {
    EndSessionsOf(db, rec.user, "deleted");
    return orvel::Status::OK();
  }
  ORVEL_RETURN_IF_ERROR(st);
  if (const char* why = AccountUnusable(user)) {
    EndSessionsOf(db, user.name, why);
    return orvel::Status::OK();
  }
  out->sid = rec.sid;
  out->login.user = user.name;
  out->login.uid = static_cast<int>(user.uid);
  out->login.admin = user.admin;
  out->login.timed_out = rec.timed_out;
  out->user = std::move(user);
  return orvel::Status::OK();
}

}  // namespace zemo::cgi
