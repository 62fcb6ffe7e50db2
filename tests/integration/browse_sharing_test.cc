// Sharing through orvelctl and what callers then see through entry.cgi:
// "shared_with_me", "shared_with_others", link visitors with a
// "sharing_token", "list_ancestor", "list_backup_tasks" and
// "request_access", with their failure rows.
#include <gtest/gtest.h>

#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

class SharingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    stack_->AddUser("bob");
    Make("/mydrive/Team", "");
    Make("/mydrive/Team/plans", "");
    plan_ = Make("/mydrive/Team/plans/q1.txt", "first quarter");
    secret_ = Make("/mydrive/secret.txt", "keep out");
  }
  std::string Make(const std::string& path, const std::string& content) {
    Json::Value p;
    p["path"] = path;
    p["type"] = content.empty() ? "folder" : "file";
    if (!content.empty()) p["file_content"] = EncBase64Enc(content);
    Json::Value r = stack_->Call("alice", "create", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["file_id"].asString();
  }
  std::string MakeLink(const std::string& path) {
    std::string out;
    EXPECT_EQ(stack_->Orvelctl({"link", "create", "alice", path}, &out), 0) << out;
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
  }
  Json::Value AsVisitor(const std::string& method, Json::Value p, const std::string& token) {
    p["sharing_token"] = token;
    return stack_->Call("", method, p);
  }
  static void ExpectError(const Json::Value& r, int code, const std::string& message) {
    EXPECT_FALSE(r["success"].asBool()) << r;
    EXPECT_EQ(r["error"]["code"].asInt(), code) << r;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), message) << r;
  }
  std::unique_ptr<TestStack> stack_;
  std::string plan_, secret_;
};

TEST_F(SharingTest, SharedFolderAppearsForBothSidesWithRoleCapabilities) {
  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"share", "alice", "/mydrive/Team", "--user", "bob", "--role", "viewer"}, &out), 0)
      << out;
  Json::Value r = stack_->Call("bob", "shared_with_me");
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u);
  const Json::Value& team = r["data"]["items"][0];
  EXPECT_EQ(team["name"].asString(), "Team");
  EXPECT_EQ(team["path"].asString(), "/shared-with-me/Team");
  EXPECT_EQ(team["owner"]["name"].asString(), "alice");
  EXPECT_TRUE(team["capabilities"]["can_read"].asBool());
  EXPECT_FALSE(team["capabilities"]["can_write"].asBool());

  r = stack_->Call("alice", "shared_with_others");
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u);
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/mydrive/Team");
  EXPECT_TRUE(r["data"]["items"][0]["shared"].asBool());

  // bob browses below the share, by its shared path and by id.
  Json::Value list;
  list["path"] = "/shared-with-me/Team/plans";
  r = stack_->Call("bob", "list", list);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["items"].size(), 1u);
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/shared-with-me/Team/plans/q1.txt");
  Json::Value get;
  get["path"] = "id:" + secret_;
  ExpectError(stack_->Call("bob", "get", get), 1006, "get file infomation failed");

  // A viewer may not rename; an editor may.
  Json::Value upd;
  upd["path"] = "id:" + plan_;
  upd["name"] = "q2.txt";
  ExpectError(stack_->Call("bob", "update", upd), 1006, "update file information failed");
  ASSERT_EQ(stack_->Orvelctl({"share", "alice", "/mydrive/Team", "--user", "bob", "--role", "editor"}, &out), 0);
  r = stack_->Call("bob", "update", upd);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["path"].asString(), "/shared-with-me/Team/plans/q2.txt");

  ASSERT_EQ(stack_->Orvelctl({"unshare", "alice", "/mydrive/Team", "--user", "bob"}, &out), 0) << out;
  EXPECT_EQ(stack_->Call("bob", "shared_with_me")["data"]["total"].asUInt(), 0u);
}

TEST_F(SharingTest, LinkVisitorReachesOnlyWhatIsUnderTheLink) {
  const std::string token = MakeLink("/mydrive/Team");
  ASSERT_EQ(token.size(), 64u);
  Json::Value root;
  root["path"] = "/";  // the linked item itself
  Json::Value r = AsVisitor("get", root, token);
  ASSERT_TRUE(r["success"].asBool()) << r;
  const std::string team_id = r["data"]["file_id"].asString();
  EXPECT_EQ(r["data"]["name"].asString(), "Team");
  EXPECT_FALSE(r["data"]["capabilities"]["can_write"].asBool());

  Json::Value list;
  list["path"] = "id:" + team_id;
  r = AsVisitor("list", list, token);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["items"].size(), 1u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "plans");

  Json::Value get;
  get["path"] = "id:" + plan_;
  r = AsVisitor("get", get, token);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["path"].asString(), "/Team/plans/q1.txt");

  // Breadcrumbs stop at the linked folder.
  r = AsVisitor("list_ancestor", get, token);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 2u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "Team");
  EXPECT_EQ(r["data"]["items"][1]["name"].asString(), "plans");

  // Outside the link, a bad token, and a method that does not admit visitors.
  get["path"] = "id:" + secret_;
  ExpectError(AsVisitor("get", get, token), 1006, "get file infomation failed");
  get["path"] = "/mydrive";
  ExpectError(AsVisitor("list", get, token), 1006, "list node failed");
  get["path"] = "id:" + plan_;
  ExpectError(AsVisitor("get", get, std::string(64, 'a')), 1007, "get file infomation failed");
  Json::Value search;
  search["keyword"] = "quarter";
  search["sharing_token"] = token;
  Json::Value refused = stack_->Call("", "search", search);
  EXPECT_FALSE(refused["success"].asBool()) << refused;

  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"link", "remove", token}, &out), 0) << out;
  ExpectError(AsVisitor("get", get, token), 1007, "get file infomation failed");
}

