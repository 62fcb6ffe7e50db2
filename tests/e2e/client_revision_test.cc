// ZEMO.ZemoraOrvel.Revision over HTTP: a file updated through the Files API
// keeps its older contents, which list newest first, download byte for byte
// and restore; other users, anonymous callers and bad parameters are refused
// with exact codes and messages; retention keeps what orvel.conf says.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "http_client.h"
#include "nimbard/platform.h"
#include "orvelcommon/sha256.h"
#include "stack.h"

namespace orvel::test {
namespace {

constexpr char kApi[] = "ZEMO.ZemoraOrvel.Revision";
constexpr char kFiles[] = "ZEMO.ZemoraOrvel.Files";
const std::vector<std::string> kContents = {"first\n", "second, longer\n", "third\n", "fourth and current\n"};

// Writes /mydrive/<name> four times (create, then three updates with new
// content) and answers the last item object.
Json::Value WriteFourTimes(ApiClient& client, const std::string& name) {
  Json::Value p(Json::objectValue);
  p["path"] = "/mydrive/" + name;
  p["type"] = "file";
  p["file_content"] = EncBase64Enc(kContents[0]);
  Json::Value r = client.Call(kFiles, "create", p);
  EXPECT_TRUE(r["success"].asBool()) << r;
  for (size_t i = 1; i < kContents.size(); ++i) {
    Json::Value u(Json::objectValue);
    u["path"] = "/mydrive/" + name;
    u["file_content"] = EncBase64Enc(kContents[i]);
    r = client.Call(kFiles, "update", u);
    EXPECT_TRUE(r["success"].asBool()) << r;
  }
  return r["data"];
}

Json::Value Params(const std::string& path, const std::string& revision_id = "") {
  Json::Value p(Json::objectValue);
  p["path"] = path;
  if (!revision_id.empty()) p["revision_id"] = revision_id;
  return p;
}

class ClientRevisionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("erin", false, "erin-password");
    stack_->AddUser("frank", false, "frank-password");
    stack_->AddUser("vera", false, "vera-password");
    port_ = stack_->StartHttp();
  }
  static void TearDownTestSuite() { delete stack_; }
  static ApiClient LoggedIn(const std::string& user) {
    ApiClient client(port_);
    EXPECT_TRUE(client.Login(user, user + "-password"));
    return client;
  }
  static TestStack* stack_;
  static int port_;
};

TestStack* ClientRevisionTest::stack_ = nullptr;
int ClientRevisionTest::port_ = 0;

TEST_F(ClientRevisionTest, ThreeUpdatesListThreeRevisionsNewestFirstWithTheirWriter) {
  ApiClient erin = LoggedIn("erin");
  WriteFourTimes(erin, "list.txt");
  Json::Value r = erin.Call(kApi, "list", Params("/mydrive/list.txt"));
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["total"].asUInt(), 3u) << r;
  const Json::Value revs = r["data"]["revisions"];
  ASSERT_EQ(revs.size(), 3u) << r;
  for (unsigned i = 0; i < 3; ++i) {  // newest first: contents 2, 1, 0
    EXPECT_EQ(revs[i]["size"].asUInt64(), kContents[2 - i].size()) << r;
    EXPECT_EQ(revs[i]["modified_by"]["name"].asString(), "erin") << r;
    EXPECT_FALSE(revs[i]["revision_id"].asString().empty()) << r;
    EXPECT_EQ(revs[i]["hash"].asString().size(), 64u) << r;
  }
  Json::Value page = Params("/mydrive/list.txt");
  page["offset"] = 1;
  page["limit"] = 1;
  r = erin.Call(kApi, "list", page);
  ASSERT_EQ(r["data"]["revisions"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["total"].asUInt(), 3u) << r;
  EXPECT_EQ(r["data"]["revisions"][0]["revision_id"], revs[1]["revision_id"]) << r;
}

