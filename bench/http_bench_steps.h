// The steps of http_bench (see http_bench.cc): setting up the data and the
// bench's lighttpd, then each group of figures, then the targets.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bench_support.h"
#include "stack.h"

namespace orvel::bench {

struct HttpBenchOptions {
  uint64_t transfer_bytes = 1ull << 30;  // upload, download, zip folder
  uint64_t memory_bytes = 4ull << 30;    // the memory run's upload and download
  double seconds = 4;                    // measured window per small request
  int concurrency = 8;
  int repeat = 2;  // transfers: best of this many, anchor and ours alternated
  bool small_only = false;  // only the small requests (for profiling them)
  std::string only;         // small requests: the anchor and the rows whose label has this
};

class HttpBenchSteps {
 public:
  HttpBenchSteps(test::TestStack* stack, const HttpBenchOptions& options) : stack_(stack), o_(options) {}

  void SetUp();
  void SmallRequests();
  void Transfers();
  void Memory();
  // The targets, each as measured / target, and whether it is met.
  void Summary();

 private:
  struct Target {
    std::string what;
    double value, target;
    bool at_most;  // value must be <= target (else >=)
  };
  std::string Url(const std::string& path) const;
  std::string FormBody(const std::string& api, const std::string& method, const std::string& params_json,
                       bool session) const;
  // Runs curl with args; returns its stdout (curl -w output); gtest failure
  // when curl fails.
  std::string Curl(std::vector<std::string> args) const;
  // Seconds of one transfer by curl. A gtest failure when the HTTP status
  // is not a success, when an answer is expected to hold "success":true
  // and does not (else it is discarded), or when fewer than min_download
  // bytes came.
  double TimedCurl(std::vector<std::string> args, bool api_answer, uint64_t min_download = 0) const;
  double Upload(const std::string& src, const std::string& name) const;  // seconds
  // Seconds to copy src to dst and fdatasync it: what this disk can make
  // durable, the ceiling of an upload that answers only once its file is.
  double DurableCopy(const std::string& src, const std::string& dst) const;
  double DavPut(const std::string& src, const std::string& name) const;
  double Download(const std::string& mydrive_path, uint64_t size) const;
  double StaticGet(const std::string& url_path) const;
  double Zip(const std::string& mydrive_path) const;
  double RelayFloor(const std::string& mydrive_path) const;
  // Prints the peaks of one step; those of the memory run (and of the zip
  // step, for the archiver) also go into peak_kib_ for the targets.
  void PrintRss(const char* step, RssSampler* rss, bool memory_run);

  test::TestStack* stack_;
  HttpBenchOptions o_;
  int port_ = 0;
  std::string sid_, data_;  // data_: the bench's own files (source, WebDAV, static)
  uint64_t folder_bytes_ = 0;
  std::vector<Target> targets_;
  std::map<std::string, long> peak_kib_;  // memory run and zip step, per program
};

}  // namespace orvel::bench
