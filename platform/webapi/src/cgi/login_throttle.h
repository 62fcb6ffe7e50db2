// LoginThrottle: the login throttle of entry.cgi. Every login is checked
// against two records in the user database, one for the account named and
// one for the client's address (orvelcommon/throttle.h gives the policy: free
// failures, then doubling delays, then a lock that grows with each lock). A
// wrong password counts against both; the right one clears the account's
// record (the address's is left to age out, so that logging into one's own
// account does not pay for guesses at others). One login per object; not
// thread-safe.
#pragma once

#include <cstdint>
#include <string>

#include "orvelcommon/status.h"
#include "orvelcommon/user_db.h"

namespace zemo::cgi {

class LoginThrottle {
 public:
  // db must outlive the object; now is the throttle's clock.
  LoginThrottle(orvel::UserDb* db, int64_t now, const std::string& account,
                const std::string& address);
  LoginThrottle(const LoginThrottle&) = delete;
  LoginThrottle& operator=(const LoginThrottle&) = delete;

  // *seconds: how long the login must still wait (the longer of the two
  // records); 0 when it may be tried. Errors are the database's.
  orvel::Status Wait(int64_t* seconds);
  // Counts a wrong password against the account and the address.
  orvel::Status Failed();
  // The password matched: the account's record is cleared.
  orvel::Status Succeeded();

 private:
  orvel::Status CountFailure(const std::string& key);

  orvel::UserDb* db_;
  int64_t now_;
  std::string account_key_, address_key_;
  orvel::ThrottlePolicy policy_;
};

}  // namespace zemo::cgi