TEST_F(ClientRevisionTest, DownloadAnswersExactlyTheBytesOfTheRevision) {
  ApiClient erin = LoggedIn("erin");
  WriteFourTimes(erin, "down.txt");
  const Json::Value revs = erin.Call(kApi, "list", Params("/mydrive/down.txt"))["data"]["revisions"];
  ASSERT_EQ(revs.size(), 3u);
  for (unsigned i = 0; i < 3; ++i) {
    HttpAnswer a = erin.CallRaw(kApi, "download", Params("/mydrive/down.txt", revs[i]["revision_id"].asString()));
    EXPECT_EQ(a.status, 200) << a.body;
    EXPECT_EQ(a.body, kContents[2 - i]);
    EXPECT_NE(a.Header("Content-Disposition").find("down.txt"), std::string::npos) << a.headers;
  }
}

TEST_F(ClientRevisionTest, RestoreBringsTheFirstContentBackAndKeepsTheCurrentOne) {
  ApiClient erin = LoggedIn("erin");
  const std::string file_id = WriteFourTimes(erin, "restore.txt")["file_id"].asString();
  const Json::Value revs = erin.Call(kApi, "list", Params("/mydrive/restore.txt"))["data"]["revisions"];
  ASSERT_EQ(revs.size(), 3u);
  Json::Value r = erin.Call(kApi, "restore", Params("/mydrive/restore.txt", revs[2]["revision_id"].asString()));
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["file"]["file_id"].asString(), file_id) << r;
  EXPECT_EQ(r["data"]["file"]["size"].asUInt64(), kContents[0].size()) << r;

  Json::Value d(Json::objectValue);
  d["files"] = Json::Value(Json::arrayValue);
  d["files"].append("/mydrive/restore.txt");
  EXPECT_EQ(erin.CallRaw(kFiles, "download", d).body, kContents[0]);
  r = erin.Call(kApi, "list", Params("id:" + file_id));
  ASSERT_EQ(r["data"]["total"].asUInt(), 4u) << r;
  HttpAnswer newest = erin.CallRaw(kApi, "download", Params("id:" + file_id, r["data"]["revisions"][0]["revision_id"].asString()));
  EXPECT_EQ(newest.body, kContents[3]);
}

TEST_F(ClientRevisionTest, SharedViewersReadButOnlyEditorsRestore) {
  ApiClient erin = LoggedIn("erin");
  WriteFourTimes(erin, "team.txt");
  ASSERT_EQ(stack_->Orvelctl({"share", "erin", "/mydrive/team.txt", "--user", "vera", "--role", "viewer"}), 0);
  ApiClient vera = LoggedIn("vera");
  const std::string path = "/shared-with-me/team.txt";
  Json::Value r = vera.Call(kApi, "list", Params(path));
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 3u) << r;
  const std::string id = r["data"]["revisions"][0]["revision_id"].asString();
  EXPECT_EQ(vera.CallRaw(kApi, "download", Params(path, id)).body, kContents[2]);
  ExpectError(vera.Call(kApi, "restore", Params(path, id)), 1006,
              "permission denied: /shared-with-me/team.txt is shared as viewer");
}

TEST_F(ClientRevisionTest, AnotherUsersFileAndUnknownIdsAnswerNotFoundAlike) {
  ApiClient erin = LoggedIn("erin");
  const std::string file_id = WriteFourTimes(erin, "private.txt")["file_id"].asString();
  const std::string rev = erin.Call(kApi, "list", Params("id:" + file_id))["data"]["revisions"][0]["revision_id"].asString();
  ApiClient frank = LoggedIn("frank");
  const std::string theirs = "id:" + file_id, missing = "id:0123456789abcdef0123456789abcdef";
  for (const std::string& path : {theirs, missing}) {
    ExpectError(frank.Call(kApi, "list", Params(path)), 1002, "item not found: " + path);
    ExpectError(frank.Call(kApi, "download", Params(path, rev)), 1002, "item not found: " + path);
    ExpectError(frank.Call(kApi, "restore", Params(path, rev)), 1002, "item not found: " + path);
  }
  // frank's own file with erin's revision id: the id is unknown to it.
  WriteFourTimes(frank, "own.txt");
  ExpectError(frank.Call(kApi, "download", Params("/mydrive/own.txt", rev)), 1002, "revision not found: " + rev);
  ExpectError(frank.Call(kApi, "restore", Params("/mydrive/own.txt", "999999")), 1002, "revision not found: 999999");
  ExpectError(frank.Call(kApi, "restore", Params("/mydrive/own.txt", "x1")), 1002, "revision not found: x1");
}

