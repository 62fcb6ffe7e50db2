// The persistent FastCGI worker keeps nothing of one request for the next:
// on ONE worker, two users and a link visitor take turns, and each request
// sees only its own caller's files, parameters, headers, temp files and
// link grant, while the worker is back to root between requests. A worker
// whose identity cannot be restored ends instead of serving on. The worker
// leaves hanging up a finished connection to lighttpd.
#include <dirent.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "fcgi/codec.h"
#include "fcgi_client.h"
#include "orvelcommon/scoped_fd.h"
#include "stack.h"

namespace orvel::test {
namespace {

constexpr char kFiles[] = "ZEMO.ZemoraOrvel.Files";
constexpr char kSharing[] = "ZEMO.ZemoraOrvel.Sharing";
constexpr char kBoundary[] = "xYzBoundary";

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// "Uid:"/"Gid:" lines give real, effective, saved and fs ids.
std::string StatusLine(pid_t pid, const std::string& key) {
  std::istringstream in(ReadAll("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, key.size(), key) == 0) return line;
  }
  return "";
}

std::set<std::string> Entries(const std::string& dir) {
  std::set<std::string> names;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) {
      std::string n = e->d_name;
      if (n != "." && n != "..") names.insert(n);
    }
    ::closedir(d);
  }
  return names;
}

std::set<std::string> Names(const Json::Value& r) {
  std::set<std::string> names;
  for (const Json::Value& item : r["data"]["items"]) names.insert(item["name"].asString());
  return names;
}

class FcgiIsolationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("ann");
    stack_->AddUser("bob");
    for (const char* user : {"ann", "bob"}) {
      const std::string home = stack_->HomeDir(user);
      ::mkdir(home.c_str(), 0750);
      ::mkdir((home + "/Shared").c_str(), 0750);
      std::ofstream(home + "/" + user + "-only.txt") << user;
      std::ofstream(home + "/Shared/" + user + "-shared.txt") << "shared";
    }
    stack_->StartWorker();
    worker_ = stack_->worker_pid();
    root_groups_ = StatusLine(worker_, "Groups:");
  }

  // The worker is root again and nothing of the request is left in @tmp.
  // A download's staging folder is removed by the daemon's unlink job, which
  // the module queues once the answer is out: that removal is awaited (the
  // job runs at once; the bound only stops a hung test).
  void ExpectClean(const std::string& after) {
    const std::string tmp = stack_->DataDir() + "/@tmp";
    for (int i = 0; i < 2000 && !Entries(tmp).empty(); ++i) ::usleep(10000);
    EXPECT_EQ(stack_->worker_pid(), worker_) << after;
    EXPECT_EQ(StatusLine(worker_, "Uid:"), "Uid:\t0\t0\t0\t0") << after;
    EXPECT_EQ(StatusLine(worker_, "Gid:"), "Gid:\t0\t0\t0\t0") << after;
    EXPECT_EQ(StatusLine(worker_, "Groups:"), root_groups_) << after;
    EXPECT_EQ(Entries(tmp), std::set<std::string>()) << after;
  }

  Json::Value List(const std::string& user, const Json::Value& extra = Json::Value()) {
    Json::Value p = extra.isObject() ? extra : Json::Value(Json::objectValue);
    if (!p.isMember("path")) p["path"] = "/mydrive";
    return stack_->CallApi(user, kFiles, "list", p);
  }

  Json::Value Visit(const std::string& token, const std::string& cookie = "") {
    CgiRequest req;
    req.params = {{"api", kFiles}, {"method", "get"}, {"version", "1"}, {"path", "\"/\""},
                  {"sharing_token", token}};
    req.cookie = cookie;
    return stack_->Cgi(req).Json();
  }

  std::unique_ptr<TestStack> stack_;
  pid_t worker_ = -1;
  std::string root_groups_;
};

