// The request pipeline: the gates in order, each refusal with its exact
// code and message, the caller record from the framework, acting for
// another user, and the effective-id guard.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "bridge/request-handler.h"
#include "bridge/run-as-root.h"
#include "module_test_util.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/user_db.h"
#include "zemo/webapi.h"

namespace {

using orvel::module::test::JsonRequest;
using orvel::module::test::ParseJson;
using orvel::module::test::ScopedZemoRoot;

// Hands out a fixed caller record (or refuses).
class FixedAuthService : public AuthenticationService {
 public:
  int Authenticate(RequestAuthentication& auth, BridgeRequest&, BridgeResponse&) override {
    if (refuse) return -1;
    auth = record;
    return 0;
  }
  RequestAuthentication record;
  bool refuse = false;
};

// Records what reached Handle.
class ProbeHandler : public RequestHandler {
 public:
  ProbeHandler(unsigned account, unsigned privilege, unsigned status, unsigned database = 0) {
    SetRequiredDatabase(database);
    SetAccountOption(account);
    SetRequiredAccessPrivilege(privilege);
    SetStatusOption(status);
    SetAPI("ZEMO.ZemoraOrvel.Files", "probe", 0, 0);
  }
  int Handle(const RequestAuthentication& auth, BridgeRequest&, BridgeResponse& response) override {
    ++calls;
    seen = auth;
    euid_in_handle = geteuid();
    if (fail) response.SetError(1002, "probe failed", 9);
    return fail ? -1 : 0;
  }
  int calls = 0;
  bool fail = false;
  uid_t euid_in_handle = 99999;
  RequestAuthentication seen;
};

RequestAuthentication User(const std::string& name, int uid) {
  RequestAuthentication auth;
  auth.user_name = name;
  auth.uid = uid;
  auth.remote_address = "127.0.0.1";
  auth.expired = false;
  return auth;
}

RequestAuthentication Anonymous() {
  RequestAuthentication auth = User("anonymous", -1);
  auth.is_anonymous = true;
  return auth;
}

class PipelineTest : public ::testing::Test {
 protected:
  // Runs handler with the service's record; returns HandleRequest's result.
  int Run(ProbeHandler& handler, const Json::Value& params = Json::Value(Json::objectValue)) {
    handler.SetAuthenticationService(&service_);
    JsonRequest request(params);
    response_ = BridgeResponse();
    return handler.HandleRequest(request, response_);
  }
  void ExpectError(int code, const std::string& message) {
    EXPECT_EQ(response_.GetErrorCode(), code);
    EXPECT_EQ(response_.GetErrorMessage(), message);
    EXPECT_GT(response_.GetErrorLine(), 0);
  }
  // A user database in the test root, as the platform reads it.
  orvel::UserDb& Users() {
    if (!users_) {
      SyncConfigMgr conf;
      EXPECT_EQ(conf.Init(), 0);
      const std::string db = conf.GetUserDbPath();
      EXPECT_EQ(system(("mkdir -p '" + db.substr(0, db.rfind('/')) + "'").c_str()), 0);
      // The package folder exists on an installed system.
      EXPECT_EQ(system(("mkdir -p '" + conf.GetWorkingDirPath() + "'").c_str()), 0);
      orvel::Status st = orvel::UserDb::Open(db, &users_);
      EXPECT_TRUE(st.ok()) << st.ToString();
    }
    return *users_;
  }
  ScopedZemoRoot root_;
  FixedAuthService service_;
  BridgeResponse response_;
  std::unique_ptr<orvel::UserDb> users_;
};

TEST_F(PipelineTest, DefaultsOfTheBase) {
  RequestHandler base;
  EXPECT_EQ(base.GetRequiredDatabase(), 0u);
  EXPECT_EQ(base.GetAccountOption(), 3u);
  EXPECT_EQ(base.GetRequiredAccessPrivilege(), 3u);
  EXPECT_EQ(base.GetStatusOption(), 3u);
  EXPECT_EQ(base.GetRequestMethod(), kRequestMethodWrite);
  EXPECT_FALSE(base.IsAllowDemoMode());
  EXPECT_EQ(base.GetAPI(), ".");
  EXPECT_TRUE(RequestAuthentication().expired);
}

TEST_F(PipelineTest, MissingOrRefusingAuthenticationService) {
  ProbeHandler handler(0, 0, 0);
  JsonRequest request;
  EXPECT_EQ(handler.HandleRequest(request, response_), -1);
  ExpectError(401, "missing authentication service");
  service_.refuse = true;
  EXPECT_EQ(Run(handler), -1);
  ExpectError(105, "authentication failed");
  EXPECT_EQ(handler.calls, 0);
}

TEST_F(PipelineTest, ServiceStateIsCheckedBeforeTheAccount) {
  service_.record = Anonymous();  // would be refused by the account rules
  ProbeHandler handler(3, 0, 3);
  EXPECT_EQ(Run(handler), -1);
  ExpectError(401, "failed to get status");  // no daemon in this root
  EXPECT_EQ(handler.calls, 0);
}

TEST_F(PipelineTest, AnonymousCallersOnlyWhereAdmitted) {
  service_.record = Anonymous();
  ProbeHandler closed(3, 0, 0);
  EXPECT_EQ(Run(closed), -1);
  ExpectError(105, "permission denied by anonymous");
  EXPECT_EQ(closed.calls, 0);
  ProbeHandler open(6, 0, 0);
  EXPECT_EQ(Run(open), 0);
  EXPECT_EQ(open.calls, 1);
}

TEST_F(PipelineTest, TimedOutSessionIsRefusedUnlessAnonymousIsAdmitted) {
  service_.record = User("alice", 1026);
  service_.record.session_timed_out = true;
  ProbeHandler handler(6, 0, 0);
  EXPECT_EQ(Run(handler), -1);
  ExpectError(106, "session timeout");
  service_.record = Anonymous();
  service_.record.session_timed_out = true;
  ProbeHandler open(6, 0, 0);
  EXPECT_EQ(Run(open), 0);
}

TEST_F(PipelineTest, ExpiredAccountsAndUnfilledRecords) {
  service_.record = User("alice", 1026);
  service_.record.expired = true;
  ProbeHandler handler(2, 0, 0);
  EXPECT_EQ(Run(handler), -1);
  ExpectError(105, "permission denied (user expired)");
  service_.record = RequestAuthentication();  // nobody cleared "expired"
  EXPECT_EQ(Run(handler), -1);
  ExpectError(105, "permission denied (user expired)");
  ProbeHandler unchecked(0, 0, 0);
  EXPECT_EQ(Run(unchecked), 0);
}

TEST_F(PipelineTest, TrustedCallersSkipAccountAndPrivilegeRules) {
  service_.record = User("root", 0);
  service_.record.trusted = true;
  service_.record.expired = true;
  service_.record.session_timed_out = true;
  ProbeHandler handler(7, 2, 0);
  EXPECT_EQ(Run(handler), 0);
  EXPECT_EQ(handler.calls, 1);
}

TEST_F(PipelineTest, AppPrivilegeRefusesOrDemotesToAnonymous) {
  ASSERT_TRUE(Users().AddUser("alice", "pw", false, nullptr).ok());
  ASSERT_TRUE(Users().SetFlag("alice", "app_privilege", false).ok());
  service_.record = User("alice", 1026);
  ProbeHandler strict(3, 0, 0);
  EXPECT_EQ(Run(strict), -1);
  ExpectError(105, "permission denied by app-privilege");
  EXPECT_EQ(strict.calls, 0);

  ProbeHandler open(7, 0, 0);
  EXPECT_EQ(Run(open), 0);
  EXPECT_EQ(open.seen.user_name, "anonymous");
  EXPECT_EQ(open.seen.uid, -1);
  EXPECT_TRUE(open.seen.is_anonymous);

  ASSERT_TRUE(Users().SetFlag("alice", "app_privilege", true).ok());
  ProbeHandler allowed(3, 0, 0);
  EXPECT_EQ(Run(allowed), 0);
  EXPECT_EQ(allowed.seen.user_name, "alice");
}

TEST_F(PipelineTest, AdministratorOnlyMethods) {
  service_.record = User("alice", 1026);
  ProbeHandler handler(0, 2, 0);
  EXPECT_EQ(Run(handler), -1);
  ExpectError(105, "permission denied (admin only)");
  service_.record.is_admin = true;
  EXPECT_EQ(Run(handler), 0);
  if (getuid() == 0) {
    EXPECT_EQ(handler.euid_in_handle, 0u);
  }
}

TEST_F(PipelineTest, EnabledUserRuleReadsTheUserDatabase) {
  ASSERT_TRUE(Users().AddUser("alice", "pw", false, nullptr).ok());
  service_.record = User("alice", 1026);
  ProbeHandler handler(0, 1, 0);
  EXPECT_EQ(Run(handler), 0);
  ASSERT_TRUE(Users().SetFlag("alice", "enabled", false).ok());
  ProbeHandler disabled(0, 1, 0);
  EXPECT_EQ(Run(disabled), -1);
  ExpectError(105, "permission denied (disabled)");
  ASSERT_TRUE(Users().SetFlag("alice", "enabled", true).ok());
  ASSERT_TRUE(Users().SetFlag("alice", "system_enabled", false).ok());
  ProbeHandler system_disabled(0, 1, 0);
  EXPECT_EQ(Run(system_disabled), -1);
  ExpectError(105, "permission denied (disabled)");
}

TEST_F(PipelineTest, HandlerFailureKeepsItsError) {
  service_.record = User("alice", 1026);
  ProbeHandler handler(0, 0, 0);
  handler.fail = true;
  EXPECT_EQ(Run(handler), -1);
  EXPECT_EQ(response_.GetErrorCode(), 1002);
  EXPECT_EQ(response_.GetErrorMessage(), "probe failed");
  EXPECT_EQ(response_.GetErrorLine(), 9);
}

TEST_F(PipelineTest, SudoIsForTrustedCallersOnly) {
  service_.record = User("alice", 1026);
  ProbeHandler handler(0, 0, 0);
  EXPECT_EQ(Run(handler, ParseJson(R"({"sudo": "bob"})")), -1);
  ExpectError(105, "permission denied (sudo)");
  EXPECT_EQ(handler.calls, 0);
}

TEST_F(PipelineTest, SudoByNameOrUid) {
  ASSERT_TRUE(Users().AddUser("bob", "pw", false, nullptr).ok());
  service_.record = User("root", 0);
  service_.record.trusted = true;
  ProbeHandler by_name(0, 0, 0);
  EXPECT_EQ(Run(by_name, ParseJson(R"({"sudo": "bob"})")), 0);
  EXPECT_EQ(by_name.seen.user_name, "bob");
  EXPECT_EQ(by_name.GetSudoUser(), "bob");

  ProbeHandler by_uid(0, 0, 0);
  EXPECT_EQ(Run(by_uid, ParseJson(R"({"sudo": 1026})")), 0);
  EXPECT_EQ(by_uid.GetSudoUser(), "bob");

  ProbeHandler unknown(0, 0, 0);
  EXPECT_EQ(Run(unknown, ParseJson(R"({"sudo": 4242})")), -1);
  ExpectError(401, "sudo: Failed to get user");
}

TEST_F(PipelineTest, SudoTargetWithoutAppPrivilegeBecomesAnonymous) {
  ASSERT_TRUE(Users().AddUser("bob", "pw", false, nullptr).ok());
  ASSERT_TRUE(Users().SetFlag("bob", "app_privilege", false).ok());
  service_.record = User("root", 0);
  service_.record.trusted = true;
  ProbeHandler handler(4, 0, 0);
  EXPECT_EQ(Run(handler, ParseJson(R"({"sudo": "bob"})")), 0);
  EXPECT_EQ(handler.seen.user_name, "anonymous");
  EXPECT_TRUE(handler.seen.is_anonymous);
}

TEST(WebAPIAuthentication, FillsTheRecordFromTheFramework) {
  ZEMO::APIRequest request("ZEMO.ZemoraOrvel.Files", "list", 1, Json::Value(Json::objectValue));
  request.SetLogin(ZEMO::LoginInfo{"alice", 1026, true, true});
  request.SetRemote("192.0.2.4", "https", "nas.local", 5001);
  ZEMO::APIResponse response;
  WebAPIAuthenticationService service(&request, &response);
  RequestAuthentication auth;
  JsonRequest bridge_request;
  BridgeResponse bridge_response;
  ASSERT_EQ(service.Authenticate(auth, bridge_request, bridge_response), 0);
  EXPECT_EQ(auth.user_name, "alice");
  EXPECT_EQ(auth.uid, 1026);
  EXPECT_EQ(auth.remote_address, "192.0.2.4");
  EXPECT_EQ(auth.url_protocol, "https");
  EXPECT_EQ(auth.url_host, "nas.local");
  EXPECT_EQ(auth.url_port, 5001);
  EXPECT_TRUE(auth.is_admin);
  EXPECT_FALSE(auth.trusted);
  EXPECT_FALSE(auth.is_anonymous);
  EXPECT_FALSE(auth.expired);
  EXPECT_TRUE(auth.session_timed_out);
}

TEST(WebAPIAuthentication, CallerWithoutSessionIsAnonymousWithDefaults) {
  ZEMO::APIRequest request("ZEMO.ZemoraOrvel.Files", "list", 1, Json::Value(Json::objectValue));
  ZEMO::APIResponse response;
  WebAPIAuthenticationService service(&request, &response);
  RequestAuthentication auth;
  JsonRequest bridge_request;
  BridgeResponse bridge_response;
  ASSERT_EQ(service.Authenticate(auth, bridge_request, bridge_response), 0);
  EXPECT_EQ(auth.user_name, "anonymous");
  EXPECT_EQ(auth.uid, -1);
  EXPECT_TRUE(auth.is_anonymous);
  EXPECT_EQ(auth.remote_address, "127.0.0.1");
  EXPECT_EQ(auth.url_host, "localhost");
  EXPECT_EQ(auth.url_protocol, "http");
  EXPECT_EQ(auth.url_port, 0);
}

TEST(RunAsRoot, SwitchesEffectiveIdsAndRestoresThem) {
  if (getuid() != 0) GTEST_SKIP() << "needs a real uid of 0";
  ASSERT_EQ(setresgid(-1, 65534, -1), 0);
  ASSERT_EQ(setresuid(-1, 65534, -1), 0);
  {
    orvel::module::RunAsRoot root("test", __LINE__);
    EXPECT_TRUE(root.ok());
    EXPECT_EQ(geteuid(), 0u);
    EXPECT_EQ(getegid(), 0u);
  }
  EXPECT_EQ(geteuid(), 65534u);
  EXPECT_EQ(getegid(), 65534u);
  ASSERT_EQ(setresuid(-1, 0, -1), 0);
  ASSERT_EQ(setresgid(-1, 0, -1), 0);
  {
    orvel::module::RunAsRoot root("test", __LINE__);  // already root: nothing to do
    EXPECT_TRUE(root.ok());
  }
  EXPECT_EQ(geteuid(), 0u);
  // A body that switches the ids itself is still put back to the saved ones.
  ASSERT_EQ(setresgid(-1, 65534, -1), 0);
  ASSERT_EQ(setresuid(-1, 65534, -1), 0);
  {
    orvel::module::RunAsRoot root("test", __LINE__);
    ASSERT_TRUE(root.ok());
    ASSERT_EQ(setresgid(-1, 100, -1), 0);
    ASSERT_EQ(setresuid(-1, 100, -1), 0);
  }
  EXPECT_EQ(geteuid(), 65534u);
  EXPECT_EQ(getegid(), 65534u);
  ASSERT_EQ(setresuid(-1, 0, -1), 0);
  ASSERT_EQ(setresgid(-1, 0, -1), 0);
}

}  // namespace
