// The guessing throttle's policy: free failures, doubling delays, a lock that
// grows with each lock, and forgetting after quiet time. The clock is the
// `now` each call is given.
#include <gtest/gtest.h>

#include "orvelcommon/throttle.h"

namespace {

using orvel::ThrottleFailure;
using orvel::ThrottlePolicy;
using orvel::ThrottleRecord;
using orvel::ThrottleWait;

// Fails n times, each at the first moment the record allows; returns the
// time of the last failure.
int64_t FailWhenAllowed(const ThrottlePolicy& p, int n, int64_t now, ThrottleRecord* r) {
  for (int i = 0; i < n; ++i) {
    now += ThrottleWait(*r, now);
    ThrottleFailure(p, now, r);
  }
  return now;
}

TEST(Throttle, FreeFailuresThenDoublingDelays) {
  ThrottlePolicy p;
  ThrottleRecord r;
  const int64_t t = 1000000;
  for (int i = 0; i < 4; ++i) {
    ThrottleFailure(p, t, &r);
    EXPECT_EQ(ThrottleWait(r, t), 0) << "failure " << i + 1;
  }
  int64_t now = t;
  for (int64_t delay : {1, 2, 4, 8, 16}) {
    ThrottleFailure(p, now, &r);
    EXPECT_EQ(ThrottleWait(r, now), delay);
    EXPECT_EQ(ThrottleWait(r, now + delay - 1), 1);
    now += delay;
    EXPECT_EQ(ThrottleWait(r, now), 0);
  }
}

TEST(Throttle, TenthFailureLocksAndEachLockIsLonger) {
  ThrottlePolicy p;
  ThrottleRecord r;
  int64_t now = FailWhenAllowed(p, 10, 1000000, &r);
  EXPECT_EQ(ThrottleWait(r, now), 900);
  EXPECT_EQ(r.lockouts, 1);
  // After a lock no failure is free: the next one waits again, and the
  // next lock comes after the delays, twice as long.
  now = FailWhenAllowed(p, 1, now, &r);
  EXPECT_EQ(ThrottleWait(r, now), 1);
  now = FailWhenAllowed(p, 5, now, &r);
  EXPECT_EQ(ThrottleWait(r, now), 1800);
  now = FailWhenAllowed(p, 6, now, &r);
  EXPECT_EQ(ThrottleWait(r, now), 3600);
}

TEST(Throttle, LocksStopGrowingAtTheCeiling) {
  ThrottlePolicy p;
  ThrottleRecord r;
  r.lockouts = 40;  // 900 * 2^40 would overflow a naive shift
  r.failures = p.lock_after - 1;
  r.last_failure = 4990;
  ThrottleFailure(p, 5000, &r);
  EXPECT_EQ(ThrottleWait(r, 5000), p.max_lock_seconds);
}

TEST(Throttle, QuietTimeForgetsFailuresThenLocks) {
  ThrottlePolicy p;
  ThrottleRecord r;
  int64_t now = FailWhenAllowed(p, 10, 1000000, &r);
  const int64_t unlocked = now + ThrottleWait(r, now);
  // Quiet for the failure window after the lock ended: failures are free again.
  now = unlocked + p.forget_failures + 1;
  ThrottleFailure(p, now, &r);
  EXPECT_EQ(ThrottleWait(r, now), 0);
  EXPECT_EQ(r.lockouts, 1);
  EXPECT_FALSE(orvel::ThrottleIdle(p, r, now + p.forget_lockouts));
  // Quiet for a day: the lock count goes too, and the record may be dropped.
  now += p.forget_lockouts + 1;
  EXPECT_TRUE(orvel::ThrottleIdle(p, r, now));
  now = FailWhenAllowed(p, 10, now, &r);
  EXPECT_EQ(ThrottleWait(r, now), 900);
}

}  // namespace
