// The child runner of orvel-syncd (child.h): the limits and identity a child
// really runs with, what it reports for each way a child ends, and the bound
// on captured output.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include <string>

#include "child.h"

namespace orvel::syncd {
namespace {

ChildResult RunScript(const std::string& script, const ChildLimits& limits = ChildLimits(), size_t capture = 4096) {
  ChildSpec job;
  job.argv = {"/bin/sh", "-c", script};
  job.env = {"PATH=/usr/bin:/bin"};
  job.capture_stdout = capture;
  job.limits = limits;
  ChildResult r;
  Status st = RunChild(job, &r);
  EXPECT_TRUE(st.ok()) << st.ToString();
  return r;
}

TEST(RunChild, AppliesTheLimitsAndDropsRoot) {
  ChildLimits l;
  l.memory_bytes = 512ull << 20;
  l.seconds = 7;
  l.file_bytes = 1 << 20;
  l.unprivileged = true;
  ChildResult r = RunScript("ulimit -v; ulimit -t; ulimit -f; ulimit -c; ls /proc/self/fd | wc -l; id -u; id -G", l);
  ASSERT_EQ(r.end, ChildEnd::kExited);
  EXPECT_EQ(r.code, 0) << r.err;
#if defined(__SANITIZE_ADDRESS__)
  const std::string memory = "unlimited";  // the sanitizer's shadow memory cannot live with a limit
#else
  const std::string memory = "524288";
#endif
  // CPU time has one second of grace over the wall clock; the file size is
  // in 512-byte blocks; ls sees 0 to 2 and its own folder descriptor only.
  const std::string limits = memory + "\n8\n2048\n0\n4\n";
  EXPECT_EQ(r.out.substr(0, limits.size()), limits) << r.out;
  if (geteuid() == 0) {
    EXPECT_EQ(r.out.substr(limits.size()), "65534\n65534\n");
  }
}

TEST(RunChild, ReportsEachEnd) {
  ChildResult r = RunScript("echo out; echo err >&2; exit 3");
  EXPECT_EQ(r.end, ChildEnd::kExited);
  EXPECT_EQ(r.code, 3);
  EXPECT_EQ(r.out, "out\n");
  EXPECT_EQ(r.err, "err\n");

  r = RunScript("kill -SEGV $$");
  EXPECT_EQ(r.end, ChildEnd::kSignalled);
  EXPECT_EQ(r.code, SIGSEGV);

  ChildLimits l;
  l.seconds = 1;
  r = RunScript("exec sleep 600", l);
  EXPECT_EQ(r.end, ChildEnd::kTimedOut);

  ChildSpec job;
  job.argv = {"/bin/sleep", "600"};
  int calls = 0;
  job.cancelled = [&calls] { return ++calls == 2; };
  ASSERT_TRUE(RunChild(job, &r).ok());
  EXPECT_EQ(r.end, ChildEnd::kCancelled);

  job.argv = {"/nonexistent/program"};
  Status st = RunChild(job, &r);
  EXPECT_EQ(st.code(), kErrNotFound);
  EXPECT_EQ(st.message(), "exec /nonexistent/program: No such file or directory");
}

TEST(RunChild, KeepsOnlyTheStartOfLongOutput) {
  ChildResult r = RunScript("head -c 1000000 /dev/zero | tr '\\0' a; head -c 10000 /dev/zero >&2", ChildLimits(), 100);
  EXPECT_EQ(r.end, ChildEnd::kExited);
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out, std::string(100, 'a'));
  EXPECT_EQ(r.err.size(), 4096u);
}

}  // namespace
}  // namespace orvel::syncd
