// The guessing throttle's policy; see orvelcommon/throttle.h. Pure functions.
#include "orvelcommon/throttle.h"

#include <algorithm>

namespace orvel {

namespace {

// 2^n seconds, without overflow for large n.
int64_t Doubling(int64_t base, int64_t n, int64_t cap) {
  int64_t v = base;
  for (int64_t i = 0; i < n && v < cap; ++i) v *= 2;
  return std::min(v, cap);
}

void Forget(const ThrottlePolicy& policy, int64_t now, ThrottleRecord* r) {
  // Quiet time counts from the end of the last delay or lock.
  int64_t quiet = now - std::max(r->last_failure, r->blocked_until);
  if (quiet < 0) return;
  if (quiet > policy.forget_failures) r->failures = 0;
  if (quiet > policy.forget_lockouts) r->lockouts = 0;
}

}  // namespace

int64_t ThrottleWait(const ThrottleRecord& r, int64_t now) {
  return now < r.blocked_until ? r.blocked_until - now : 0;
}

void ThrottleFailure(const ThrottlePolicy& policy, int64_t now, ThrottleRecord* r) {
  Forget(policy, now, r);
  r->last_failure = now;
  ++r->failures;
  if (r->failures >= policy.lock_after) {
    r->blocked_until = now + Doubling(policy.lock_seconds, r->lockouts, policy.max_lock_seconds);
    ++r->lockouts;
    // After a lock there are no free failures left until they are forgotten.
    r->failures = policy.free_failures - 1;
  } else if (r->failures >= policy.free_failures) {
    r->blocked_until = now + Doubling(1, r->failures - policy.free_failures, policy.lock_seconds);
  }
}

bool ThrottleIdle(const ThrottlePolicy& policy, const ThrottleRecord& r, int64_t now) {
  return now - std::max(r.last_failure, r.blocked_until) > policy.forget_lockouts;
}

}  // namespace orvel
