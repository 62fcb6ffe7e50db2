// The caller's account for the length of one request.
//
// The session check reads the caller's record from the user database; the
// user library (SDK::UserService, SDK::UserAppPrivilege, ZEMOUserGet) then
// answers look-ups of that same name from it instead of reading the
// database again. A request sees one version of its caller, and a module's
// account and privilege checks cost no read of their own. Other names are
// read as before. Thread-safe.
#pragma once

#include <string>

#include "orvelcommon/user_db.h"

namespace zemo {

class RequestUserScope {
 public:
  explicit RequestUserScope(const orvel::UserRecord& caller);
  ~RequestUserScope();
  RequestUserScope(const RequestUserScope&) = delete;
  RequestUserScope& operator=(const RequestUserScope&) = delete;
};

// True and *out filled when an open scope holds the account `name`.
bool RequestUser(const std::string& name, orvel::UserRecord* out);

}  // namespace zemo
