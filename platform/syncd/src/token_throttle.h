// TokenThrottle: the throttle on sharing-link look-ups. A visitor who names
// unknown or expired sharing tokens is guessing; failures are counted per
// client address (the request's "forward" address, as the web module passes
// it) with the policy of orvelcommon/throttle.h, and an address that must wait is
// refused with kErrTooManyAttempts before its token is looked up. Records
// live in memory, at most max_keys of them (idle ones are dropped first, then
// the quietest). Thread-safe (one mutex).
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include "orvelcommon/status.h"
#include "orvelcommon/throttle.h"

namespace orvel::syncd {

class TokenThrottle {
 public:
  explicit TokenThrottle(size_t max_keys = 65536) : max_keys_(max_keys) {}
  TokenThrottle(const TokenThrottle&) = delete;
  TokenThrottle& operator=(const TokenThrottle&) = delete;

  // OK when address may look a token up at now; else kErrTooManyAttempts
  // with the seconds left in the message (logged with the address).
  Status Check(const std::string& address, int64_t now);
  // Counts a failed look-up (unknown or expired token) from address.
  void Failed(const std::string& address, int64_t now);

 private:
  void MakeRoom(int64_t now);

  const size_t max_keys_;
  ThrottlePolicy policy_;
  std::mutex mu_;
  std::unordered_map<std::string, ThrottleRecord> records_;
};

}  // namespace orvel::syncd
