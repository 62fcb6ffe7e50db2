// Search and thumbnail figures:
// - "search" latency through entry.cgi over 10,000 and 100,000 indexed files
//   (one user each; names and text contents indexed), for a selective
//   keyword, a keyword with a snippet and a broad one;
// - "get_thumbnail" of a 12-megapixel JPEG through entry.cgi, cold (each
//   size and format rendered for the first time) and cached;
// - one render of that thumbnail in process with libvips and through the
//   daemon's decoder child (orvel-decode), and the decoder's peak memory.
// The trees are written straight to disk and indexed by the daemon's
// start-up reconciliation; the first search indexes their names and text.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vips/vips.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "bench_support.h"
#include "nimbard/nimbard.h"
#include "stack.h"
#include "thumbnail.h"

namespace {

using Clock = std::chrono::steady_clock;

double Ms(Clock::time_point since) {
  return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}

using orvel::bench::Percentile;
using orvel::bench::WriteJpeg;

// count text files in folders of 1,000; every 5,000th is named "needle".
void FillTree(const std::string& home, int count) {
  ::mkdir(home.c_str(), 0755);
  char name[96], body[96];
  for (int i = 0; i < count; ++i) {
    std::string dir = home + "/d" + std::to_string(i / 1000);
    if (i % 1000 == 0) ::mkdir(dir.c_str(), 0755);
    std::snprintf(name, sizeof(name), "/report-%06d%s.txt", i, i % 5000 == 0 ? "-needle" : "");
    int len = std::snprintf(body, sizeof(body), "entry %d about topic%d and the weather\n", i, i % 1000);
    int fd = ::open((dir + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) {
      (void)!::write(fd, body, static_cast<size_t>(len));
      ::close(fd);
    }
  }
}

void SearchFigures(orvel::test::TestStack& stack, const std::string& user, int files) {
  struct Case {
    const char* label;
    const char* keyword;
    bool snippet;
  };
  const Case cases[] = {{"selective (name)", "needle", false},
                        {"content + snippet", "topic42", true},
                        {"broad (every file)", "weather", false}};
  for (const Case& c : cases) {
    Json::Value q;
    q["keyword"] = c.keyword;
    q["content_snippet"] = c.snippet;
    q["limit"] = 50;
    std::vector<double> ms, service_ms;
    unsigned total = 0;
    for (int i = 0; i < 5; ++i) stack.CallRaw(user, "search", q);  // warm caches
    for (int i = 0; i < 60; ++i) {
      auto t = Clock::now();
      orvel::test::CgiResult r = stack.CallRaw(user, "search", q);
      ms.push_back(Ms(t));
      Json::Value v = r.Json();
      ASSERT_TRUE(v["success"].asBool()) << r.body;
      total = v["data"]["total"].asUInt();
      service_ms.push_back(v["data"]["search_time"].asDouble() * 1000.0);
    }
    std::printf("%8d files  %-20s %6u hits  entry.cgi p50 %7.2f p90 %7.2f  service p50 %7.2f ms\n", files,
                c.label, total, Percentile(ms, 0.5), Percentile(ms, 0.9), Percentile(service_ms, 0.5));
  }
}

TEST(BrowseBench, SearchLatencyAndThumbnails) {
  ASSERT_EQ(VIPS_INIT("browse_bench"), 0);
  auto stack = orvel::test::TestStack::Start();
  stack->AddUser("small");
  stack->AddUser("large");
  stack->StopDaemon();
  ::mkdir((stack->DataDir() + "/homes").c_str(), 0755);
  FillTree(stack->HomeDir("small"), 10000);
  FillTree(stack->HomeDir("large"), 100000);
  const std::string photo = stack->HomeDir("small") + "/photo-12mp.jpg";
  ASSERT_TRUE(WriteJpeg(photo, 4000, 3000));
  auto t = Clock::now();
  stack->StartDaemon();
  Json::Value probe;
  probe["path"] = "/mydrive";
  ASSERT_TRUE(stack->Call("large", "list", probe)["success"].asBool());
  std::printf("start-up reconciliation of 110,000 files: %.2f s\n", Ms(t) / 1000);
  t = Clock::now();
  Json::Value warm;
  warm["keyword"] = "needle";
  ASSERT_TRUE(stack->Call("large", "search", warm)["success"].asBool());
  std::printf("first search (indexes 110,000 names and texts): %.2f s\n", Ms(t) / 1000);

  SearchFigures(*stack, "small", 10000);
  SearchFigures(*stack, "large", 100000);

  // Thumbnails through entry.cgi: cold for each size and format, then cached.
  std::vector<double> cold, cached;
  for (const char* format : {"jpg", "png", "webp"}) {
    for (const char* size : {"small", "medium", "large", "xlarge"}) {
      Json::Value p;
      p["path"] = "/mydrive/photo-12mp.jpg";
      p["size"] = size;
      p["format"] = format;
      auto s = Clock::now();
      orvel::test::CgiResult r = stack->CallRaw("small", "get_thumbnail", p);
      cold.push_back(Ms(s));
      ASSERT_TRUE(r.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE").empty()) << r.headers;
      for (int i = 0; i < 10; ++i) {
        s = Clock::now();
        stack->CallRaw("small", "get_thumbnail", p);
        cached.push_back(Ms(s));
      }
    }
  }
  std::printf("thumbnail of a 12-megapixel JPEG through entry.cgi: cold p50 %.1f max %.1f ms, cached p50 %.2f p90 %.2f ms\n",
              Percentile(cold, 0.5), *std::max_element(cold.begin(), cold.end()), Percentile(cached, 0.5),
              Percentile(cached, 0.9));

  // The daemon's share of a cached thumbnail, and of the smallest request
  // entry.cgi serves (the process start, module load and session check).
  {
    setenv("ZEMO_ROOT", stack->root().c_str(), 1);
    Nimbard client;
    client.SetServer("unix:/tmp/cloud-syncservice", 0);
    client.SetServerVersion(11061);
    client.SetUser("small", "", "");
    std::vector<double> op;
    for (int i = 0; i < 50; ++i) {
      std::string path, name;
      auto s = Clock::now();
      ASSERT_EQ(client.GetThumbnail("/mydrive/photo-12mp.jpg", "jpg", "small", false, path, name), 0);
      op.push_back(Ms(s));
    }
    std::vector<double> bare;
    for (int i = 0; i < 50; ++i) {
      auto s = Clock::now();
      stack->CallRaw("", "no_such_method");
      bare.push_back(Ms(s));
    }
    std::vector<double> get;
    Json::Value g;
    g["path"] = "/mydrive/photo-12mp.jpg";
    for (int i = 0; i < 50; ++i) {
      auto s = Clock::now();
      stack->CallRaw("small", "get", g);
      get.push_back(Ms(s));
    }
    std::printf("baselines: cached thumbnail, daemon op alone p50 %.2f ms; entry.cgi answering without the daemon"
                " p50 %.2f ms; \"get\" of one item through entry.cgi p50 %.2f ms\n",
                Percentile(op, 0.5), Percentile(bare, 0.5), Percentile(get, 0.5));
  }
}

// The cost of rendering one thumbnail of a 12-megapixel JPEG, cold: in
// process with libvips (how the daemon rendered before its decoders moved
// out), and through GetOrMakeThumbnail, which runs orvel-decode in a child
// under the decoder limits. The decoder runs are made from a forked process
// that uses no libvips itself (libvips' threads do not survive a fork), so
// that the peak RSS of its children is the decoder's.
double CpuMs(int who) {
  struct rusage ru;
  ::getrusage(who, &ru);
  return (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1000.0 + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1000.0;
}

std::vector<double> InProcessRenders(const std::string& photo, const std::string& dir, int box) {
  std::vector<double> ms;
  for (int i = 0; i < 7; ++i) {
    auto s = Clock::now();
    VipsImage* thumb = nullptr;
    bool ok = vips_thumbnail(photo.c_str(), &thumb, box, "height", box, "size", VIPS_SIZE_DOWN, nullptr) == 0 &&
              vips_image_write_to_file(thumb, (dir + "/in-process.jpg[Q=85,strip]").c_str(), nullptr) == 0;
    if (thumb) g_object_unref(thumb);
    ms.push_back(ok ? Ms(s) : -1);
  }
  return ms;
}

std::string DecoderRenders(const std::string& photo, const std::string& dir) {
  orvel::syncd::Decoder dec;
  const std::string syncd = orvel::test::SyncdPath();
  dec.program = syncd.substr(0, syncd.find_last_of('/')) + "/orvel-decode";
  std::string report;
  for (const char* size : {"small", "xlarge"}) {
    orvel::syncd::ThumbRequest want;
    want.size = size;
    orvel::syncd::ParseThumbRequest(&want);
    std::vector<double> ms;
    for (int i = 0; i < 7; ++i) {
      orvel::syncd::ScopedFd fd(::open(photo.c_str(), O_RDONLY | O_CLOEXEC));
      std::string out;
      auto s = Clock::now();
      orvel::Status st = orvel::syncd::GetOrMakeThumbnail(dec, dir, fd.get(), "ffffbench" + std::to_string(i),
                                                          "jpg", want, -1, &out);
      ms.push_back(st.ok() ? Ms(s) : -1);
    }
    report += std::string(size) + " " + std::to_string(Percentile(ms, 0.5)) + "\n";
  }
  struct rusage ru;
  ::getrusage(RUSAGE_CHILDREN, &ru);
  report += "rss " + std::to_string(ru.ru_maxrss / 1024) + " cpu " + std::to_string(CpuMs(RUSAGE_CHILDREN)) + "\n";
  return report;
}

TEST(BrowseBench, ThumbnailRenderInProcessAndInDecoder) {
  ASSERT_EQ(VIPS_INIT("browse_bench"), 0);
  char tmpl[] = "/tmp/thumb-bench-XXXXXX";
  ASSERT_NE(::mkdtemp(tmpl), nullptr);
  const std::string dir = tmpl;
  ::chmod(dir.c_str(), 0755);
  const std::string photo = dir + "/photo-12mp.jpg";
  ASSERT_TRUE(WriteJpeg(photo, 4000, 3000));
  for (const char* size : {"small", "xlarge"}) {
    const double cpu_before = CpuMs(RUSAGE_SELF);
    std::vector<double> ms = InProcessRenders(photo, dir, std::string(size) == "small" ? 120 : 1280);
    std::printf("%s thumbnail of a 12-megapixel JPEG, in process: p50 %.1f ms, CPU %.0f ms per render\n", size,
                Percentile(ms, 0.5), (CpuMs(RUSAGE_SELF) - cpu_before) / 7);
  }
  int pipefd[2];
  ASSERT_EQ(::pipe(pipefd), 0);
  pid_t child = ::fork();
  if (child == 0) {
    const std::string report = DecoderRenders(photo, dir);
    (void)!::write(pipefd[1], report.data(), report.size());
    ::_exit(0);
  }
  ::close(pipefd[1]);
  std::string report;
  char buf[512];
  for (ssize_t n; (n = ::read(pipefd[0], buf, sizeof(buf))) > 0;) report.append(buf, static_cast<size_t>(n));
  ::close(pipefd[0]);
  ::waitpid(child, nullptr, 0);
  double small = 0, xlarge = 0, cpu = 0;
  long rss = 0;
  ASSERT_EQ(std::sscanf(report.c_str(), "small %lf\nxlarge %lf\nrss %ld cpu %lf", &small, &xlarge, &rss, &cpu), 4)
      << report;
  std::printf("the same through orvel-decode: small p50 %.1f ms, xlarge p50 %.1f ms; decoder peak RSS %ld MiB, "
              "CPU %.0f ms per render on average\n",
              small, xlarge, rss, cpu / 14);
  EXPECT_GT(small, 0);
  EXPECT_GT(xlarge, 0);
  orvel::syncd::RemoveTree(dir);
}

}  // namespace
