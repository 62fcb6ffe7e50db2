// Every figure of the persistent-worker and zero-copy work in one run, each
// next to the anchor it is judged against, through one lighttpd on
// 127.0.0.1 in front of a private stack:
// - small requests at concurrency 8 over keep-alive connections (p50, p99,
//   requests/s): a static file (the anchor), Files "list" of 100 items,
//   "get", "search", a cached "get_thumbnail" and ZEMO.API.Info;
// - Files "upload" of 1 GiB against lighttpd's own WebDAV PUT of it;
// - Files "download" of it against a static GET of the same file;
// - the zip stream of a ~1 GiB folder against that single-file download;
// - the peak resident memory of every process of the stack during a 4 GiB
//   upload and download.
// The bench's lighttpd gets mod_webdav and two static folders appended to
// the rendered configuration; the product's configuration has neither.
// See bench/README.md for the options and how to read the output.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vips/vips.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "bench_support.h"
#include "http_bench_steps.h"
#include "stack.h"

namespace orvel::bench {
namespace {

HttpBenchOptions g_options;

TEST(HttpBench, EveryFigureAgainstItsAnchor) {
  // The product's default mode unless the caller chose one.
  ::setenv("ORVEL_TEST_WEBAPI_MODE", "fastcgi", /*overwrite=*/0);
  std::printf("web API mode: %s\n", std::getenv("ORVEL_TEST_WEBAPI_MODE"));
  std::printf("sizes: transfers %llu MiB, memory run %llu MiB; small requests %.1f s each at concurrency %d\n",
              static_cast<unsigned long long>(g_options.transfer_bytes >> 20),
              static_cast<unsigned long long>(g_options.memory_bytes >> 20), g_options.seconds,
              g_options.concurrency);
  std::string load;
  std::getline(std::ifstream("/proc/loadavg"), load);
  std::printf("load average at start (1, 5, 15 min): %s; %ld cores\n\n", load.substr(0, 14).c_str(),
              ::sysconf(_SC_NPROCESSORS_ONLN));
  std::fflush(stdout);
  auto stack = test::TestStack::Start();
  ASSERT_TRUE(stack);
  struct statvfs fs {};
  ASSERT_EQ(::statvfs(stack->root().c_str(), &fs), 0);
  const uint64_t need = 6 * g_options.transfer_bytes + 2 * g_options.memory_bytes + (1ull << 30);
  ASSERT_GE(static_cast<uint64_t>(fs.f_bavail) * fs.f_frsize, need)
      << "not enough free disk under " << stack->root() << " for these sizes (try --quick)";
  HttpBenchSteps steps(stack.get(), g_options);
  ASSERT_NO_FATAL_FAILURE(steps.SetUp());
  ASSERT_NO_FATAL_FAILURE(steps.SmallRequests());
  if (g_options.small_only) return;
  ASSERT_NO_FATAL_FAILURE(steps.Transfers());
  ASSERT_NO_FATAL_FAILURE(steps.Memory());
  steps.Summary();
}

bool ParseMib(const char* arg, const char* name, uint64_t* out) {
  const size_t n = std::strlen(name);
  if (std::strncmp(arg, name, n) != 0) return false;
  *out = std::strtoull(arg + n, nullptr, 10) << 20;
  return true;
}

}  // namespace
}  // namespace orvel::bench

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  auto& o = orvel::bench::g_options;
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (std::strcmp(a, "--quick") == 0) {
      o.transfer_bytes = 256ull << 20;
      o.memory_bytes = 512ull << 20;
      o.seconds = 1.5;
      o.repeat = 1;
    } else if (std::strcmp(a, "--small-only") == 0) {
      o.small_only = true;
    } else if (std::strncmp(a, "--only=", 7) == 0) {
      o.small_only = true;
      o.only = a + 7;
    } else if (std::strncmp(a, "--seconds=", 10) == 0) {
      o.seconds = std::atof(a + 10);
    } else if (!orvel::bench::ParseMib(a, "--transfer-mib=", &o.transfer_bytes) &&
               !orvel::bench::ParseMib(a, "--memory-mib=", &o.memory_bytes)) {
      std::fprintf(stderr,
                   "usage: %s [--quick] [--small-only] [--only=LABEL] [--transfer-mib=N] [--memory-mib=N] [--seconds=S]\n"
                   "  defaults: --transfer-mib=1024 --memory-mib=4096 --seconds=4\n",
                   argv[0]);
      return 2;
    }
  }
  if (VIPS_INIT(argv[0]) != 0) return 1;
  return RUN_ALL_TESTS();
}
