// The login throttle of entry.cgi end to end: per account and per address,
// doubling delays, a lock that grows, and its expiry. The throttle's clock is
// fixed through orvel.conf ("throttle_clock"), so nothing here depends on
// how long a run takes.
#include <gtest/gtest.h>

#include "webapi_harness.h"

namespace webapi_test {
namespace {

constexpr int64_t kStart = 1700000000;

class LoginThrottle : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.AddUser("alice", "right");
    root_.AddUser("bob", "right");
  }

  // Logs in at the throttle time `at`; the answer.
  CgiOutput Login(const std::string& account, const std::string& passwd, int64_t at,
                  const std::string& address = "192.0.2.7") {
    Json::Value clock(Json::objectValue);
    clock["throttle_clock"] = Json::Int64(at);
    root_.SetConf(clock);
    CgiCall call;
    call.query = "api=ZEMO.API.Auth&method=login&version=6";
    call.content_type = "application/x-www-form-urlencoded";
    call.body = "account=" + account + "&passwd=" + passwd;
    call.remote_addr = address;
    return root_.Run(call);
  }
  static int Code(const CgiOutput& out) {
    return out.json["success"].asBool() ? 0 : out.json["error"]["code"].asInt();
  }
  // Fails `n` times, each at the first moment the throttle allows (read from
  // the 407 answers); returns the time of the last failure.
  int64_t FailWhenAllowed(int n, int64_t at) {
    for (int i = 0; i < n; ++i) {
      CgiOutput out = Login("alice", "wrong", at);
      if (Code(out) == 407) {
        at += out.json["error"]["errors"]["retry_after"].asInt64();
        out = Login("alice", "wrong", at);
      }
      EXPECT_EQ(402, Code(out)) << "failure " << i + 1 << ": " << out.raw;
    }
    return at;
  }

  CgiRoot root_;
};

TEST_F(LoginThrottle, SixthAttemptIsRefusedEvenWithTheRightPassword) {
  for (int i = 0; i < 5; ++i) EXPECT_EQ(402, Code(Login("alice", "wrong", kStart)));
  CgiOutput out = Login("alice", "right", kStart);
  EXPECT_EQ(407, Code(out));
  EXPECT_EQ("too many failed logins, try again later",
            out.json["error"]["errors"]["message"].asString());
  EXPECT_EQ(1, out.json["error"]["errors"]["retry_after"].asInt());
  EXPECT_TRUE(out.Header("Set-Cookie").empty());
  EXPECT_NE(std::string::npos,
            out.err.find("login of 'alice' from 192.0.2.7 refused: throttled for 1 s")) << out.err;
  EXPECT_EQ(0, Code(Login("alice", "right", kStart + 1)));
}

TEST_F(LoginThrottle, LockHoldsTheRightPasswordUntilItExpiresAndGrows) {
  int64_t at = FailWhenAllowed(10, kStart);
  CgiOutput locked = Login("alice", "right", at + 899);
  EXPECT_EQ(407, Code(locked));
  EXPECT_EQ(1, locked.json["error"]["errors"]["retry_after"].asInt());
  // The lock ended: no free failures now, and the next lock is twice as long.
  at = FailWhenAllowed(6, at + 900);
  EXPECT_EQ(1800, Login("alice", "right", at).json["error"]["errors"]["retry_after"].asInt());
  EXPECT_EQ(407, Code(Login("alice", "right", at + 1799)));
  EXPECT_EQ(0, Code(Login("alice", "right", at + 1800, "198.51.100.4")));
}

TEST_F(LoginThrottle, OneAddressGuessingManyAccountsIsHeldBack) {
  for (const char* name : {"a1", "a2", "a3", "a4", "a5"}) {
    EXPECT_EQ(402, Code(Login(name, "guess", kStart)));
  }
  EXPECT_EQ(407, Code(Login("bob", "right", kStart)));
  EXPECT_EQ(0, Code(Login("bob", "right", kStart, "198.51.100.4")));
}

}  // namespace
}  // namespace webapi_test
