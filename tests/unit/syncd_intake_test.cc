// What the daemon takes from a client before it looks further: the staged
// data file of upload_file/update_file (only a regular file of the peer's
// lying directly in @tmp) and the throttle on sharing-token look-ups.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "nimbard/file.h"
#include "staged_data.h"
#include "token_throttle.h"

namespace orvel::syncd {
namespace {

class StagedDataTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/orvel-staged-XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    layout_ = Layout::ForDataDir(root_ + "/data");
    ASSERT_TRUE(layout_.Create().ok());
  }
  void TearDown() override { File::Remove(root_); }

  std::string Write(const std::string& path, const std::string& content = "data") {
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  // The refusal message for data_path from peer uid, or "OK".
  std::string Open(const std::string& data_path, uid_t peer = 0) {
    StagedData s;
    Status st = OpenStagedData(layout_, peer, data_path, &s);
    if (st.ok()) return "OK";
    EXPECT_EQ(st.code(), kErrInvalidArgument) << st.ToString();
    return st.message();
  }
  bool Exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
  }

  std::string root_;
  Layout layout_;
};

TEST_F(StagedDataTest, TakesAFileDirectlyInTmp) {
  std::string path = Write(layout_.tmp + "/upload-1", "hello");
  StagedData s;
  ASSERT_TRUE(OpenStagedData(layout_, 0, path, &s).ok());
  EXPECT_EQ(s.path, path);
  EXPECT_EQ(s.st.st_size, 5);
  char buf[8] = {};
  EXPECT_EQ(::read(s.fd.get(), buf, sizeof(buf)), 5);
  // Another spelling of @tmp names the same folder; the daemon uses its own.
  ASSERT_TRUE(OpenStagedData(layout_, 0, root_ + "/data/homes/../@tmp/upload-1", &s).ok());
  EXPECT_EQ(s.path, path);
}

TEST_F(StagedDataTest, RefusesAnythingElseAndTouchesNothing) {
  std::string outside = Write(root_ + "/secret");
  ASSERT_EQ(::mkdir((layout_.tmp + "/sub").c_str(), 0700), 0);
  std::string nested = Write(layout_.tmp + "/sub/f");
  ASSERT_EQ(::symlink(outside.c_str(), (layout_.tmp + "/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((layout_.tmp + "/fifo").c_str(), 0600), 0);
  EXPECT_EQ(Open(outside), "file_data_path refused (not directly in the temp folder): " + outside);
  EXPECT_EQ(Open(nested), "file_data_path refused (not directly in the temp folder): " + nested);
  EXPECT_EQ(Open(layout_.tmp + "/link"),
            "file_data_path refused (a symbolic link): " + layout_.tmp + "/link");
  EXPECT_EQ(Open(layout_.tmp + "/sub"),
            "file_data_path refused (not a regular file): " + layout_.tmp + "/sub");
  EXPECT_EQ(Open(layout_.tmp + "/fifo"),
            "file_data_path refused (not a regular file): " + layout_.tmp + "/fifo");
  EXPECT_EQ(Open("upload-1"), "file_data_path refused (not an absolute path): upload-1");
  EXPECT_EQ(Open(layout_.tmp + "/.."),
            "file_data_path refused (no file name): " + layout_.tmp + "/..");
  EXPECT_TRUE(Exists(outside));
  EXPECT_TRUE(Exists(nested));
  EXPECT_TRUE(Exists(layout_.tmp + "/link"));
  StagedData s;
  EXPECT_EQ(OpenStagedData(layout_, 0, layout_.tmp + "/gone", &s).code(), kErrDataMissing);
}

TEST_F(StagedDataTest, APeerOtherThanRootMustOwnTheFile) {
  std::string path = Write(layout_.tmp + "/upload-2");
  ASSERT_EQ(::chown(path.c_str(), 4242, 4242), 0);
  EXPECT_EQ(Open(path, 4242), "OK");
  EXPECT_EQ(Open(path, 0), "OK");
  EXPECT_EQ(Open(path, 4343), "file_data_path refused (not the caller's file): " + path);
}

TEST(TokenThrottle, CountsFailuresPerAddressAndLocks) {
  TokenThrottle throttle;
  const int64_t t = 1000000;
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(throttle.Check("192.0.2.7", t).ok()) << "look-up " << i + 1;
    throttle.Failed("192.0.2.7", t);
  }
  Status st = throttle.Check("192.0.2.7", t);
  EXPECT_EQ(st.code(), kErrTooManyAttempts);
  EXPECT_EQ(st.message(), "too many invalid sharing tokens, try again in 1 s");
  EXPECT_TRUE(throttle.Check("192.0.2.8", t).ok());  // another address is not held back
  int64_t now = t + 1;
  for (int64_t delay : {2, 4, 8, 16}) {  // failures 6 to 9, each waited out
    ASSERT_TRUE(throttle.Check("192.0.2.7", now).ok());
    throttle.Failed("192.0.2.7", now);
    now += delay;
  }
  ASSERT_TRUE(throttle.Check("192.0.2.7", now).ok());
  throttle.Failed("192.0.2.7", now);  // the tenth locks
  EXPECT_EQ(throttle.Check("192.0.2.7", now).message(),
            "too many invalid sharing tokens, try again in 900 s");
  EXPECT_EQ(throttle.Check("192.0.2.7", now + 899).code(), kErrTooManyAttempts);
  EXPECT_TRUE(throttle.Check("192.0.2.7", now + 900).ok());
}

TEST(TokenThrottle, KeepsAtMostItsLimitOfAddresses) {
  TokenThrottle throttle(2);
  for (int i = 0; i < 5; ++i) throttle.Failed("a", 100);
  throttle.Failed("b", 200);
  throttle.Failed("c", 300);  // full: the quietest ("a") goes
  EXPECT_TRUE(throttle.Check("a", 100).ok());
  for (int i = 0; i < 4; ++i) throttle.Failed("c", 300);
  EXPECT_EQ(throttle.Check("c", 300).code(), kErrTooManyAttempts);
}

}  // namespace
}  // namespace orvel::syncd
