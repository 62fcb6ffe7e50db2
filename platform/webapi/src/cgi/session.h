// Who is calling: the session a request presents, resolved against the user
// database. A session is presented either as the parameter "_sid", or as the
// cookie "id" together with the session's token (header X-ZEMO-Token or
// parameter "_token"); a cookie without the matching token is ignored, so a
// page on another site cannot act with the browser's cookie. The account is
// checked on every request: the sessions of an account that is disabled,
// expired or deleted are ended and its caller is anonymous. One request per
// process; not thread-safe.
#pragma once

#include <memory>
#include <string>

#include "cgi/cgi_env.h"
#include "cgi/form_params.h"
#include "orvelcommon/status.h"
#include "orvelcommon/user_db.h"
#include "zemo/webapi.h"

namespace zemo::cgi {

// The user database, opened on first use (a request without a session never
// touches it).
class UserDbHandle {
 public:
  explicit UserDbHandle(std::string path) : path_(std::move(path)) {}
  UserDbHandle(const UserDbHandle&) = delete;
  UserDbHandle& operator=(const UserDbHandle&) = delete;
  // *db is valid while the handle lives.
  orvel::Status Get(orvel::UserDb** db);
  // Closes the database (it is opened again on the next Get).
  void Close() { db_.reset(); }

 private:
  std::string path_;
  std::unique_ptr<orvel::UserDb> db_;
};

struct SessionLimits {
  unsigned idle_seconds = 3600;
  unsigned max_seconds = 604800;
};

struct ResolvedSession {
  ZEMO::LoginInfo login;  // "" / -1 when no valid session was presented
  std::string sid;        // the session found (also when timed out), else ""
                          // ("" too when its account may not act any more)
  orvel::UserRecord user;  // the account, when login.user is set
};

// Resolves the caller. Errors only when the user database cannot be read
// (its status); an unknown session or a missing token is an anonymous caller.
orvel::Status ResolveSession(const CgiEnv& env, const RawParams& params, const SessionLimits& limits,
                             UserDbHandle* users, ResolvedSession* out);

// Compares two secrets in time independent of where they differ.
bool SecretEquals(const std::string& a, const std::string& b);

}  // namespace zemo::cgi
