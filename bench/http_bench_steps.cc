// See http_bench_steps.h.
#include "http_bench_steps.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "http_load.h"
#include "zemo/nas.h"

namespace orvel::bench {
namespace {

constexpr char kUser[] = "bench";
// The bench's additions to the rendered lighttpd configuration: WebDAV on
// /bench-dav/ and static files on /bench-static/ (its own files) and
// /bench-home/ (the user's folder, to GET the very file "download" sends).
std::string AnchorConf(const std::string& data, const std::string& home) {
  return "\n# http_bench only: the anchors it measures the service against.\n"
         "server.modules += ( \"mod_webdav\" )\n"
         "alias.url += ( \"/bench-dav/\" => \"" + data + "/dav/\", \"/bench-static/\" => \"" + data +
         "/\", \"/bench-home/\" => \"" + home + "/\" )\n"
         "$HTTP[\"url\"] =~ \"^/bench-dav/\" {\n  webdav.activate = \"enable\"\n}\n";
}

// The zip folder: 1/4 + 2 x 1/8 + 4 x 1/16 + 8 x 1/64 + 16 x 1/256 +
// 64 x 1/1024 of total, 95 files (256 MiB down to 1 MiB for 1 GiB).
uint64_t FillMixedFolder(const std::string& dir, uint64_t total) {
  ::mkdir(dir.c_str(), 0755);
  const std::pair<int, uint64_t> parts[] = {{1, 4}, {2, 8}, {4, 16}, {8, 64}, {16, 256}, {64, 1024}};
  uint64_t written = 0;
  int n = 0;
  for (const auto& [count, divisor] : parts) {
    for (int i = 0; i < count; ++i) {
      WriteRandom(dir + "/part-" + std::to_string(n++) + ".bin", total / divisor);
      written += total / divisor;
    }
  }
  return written;
}

// The envelope's "success" member comes last, so the answer is searched from
// its end: a forward search stopped at every quote of a 100 KB listing, and
// took the load generator as much CPU as lighttpd spent relaying it.
bool ApiOk(const HttpAnswer& a) {
  return a.status == 200 && a.body.rfind("\"success\":true") != std::string::npos;
}

bool FileOk(const HttpAnswer& a) {
  return a.status == 200 && !a.body.empty() && a.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE").empty();
}

}  // namespace

std::string HttpBenchSteps::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string HttpBenchSteps::FormBody(const std::string& api, const std::string& method,
                                     const std::string& params_json, bool session) const {
  std::string body = "api=" + api + "&version=1&method=" + method;
  Json::Value params;
  std::istringstream(params_json) >> params;
  Json::StreamWriterBuilder w;
  w["indentation"] = "";
  for (const auto& name : params.getMemberNames()) {
    body += "&" + name + "=" + UrlEncode(Json::writeString(w, params[name]));
  }
  return session ? body + "&_sid=" + sid_ : body;
}

void HttpBenchSteps::SetUp() {
  stack_->AddUser(kUser);
  stack_->StopDaemon();
  const std::string home = stack_->HomeDir(kUser);
  ::mkdir((stack_->DataDir() + "/homes").c_str(), 0755);
  ::mkdir(home.c_str(), 0755);
  FillFolder(home + "/f100", 100);
  std::ofstream(home + "/needle-report.txt") << "the needle of the search figures\n";
  ASSERT_TRUE(WriteJpeg(home + "/photo.jpg", 1600, 1200));
  folder_bytes_ = FillMixedFolder(home + "/Folder", o_.transfer_bytes);
  stack_->StartDaemon();
  Json::Value probe;  // answers once the start-up reconciliation has indexed the tree
  probe["path"] = "/mydrive";
  ASSERT_TRUE(stack_->Call(kUser, "list", probe)["success"].asBool());

  data_ = stack_->root() + "/bench";
  ::mkdir(data_.c_str(), 0755);
  ::mkdir((data_ + "/dav").c_str(), 0755);
  std::ofstream(data_ + "/static.txt") << std::string(4096, 's');
  WriteRandom(data_ + "/big.bin", o_.transfer_bytes);
  port_ = stack_->StartHttp(AnchorConf(data_, home));
  sid_ = stack_->Login(kUser).sid;

  // The first search indexes the names; the first thumbnail renders it.
  KeepAliveConnection conn(port_);
  ASSERT_TRUE(ApiOk(conn.Send(PostFormRequest("/webapi/entry.cgi",
                                              FormBody("ZEMO.ZemoraOrvel.Files", "search",
                                                       R"({"keyword":"needle"})", true)))));
  HttpAnswer thumb = conn.Send(PostFormRequest(
      "/webapi/entry.cgi", FormBody("ZEMO.ZemoraOrvel.Files", "get_thumbnail",
                                    R"({"path":"/mydrive/photo.jpg","size":"small","format":"jpg"})", true)));
  ASSERT_TRUE(FileOk(thumb)) << thumb.status << " " << thumb.headers;
  ASSERT_EQ(conn.Send(GetRequest("/bench-static/static.txt")).status, 200) << "the bench's static folder";
}

void HttpBenchSteps::SmallRequests() {
  struct Row {
    const char* label;
    std::string request;
    bool (*check)(const HttpAnswer&);
  };
  const std::string files = "ZEMO.ZemoraOrvel.Files";
  auto post = [&](const std::string& method, const std::string& params) {
    return PostFormRequest("/webapi/entry.cgi", FormBody(files, method, params, true));
  };
  const Row rows[] = {
      {"static file, 4 KiB (anchor)", GetRequest("/bench-static/static.txt"),
       [](const HttpAnswer& a) { return a.status == 200 && a.body.size() == 4096; }},
      {"list, folder of 100", post("list", R"({"path":"/mydrive/f100","limit":100})"), ApiOk},
      {"get, one file", post("get", R"({"path":"/mydrive/f100/file-000042.txt"})"), ApiOk},
      {"search, one hit", post("search", R"({"keyword":"needle","limit":50})"), ApiOk},
      {"get_thumbnail, cached", post("get_thumbnail", R"({"path":"/mydrive/photo.jpg","size":"small","format":"jpg"})"),
       FileOk},
      {"ZEMO.API.Info query", PostFormRequest("/webapi/entry.cgi", FormBody("ZEMO.API.Info", "query", "{}", false)),
       ApiOk},
  };
  std::printf("Small requests, %d keep-alive connections, %.1f s each\n", o_.concurrency, o_.seconds);
  std::printf("  %-30s %9s %9s %9s %12s   %s\n", "request", "p50 ms", "p99 ms", "req/s", "p50/static",
              "CPU ms per request: entry.cgi, orvel-syncd, lighttpd");
  double static_p50 = 0;
  for (const Row& row : rows) {
    if (&row != rows && std::string(row.label).find(o_.only) == std::string::npos) continue;
    const std::map<std::string, double> cpu_before = CpuSecondsByProgram();
    LoadFigures f = RunLoad(port_, row.request, o_.concurrency, 0.5, o_.seconds, row.check);
    std::map<std::string, double> cpu = CpuSecondsByProgram();
    for (auto& [name, seconds] : cpu) seconds -= cpu_before.count(name) ? cpu_before.at(name) : 0;
    ASSERT_FALSE(f.ms.empty()) << row.label << ": no answer passed: " << f.first_error;
    EXPECT_EQ(f.errors, 0) << row.label << ": " << f.first_error;
    const double p50 = Percentile(f.ms, 0.5);
    if (static_p50 == 0) static_p50 = p50;
    // CPU per request does not depend on what else the machine runs, as
    // the rates do.
    const double per = f.sent > 0 ? 1000.0 / static_cast<double>(f.sent) : 0;
    std::printf("  %-30s %9.3f %9.3f %9.0f %11.1fx   %.3f %.3f %.3f\n", row.label, p50,
                Percentile(f.ms, 0.99), f.Rps(), p50 / static_p50, cpu["entry.cgi"] * per,
                cpu["orvel-syncd"] * per, cpu["lighttpd"] * per);
    std::fflush(stdout);
    if (row.request.find("method=list") != std::string::npos) {
      targets_.push_back({"list p50 / static p50", p50 / static_p50, 10, true});
      targets_.push_back({"list requests/s at concurrency 8", f.Rps(), 2000, false});
    }
  }
  std::printf("\n");
}

}  // namespace orvel::bench
