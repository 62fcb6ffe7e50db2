// The client's daemon connections: one connection serves the clients of a
// request one after another, a live client never shares its connection, and
// a connection the daemon has closed is replaced, not reused, and a forked
// child never takes its parent's.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "nimbard/nimbard.h"
#include "orvelcommon/pobject.h"
#include "orvelcommon/wire.h"

namespace {

// A daemon stand-in: answers every request with the number of requests seen
// on that connection so far; with close_after_answer it hangs up after each.
class FakeDaemon {
 public:
  FakeDaemon(const std::string& path, bool close_after_answer)
      : close_after_answer_(close_after_answer) {
    listen_fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    EXPECT_EQ(0, ::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    EXPECT_EQ(0, ::listen(listen_fd_, 8));
    thread_ = std::thread([this] { Run(); });
  }
  ~FakeDaemon() {
    ::shutdown(listen_fd_, SHUT_RDWR);
    thread_.join();
    ::close(listen_fd_);
  }
  int accepted() const { return accepted_; }
  int hung_up() const { return *hung_up_; }

 private:
  void Run() {
    for (;;) {
      int fd = ::accept(listen_fd_, nullptr, nullptr);
      if (fd < 0) return;
      ++accepted_;
      // Detached: a connection may stay open in the client's cache after
      // this object is gone, so the thread owns what it uses.
      std::thread(Serve, fd, close_after_answer_, hung_up_).detach();
    }
  }
  static void Serve(int fd, bool close_after_answer, std::shared_ptr<std::atomic<int>> hung_up) {
    unsigned long long served = 0;
    for (;;) {
      PObject request;
      if (!orvel::wire::ReadFrame(fd, &request).ok()) break;
      PObject result = PObject::MakeMap();
      result["served"] = ++served;
      if (!orvel::wire::WriteFrame(fd, orvel::wire::OkAnswer(result)).ok()) break;
      if (close_after_answer) break;
    }
    ::close(fd);
    ++*hung_up;
  }

  bool close_after_answer_;
  int listen_fd_ = -1;
  std::atomic<int> accepted_{0};
  std::shared_ptr<std::atomic<int>> hung_up_ = std::make_shared<std::atomic<int>>(0);
  std::thread thread_;
};

class DaemonConnection : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/nimbard-conn-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(tmpl));
    dir_ = tmpl;
    ::unsetenv("ZEMO_ROOT");
    ++round_;
    path_ = dir_ + "/sock" + std::to_string(round_);
  }
  void TearDown() override {
    ::unlink(path_.c_str());
    ::rmdir(dir_.c_str());
  }
  // One client's call; the number the daemon gave it, or -1.
  long long CallOnce(Nimbard& client) { return CallAt(client, path_); }
  long long CallAt(Nimbard& client, const std::string& path) {
    client.SetServer("unix:" + path, 0);
    PObject result;
    if (client.Call("ping", PObject::MakeMap(), &result) < 0) return -1;
    return static_cast<long long>(result["served"].asUInt64());
  }

  static int round_;
  std::string dir_, path_;
};
int DaemonConnection::round_ = 0;

TEST_F(DaemonConnection, SuccessiveClientsShareOneConnection) {
  FakeDaemon daemon(path_, false);
  for (long long expected = 1; expected <= 3; ++expected) {
    Nimbard client;
    EXPECT_EQ(expected, CallOnce(client));
  }
  EXPECT_EQ(1, daemon.accepted());
}

TEST_F(DaemonConnection, LiveClientsNeverShare) {
  FakeDaemon daemon(path_, false);
  Nimbard first, second;
  EXPECT_EQ(1, CallOnce(first));
  EXPECT_EQ(1, CallOnce(second));
  EXPECT_EQ(2, CallOnce(first));
  EXPECT_EQ(2, daemon.accepted());
}

TEST_F(DaemonConnection, ClosedConnectionIsReplaced) {
  FakeDaemon daemon(path_, true);
  {
    Nimbard client;
    EXPECT_EQ(1, CallOnce(client));
  }
  // The daemon hung up after answering: the next client must not get that
  // connection (its call would fail), but a new one.
  while (daemon.hung_up() < 1) std::this_thread::yield();
  Nimbard client;
  EXPECT_EQ(1, CallOnce(client));
  EXPECT_EQ(2, daemon.accepted());
}

// A child's call on the parent's cached connection would read the answer
// meant for the parent (or the other way round).
TEST_F(DaemonConnection, AForkedChildConnectsAnew) {
  FakeDaemon daemon(path_, false);
  {
    Nimbard client;
    EXPECT_EQ(1, CallOnce(client));
  }
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    Nimbard client;
    ::_exit(CallOnce(client) == 1 ? 0 : 1);  // 1: its own connection's first answer
  }
  int status = 0;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  Nimbard client;
  EXPECT_EQ(2, CallOnce(client));  // the parent's connection, untouched
  EXPECT_EQ(2, daemon.accepted());
}

// Connections to other daemons (other paths) fill the cache: the one used
// last is kept and the one idle longest makes room.
TEST_F(DaemonConnection, AFullCacheDropsTheConnectionIdleLongest) {
  std::vector<std::unique_ptr<FakeDaemon>> daemons;
  std::vector<std::string> paths;
  for (int i = 0; i < 5; ++i) {
    paths.push_back(path_ + "-" + std::to_string(i));
    daemons.push_back(std::make_unique<FakeDaemon>(paths.back(), false));
    Nimbard client;
    EXPECT_EQ(1, CallAt(client, paths.back()));
  }
  Nimbard last, first;
  EXPECT_EQ(2, CallAt(last, paths[4]));   // kept
  EXPECT_EQ(1, CallAt(first, paths[0]));  // dropped for the fifth
  daemons.clear();
  for (const std::string& p : paths) ::unlink(p.c_str());
}

}  // namespace
