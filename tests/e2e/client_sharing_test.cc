// "ZEMO.ZemoraOrvel.Sharing" over HTTP: the owner shares with users and groups
// and makes links; other users and anonymous callers are refused; a link
// gives the item its permanent link; a password link opens to a visitor only
// after unlock_link, through its cookie; a link stops at its expiry. The
// daemon's clock is fixed through orvel.conf ("throttle_clock") and moved by
// restarting the daemon, so nothing depends on how long a run takes. Each
// test's visitors come from an address of their own, so the failed token
// look-ups the tests make on purpose never add up to a throttle wait.
#include <gtest/gtest.h>

#include <fstream>

#include "http_client.h"
#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

constexpr char kSharing[] = "ZEMO.ZemoraOrvel.Sharing";
constexpr char kFiles[] = "ZEMO.ZemoraOrvel.Files";
constexpr int64_t kStart = 1700000000;

class ClientSharingTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("alice", false, "alice-password");
    stack_->AddUser("bob", false, "bob-password");
    ASSERT_TRUE(stack_->Users().AddGroupMember("crew", "bob").ok());
    SetClock(kStart);
    port_ = stack_->StartHttp();
    ApiClient alice = As("alice");
    for (const char* folder : {"/mydrive/Team", "/mydrive/Private", "/mydrive/Locked", "/mydrive/Soon"})
      Create(alice, folder, "");
    Create(alice, "/mydrive/Team/plan.txt", "the plan\n");
  }
  static void TearDownTestSuite() { delete stack_; }

  // Restarts the daemon with its clock at `at`.
  static void SetClock(int64_t at) {
    stack_->StopDaemon();
    Json::Value conf(Json::objectValue);
    conf["web_account"] = ::geteuid() == 0 ? "www-data" : "";
    conf["upload_max_bytes"] = Json::UInt64(4ull << 30);
    conf["throttle_clock"] = Json::Int64(at);
    std::ofstream(stack_->root() + "/var/packages/ZemoraOrvel/target/etc/orvel.conf")
        << Json::writeString(Json::StreamWriterBuilder(), conf);
    stack_->StartDaemon();
  }
  static ApiClient As(const std::string& user) {
    ApiClient client(port_);
    EXPECT_TRUE(client.Login(user, user + "-password"));
    return client;
  }
  static std::string Create(ApiClient& client, const std::string& path, const std::string& content) {
    Json::Value p(Json::objectValue);
    p["path"] = path;
    p["type"] = content.empty() ? "folder" : "file";
    if (!content.empty()) p["file_content"] = EncBase64Enc(content);
    Json::Value r = client.Call(kFiles, "create", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["file_id"].asString();
  }
  static Json::Value Params(std::initializer_list<std::pair<const char*, Json::Value>> fields) {
    Json::Value p(Json::objectValue);
    for (const auto& [name, value] : fields) p[name] = value;
    return p;
  }
  static Json::Value Sharing(ApiClient& client, const std::string& method, const Json::Value& p) {
    return client.Call(kSharing, method, p);
  }
  // A visitor's Files "get" of path with the link's token.
  static Json::Value Visit(ApiClient& visitor, const std::string& token, const std::string& path = "/") {
    return visitor.Call(kFiles, "get", Params({{"path", path}, {"sharing_token", token}}));
  }
  static std::string NewLink(ApiClient& owner, const std::string& path, Json::Value extra = Json::Value()) {
    Json::Value p = extra.isObject() ? extra : Json::Value(Json::objectValue);
    p["path"] = path;
    Json::Value r = Sharing(owner, "create_link", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["link"]["token"].asString();
  }
  // The Files API keeps its own messages; only the code tells the cause.
  static void ExpectCode(const Json::Value& r, int code) {
    EXPECT_FALSE(r["success"].asBool()) << r;
    EXPECT_EQ(r["error"]["code"].asInt(), code) << r;
  }

  static TestStack* stack_;
  static int port_;
};

TestStack* ClientSharingTest::stack_ = nullptr;
int ClientSharingTest::port_ = 0;

TEST_F(ClientSharingTest, OwnerSharesWithUsersAndGroupsAndListsThem) {
  ApiClient alice = As("alice");
  Json::Value r = Sharing(alice, "share", Params({{"path", "/mydrive/Team"}, {"name", "bob"}, {"role", "editor"}}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  r = Sharing(alice, "share", Params({{"path", "/mydrive/Team"}, {"kind", "group"}, {"name", "crew"}}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  r = Sharing(alice, "list", Params({{"path", "/mydrive/Team"}}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["item"]["name"].asString(), "Team") << r;
  ASSERT_EQ(r["data"]["shares"].size(), 2u) << r;
  EXPECT_EQ(r["data"]["shares"][0]["role"].asString() + r["data"]["shares"][1]["role"].asString(), "editorviewer")
      << r;

  ExpectError(Sharing(alice, "share", Params({{"path", "/mydrive/Team"}, {"name", "nobody"}})), 1022,
              "unknown user: nobody");
  ExpectError(Sharing(alice, "share", Params({{"path", "/mydrive/Team"}, {"kind", "group"}, {"name", "ghosts"}})),
              1022, "unknown group: ghosts");
  ExpectError(Sharing(alice, "share", Params({{"path", "/mydrive"}, {"name", "bob"}})), 1022,
              "a whole space cannot be shared");
  ExpectError(Sharing(alice, "share", Params({{"path", "/mydrive/Team"}, {"name", "bob"}, {"role", "owner"}})), 114,
              "role must be one of viewer, commenter, editor");
  ExpectError(Sharing(alice, "share", Params({{"path", "/mydrive/Team"}, {"kind", "team"}, {"name", "bob"}})), 114,
              "kind must be user or group");
  ExpectError(Sharing(alice, "share", Params({{"path", "/mydrive/Team"}})), 114, "name is required");
  ExpectError(Sharing(alice, "list", Params({})), 114, "path is required");

  r = Sharing(alice, "unshare", Params({{"path", "/mydrive/Team"}, {"kind", "group"}, {"name", "crew"}}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  r = Sharing(alice, "list", Params({{"path", "/mydrive/Team"}}));
  ASSERT_EQ(r["data"]["shares"].size(), 1u) << r;
  const std::string team = r["data"]["item"]["file_id"].asString();
  ExpectError(Sharing(alice, "unshare", Params({{"path", "/mydrive/Team"}, {"kind", "group"}, {"name", "crew"}})),
              1002, "no share of group crew on id:" + team);
}

TEST_F(ClientSharingTest, OnlyTheOwnerSharesAndOthersItemsAreNotFound) {
  ApiClient alice = As("alice"), bob = As("bob");
  ASSERT_TRUE(Sharing(alice, "share", Params({{"path", "/mydrive/Team"}, {"name", "bob"}, {"role", "editor"}}))
                  ["success"].asBool());
  const std::string team = Sharing(alice, "list", Params({{"path", "/mydrive/Team"}}))["data"]["item"]["file_id"].asString();
  const std::string hidden = Sharing(alice, "list", Params({{"path", "/mydrive/Private"}}))["data"]["item"]["file_id"].asString();
  ASSERT_FALSE(hidden.empty());
  // Bob edits Team but may not widen who sees it.
  for (const char* method : {"list", "share", "unshare", "create_link"}) {
    ExpectError(Sharing(bob, method, Params({{"path", "id:" + team}, {"name", "crew"}})), 1006,
                "permission denied: only the owner shares id:" + team);
  }
  // An item bob cannot see answers exactly as an unknown one.
  ExpectError(Sharing(bob, "list", Params({{"path", "id:" + hidden}})), 1002, "item not found: id:" + hidden);
  ExpectError(Sharing(bob, "list", Params({{"path", "id:0123456789abcdef0123456789abcdef"}})), 1002,
              "item not found: id:0123456789abcdef0123456789abcdef");
  ExpectError(Sharing(bob, "create_link", Params({{"path", "id:" + hidden}})), 1002, "item not found: id:" + hidden);

  const std::string seen = NewLink(alice, "/mydrive/Team/plan.txt");
  const std::string unseen = NewLink(alice, "/mydrive/Private");
  for (const char* method : {"update_link", "delete_link"}) {
    ExpectError(Sharing(bob, method, Params({{"token", seen}})), 1006,
                "permission denied: only the owner changes a sharing link");
    ExpectError(Sharing(bob, method, Params({{"token", unseen}})), 1002, "sharing link not found");
    ExpectError(Sharing(bob, method, Params({{"token", "nope"}})), 1002, "sharing link not found");
    ExpectError(Sharing(bob, method, Params({})), 114, "token is required");
  }
}

TEST_F(ClientSharingTest, AnonymousCallersNeedASessionExceptToUnlock) {
  ApiClient anonymous(port_, 4);
  for (const char* method : {"list", "share", "unshare", "create_link", "update_link", "delete_link"}) {
    Json::Value r = Sharing(anonymous, method, Params({{"path", "/mydrive/Team"}, {"token", "x"}}));
    EXPECT_EQ(r["error"]["code"].asInt(), 105) << method << ": " << r;
  }
  ExpectError(Sharing(anonymous, "unlock_link", Params({{"sharing_token", "unknown"}, {"password", "pw"}})), 1007,
              "sharing token invalid or expired");
  ExpectError(Sharing(anonymous, "unlock_link", Params({{"password", "pw"}})), 114, "sharing_token is required");
}

TEST_F(ClientSharingTest, LinkGivesThePermanentLinkThatNamesTheItemForItsVisitors) {
  ApiClient alice = As("alice");
  Json::Value r = Sharing(alice, "create_link", Params({{"path", "/mydrive/Team"}, {"role", "editor"}}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  const std::string token = r["data"]["link"]["token"].asString();
  const std::string permanent = r["data"]["permanent_link"].asString();
  EXPECT_EQ(r["data"]["link"]["role"].asString(), "editor");
  ASSERT_FALSE(permanent.empty());
  EXPECT_EQ(token.find(permanent), std::string::npos) << "the public id must not reveal the token";
  // A second link keeps the item's permanent link.
  r = Sharing(alice, "create_link", Params({{"path", "/mydrive/Team"}}));
  EXPECT_EQ(r["data"]["permanent_link"].asString(), permanent) << r;
  r = alice.Call(kFiles, "get", Params({{"path", "/mydrive/Team"}}));
  EXPECT_EQ(r["data"]["permanent_link"].asString(), permanent) << r;
  r = alice.Call(kFiles, "list", Params({{"path", "/mydrive"}}));
  bool listed = false;
  for (const Json::Value& item : r["data"]["items"]) listed |= item["permanent_link"].asString() == permanent;
  EXPECT_TRUE(listed) << r;
  r = alice.Call(kFiles, "get", Params({{"path", "link:" + permanent}}));
  EXPECT_EQ(r["data"]["name"].asString(), "Team") << r;

  ApiClient visitor(port_, 5);
  r = Visit(visitor, token, "link:" + permanent);
  EXPECT_EQ(r["data"]["name"].asString(), "Team") << r;
  r = visitor.Call(kFiles, "list", Params({{"path", "link:" + permanent}, {"sharing_token", token}}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "plan.txt") << r;
  // The token of another item's link does not open this one.
  const std::string other = NewLink(alice, "/mydrive/Private");
  r = Visit(visitor, other, "link:" + permanent);
  EXPECT_EQ(r["error"]["code"].asInt(), 1006) << r;

  ExpectError(Sharing(alice, "create_link", Params({{"path", "/mydrive/Team"}, {"role", "commenter"}})), 114,
              "role must be one of viewer, editor");
  ExpectError(Sharing(alice, "create_link", Params({{"path", "/mydrive/Team"}, {"expires", "soon"}})), 114,
              "expires must be a non-negative integer");
  ExpectError(Sharing(alice, "create_link", Params({{"path", "/mydrive/Team"}, {"expires", Json::Int64(kStart - 1)}})),
              1022, "expires is in the past");
  ExpectError(Sharing(alice, "create_link", Params({{"path", "/mydrive"}})), 1022, "a whole space cannot be shared");

  r = Sharing(alice, "update_link", Params({{"token", token}, {"role", "viewer"}}));
  EXPECT_EQ(r["data"]["link"]["role"].asString(), "viewer") << r;
  EXPECT_FALSE(Visit(visitor, token)["data"]["capabilities"]["can_write"].asBool());
  ASSERT_TRUE(Sharing(alice, "delete_link", Params({{"token", token}}))["success"].asBool());
  ExpectCode(Visit(visitor, token), 1007);
  ExpectError(Sharing(alice, "delete_link", Params({{"token", token}})), 1002, "sharing link not found");
}

TEST_F(ClientSharingTest, PasswordLinkOpensOnlyAfterUnlockThroughItsCookie) {
  ApiClient alice = As("alice");
  const std::string token = NewLink(alice, "/mydrive/Locked", Params({{"password", "open sesame"}}));
  Json::Value r = Sharing(alice, "list", Params({{"path", "/mydrive/Locked"}}));
  EXPECT_TRUE(r["data"]["links"][0]["has_password"].asBool()) << r;
  EXPECT_FALSE(r["data"]["links"][0].isMember("password")) << r;

  ApiClient visitor(port_, 6);
  ExpectCode(Visit(visitor, token), 1041);
  ExpectError(Sharing(visitor, "unlock_link", Params({{"sharing_token", token}, {"password", "guess"}})), 1042,
              "wrong password for the sharing link");
  EXPECT_EQ(visitor.Cookie("link_grant"), "");
  ExpectCode(Visit(visitor, token), 1041);

  // A password in the URL is refused, even in a POST.
  HttpAnswer a = HttpRequest(port_, "POST", "/webapi/entry.cgi?password=open%20sesame",
                             {"Content-Type: application/x-www-form-urlencoded"},
                             "api=ZEMO.ZemoraOrvel.Sharing&version=1&method=unlock_link&sharing_token=" + token);
  ExpectError(a.Json(), 114, "password must be sent in the request body, not in the URL");

  HttpAnswer unlocked = visitor.CallRaw(kSharing, "unlock_link", Params({{"sharing_token", token}, {"password", "open sesame"}}));
  ASSERT_TRUE(unlocked.Json()["success"].asBool()) << unlocked.body;
  const std::string cookie = unlocked.Header("Set-Cookie");
  EXPECT_NE(cookie.find("HttpOnly"), std::string::npos) << cookie;
  EXPECT_NE(cookie.find("SameSite=Strict"), std::string::npos) << cookie;
  EXPECT_NE(cookie.find("Path=/webapi/"), std::string::npos) << cookie;
  const std::string grant = visitor.Cookie("link_grant");
  ASSERT_EQ(grant.size(), 64u) << cookie;
  EXPECT_EQ(unlocked.body.find(grant), std::string::npos) << "the grant travels only in the cookie";
  r = Visit(visitor, token);
  EXPECT_EQ(r["data"]["name"].asString(), "Locked") << r;

  // The grant opens only its own link.
  const std::string second = NewLink(alice, "/mydrive/Soon", Params({{"password", "other one"}}));
  ExpectCode(Visit(visitor, second), 1041);
  // A new password ends what the old one opened; removing it opens the link.
  ASSERT_TRUE(Sharing(alice, "update_link", Params({{"token", token}, {"password", "new words"}}))["success"].asBool());
  ExpectCode(Visit(visitor, token), 1041);
  ASSERT_TRUE(Sharing(alice, "update_link", Params({{"token", token}, {"password", ""}}))["success"].asBool());
  ApiClient stranger(port_, 6);
  EXPECT_TRUE(Visit(stranger, token)["success"].asBool());
}

TEST_F(ClientSharingTest, LinkStopsWorkingAtItsExpiry) {
  ApiClient alice = As("alice");
  const std::string token = NewLink(alice, "/mydrive/Soon", Params({{"expires", Json::Int64(kStart + 100)}}));
  ApiClient visitor(port_, 7);
  EXPECT_EQ(Visit(visitor, token)["data"]["name"].asString(), "Soon");
  SetClock(kStart + 100);
  ExpectCode(Visit(visitor, token), 1007);
  // Lifting the expiry opens it again.
  ApiClient owner = As("alice");
  ASSERT_TRUE(Sharing(owner, "update_link", Params({{"token", token}, {"expires", 0}}))["success"].asBool());
  EXPECT_EQ(Visit(visitor, token)["data"]["name"].asString(), "Soon");
  SetClock(kStart);
}

TEST_F(ClientSharingTest, OrvelctlSharesAndMakesLinksAsTheOwner) {
  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"link", "create", "alice", "/mydrive/Private", "--role", "editor"}, &out), 0) << out;
  const std::string token = out.substr(0, 64);
  ApiClient visitor(port_, 8);
  EXPECT_EQ(Visit(visitor, token)["data"]["name"].asString(), "Private");
  ASSERT_EQ(stack_->Orvelctl({"share", "alice", "/mydrive/Private", "--user", "bob"}, &out), 0) << out;
  ApiClient alice = As("alice");
  Json::Value r = Sharing(alice, "list", Params({{"path", "/mydrive/Private"}}));
  ASSERT_EQ(r["data"]["shares"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["shares"][0]["name"].asString(), "bob");
  EXPECT_NE(stack_->Orvelctl({"share", "alice", "/mydrive", "--user", "bob"}, &out), 0);
  EXPECT_NE(out.find("a whole space cannot be shared"), std::string::npos) << out;
  ASSERT_EQ(stack_->Orvelctl({"link", "remove", token}, &out), 0) << out;
  ExpectCode(Visit(visitor, token), 1007);
}

}  // namespace
}  // namespace orvel::test
