// The per-request stat memo: one look per path inside a request, every look
// outside one; in a persistent worker, no look while the folder is quiet.
#include <gtest/gtest.h>

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "orvelcommon/request_stat.h"

namespace {

class RequestStatTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/request-stat-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    path_ = dir_ + "/switch";
  }
  void TearDown() override {
    ::unlink(path_.c_str());
    ::rmdir(dir_.c_str());
  }
  void Write(const std::string& text) { std::ofstream(path_, std::ios::trunc) << text; }
  // The size the memo reports, or -errno.
  long long Seen() {
    struct stat st;
    if (orvel::RequestStat(path_, &st) != 0) return -errno;
    return static_cast<long long>(st.st_size);
  }

  std::string dir_, path_;
};

TEST_F(RequestStatTest, InsideARequestAPathKeepsItsFirstAnswer) {
  {
    orvel::RequestStatScope request;
    EXPECT_EQ(Seen(), -ENOENT);
    Write("on");
    EXPECT_EQ(Seen(), -ENOENT);  // made during the request: seen by the next
  }
  EXPECT_EQ(Seen(), 2);  // outside a request every call looks
  Write("longer");
  EXPECT_EQ(Seen(), 6);
  {
    orvel::RequestStatScope request;
    EXPECT_EQ(Seen(), 6);
    Write("x");
    EXPECT_EQ(Seen(), 6);
  }
  {
    orvel::RequestStatScope next;  // a new request looks again
    EXPECT_EQ(Seen(), 1);
  }
}

TEST_F(RequestStatTest, NestedScopesShareTheMemoUntilTheOutermostEnds) {
  Write("ab");
  orvel::RequestStatScope outer;
  EXPECT_EQ(Seen(), 2);
  {
    orvel::RequestStatScope inner;
    Write("abcd");
    EXPECT_EQ(Seen(), 2);
  }
  EXPECT_EQ(Seen(), 2);  // still the outer request
}

// The worker's mode: an answer outlives its request until anything happens
// in the path's folder, and a change made between two requests is seen by
// the second.
TEST_F(RequestStatTest, BetweenRequestsAnAnswerIsKeptWhileItsFolderIsQuiet) {
  orvel::KeepStatsBetweenRequests(true);
  Write("ab");
  auto looks_in_a_request = [this](long long* seen) {
    const uint64_t before = orvel::RequestStatLooks();
    orvel::RequestStatScope request;
    *seen = Seen();
    return orvel::RequestStatLooks() - before;
  };
  long long seen = 0;
  EXPECT_EQ(looks_in_a_request(&seen), 1u);
  EXPECT_EQ(looks_in_a_request(&seen), 0u);
  EXPECT_EQ(seen, 2);

  Write("abcd");  // rewritten in place
  EXPECT_EQ(looks_in_a_request(&seen), 1u);
  EXPECT_EQ(seen, 4);
  const std::string other = dir_ + "/other";
  std::ofstream(other) << "x";  // anything in the folder counts
  EXPECT_EQ(looks_in_a_request(&seen), 1u);
  ASSERT_EQ(std::rename(other.c_str(), path_.c_str()), 0);  // replaced by a rename
  EXPECT_EQ(looks_in_a_request(&seen), 1u);
  EXPECT_EQ(seen, 1);
  ASSERT_EQ(::unlink(path_.c_str()), 0);
  EXPECT_EQ(looks_in_a_request(&seen), 1u);
  EXPECT_EQ(seen, -ENOENT);
  EXPECT_EQ(looks_in_a_request(&seen), 0u);  // an absence is kept too

  orvel::KeepStatsBetweenRequests(false);
  EXPECT_EQ(looks_in_a_request(&seen), 1u);
  EXPECT_EQ(looks_in_a_request(&seen), 1u);
}

}  // namespace
