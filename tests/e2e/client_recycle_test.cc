// The Recycle API over HTTP through lighttpd: a Files delete puts an item in
// its owner's bin, "list" shows it with where it came from, "restore" puts it
// back with the same id, star, label and share (making a folder deleted
// meanwhile again), "delete" and "empty" remove it for good as tasks; each
// method refuses other users' items as unknown ones, callers without a
// session and bad parameters with exact codes and messages.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "../integration/transfer_test_util.h"
#include "http_client.h"
#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

constexpr const char kRecycle[] = "ZEMO.ZemoraOrvel.Recycle";
constexpr const char kFiles[] = "ZEMO.ZemoraOrvel.Files";

class ClientRecycleTest : public ::testing::Test, public TaskHelpers {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("erin", false, "erin-password");
    stack_->AddUser("finn", false, "finn-password");
    port_ = stack_->StartHttp();
  }
  static void TearDownTestSuite() { delete stack_; }
  static ApiClient As(const std::string& user) {
    ApiClient client(port_);
    EXPECT_TRUE(client.Login(user, user + "-password"));
    return client;
  }
  static std::string Make(ApiClient& c, const std::string& path, const std::string& content) {
    Json::Value p(Json::objectValue);
    p["path"] = path;
    p["type"] = content.empty() ? "folder" : "file";
    if (!content.empty()) p["file_content"] = EncBase64Enc(content);
    Json::Value r = c.Call(kFiles, "create", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["file_id"].asString();
  }
  static Json::Value Ids(std::initializer_list<std::string> ids) {
    Json::Value files(Json::arrayValue);
    for (const auto& id : ids) files.append("id:" + id);
    return files;
  }
  // A Files delete to the bin, waited for through the daemon's task state.
  void Delete(ApiClient& c, const std::string& user, const std::string& id) {
    Json::Value p(Json::objectValue);
    p["files"] = Ids({id});
    Json::Value r = c.Call(kFiles, "delete", p);
    ASSERT_TRUE(r["success"].asBool()) << r;
    EXPECT_EQ(WaitTask(user, r["data"]["async_task_id"].asString())["state"].asString(), "finished");
  }
  static Json::Value List(ApiClient& c, Json::Value p = Json::Value(Json::objectValue)) {
    Json::Value r = c.Call(kRecycle, "list", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"];
  }
  static Json::Value Restore(ApiClient& c, const std::string& id, const std::string& conflict = "") {
    Json::Value p(Json::objectValue);
    p["files"] = Ids({id});
    if (!conflict.empty()) p["conflict"] = conflict;
    return c.Call(kRecycle, "restore", p);
  }
  static Json::Value Get(ApiClient& c, const std::string& id) {
    Json::Value p(Json::objectValue);
    p["path"] = "id:" + id;
    p["additional"] = Json::Value(Json::arrayValue);
    return c.Call(kFiles, "get", p);
  }
  static bool Exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
  }
  static TestStack* stack_;
  static int port_;
};

TestStack* ClientRecycleTest::stack_ = nullptr;
int ClientRecycleTest::port_ = 0;

TEST_F(ClientRecycleTest, DeletedItemIsListedAndRestoredWithItsIdMarksAndShare) {
  ApiClient erin = As("erin");
  Make(erin, "/mydrive/Plans", "");
  const std::string id = Make(erin, "/mydrive/Plans/q1.txt", "first quarter");
  Json::Value p(Json::objectValue);
  p["files"] = Ids({id});
  p["starred"] = true;
  ASSERT_TRUE(erin.Call(kFiles, "star", p)["success"].asBool());
  Json::Value labels(Json::arrayValue);
  labels.append("Budget");
  p.removeMember("starred");
  p["labels"] = labels;
  ASSERT_TRUE(erin.Call(kFiles, "label", p)["success"].asBool());
  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"share", "erin", "/mydrive/Plans/q1.txt", "--user", "finn", "--role", "viewer"}, &out), 0)
      << out;

  Delete(erin, "erin", id);
  EXPECT_FALSE(Exists(stack_->HomeDir("erin") + "/Plans/q1.txt"));
  Json::Value bin = List(erin);
  ASSERT_EQ(bin["total"].asUInt(), 1u) << bin;
  const Json::Value& item = bin["items"][0];
  EXPECT_EQ(item["file_id"].asString(), id);
  EXPECT_EQ(item["name"].asString(), "q1.txt");
  EXPECT_EQ(item["original_path"].asString(), "/mydrive/Plans/q1.txt");
  EXPECT_EQ(item["removed_by"].asString(), "erin");
  EXPECT_GT(item["removed_time"].asInt64(), 0);
  EXPECT_TRUE(item["starred"].asBool()) << item;
  ApiClient finn = As("finn");
  EXPECT_EQ(List(finn)["total"].asUInt(), 0u);

  Json::Value r = Restore(erin, id);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["items"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["file_id"].asString(), id);
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/mydrive/Plans/q1.txt");
  EXPECT_TRUE(Exists(stack_->HomeDir("erin") + "/Plans/q1.txt"));
  r = Get(erin, id);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_TRUE(r["data"]["starred"].asBool()) << r;
  EXPECT_TRUE(r["data"]["shared"].asBool()) << r;
  ASSERT_EQ(r["data"]["labels"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["labels"][0]["name"].asString(), "Budget");
  EXPECT_EQ(List(erin)["total"].asUInt(), 0u);
}