TEST_F(FcgiIsolationTest, UsersAndAVisitorTakingTurnsSeeOnlyTheirOwn) {
  Json::Value link = stack_->CallApi("ann", kSharing, "create_link", [] {
    Json::Value p(Json::objectValue);
    p["path"] = "/mydrive/Shared";
    return p;
  }());
  const std::string token = link["data"]["link"]["token"].asString();
  ASSERT_EQ(token.size(), 64u) << link;
  ExpectClean("create_link");

  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Names(List("ann")), (std::set<std::string>{"Shared", "ann-only.txt"})) << round;
    ExpectClean("ann's list");
    Json::Value visit = Visit(token);
    EXPECT_EQ(visit["data"]["name"].asString(), "Shared") << visit;
    ExpectClean("the visitor's get");
    // bob without a token: the visitor's sharing_token did not stay.
    EXPECT_EQ(Names(List("bob")), (std::set<std::string>{"Shared", "bob-only.txt"})) << round;
    ExpectClean("bob's list");
    // A visitor reaches nothing of ann's outside the link.
    CgiRequest outside;
    outside.params = {{"api", kFiles}, {"method", "get"}, {"version", "1"},
                      {"path", "\"/mydrive/ann-only.txt\""}, {"sharing_token", token}};
    EXPECT_FALSE(stack_->Cgi(outside).Json()["success"].asBool());
    ExpectClean("the visitor outside the link");
  }
}

TEST_F(FcgiIsolationTest, HeadersUploadsAndGrantsEndWithTheirRequest) {
  // A login answer sets a cookie and no-store; the next answer has neither.
  CgiRequest login;
  login.params = {{"api", "ZEMO.API.Auth"}, {"method", "login"}, {"version", "7"},
                  {"account", "ann"}, {"passwd", "secret"}};
  CgiResult logged = stack_->Cgi(login);
  ASSERT_TRUE(logged.Json()["success"].asBool()) << logged.body << logged.err;
  EXPECT_EQ(logged.Header("Set-Cookie").compare(0, 3, "id="), 0) << logged.headers;
  CgiResult info = stack_->CallApiRaw("", "ZEMO.API.Info", "query");
  EXPECT_TRUE(info.Json()["success"].asBool()) << info.body;
  EXPECT_EQ(info.Header("Set-Cookie"), "") << info.headers;
  EXPECT_EQ(info.Header("Cache-Control"), "") << info.headers;
  ExpectClean("login and info");

  // An upload's temp file is gone once its request ended.
  CgiRequest upload;
  upload.params = {{"api", kFiles}, {"method", "upload"}, {"version", "1"},
                   {"_sid", stack_->Login("bob").sid}, {"path", "\"/mydrive/up.txt\""},
                   {"type", "\"file\""}};
  upload.content_type = std::string("multipart/form-data; boundary=") + kBoundary;
  upload.body = std::string("--") + kBoundary +
                "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"up.txt\"\r\n\r\n"
                "uploaded\r\n--" + kBoundary + "--\r\n";
  Json::Value up = stack_->Cgi(upload).Json();
  ASSERT_TRUE(up["success"].asBool()) << up;
  EXPECT_EQ(ReadAll(stack_->HomeDir("bob") + "/up.txt"), "uploaded");
  ExpectClean("the upload");
  // The next request of another user has no upload and sees none of bob's.
  EXPECT_EQ(Names(List("ann")).count("up.txt"), 0u);

  // A download stages a link in @tmp (the module's auto-remove list):
  // removed when the answer is out.
  CgiResult file = stack_->CallApiRaw("bob", kFiles, "download", [] {
    Json::Value p(Json::objectValue);
    Json::Value files(Json::arrayValue);
    files.append("/mydrive/Shared/bob-shared.txt");
    p["files"] = files;
    return p;
  }());
  EXPECT_EQ(file.body, "shared") << file.headers << "\n--\n" << file.err;
  EXPECT_EQ(file.Header("Content-Length"), "6") << file.headers;
  ExpectClean("the download");

  // A password link: the grant cookie opens it for that request only.
  Json::Value p(Json::objectValue);
  p["path"] = "/mydrive/Shared";
  p["password"] = "open sesame";
  Json::Value link = stack_->CallApi("ann", kSharing, "create_link", p);
  const std::string token = link["data"]["link"]["token"].asString();
  ASSERT_EQ(token.size(), 64u) << link;
  EXPECT_EQ(Visit(token)["error"]["code"].asInt(), 1041);
  CgiRequest unlock;
  unlock.params = {{"api", kSharing}, {"method", "unlock_link"}, {"version", "1"},
                   {"sharing_token", token}, {"password", "open sesame"}};
  CgiResult unlocked = stack_->Cgi(unlock);
  const std::string cookie = unlocked.Header("Set-Cookie");
  ASSERT_EQ(cookie.compare(0, 11, "link_grant="), 0) << unlocked.headers << unlocked.body;
  const std::string grant = cookie.substr(0, cookie.find(';'));
  EXPECT_EQ(Visit(token, grant)["data"]["name"].asString(), "Shared");
  EXPECT_EQ(Visit(token)["error"]["code"].asInt(), 1041) << "the grant stayed in the worker";
  ExpectClean("the password link");
}

