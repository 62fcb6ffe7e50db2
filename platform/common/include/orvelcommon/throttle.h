// Throttling of guessing: failed logins (per account and per client address,
// kept in the user database) and failed sharing-link look-ups (per client
// address, kept in the daemon's memory) share this policy. A key may fail a
// few times freely; after that each failure makes it wait a delay that
// doubles, and after more failures the key is locked for a while, longer at
// each lock. Times are seconds on a clock the caller passes in, so that tests
// can move it. Pure functions on plain records; thread-safe.
#pragma once

#include <cstdint>

namespace orvel {

struct ThrottleRecord {
  int64_t failures = 0;       // failures counted towards the next delay or lock
  int64_t lockouts = 0;       // locks so far (each lock is longer)
  int64_t blocked_until = 0;  // no attempt before this time
  int64_t last_failure = 0;
};

struct ThrottlePolicy {
  int64_t free_failures = 5;      // failures that cost no delay
  int64_t lock_after = 10;        // the failure that locks the key
  int64_t lock_seconds = 900;     // the first lock; doubles with each further lock
  int64_t max_lock_seconds = 86400;
  int64_t forget_failures = 900;   // failures are forgotten after this long quiet
  int64_t forget_lockouts = 86400; // and the lock count after this long
};

// Seconds the key must still wait at `now`; 0 when it may try.
int64_t ThrottleWait(const ThrottleRecord& r, int64_t now);

// Records one failure at `now`: forgets what has aged out, then counts the
// failure and sets the delay or the lock it earns.
void ThrottleFailure(const ThrottlePolicy& policy, int64_t now, ThrottleRecord* r);

// True when the record says nothing any more at `now` (it may be dropped).
bool ThrottleIdle(const ThrottlePolicy& policy, const ThrottleRecord& r, int64_t now);

}  // namespace orvel
