// create, list and get through entry.cgi against the daemon: the walking
// skeleton's round trip, the size ceiling of "create" and its temp files.
#include <dirent.h>
#include <gtest/gtest.h>

#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

class FilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
  }
  Json::Value CreateFile(const std::string& path, const std::string& content) {
    Json::Value p;
    p["path"] = path;
    p["type"] = "file";
    p["file_content"] = EncBase64Enc(content);
    return stack_->Call("alice", "create", p);
  }
  size_t TempEntries() {
    size_t n = 0;
    DIR* d = opendir((stack_->DataDir() + "/@tmp").c_str());
    if (!d) return 0;
    while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
    return n;
  }
  std::unique_ptr<TestStack> stack_;
};

TEST_F(FilesTest, CreateListAndGetRoundTrip) {
  Json::Value folder;
  folder["path"] = "/mydrive/Projects";
  folder["type"] = "folder";
  Json::Value r = stack_->Call("alice", "create", folder);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["type"].asString(), "dir");
  EXPECT_EQ(r["data"]["name"].asString(), "Projects");

  r = CreateFile("/mydrive/Projects/hello.txt", "Hello, world\n");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["size"].asUInt64(), 13u);
  EXPECT_EQ(r["data"]["type"].asString(), "file");
  const std::string file_id = r["data"]["file_id"].asString();

  Json::Value list;
  list["path"] = "/mydrive/Projects";
  r = stack_->Call("alice", "list", list);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["items"].size(), 1u);
  EXPECT_EQ(r["data"]["total"].asUInt64(), 1u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "hello.txt");

  Json::Value get;
  get["path"] = "id:" + file_id;
  r = stack_->Call("alice", "get", get);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["path"].asString(), "/mydrive/Projects/hello.txt");
  EXPECT_EQ(r["data"]["owner"]["name"].asString(), "alice");
  EXPECT_TRUE(r["data"]["capabilities"]["can_write"].asBool());
}

TEST_F(FilesTest, CreateAcceptsOneMebibyteAndRefusesOneByteMore) {
  Json::Value r = CreateFile("/mydrive/exact.bin", std::string(1048576, 'a'));
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["size"].asUInt64(), 1048576u);
  r = CreateFile("/mydrive/over.bin", std::string(1048577, 'a'));
  EXPECT_FALSE(r["success"].asBool());
  EXPECT_EQ(r["error"]["code"].asInt(), 1000);
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "write file failed");
  EXPECT_EQ(TempEntries(), 0u) << "create must not leave temp files";
}

TEST_F(FilesTest, CreateConflictAndBadInput) {
  ASSERT_TRUE(CreateFile("/mydrive/a.txt", "one")["success"].asBool());
  Json::Value r = CreateFile("/mydrive/a.txt", "two");
  EXPECT_EQ(r["error"]["code"].asInt(), 1031) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "create file failed");

  Json::Value p;
  p["path"] = "/mydrive/b.txt";
  p["type"] = "file";
  p["file_content"] = "abcde";
  r = stack_->Call("alice", "create", p);
  EXPECT_EQ(r["error"]["code"].asInt(), 1000);
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "write file failed");

  p["type"] = "link";
  r = stack_->Call("alice", "create", p);
  EXPECT_EQ(r["error"]["code"].asInt(), 401);
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "known file type");

  Json::Value missing;
  missing["path"] = "/mydrive/c";
  r = stack_->Call("alice", "create", missing);
  EXPECT_EQ(r["error"]["code"].asInt(), 114);
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "path and type are both required");
  EXPECT_EQ(TempEntries(), 0u);
}

TEST_F(FilesTest, GetOfMissingItemAndBadExtra) {
  Json::Value get;
  get["path"] = "/mydrive/nothing-here";
  Json::Value r = stack_->Call("alice", "get", get);
  EXPECT_EQ(r["error"]["code"].asInt(), 1002) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "get file infomation failed");
  get["extra"] = "x";
  r = stack_->Call("alice", "get", get);
  EXPECT_EQ(r["error"]["code"].asInt(), 114) << r;
  Json::Value list;
  list["extra"] = "x";
  r = stack_->Call("alice", "list", list);
  EXPECT_EQ(r["error"]["code"].asInt(), 114) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "invalid extra");
}

TEST_F(FilesTest, ListPagesAndSorts) {
  for (const char* name : {"b.txt", "A.txt", "c.txt"}) {
    ASSERT_TRUE(CreateFile(std::string("/mydrive/") + name, name)["success"].asBool());
  }
  Json::Value list;
  list["path"] = "/mydrive";
  list["limit"] = 2;
  list["sort_direction"] = "desc";
  Json::Value r = stack_->Call("alice", "list", list);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["total"].asUInt64(), 3u);
  ASSERT_EQ(r["data"]["items"].size(), 2u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "c.txt");
  EXPECT_EQ(r["data"]["items"][1]["name"].asString(), "b.txt");
  list["offset"] = 2;
  r = stack_->Call("alice", "list", list);
  ASSERT_EQ(r["data"]["items"].size(), 1u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "A.txt");
}

}  // namespace
}  // namespace orvel::test
