// TokenThrottle; see token_throttle.h.
#include "token_throttle.h"

#include <iterator>

#include "log.h"

namespace orvel::syncd {

Status TokenThrottle::Check(const std::string& address, int64_t now) {
  int64_t wait = 0;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = records_.find(address);
    if (it != records_.end()) wait = ThrottleWait(it->second, now);
  }
  if (wait == 0) return Status::OK();
  SLOG_INFO("sharing token look-up from %s refused: throttled for %lld s", address.c_str(),
            static_cast<long long>(wait));
  return Status(kErrTooManyAttempts, "too many invalid sharing tokens, try again in " +
                                         std::to_string(wait) + " s");
}

void TokenThrottle::Failed(const std::string& address, int64_t now) {
  std::lock_guard<std::mutex> lock(mu_);
  if (records_.count(address) == 0 && records_.size() >= max_keys_) MakeRoom(now);
  ThrottleFailure(policy_, now, &records_[address]);
}

void TokenThrottle::MakeRoom(int64_t now) {
  for (auto it = records_.begin(); it != records_.end();) {
    it = ThrottleIdle(policy_, it->second, now) ? records_.erase(it) : std::next(it);
  }
  if (records_.size() < max_keys_) return;
  auto quietest = records_.begin();
  for (auto it = records_.begin(); it != records_.end(); ++it) {
    if (it->second.last_failure < quietest->second.last_failure) quietest = it;
  }
  records_.erase(quietest);
}

}  // namespace orvel::syncd