// The item's real path on the server is the owner's to see: a member of a
// share and a link visitor get it empty, in every answer that lists items.
TEST_F(SharingTest, OnlyTheOwnerSeesThePathOnTheServer) {
  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"share", "alice", "/mydrive/Team", "--user", "bob", "--role", "editor"}, &out), 0)
      << out;
  const std::string token = MakeLink("/mydrive/Team");
  const std::string real = stack_->HomeDir("alice") + "/Team/plans/q1.txt";
  Json::Value get;
  get["path"] = "id:" + plan_;
  Json::Value r = stack_->Call("alice", "get", get);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["tpx_path"].asString(), real);

  r = stack_->Call("bob", "get", get);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_TRUE(r["data"].isMember("tpx_path")) << r;
  EXPECT_EQ(r["data"]["tpx_path"].asString(), "");
  r = AsVisitor("get", get, token);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["tpx_path"].asString(), "");

  Json::Value list;
  list["path"] = "/shared-with-me/Team/plans";
  r = stack_->Call("bob", "list", list);
  ASSERT_EQ(r["data"]["items"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["tpx_path"].asString(), "");
  r = stack_->Call("bob", "shared_with_me");
  ASSERT_EQ(r["data"]["items"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["tpx_path"].asString(), "");
  list["path"] = "id:" + plan_;
  r = stack_->Call("bob", "list_ancestor", list);
  ASSERT_EQ(r["data"]["items"].size(), 2u) << r;
  for (const Json::Value& item : r["data"]["items"]) EXPECT_EQ(item["tpx_path"].asString(), "") << item;
  Json::Value update;
  update["path"] = "id:" + plan_;
  update["modified_time"] = 1700000000;
  r = stack_->Call("bob", "update", update);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["tpx_path"].asString(), "");
}

TEST_F(SharingTest, AncestorsOfAnOwnItemFromTheRootDown) {
  Json::Value p;
  p["path"] = "/mydrive/Team/plans/q1.txt";
  Json::Value r = stack_->Call("alice", "list_ancestor", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 3u);
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/mydrive");
  EXPECT_EQ(r["data"]["items"][1]["path"].asString(), "/mydrive/Team");
  EXPECT_EQ(r["data"]["items"][2]["path"].asString(), "/mydrive/Team/plans");

  ExpectError(stack_->Call("alice", "list_ancestor"), 117, "Missing path");
  p["path"] = "/mydrive/none";
  ExpectError(stack_->Call("alice", "list_ancestor", p), 1002, "list ancestor failed");
}

TEST_F(SharingTest, BackupTasksSortByTargetName) {
  for (const char* name : {"b", "A", "c"}) {
    Json::Value p;
    p["path"] = std::string("/mydrive/") + name;
    p["type"] = "folder";
    ASSERT_TRUE(stack_->Call("alice", "create", p)["success"].asBool());
    std::string out;
    ASSERT_EQ(stack_->Orvelctl({"backup", "add", "alice", std::string("job-") + name, p["path"].asString()}, &out),
              0)
        << out;
  }
  Json::Value asc;
  asc["sort_direction"] = "asc";
  Json::Value r = stack_->Call("alice", "list_backup_tasks", asc, 3);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 3u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "A");
  EXPECT_EQ(r["data"]["items"][2]["name"].asString(), "c");
  asc["sort_direction"] = "ASC";
  r = stack_->Call("alice", "list_backup_tasks", asc, 3);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "c");
  EXPECT_EQ(stack_->Call("bob", "list_backup_tasks", Json::Value(Json::objectValue), 3)["data"]["total"].asUInt(), 0u);

  std::string out;
  EXPECT_EQ(stack_->Orvelctl({"backup", "add", "alice", "x", "/mydrive/missing"}, &out), 1);
  EXPECT_NE(out.find("backup target not found"), std::string::npos) << out;
}

TEST_F(SharingTest, AccessIsRequestedOnceAndTheOwnerSeesIt) {
  Json::Value p;
  p["path"] = "id:" + secret_;
  Json::Value r = stack_->Call("bob", "request_access", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_FALSE(r.isMember("data"));
  ExpectError(stack_->Call("bob", "request_access", p), 1032, "request access failed");
  ExpectError(stack_->Call("bob", "request_access"), 1022, "request access failed");
  p["path"] = "id:00000000000000000000000000000000";
  ExpectError(stack_->Call("bob", "request_access", p), 1002, "request access failed");

  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"access-requests", "alice"}, &out), 0) << out;
  EXPECT_NE(out.find("bob\t/mydrive/secret.txt\t" + secret_), std::string::npos) << out;
}

}  // namespace
}  // namespace orvel::test
