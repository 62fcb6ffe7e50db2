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

// A path means another file when a folder or a link above its folder is
// renamed, replaced or removed; nothing in the watched folder itself moves.
TEST_F(RequestStatTest, BetweenRequestsAChangeAboveTheFolderIsSeen) {
  orvel::KeepStatsBetweenRequests(true);
  const std::string top = dir_ + "/top", conf = top + "/etc", held = dir_ + "/held";
  ASSERT_EQ(::mkdir(top.c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(conf.c_str(), 0755), 0);
  auto size_in_a_request = [](const std::string& path) {
    orvel::RequestStatScope request;
    struct stat st;
    return orvel::RequestStat(path, &st) == 0 ? static_cast<long long>(st.st_size) : -errno;
  };
  auto fill = [](const std::string& path, size_t size) { std::ofstream(path) << std::string(size, 'x'); };
  fill(conf + "/orvel.conf", 1);
  const std::string path = top + "/etc/orvel.conf";
  EXPECT_EQ(size_in_a_request(path), 1);
  const uint64_t looks = orvel::RequestStatLooks();
  ASSERT_EQ(::mkdir((dir_ + "/beside").c_str(), 0755), 0);  // not on the way: kept
  EXPECT_EQ(size_in_a_request(path), 1);
  EXPECT_EQ(orvel::RequestStatLooks(), looks);

  // The folder two levels up renamed away and another put in its place.
  ASSERT_EQ(std::rename(top.c_str(), held.c_str()), 0);
  ASSERT_EQ(::mkdir(top.c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(conf.c_str(), 0755), 0);
  fill(conf + "/orvel.conf", 2);
  EXPECT_EQ(size_in_a_request(path), 2);
  EXPECT_EQ(size_in_a_request(path), 2);  // watched anew: kept again
  EXPECT_EQ(orvel::RequestStatLooks(), looks + 1);

  // A link on the way replaced by a rename over it, as `ln -sfn` does.
  const std::string link = dir_ + "/current", next = dir_ + "/next";
  ASSERT_EQ(::symlink("held", link.c_str()), 0);
  const std::string through_link = link + "/etc/orvel.conf";
  EXPECT_EQ(size_in_a_request(through_link), 1);
  ASSERT_EQ(::symlink("top", next.c_str()), 0);
  ASSERT_EQ(std::rename(next.c_str(), link.c_str()), 0);
  EXPECT_EQ(size_in_a_request(through_link), 2);

  // The folder itself removed.
  ASSERT_EQ(::unlink((conf + "/orvel.conf").c_str()), 0);
  ASSERT_EQ(::rmdir(conf.c_str()), 0);
  EXPECT_EQ(size_in_a_request(path), -ENOENT);

  orvel::KeepStatsBetweenRequests(false);
  ASSERT_EQ(::unlink(link.c_str()), 0);
  ASSERT_EQ(::unlink((held + "/etc/orvel.conf").c_str()), 0);
  for (const std::string& d : {held + "/etc", held, top, dir_ + "/beside"}) ASSERT_EQ(::rmdir(d.c_str()), 0) << d;
}

}  // namespace
