// Transfer throughput through lighttpd: upload (multipart, hashed and
// durable) and download of a 1 GiB file next to `cp` and `cat` of the same
// file on the same disk, a zip stream of a 1 GiB folder (64 files of
// 16 MiB), and the time of a copy task of a folder of 10,000 small files.
// Prints MB/s and the peak resident memory of entry.cgi, the daemon and the
// archiver seen while each step ran.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "bench_support.h"
#include "stack.h"

namespace orvel::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr uint64_t kGiB = 1ull << 30;

using orvel::bench::RssSampler;
using orvel::bench::WriteRandom;

void Report(const char* what, uint64_t bytes, double seconds, RssSampler* rss) {
  std::printf("%-34s %8.2f s %8.0f MB/s", what, seconds, bytes / seconds / 1e6);
  if (rss) {
    for (const auto& kv : rss->peaks()) std::printf("  %s %ld MiB", kv.first.c_str(), kv.second.kib / 1024);
  }
  std::printf("\n");
  std::fflush(stdout);
}

double Time(const std::function<void()>& fn) {
  auto t0 = Clock::now();
  fn();
  return std::chrono::duration<double>(Clock::now() - t0).count();
}

class TransferBench : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("bench");
    const std::string home = stack_->HomeDir("bench");
    ::mkdir(home.c_str(), 0750);
    ::mkdir((home + "/Folder").c_str(), 0750);
    for (int i = 0; i < 64; ++i) WriteRandom(home + "/Folder/part" + std::to_string(i), 16 << 20);
    ::mkdir((home + "/Small").c_str(), 0750);
    for (int i = 0; i < 10000; ++i) std::ofstream(home + "/Small/f" + std::to_string(i)) << i;
    port_ = FreePort();
    const std::string conf = stack_->root() + "/lighttpd.conf";
    ProcessOutput r = RunProcess(
        {std::string(ORVEL_SOURCE_DIR) + "/scripts/render-lighttpd-conf.sh", stack_->root(),
         std::to_string(port_), std::string(ORVEL_SOURCE_DIR) + "/web", EntryCgiPath(), conf,
         stack_->root() + "/var/packages/ZemoraOrvel/target/var"},
        BaseEnv(stack_->root()));
    ASSERT_EQ(r.exit_code, 0) << r.err;
    lighttpd_ = ::fork();
    if (lighttpd_ == 0) {
      ::execl("/usr/sbin/lighttpd", "lighttpd", "-D", "-f", conf.c_str(), nullptr);
      ::_exit(127);
    }
    for (int i = 0; i < 200 && Curl({"-o", "/dev/null", Url("/")}).exit_code != 0; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
    sid_ = stack_->Login("bench").sid;
  }
  void TearDown() override {
    ::kill(lighttpd_, SIGTERM);
    ::waitpid(lighttpd_, nullptr, 0);
  }
  std::string Url(const std::string& p) { return "http://127.0.0.1:" + std::to_string(port_) + p; }
  ProcessOutput Curl(std::vector<std::string> args) {
    args.insert(args.begin(), {"/usr/bin/curl", "-s", "--max-time", "600"});
    return RunProcess(args, BaseEnv(stack_->root()));
  }
  ProcessOutput Post(const std::vector<std::string>& fields, const std::vector<std::string>& extra = {}) {
    std::vector<std::string> a = {Url("/webapi/entry.cgi"), "-d", "api=ZEMO.ZemoraOrvel.Files", "-d",
                                  "version=1", "-d", "_sid=" + sid_};
    for (const auto& f : fields) a.insert(a.end(), {"--data-urlencode", f});
    a.insert(a.end(), extra.begin(), extra.end());
    return Curl(a);
  }
  std::string TaskOf(const ProcessOutput& out) { return orvel::bench::TaskOf(out.out); }
  void WaitTask(const std::string& id) { orvel::bench::WaitTask("bench", id); }
  std::unique_ptr<TestStack> stack_;
  pid_t lighttpd_ = -1;
  int port_ = 0;
  std::string sid_;
};

TEST_F(TransferBench, Throughput) {
  const std::string src = stack_->root() + "/big.bin";
  WriteRandom(src, kGiB);
  const std::string copy = stack_->root() + "/big.copy";
  std::printf("%-34s %10s %13s  peak resident memory\n", "step", "time", "throughput");
  Report("cp (same disk)", kGiB, Time([&] { RunProcess({"/bin/cp", src, copy}, {}); }), nullptr);
  Report("cat > /dev/null", kGiB, Time([&] { RunProcess({"/bin/sh", "-c", "cat '" + src + "' > /dev/null"}, {}); }),
         nullptr);
  ::unlink(copy.c_str());
  {
    RssSampler rss;
    double s = Time([&] {
      ProcessOutput r = Curl({Url("/webapi/entry.cgi"), "-F", "api=ZEMO.ZemoraOrvel.Files", "-F", "version=1",
                              "-F", "method=upload", "-F", "_sid=" + sid_, "-F", "path=/mydrive/big.bin", "-F",
                              "type=file", "-F", "file=@" + src});
      EXPECT_NE(r.out.find("\"success\":true"), std::string::npos) << r.out;
    });
    Report("upload 1 GiB (curl -F)", kGiB, s, &rss);
  }
  {
    RssSampler rss;
    double s = Time([&] { Post({"method=download", "files=[\"/mydrive/big.bin\"]"}, {"-o", "/dev/null"}); });
    Report("download 1 GiB file", kGiB, s, &rss);
  }
  {
    RssSampler rss;
    ProcessOutput r = Post({"method=download", "files=[\"/mydrive/Folder\"]"});
    std::string id = TaskOf(r);
    WaitTask(id);
    double s = Time([&] { Post({"method=download", "task_id=" + id}, {"-o", "/dev/null"}); });
    Report("zip stream of a 1 GiB folder", kGiB, s, &rss);
  }
  {
    RssSampler rss;
    double s = Time([&] {
      ProcessOutput r = Post({"method=copy", "files=[\"/mydrive/Small\"]", "to_parent_folder=/mydrive"});
      WaitTask(TaskOf(r));
    });
    std::printf("%-34s %8.2f s %8.0f files/s", "copy task, 10,000 files", s, 10000 / s);
    for (const auto& kv : rss.peaks()) std::printf("  %s %ld MiB", kv.first.c_str(), kv.second.kib / 1024);
    std::printf("\n");
  }
}

}  // namespace
}  // namespace orvel::test
