// http_bench's transfer and memory steps: upload, download and zip through
// the service against lighttpd's own WebDAV PUT and static GET of the same
// bytes, then a large upload and download while /proc is sampled.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <vector>

#include "http_bench_steps.h"

namespace orvel::bench {
namespace {

constexpr char kUser[] = "bench";
constexpr long kMemoryTargetKib = 64 * 1024;

double Mbps(uint64_t bytes, double seconds) { return static_cast<double>(bytes) / seconds / 1e6; }

// One line: ours against the anchor, best rate of the repeats.
void PrintPair(const char* what, double ours, const char* anchor, double theirs) {
  std::printf("  %-36s %8.0f MB/s   %-22s %8.0f MB/s   %6.2fx\n", what, ours, anchor, theirs, ours / theirs);
  std::fflush(stdout);
}

}  // namespace

std::string HttpBenchSteps::Curl(std::vector<std::string> args) const {
  args.insert(args.begin(), {"/usr/bin/curl", "-sS", "--max-time", "900"});
  test::ProcessOutput r = test::RunProcess(args, test::BaseEnv(stack_->root()));
  EXPECT_EQ(r.exit_code, 0) << r.err;
  return r.out;
}

double HttpBenchSteps::TimedCurl(std::vector<std::string> args, bool api_answer, uint64_t min_download) const {
  args.insert(args.end(), {"-w", "\n%{http_code} %{size_download}"});
  if (!api_answer) args.insert(args.end(), {"-o", "/dev/null"});
  const auto t0 = std::chrono::steady_clock::now();
  const std::string out = Curl(args);
  const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  const size_t last = out.rfind('\n');
  std::istringstream tail(last == std::string::npos ? out : out.substr(last + 1));
  int code = 0;
  uint64_t down = 0;
  tail >> code >> down;
  EXPECT_TRUE(code >= 200 && code < 300) << "HTTP " << code << ": " << out.substr(0, 400);
  if (api_answer) {
    EXPECT_NE(out.find("\"success\":true"), std::string::npos) << out.substr(0, 400);
  }
  EXPECT_GE(down, min_download) << out.substr(0, 400);
  return s;
}

double HttpBenchSteps::Upload(const std::string& src, const std::string& name) const {
  return TimedCurl({Url("/webapi/entry.cgi"), "-F", "api=ZEMO.ZemoraOrvel.Files", "-F", "version=1", "-F",
                    "method=upload", "-F", "_sid=" + sid_, "-F", "path=/mydrive/" + name, "-F", "type=file", "-F",
                    "file=@" + src},
                   true);
}

double HttpBenchSteps::DurableCopy(const std::string& src, const std::string& dst) const {
  const auto start = std::chrono::steady_clock::now();
  const int in = ::open(src.c_str(), O_RDONLY | O_CLOEXEC);
  const int out = ::open(dst.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  EXPECT_GE(in, 0) << src;
  EXPECT_GE(out, 0) << dst;
  std::vector<char> buf(1 << 20);
  for (ssize_t n; in >= 0 && out >= 0 && (n = ::read(in, buf.data(), buf.size())) > 0;) {
    EXPECT_EQ(::write(out, buf.data(), static_cast<size_t>(n)), n);
  }
  EXPECT_EQ(::fdatasync(out), 0);
  ::close(in);
  ::close(out);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  ::unlink(dst.c_str());
  return seconds;
}

double HttpBenchSteps::DavPut(const std::string& src, const std::string& name) const {
  return TimedCurl({"-T", src, Url("/bench-dav/" + name)}, false);
}

double HttpBenchSteps::Download(const std::string& mydrive_path, uint64_t size) const {
  return TimedCurl({Url("/webapi/entry.cgi"), "-d", "api=ZEMO.ZemoraOrvel.Files", "-d", "version=1", "-d",
                    "method=download", "-d", "_sid=" + sid_, "--data-urlencode",
                    "files=[\"" + mydrive_path + "\"]"},
                   false, size);
}

double HttpBenchSteps::StaticGet(const std::string& url_path) const {
  return TimedCurl({Url(url_path)}, false, o_.transfer_bytes);
}

double HttpBenchSteps::Zip(const std::string& mydrive_path) const {
  const std::string answer = Curl({Url("/webapi/entry.cgi"), "-d", "api=ZEMO.ZemoraOrvel.Files", "-d", "version=1",
                                   "-d", "method=download", "-d", "_sid=" + sid_, "--data-urlencode",
                                   "files=[\"" + mydrive_path + "\"]"});
  const std::string id = TaskOf(answer);
  EXPECT_FALSE(id.empty()) << answer;
  WaitTask(kUser, id);
  return TimedCurl({Url("/webapi/entry.cgi"), "-d", "api=ZEMO.ZemoraOrvel.Files", "-d", "version=1", "-d",
                    "method=download", "-d", "_sid=" + sid_, "-d", "task_id=" + id},
                   false, folder_bytes_);
}

// The zip step with the archiver swapped for relay_floor, which only splices
// the files' bytes: the rate the relay allows any archiver. Best of the repeats.
double HttpBenchSteps::RelayFloor(const std::string& mydrive_path) const {
  const std::string link = stack_->root() + "/usr/bin/zip";
  char archiver[4096];
  const ssize_t n = ::readlink(link.c_str(), archiver, sizeof(archiver) - 1);
  EXPECT_GT(n, 0) << link;
  if (n <= 0) return 1e9;
  archiver[n] = '\0';
  auto relink = [&link](const char* target) {
    EXPECT_EQ(::unlink(link.c_str()), 0);
    EXPECT_EQ(::symlink(target, link.c_str()), 0) << target;
  };
  relink(RELAY_FLOOR_PATH);
  double best = 1e9;
  for (int i = 0; i < o_.repeat; ++i) best = std::min(best, Zip(mydrive_path));
  relink(archiver);
  return best;
}

void HttpBenchSteps::PrintRss(const char* step, RssSampler* rss, bool memory_run) {
  std::printf("      peak resident, %-16s", step);
  for (const auto& [name, peak] : rss->peaks()) {
    std::printf("  %s %ld MiB", name.c_str(), peak.kib / 1024);
    if (memory_run) peak_kib_[name] = std::max(peak_kib_[name], peak.kib);
  }
  std::printf("\n");
  std::fflush(stdout);
}

void HttpBenchSteps::Transfers() {
  const uint64_t size = o_.transfer_bytes;
  const std::string src = data_ + "/big.bin";
  std::printf("Transfers of %llu MiB (best of %d, anchor and service alternated)\n",
              static_cast<unsigned long long>(size >> 20), o_.repeat);
  double up = 1e9, dav = 1e9, down = 1e9, get = 1e9, zip = 1e9;
  // The resident-memory sampler reads /proc every 10 ms, which costs CPU the
  // transfer would use; it watches one more, untimed, run of each transfer.
  for (int i = 0; i < o_.repeat; ++i) {
    dav = std::min(dav, DavPut(src, "big.bin"));
    up = std::min(up, Upload(src, "up-" + std::to_string(i) + ".bin"));
  }
  {
    RssSampler rss;
    Upload(src, "up-sampled.bin");
    PrintRss("upload", &rss, false);
  }
  PrintPair("upload (Files \"upload\", multipart)", Mbps(size, up), "WebDAV PUT", Mbps(size, dav));
  targets_.push_back({"upload / WebDAV PUT", dav / up, 1.0, false});
  // Not a target: the disk's own durable rate, which bounds an upload that
  // is fsynced before its answer (the WebDAV PUT is not).
  const double durable = DurableCopy(src, data_ + "/durable.bin");
  PrintPair("  the same upload, against the disk", Mbps(size, up), "copy + fdatasync", Mbps(size, durable));
  for (int i = 0; i < o_.repeat; ++i) {
    get = std::min(get, StaticGet("/bench-home/up-0.bin"));
    down = std::min(down, Download("/mydrive/up-0.bin", size));
  }
  {
    RssSampler rss;
    Download("/mydrive/up-0.bin", size);
    PrintRss("download", &rss, false);
  }
  PrintPair("download (Files \"download\")", Mbps(size, down), "static GET, same file", Mbps(size, get));
  targets_.push_back({"download / static GET", get / down, 0.95, false});
  for (int i = 0; i < o_.repeat; ++i) zip = std::min(zip, Zip("/mydrive/Folder"));
  {
    RssSampler rss;
    Zip("/mydrive/Folder");
    PrintRss("zip", &rss, true);  // the archiver runs only here
  }
  PrintPair("zip of a folder, 95 files", Mbps(folder_bytes_, zip), "the download above", Mbps(size, down));
  targets_.push_back({"zip / single-file download", down / zip * static_cast<double>(folder_bytes_) / size, 0.8,
                      false});
  const double floor = RelayFloor("/mydrive/Folder");
  PrintPair("  the same, producer at no cost", Mbps(folder_bytes_, floor), "the download above", Mbps(size, down));
  ::unlink(src.c_str());
  ::unlink((data_ + "/dav/big.bin").c_str());
  std::printf("\n");
}

void HttpBenchSteps::Memory() {
  const uint64_t size = o_.memory_bytes;
  const std::string src = data_ + "/memory.bin";
  WriteRandom(src, size);
  std::printf("Memory during a %llu MiB upload and download (every process of the stack, from /proc)\n",
              static_cast<unsigned long long>(size >> 20));
  {
    RssSampler rss;
    const double s = Upload(src, "memory.bin");
    std::printf("  upload   %8.0f MB/s\n", Mbps(size, s));
    PrintRss("upload", &rss, true);
  }
  ::unlink(src.c_str());
  {
    RssSampler rss;
    const double s = Download("/mydrive/memory.bin", size);
    std::printf("  download %8.0f MB/s\n", Mbps(size, s));
    PrintRss("download", &rss, true);
  }
  for (const auto& [name, kib] : peak_kib_) {
    targets_.push_back({"peak resident MiB, " + name + (name == "zip" ? " (zip step)" : ""), kib / 1024.0, kMemoryTargetKib / 1024.0, true});
  }
  std::printf("\n");
}

void HttpBenchSteps::Summary() {
  std::printf("Targets (measured in this run)\n");
  int missed = 0;
  for (const Target& t : targets_) {
    const bool ok = t.at_most ? t.value <= t.target : t.value >= t.target;
    missed += ok ? 0 : 1;
    std::printf("  %-40s %10.2f  target %s %-8g %s\n", t.what.c_str(), t.value, t.at_most ? "<=" : ">=", t.target,
                ok ? "met" : "MISSED");
  }
  std::printf("  %d of %zu targets met\n", static_cast<int>(targets_.size()) - missed, targets_.size());
}

}  // namespace orvel::bench