TEST_F(FcgiIsolationTest, AWorkerWhoseIdentityIsNotRestoredEnds) {
  stack_->StartWorker({"ORVEL_FAULT=identity_restore"});
  // The request itself is answered; the worker then refuses to go on.
  EXPECT_EQ(Names(List("ann")), (std::set<std::string>{"Shared", "ann-only.txt"}));
  int status = stack_->WaitWorkerExit();
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 1);
  const std::string log = ReadAll(stack_->WorkerLogPath());
  EXPECT_NE(log.find("identity not restored after a request (euid 33, egid 33"), std::string::npos)
      << log;
  // With no worker, a request gets no answer.
  CgiResult none = stack_->CallApiRaw("ann", kFiles, "list");
  EXPECT_EQ(none.exit_code, -1);
}

// Once the worker hangs up, lighttpd takes what the socket still holds in one
// go and spools all past 64 KiB to disk, so the worker keeps a finished
// connection open until newer ones push it out; lighttpd, done at
// END_REQUEST, closes first.
TEST_F(FcgiIsolationTest, AFinishedConnectionStaysOpenUntilNewerOnesEnd) {
  CgiRequest info;
  info.params = {{"api", "ZEMO.API.Info"}, {"method", "query"}, {"version", "1"}};
  const std::vector<std::string> vars = {"REQUEST_METHOD=GET", "QUERY_STRING=api=ZEMO.API.Info&method=query&version=1",
                                         "REMOTE_ADDR=127.0.0.1", "CONTENT_LENGTH=0"};
  const std::string request = FcgiRequestBytes(vars, "", 1, false);
  ScopedFd conn(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", stack_->WorkerSocketPath().c_str());
  ASSERT_EQ(::connect(conn.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0) << std::strerror(errno);
  ASSERT_EQ(::write(conn.get(), request.data(), request.size()), static_cast<ssize_t>(request.size()));
  std::string in;
  auto ended = [&in] {
    for (const FcgiRecord& r : FcgiRecords(in)) {
      if (r.type == zemo::fcgi::kEndRequest) return true;
    }
    return false;
  };
  char buf[65536];
  while (!ended()) {
    ssize_t n = ::read(conn.get(), buf, sizeof(buf));
    ASSERT_GT(n, 0) << "the worker hung up before END_REQUEST";
    in.append(buf, static_cast<size_t>(n));
  }
  EXPECT_NE(in.find("\"success\":true"), std::string::npos) << in;

  // Nothing more comes and the worker has not hung up.
  pollfd p = {conn.get(), POLLIN | POLLRDHUP, 0};
  EXPECT_EQ(::poll(&p, 1, 200), 0) << "revents " << p.revents;
  // Eight newer connections end; the first is closed then.
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(stack_->Cgi(info).Json()["success"].asBool()) << i;
  ASSERT_EQ(::poll(&p, 1, 10000), 1);
  EXPECT_EQ(::read(conn.get(), buf, sizeof(buf)), 0);
}

}  // namespace
}  // namespace orvel::test