TEST_F(ClientRevisionTest, AnonymousCallersAndBadParametersAreRefused) {
  ApiClient anonymous(port_);
  for (const char* method : {"list", "download", "restore"}) {
    Json::Value r = anonymous.Call(kApi, method, Params("/mydrive/list.txt", "1"));
    EXPECT_EQ(r["error"]["code"].asInt(), 105) << method << r;
  }
  ApiClient erin = LoggedIn("erin");
  for (const char* method : {"list", "download", "restore"}) {
    ExpectError(erin.Call(kApi, method, Json::Value(Json::objectValue)), 114, "path is required");
  }
  ExpectError(erin.Call(kApi, "download", Params("/mydrive/list.txt")), 114, "revision_id is required");
  ExpectError(erin.Call(kApi, "restore", Params("/mydrive/list.txt")), 114, "revision_id is required");
  Json::Value p = Params("/mydrive/list.txt");
  p["limit"] = 0;
  ExpectError(erin.Call(kApi, "list", p), 114, "limit must be 1 to 1000");
  p["limit"] = "ten";
  ExpectError(erin.Call(kApi, "list", p), 114, "limit must be a non-negative integer");
  Json::Value folder = Params("/mydrive", "1");
  ExpectError(erin.Call(kApi, "list", folder), 1010, "is a folder: /mydrive");
}

// Retention: with revision_keep_count 2 three updates leave two revisions,
// and the kept content of the pruned one is gone from @versions.
TEST(ClientRevisionRetentionTest, KeepCountTwoLeavesTwoAfterThreeUpdates) {
  std::unique_ptr<TestStack> stack = TestStack::Start();
  stack->AddUser("erin", false, "erin-password");
  const std::string conf_path = stack->root() + "/var/packages/ZemoraOrvel/target/etc/orvel.conf";
  Json::Value conf;
  {
    std::ifstream in(conf_path);
    in >> conf;
  }
  conf["revision_keep_count"] = 2;
  std::ofstream(conf_path) << conf.toStyledString();
  stack->StopDaemon();
  stack->StartDaemon();
  ApiClient erin(stack->StartHttp());
  ASSERT_TRUE(erin.Login("erin", "erin-password"));
  const Json::Value item = WriteFourTimes(erin, "kept.txt");
  const std::string file_id = item["file_id"].asString();
  EXPECT_EQ(item["revisions"].asUInt(), 2u) << item;
  Json::Value r = erin.Call(kApi, "list", Params("id:" + file_id));
  ASSERT_EQ(r["data"]["total"].asUInt(), 2u) << r;
  EXPECT_EQ(r["data"]["revisions"][0]["size"].asUInt64(), kContents[2].size()) << r;
  EXPECT_EQ(r["data"]["revisions"][1]["size"].asUInt64(), kContents[1].size()) << r;
  Sha256 first;
  first.Update(kContents[0].data(), kContents[0].size());
  const std::string first_hash = first.HexDigest();
  struct stat st;
  EXPECT_NE(::stat((stack->DataDir() + "/@versions/" + first_hash).c_str(), &st), 0) << "pruned content still kept";
}

}  // namespace
}  // namespace orvel::test
