// The service state page: read back only for the daemon that wrote it, never
// from a file anyone else could have written, and never torn.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "orvelcommon/state_page.h"

namespace {

class StatePageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/state-page-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

  // What a client of the daemon pid (running as this test's uid) reads.
  static std::string Read(const std::string& path, pid_t pid) {
    std::string state;
    bool frozen = false;
    if (!orvel::ReadStatePage(path, pid, ::geteuid(), &state, &frozen)) return "(not read)";
    return state + (frozen ? " frozen" : "");
  }

  std::string dir_;
};

TEST_F(StatePageTest, ChangesAreReadBackOnlyForTheWriter) {
  const std::string path = dir_ + "/sock.state";
  orvel::StatePageWriter page;
  ASSERT_TRUE(page.Create(path, "enabled", false).ok());
  EXPECT_EQ(Read(path, ::getpid()), "enabled");
  page.Publish("moving_db", true);
  EXPECT_EQ(Read(path, ::getpid()), "moving_db frozen");
  page.Publish(std::string(80, 'x'), false);  // cut to what the page holds
  EXPECT_EQ(Read(path, ::getpid()), std::string(47, 'x'));

  EXPECT_EQ(Read(path, ::getpid() + 1), "(not read)");  // another daemon
  std::string state;
  bool frozen;
  EXPECT_FALSE(orvel::ReadStatePage(path, ::getpid(), ::geteuid() + 1, &state, &frozen));
  EXPECT_EQ(Read(dir_ + "/none.state", ::getpid()), "(not read)");
}

TEST_F(StatePageTest, APageOthersCouldHaveWrittenIsNotRead) {
  orvel::StatePageWriter page;
  const std::string open = dir_ + "/open.state";
  ASSERT_TRUE(page.Create(open, "enabled", false).ok());
  ASSERT_EQ(::chmod(open.c_str(), 0666), 0);
  EXPECT_EQ(Read(open, ::getpid()), "(not read)");

  const std::string real = dir_ + "/real.state", link = dir_ + "/link.state";
  ASSERT_TRUE(page.Create(real, "enabled", false).ok());
  ASSERT_EQ(::symlink(real.c_str(), link.c_str()), 0);
  EXPECT_EQ(Read(link, ::getpid()), "(not read)");
  EXPECT_EQ(Read(real, ::getpid()), "enabled");
}

// A restarted daemon renames its page over the old one; a reader that had
// the old one mapped reads the new one once the pid it is given changes.
TEST_F(StatePageTest, ANewDaemonsPageReplacesTheOld) {
  const std::string path = dir_ + "/sock.state";
  orvel::StatePageWriter old_page;
  ASSERT_TRUE(old_page.Create(path, "enabled", false).ok());
  ASSERT_EQ(Read(path, ::getpid()), "enabled");

  int ready[2], done[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(done), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    orvel::StatePageWriter page;
    bool ok = page.Create(path, "disabled", true).ok();
    char c = ok ? 'y' : 'n';
    if (::write(ready[1], &c, 1) != 1 || ::read(done[0], &c, 1) != 1) _exit(2);
    _exit(0);
  }
  char c = 0;
  ASSERT_EQ(::read(ready[0], &c, 1), 1);
  EXPECT_EQ(c, 'y');
  EXPECT_EQ(Read(path, child), "disabled frozen");
  EXPECT_EQ(Read(path, ::getpid()), "(not read)");  // the old daemon's page is gone
  ASSERT_EQ(::write(done[1], "x", 1), 1);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  for (int fd : {ready[0], ready[1], done[0], done[1]}) ::close(fd);
}

TEST_F(StatePageTest, AReadNeverMixesTwoChanges) {
  const std::string path = dir_ + "/sock.state";
  orvel::StatePageWriter page;
  ASSERT_TRUE(page.Create(path, "enabled", false).ok());
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    for (bool odd = false; !stop.load(); odd = !odd) page.Publish(odd ? "disabled" : "enabled", odd);
  });
  // A reader that a busy writer keeps from a quiet moment gives up (and the
  // client then asks the daemon); what it reads is one change or the other.
  int torn = 0, read = 0;
  for (int i = 0; i < 200000; ++i) {
    std::string seen = Read(path, ::getpid());
    if (seen == "(not read)") continue;
    ++read;
    if (seen != "enabled" && seen != "disabled frozen") ++torn;
  }
  stop = true;
  writer.join();
  EXPECT_EQ(torn, 0);
  EXPECT_GT(read, 0);
}

}  // namespace
