// LoginThrottle; see login_throttle.h. Not thread-safe.
#include "cgi/login_throttle.h"

#include <algorithm>

namespace zemo::cgi {

LoginThrottle::LoginThrottle(orvel::UserDb* db, int64_t now, const std::string& account,
                             const std::string& address)
    : db_(db), now_(now), account_key_("account:" + account), address_key_("address:" + address) {}

orvel::Status LoginThrottle::Wait(int64_t* seconds) {
  *seconds = 0;
  for (const std::string* key : {&account_key_, &address_key_}) {
    orvel::ThrottleRecord rec;
    ORVEL_RETURN_IF_ERROR(db_->GetThrottle(*key, &rec));
    *seconds = std::max(*seconds, orvel::ThrottleWait(rec, now_));
  }
  return orvel::Status::OK();
}

orvel::Status LoginThrottle::CountFailure(const std::string& key) {
  orvel::ThrottleRecord rec;
  ORVEL_RETURN_IF_ERROR(db_->GetThrottle(key, &rec));
  orvel::ThrottleFailure(policy_, now_, &rec);
  return db_->PutThrottle(key, rec);
}

orvel::Status LoginThrottle::Failed() {
  ORVEL_RETURN_IF_ERROR(CountFailure(account_key_));
  ORVEL_RETURN_IF_ERROR(CountFailure(address_key_));
  return db_->PruneThrottle(policy_, now_);
}

orvel::Status LoginThrottle::Succeeded() { return db_->ClearThrottle(account_key_); }

}  // namespace zemo::cgi