TEST_F(ClientRecycleTest, RestoreMakesAFolderDeletedMeanwhileAgainAndKeepsNameConflictsApart) {
  ApiClient erin = As("erin");
  const std::string folder = Make(erin, "/mydrive/Old", "");
  const std::string inner = Make(erin, "/mydrive/Old/Sub", "");
  const std::string note = Make(erin, "/mydrive/Old/Sub/note.txt", "note");
  Delete(erin, "erin", note);
  Delete(erin, "erin", folder);
  Json::Value bin = List(erin);
  ASSERT_EQ(bin["total"].asUInt(), 2u) << bin;
  EXPECT_EQ(bin["items"][0]["file_id"].asString(), folder);  // newest first
  Json::Value asc(Json::objectValue);
  asc["sort_direction"] = "asc";
  asc["limit"] = 1;
  Json::Value page = List(erin, asc);
  EXPECT_EQ(page["total"].asUInt(), 2u);
  ASSERT_EQ(page["items"].size(), 1u);
  EXPECT_EQ(page["items"][0]["file_id"].asString(), note);

  // The note's folder is in the bin: Old/Sub is made again, as new folders.
  Json::Value r = Restore(erin, note);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/mydrive/Old/Sub/note.txt");
  EXPECT_TRUE(Exists(stack_->HomeDir("erin") + "/Old/Sub/note.txt"));
  Json::Value made = Get(erin, r["data"]["items"][0]["parent_id"].asString());
  ASSERT_TRUE(made["success"].asBool()) << made;
  EXPECT_NE(made["data"]["file_id"].asString(), inner);

  // The old folder's name is taken now: "stop" refuses, "autorename" renames.
  ExpectError(Restore(erin, folder), 1031, "name already exists: /mydrive/Old");
  r = Restore(erin, folder, "autorename");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/mydrive/Old (1)");
  EXPECT_EQ(r["data"]["items"][0]["file_id"].asString(), folder);
  ASSERT_TRUE(Get(erin, inner)["success"].asBool());  // what went into the bin with it is back
  EXPECT_TRUE(Exists(stack_->HomeDir("erin") + "/Old (1)/Sub"));
}

TEST_F(ClientRecycleTest, DeleteAndEmptyRemoveForGoodAsTasks) {
  ApiClient erin = As("erin");
  const std::string a = Make(erin, "/mydrive/gone-a.txt", "a");
  const std::string b = Make(erin, "/mydrive/gone-b.txt", "b");
  Delete(erin, "erin", a);
  Delete(erin, "erin", b);
  const std::string data = stack_->DataDir();
  ASSERT_TRUE(Exists(data + "/@recycle/" + a));

  Json::Value p(Json::objectValue);
  p["files"] = Ids({a});
  Json::Value r = erin.Call(kRecycle, "delete", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(WaitTask("erin", r["data"]["task_id"].asString())["state"].asString(), "finished");
  EXPECT_FALSE(Exists(data + "/@recycle/" + a));
  ExpectError(Get(erin, a), 1002, "get file infomation failed");

  r = erin.Call(kRecycle, "empty");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(WaitTask("erin", r["data"]["task_id"].asString())["state"].asString(), "finished");
  EXPECT_FALSE(Exists(data + "/@recycle/" + b));
  EXPECT_EQ(List(erin)["total"].asUInt(), 0u);
}

TEST_F(ClientRecycleTest, AnotherUsersItemAnswersLikeAnUnknownOne) {
  ApiClient erin = As("erin");
  ApiClient finn = As("finn");
  const std::string id = Make(erin, "/mydrive/private.txt", "mine");
  Delete(erin, "erin", id);
  const std::string unknown = "0123456789abcdef0123456789abcdef";
  for (const char* method : {"restore", "delete"}) {
    Json::Value p(Json::objectValue);
    p["files"] = Ids({id});
    ExpectError(finn.Call(kRecycle, method, p), 1002, "item not found in the recycle bin: id:" + id);
    p["files"] = Ids({unknown});
    ExpectError(finn.Call(kRecycle, method, p), 1002, "item not found in the recycle bin: id:" + unknown);
  }
  // finn's empty leaves erin's bin alone.
  Json::Value r = finn.Call(kRecycle, "empty");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(WaitTask("finn", r["data"]["task_id"].asString())["state"].asString(), "finished");
  EXPECT_TRUE(Exists(stack_->DataDir() + "/@recycle/" + id));
  ASSERT_TRUE(Restore(erin, id)["success"].asBool());
}

TEST_F(ClientRecycleTest, CallersWithoutASessionAndBadParametersAreRefused) {
  ApiClient anonymous(port_);
  for (const char* method : {"list", "restore", "delete", "empty"})
    ExpectError(anonymous.Call(kRecycle, method), 105, "permission denied by anonymous");

  ApiClient erin = As("erin");
  Json::Value p(Json::objectValue);
  ExpectError(erin.Call(kRecycle, "restore", p), 114, "files is required");
  ExpectError(erin.Call(kRecycle, "delete", p), 114, "files is required");
  p["files"] = Json::Value(Json::arrayValue);
  ExpectError(erin.Call(kRecycle, "delete", p), 114, "files must be a non-empty array of strings");
  p["files"] = "id:0123456789abcdef0123456789abcdef";
  p["conflict"] = "overwrite";
  ExpectError(erin.Call(kRecycle, "restore", p), 114, "conflict must be stop or autorename");
  Json::Value l(Json::objectValue);
  l["limit"] = 0;
  ExpectError(erin.Call(kRecycle, "list", l), 114, "limit must be 1 to 1000");
  l["limit"] = 10;
  l["sort_direction"] = "sideways";
  ExpectError(erin.Call(kRecycle, "list", l), 114, "sort_direction must be asc or desc");
}

}  // namespace
}  // namespace orvel::test
