// Latency of "list" (one page of 100 items) through entry.cgi, in folders of
// 100, 10,000 and 100,000 items. The folders are written straight to disk and
// indexed by the daemon's start-up reconciliation, as an administrator's
// restore would be. Prints p50/p90/p99 per folder size.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "bench_support.h"
#include "stack.h"

namespace {

using orvel::bench::FillFolder;
using orvel::bench::Percentile;

TEST(ListBench, PageLatencyAgainstFolderSize) {
  auto stack = orvel::test::TestStack::Start();
  stack->AddUser("bench");
  const int sizes[] = {100, 10000, 100000};
  stack->StopDaemon();
  const std::string home = stack->HomeDir("bench");
  ::mkdir((stack->DataDir() + "/homes").c_str(), 0755);
  ::mkdir(home.c_str(), 0755);
  for (int n : sizes) FillFolder(home + "/f" + std::to_string(n), n);
  auto t0 = std::chrono::steady_clock::now();
  stack->StartDaemon();
  // The daemon answers once its start-up reconciliation has indexed the tree.
  Json::Value probe;
  probe["path"] = "/mydrive";
  Json::Value first_answer = stack->Call("bench", "list", probe);
  ASSERT_TRUE(first_answer["success"].asBool()) << first_answer;
  double boot = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  std::printf("start-up reconciliation of %d files: %.2f s\n", 100 + 10000 + 100000, boot);

  const int kRuns = 200;
  std::printf("%-10s %-8s %8s %8s %8s  (ms, list of one page of 100 through entry.cgi)\n",
              "items", "page", "p50", "p90", "p99");
  for (int n : sizes) {
   for (int offset : {0, n / 2}) {
    Json::Value params;
    params["path"] = "/mydrive/f" + std::to_string(n);
    params["limit"] = 100;
    params["offset"] = offset;
    Json::Value first = stack->Call("bench", "list", params);
    ASSERT_TRUE(first["success"].asBool()) << first;
    ASSERT_EQ(first["data"]["total"].asInt(), n);
    std::vector<double> ms;
    for (int i = 0; i < kRuns; ++i) {
      auto s = std::chrono::steady_clock::now();
      orvel::test::CgiResult r = stack->CallRaw("bench", "list", params);
      ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - s).count());
      ASSERT_EQ(r.exit_code, 0);
    }
    std::printf("%-10d %-8s %8.2f %8.2f %8.2f\n", n, offset == 0 ? "first" : "middle",
                Percentile(ms, 0.5), Percentile(ms, 0.9), Percentile(ms, 0.99));
   }
  }
}

}  // namespace
