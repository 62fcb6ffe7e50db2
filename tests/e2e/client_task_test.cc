// "ZEMO.ZemoraOrvel.Task" over HTTP through lighttpd: list, get and cancel of
// the caller's own tasks. A copy of a folder of 10,000 files is stopped
// half-way by the hook point "task-progress-copy" (a script that waits for a
// file the test creates), so progress and a cancel mid-way are observed at a
// known point, without racing the task.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "http_client.h"
#include "nimbard/file.h"
#include "stack.h"

namespace orvel::test {
namespace {

constexpr const char kApi[] = "ZEMO.ZemoraOrvel.Task";
constexpr int kFiles = 10000;
constexpr int kFileSize = 10;

class ClientTaskTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    char tmpl[] = "/tmp/task-hooks-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    hooks_ = tmpl;
    chmod(hooks_.c_str(), 0755);
    setenv("ORVEL_SYNCD_HOOKS", hooks_.c_str(), 1);
    stack_ = TestStack::Start().release();
    for (const char* user : {"erin", "frank", "gina"}) stack_->AddUser(user, false, std::string(user) + "-password");
    // Put on disk before the first request: the daemon indexes them on first use.
    const std::string home = stack_->HomeDir("erin");
    Fill(home + "/Small", 1);
    for (const char* d : {"/DestA", "/DestB", "/DestC"}) Fill(home + d, 0);
    Fill(stack_->HomeDir("gina") + "/One", 1);
    port_ = stack_->StartHttp();
    for (const char* user : {"erin", "gina"}) {
      ApiClient client = As(user);
      ListTotal(client, "/mydrive");  // the first use indexes what is on disk
    }
  }
  static void TearDownTestSuite() {
    delete stack_;
    unsetenv("ORVEL_SYNCD_HOOKS");
    File::Remove(hooks_);
  }
  // The folder of 10,000 files, made once per process by the tests that copy it
  // (ctest runs each test in its own process), with the daemon stopped: it
  // indexes them when it starts again.
  static void MakeBig(ApiClient& erin) {
    if (big_made_) return;
    big_made_ = true;
    stack_->StopDaemon();
    Fill(stack_->HomeDir("erin") + "/Big", kFiles);
    stack_->StartDaemon();
    EXPECT_EQ(ListTotal(erin, "/mydrive/Big"), uint64_t{kFiles});
  }
  static void Fill(const std::string& dir, int count) {
    ::mkdir(dir.substr(0, dir.find_last_of('/')).c_str(), 0750);  // the home, made on first use otherwise
    ::mkdir(dir.c_str(), 0750);
    for (int i = 0; i < count; ++i) {
      std::ofstream(dir + "/f" + std::to_string(i) + ".txt", std::ios::binary) << std::string(kFileSize, 'x');
    }
  }
  static ApiClient As(const std::string& user) {
    ApiClient client(port_);
    EXPECT_TRUE(client.Login(user, user + "-password"));
    return client;
  }
  static Json::Value Id(const std::string& id) {
    Json::Value p(Json::objectValue);
    p["task_id"] = id;
    return p;
  }
  // Starts a copy of src into the folder dest; its task id.
  static std::string Copy(ApiClient& client, const std::string& src, const std::string& dest) {
    Json::Value p(Json::objectValue);
    p["files"] = Json::Value(Json::arrayValue);
    p["files"].append(src);
    p["to_parent_folder"] = dest;
    const Json::Value r = client.Call("ZEMO.ZemoraOrvel.Files", "copy", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["async_task_id"].asString();
  }
  // Task.get until the task has ended (a bounded wait for its end, nothing is timed).
  static Json::Value WaitEnded(ApiClient& client, const std::string& id) {
    Json::Value r;
    for (int i = 0; i < 6000; ++i) {
      r = client.Call(kApi, "get", Id(id));
      const std::string state = r["data"]["task"]["state"].asString();
      if (!r["success"].asBool() || state == "finished" || state == "failed" || state == "cancelled") break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["task"];
  }
  // The hook that holds the copy half-way until Release().
  static void InstallHalfWayHook() {
    ::unlink((hooks_ + "/reached").c_str());
    ::unlink((hooks_ + "/release").c_str());
    const std::string script = hooks_ + "/task-progress-copy";
    std::ofstream(script) << "#!/bin/sh\ntouch '" << hooks_ << "/reached'\ni=0\nwhile [ ! -e '" << hooks_
                          << "/release' ] && [ $i -lt 1200 ]; do sleep 0.1; i=$((i+1)); done\n";
    ASSERT_EQ(chmod(script.c_str(), 0755), 0);
  }
  static bool WaitReached() {
    for (int i = 0; i < 6000; ++i) {
      if (access((hooks_ + "/reached").c_str(), F_OK) == 0) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  static void Release() {
    std::ofstream(hooks_ + "/release") << "";
    ::unlink((hooks_ + "/task-progress-copy").c_str());
  }
  static uint64_t ListTotal(ApiClient& client, const std::string& folder) {
    Json::Value p(Json::objectValue);
    p["path"] = folder;
    p["limit"] = 1;
    const Json::Value r = client.Call("ZEMO.ZemoraOrvel.Files", "list", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["total"].asUInt64();
  }

  static TestStack* stack_;
  static int port_;
  static std::string hooks_;
  static bool big_made_;
};

TestStack* ClientTaskTest::stack_ = nullptr;
int ClientTaskTest::port_ = 0;
std::string ClientTaskTest::hooks_;
bool ClientTaskTest::big_made_ = false;

TEST_F(ClientTaskTest, CopyOfTenThousandFilesShowsProgressRisingThenFinishes) {
  ApiClient erin = As("erin");
  MakeBig(erin);
  InstallHalfWayHook();
  const std::string id = Copy(erin, "/mydrive/Big", "/mydrive/DestA");
  ASSERT_TRUE(WaitReached());
  Json::Value mid = erin.Call(kApi, "get", Id(id));
  Release();
  ASSERT_TRUE(mid["success"].asBool()) << mid;
  const Json::Value& t = mid["data"]["task"];
  EXPECT_EQ(t["task_id"].asString(), id);
  EXPECT_EQ(t["kind"].asString(), "copy");
  EXPECT_EQ(t["state"].asString(), "running");
  const uint64_t total = kFiles + 1;  // the folder and its files
  EXPECT_EQ(t["progress"]["total"].asUInt64(), total) << t;
  EXPECT_GT(t["progress"]["done"].asUInt64(), 0u) << t;
  EXPECT_LT(t["progress"]["done"].asUInt64(), total) << t;
  EXPECT_EQ(t["progress"]["bytes_total"].asUInt64(), uint64_t{kFiles} * kFileSize) << t;
  EXPECT_GT(t["progress"]["bytes_done"].asUInt64(), 0u) << t;
  EXPECT_LT(t["progress"]["bytes_done"].asUInt64(), uint64_t{kFiles} * kFileSize) << t;
  EXPECT_GT(t["created"].asInt64(), 0) << t;
  EXPECT_GT(t["started"].asInt64(), 0) << t;
  EXPECT_EQ(t["finished"].asInt64(), 0) << t;
  EXPECT_FALSE(t.isMember("owner")) << t;

  const Json::Value end = WaitEnded(erin, id);
  EXPECT_EQ(end["state"].asString(), "finished") << end;
  EXPECT_EQ(end["progress"]["done"].asUInt64(), total) << end;
  EXPECT_EQ(end["progress"]["total"].asUInt64(), total) << end;
  EXPECT_EQ(end["progress"]["bytes_done"].asUInt64(), uint64_t{kFiles} * kFileSize) << end;
  EXPECT_GE(end["finished"].asInt64(), end["started"].asInt64()) << end;
  EXPECT_EQ(end["error"]["code"].asInt(), 0) << end;
  ASSERT_EQ(end["result"]["items"].size(), 1u) << end;
  EXPECT_EQ(end["result"]["items"][0]["path"].asString(), "/mydrive/DestA/Big") << end;
  EXPECT_EQ(end["result"]["items"][0]["file_id"].asString().size(), 32u) << end;
  EXPECT_EQ(ListTotal(erin, "/mydrive/DestA/Big"), uint64_t{kFiles});
}

TEST_F(ClientTaskTest, CancelMidWayEndsCancelledAndKeepsTheItemsCopied) {
  ApiClient erin = As("erin");
  MakeBig(erin);
  InstallHalfWayHook();
  const std::string id = Copy(erin, "/mydrive/Big", "/mydrive/DestB");
  ASSERT_TRUE(WaitReached());
  Json::Value r = erin.Call(kApi, "cancel", Id(id));
  Release();
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["task"]["state"].asString(), "running") << r;  // it stops at its next item

  const Json::Value end = WaitEnded(erin, id);
  EXPECT_EQ(end["state"].asString(), "cancelled") << end;
  EXPECT_EQ(end["error"]["code"].asInt(), 1037) << end;
  EXPECT_EQ(end["error"]["service_code"].asInt(), -1116) << end;
  EXPECT_EQ(end["error"]["message"].asString(), "task cancelled") << end;
  const uint64_t done = end["progress"]["done"].asUInt64();
  EXPECT_GT(done, 1u) << end;
  EXPECT_LT(done, uint64_t{kFiles} + 1) << end;
  // Every item done is in place: the folder and its files copied so far.
  ASSERT_EQ(end["result"]["items"].size(), 1u) << end;
  EXPECT_EQ(1 + ListTotal(erin, "/mydrive/DestB/Big"), done) << end;
  EXPECT_EQ(end["progress"]["bytes_done"].asUInt64(), (done - 1) * kFileSize) << end;

  // Cancelling an ended task answers it unchanged.
  r = erin.Call(kApi, "cancel", Id(id));
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["task"]["state"].asString(), "cancelled") << r;
  EXPECT_EQ(r["data"]["task"]["progress"]["done"].asUInt64(), done) << r;
}

TEST_F(ClientTaskTest, ListPagesTheCallersTasksNewestFirstAndFiltersByState) {
  ApiClient gina = As("gina");
  std::vector<std::string> ids;
  for (int i = 0; i < 3; ++i) {
    ids.push_back(Copy(gina, "/mydrive/One/f0.txt", "/mydrive"));
    EXPECT_EQ(WaitEnded(gina, ids.back())["state"].asString(), "finished");
  }
  Json::Value p(Json::objectValue);
  p["offset"] = 1;
  p["limit"] = 1;
  Json::Value r = gina.Call(kApi, "list", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["total"].asUInt64(), 3u) << r;
  EXPECT_EQ(r["data"]["offset"].asUInt64(), 1u) << r;
  ASSERT_EQ(r["data"]["tasks"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["tasks"][0]["task_id"].asString(), ids[1]) << r;

  r = gina.Call(kApi, "list");
  ASSERT_EQ(r["data"]["tasks"].size(), 3u) << r;
  EXPECT_EQ(r["data"]["tasks"][0]["task_id"].asString(), ids[2]) << r;
  EXPECT_EQ(r["data"]["tasks"][2]["task_id"].asString(), ids[0]) << r;

  p = Json::Value(Json::objectValue);
  p["state"] = "queued,running";
  r = gina.Call(kApi, "list", p);
  EXPECT_EQ(r["data"]["total"].asUInt64(), 0u) << r;
  p["state"] = Json::Value(Json::arrayValue);
  p["state"].append("cancelled");
  p["state"].append("finished");
  r = gina.Call(kApi, "list", p);
  EXPECT_EQ(r["data"]["total"].asUInt64(), 3u) << r;

  // Another user's list never shows them.
  ApiClient frank = As("frank");
  r = frank.Call(kApi, "list");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["total"].asUInt64(), 0u) << r;
}

TEST_F(ClientTaskTest, AnotherUsersTaskAnswersExactlyAsAnUnknownId) {
  ApiClient erin = As("erin");
  const std::string id = Copy(erin, "/mydrive/Small", "/mydrive/DestC");
  const Json::Value before = WaitEnded(erin, id);
  ApiClient frank = As("frank");
  const std::string unknown = "0123456789abcdef0123456789abcdef";
  for (const char* method : {"get", "cancel"}) {
    ExpectError(frank.Call(kApi, method, Id(id)), 1002, "task not found: " + id);
    ExpectError(frank.Call(kApi, method, Id(unknown)), 1002, "task not found: " + unknown);
  }
  const Json::Value after = erin.Call(kApi, "get", Id(id));
  EXPECT_EQ(after["data"]["task"], before) << after;
}

TEST_F(ClientTaskTest, AnonymousCallersAndBadParametersAreRefused) {
  ApiClient anonymous(port_);
  for (const char* method : {"list", "get", "cancel"}) {
    const Json::Value r = anonymous.Call(kApi, method, Id("0123456789abcdef0123456789abcdef"));
    EXPECT_FALSE(r["success"].asBool()) << method << r;
    EXPECT_EQ(r["error"]["code"].asInt(), 105) << method << r;
  }
  ApiClient erin = As("erin");
  for (const char* method : {"get", "cancel"}) {
    ExpectError(erin.Call(kApi, method), 114, "task_id is required");
    ExpectError(erin.Call(kApi, method, Id("")), 114, "task_id must be a non-empty string");
  }
  Json::Value p(Json::objectValue);
  p["state"] = "queued,done";
  ExpectError(erin.Call(kApi, "list", p), 114,
              "state must be one or more of queued, running, finished, failed, cancelled: \"done\"");
  p["state"] = "";
  ExpectError(erin.Call(kApi, "list", p), 114,
              "state must be one or more of queued, running, finished, failed, cancelled: \"\"");
  p["state"] = 5;
  ExpectError(erin.Call(kApi, "list", p), 114, "state must be a string or a non-empty array of strings");
  p = Json::Value(Json::objectValue);
  p["limit"] = 0;
  ExpectError(erin.Call(kApi, "list", p), 114, "limit must be 1 to 1000");
  p["limit"] = 1001;
  ExpectError(erin.Call(kApi, "list", p), 114, "limit must be 1 to 1000");
  p = Json::Value(Json::objectValue);
  p["offset"] = -1;
  ExpectError(erin.Call(kApi, "list", p), 114, "offset must be a non-negative integer");
}

}  // namespace
}  // namespace orvel::test
