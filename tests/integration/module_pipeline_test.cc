// The request pipeline seen from outside: framework refusals, account and
// session rules, service state, and a daemon that is not running.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "nimbard/nimbard.h"
#include "stack.h"

namespace orvel::test {
namespace {

class PipelineTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("alice");
    stack_->AddUser("noapp");
    ASSERT_TRUE(stack_->Users().SetFlag("noapp", "app_privilege", false).ok());
  }
  static void TearDownTestSuite() {
    delete stack_;
    stack_ = nullptr;
  }
  static void ExpectError(const Json::Value& envelope, int code, const std::string& message) {
    EXPECT_FALSE(envelope["success"].asBool()) << envelope;
    EXPECT_EQ(envelope["error"]["code"].asInt(), code) << envelope;
    if (!message.empty()) {
      EXPECT_EQ(envelope["error"]["errors"]["message"].asString(), message) << envelope;
    }
  }
  static TestStack* stack_;
};
TestStack* PipelineTest::stack_ = nullptr;

TEST_F(PipelineTest, FrameworkRefusesUnknownMethodsAndVersions) {
  ExpectError(stack_->Call("alice", "no_such_method"), 103, "");
  Json::Value v1 = stack_->Call("alice", "list_backup_tasks", Json::Value(Json::objectValue), 1);
  EXPECT_FALSE(v1["success"].asBool());
  EXPECT_EQ(v1["error"]["code"].asInt(), 104) << v1;
}

TEST_F(PipelineTest, ConvertOfficeCheckRefusesBadConflictAction) {
  Json::Value params;
  params["files"].append("/mydrive/a.docx");
  params["conflict_action"] = "merge";
  Json::Value r = stack_->Call("alice", "convert_office", params);
  ExpectError(r, 120, "");
  EXPECT_EQ(r["error"]["errors"]["name"].asString(), "conflict_action");
  EXPECT_EQ(r["error"]["errors"]["reason"].asString(), "condition");

  Json::Value no_files;
  no_files["conflict_action"] = "skip";
  r = stack_->Call("alice", "convert_office", no_files);
  ExpectError(r, 120, "");
  EXPECT_EQ(r["error"]["errors"]["name"].asString(), "files");
  EXPECT_EQ(r["error"]["errors"]["reason"].asString(), "required");
}

TEST_F(PipelineTest, AnonymousCallerIsRefusedOrLeftToTheDaemon) {
  Json::Value create;
  create["path"] = "/mydrive/x";
  create["type"] = "folder";
  ExpectError(stack_->Call("", "create", create), 105, "permission denied by anonymous");
  // "list" admits link visitors; without a valid sharing token the daemon refuses.
  Json::Value list;
  list["path"] = "/mydrive";
  ExpectError(stack_->Call("", "list", list), 1007, "list node failed");
}

TEST_F(PipelineTest, UserWithoutAppPrivilegeIsRefusedOrServedAsAnonymous) {
  Json::Value create;
  create["path"] = "/mydrive/x";
  create["type"] = "folder";
  ExpectError(stack_->Call("noapp", "create", create), 105, "permission denied by app-privilege");
  ExpectError(stack_->Call("noapp", "list"), 1007, "list node failed");
}

TEST_F(PipelineTest, TimedOutSessionGets106) {
  SessionRecord s = stack_->Login("alice");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((stack_->DataDir() + "/@db/users.db").c_str(), &db), SQLITE_OK);
  std::string sql = "UPDATE sessions SET last_seen = last_seen - 100000 WHERE sid = '" + s.sid + "'";
  ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  ExpectError(stack_->Call("alice", "list"), 106, "session timeout");
  stack_->Login("alice");  // later tests get a fresh session
}

TEST_F(PipelineTest, FrozenServiceGets502AndRecovers) {
  ASSERT_EQ(stack_->Orvelctl({"freeze", "on"}), 0);
  ExpectError(stack_->Call("alice", "list"), 502, "freeze mode");
  ASSERT_EQ(stack_->Orvelctl({"freeze", "off"}), 0);
  EXPECT_TRUE(stack_->Call("alice", "list")["success"].asBool());
}

// Requests the daemon has dispatched so far (admin_stats counts itself).
uint64_t DaemonRequests() {
  Nimbard admin;
  admin.SetServer("unix:/tmp/cloud-syncservice", 0);
  admin.SetServerVersion(11061);
  admin.SetTimeout(60);
  PObject stats;
  EXPECT_EQ(admin.Call("admin_stats", PObject::MakeMap(), &stats), 0) << admin.GetLastErrorMessage();
  return stats["requests"].asUInt64();
}

// The status answer carries the freeze flag, so a method that needs the
// service enabled and not frozen asks the daemon once for both: in CGI mode
// "list" costs the status call and its own op (and admin_stats counts
// itself). The FastCGI worker, still connected to the daemon from the
// request before, reads both from the daemon's state page instead.
TEST_F(PipelineTest, ServiceStateAndFreezeFlagComeInOneRoundTripOrNone) {
  const uint64_t status_calls = WebapiModeFromEnv() == WebapiMode::kFastCgi ? 0 : 1;
  ASSERT_TRUE(stack_->Call("alice", "list")["success"].asBool());  // session set up
  const uint64_t before = DaemonRequests();
  ASSERT_TRUE(stack_->Call("alice", "list")["success"].asBool());
  EXPECT_EQ(DaemonRequests() - before, 2 + status_calls);
  // A frozen service still refuses, after that one call or none.
  ASSERT_EQ(stack_->Orvelctl({"freeze", "on"}), 0);
  const uint64_t frozen_before = DaemonRequests();
  ExpectError(stack_->Call("alice", "list"), 502, "freeze mode");
  EXPECT_EQ(DaemonRequests() - frozen_before, 1 + status_calls);
  ASSERT_EQ(stack_->Orvelctl({"freeze", "off"}), 0);
  ASSERT_TRUE(stack_->Call("alice", "list")["success"].asBool());
}

TEST_F(PipelineTest, DisabledServiceGets501) {
  ASSERT_EQ(stack_->Orvelctl({"service", "set-state", "disabled"}), 0);
  ExpectError(stack_->Call("alice", "list"), 501, "nimbard is not ready");
  ASSERT_EQ(stack_->Orvelctl({"service", "set-state", "moving_db"}), 0);
  ExpectError(stack_->Call("alice", "list"), 503, "repository is moving");
  ASSERT_EQ(stack_->Orvelctl({"service", "set-state", "enabled"}), 0);
}

TEST_F(PipelineTest, StoppedDaemonIsAClearErrorNotAHang) {
  stack_->StopDaemon();
  ExpectError(stack_->Call("alice", "list"), 401, "failed to get status");
  stack_->StartDaemon();
  EXPECT_TRUE(stack_->Call("alice", "list")["success"].asBool());
}

}  // namespace
}  // namespace orvel::test
