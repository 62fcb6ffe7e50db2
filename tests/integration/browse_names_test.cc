// Item names through entry.cgi against the daemon: a name made on disk that
// is not UTF-8 (answers show it with U+FFFD and stay valid UTF-8; the item is
// still got, downloaded, renamed and deleted by id), and the NFC and NFD
// spellings of one name, which are one item.
#include <gtest/gtest.h>

#include <fstream>

#include "nimbard/platform.h"
#include "orvelcommon/utf8.h"
#include "stack.h"
#include "transfer_test_util.h"

namespace orvel::test {
namespace {

const std::string kRaw = "bad\xff\xfe.txt";                               // Latin-1 bytes
const std::string kShown = "bad\xef\xbf\xbd\xef\xbf\xbd.txt";             // as answers show it
const std::string kNfc = "caf\xc3\xa9.txt";                               // U+00E9
const std::string kNfd = "cafe\xcc\x81.txt";                              // e + U+0301

class NamesTest : public ::testing::Test, public TaskHelpers {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    Json::Value p;
    p["path"] = "/mydrive/Docs";
    p["type"] = "folder";
    ASSERT_TRUE(stack_->Call("alice", "create", p)["success"].asBool());
  }
  std::string Docs() const { return stack_->HomeDir("alice") + "/Docs/"; }
  // Files made on disk behind the service's back, indexed by the start-up
  // reconciliation of a restarted daemon.
  void OnDisk(const std::vector<std::pair<std::string, std::string>>& files) {
    for (const auto& [name, content] : files) std::ofstream(Docs() + name, std::ios::binary) << content;
    stack_->StopDaemon();
    stack_->StartDaemon();
  }
  Json::Value List() {
    Json::Value p;
    p["path"] = "/mydrive/Docs";
    CgiResult raw = stack_->CallRaw("alice", "list", p);
    EXPECT_TRUE(IsValidUtf8(raw.body)) << raw.body;
    return raw.Json()["data"]["items"];
  }
  Json::Value Create(const std::string& name, const std::string& content, const std::string& conflict) {
    Json::Value p;
    p["path"] = "/mydrive/Docs/" + name;
    p["type"] = "file";
    p["file_content"] = EncBase64Enc(content);
    p["conflict_action"] = conflict;
    return stack_->Call("alice", "create", p);
  }
  static void ExpectError(const Json::Value& r, int code, const std::string& message) {
    EXPECT_FALSE(r["success"].asBool()) << r;
    EXPECT_EQ(r["error"]["code"].asInt(), code) << r;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), message) << r;
  }
  static bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
  }
  std::unique_ptr<TestStack> stack_;
};

TEST_F(NamesTest, ANameThatIsNotUtf8IsShownValidAndStillReachableById) {
  OnDisk({{kRaw, "raw bytes"}, {"other\xe9.txt", "second"}});
  Json::Value items = List();
  ASSERT_EQ(items.size(), 2u) << items;
  EXPECT_EQ(items[0]["name"].asString(), kShown);
  EXPECT_EQ(items[0]["path"].asString(), "/mydrive/Docs/" + kShown);
  EXPECT_EQ(items[1]["name"].asString(), "other\xef\xbf\xbd.txt");
  const std::string id = items[0]["file_id"].asString(), other = items[1]["file_id"].asString();

  Json::Value get;
  get["path"] = "id:" + id;
  CgiResult raw = stack_->CallRaw("alice", "get", get);
  EXPECT_TRUE(IsValidUtf8(raw.body)) << raw.body;
  EXPECT_EQ(raw.Json()["data"]["size"].asUInt(), 9u) << raw.body;

  Json::Value d;
  d["files"].append("id:" + id);
  raw = stack_->CallRaw("alice", "download", d);
  EXPECT_EQ(raw.body, "raw bytes");
  EXPECT_EQ(raw.Header("Content-Disposition"),
            "attachment; filename=\"bad%EF%BF%BD%EF%BF%BD.txt\"; filename*=utf-8''bad%EF%BF%BD%EF%BF%BD.txt");

  // A folder download: the archiver writes the name as the listing shows it.
  Json::Value folder;
  folder["files"].append("/mydrive/Docs");
  Json::Value r = stack_->Call("alice", "download", folder);
  ASSERT_TRUE(r["success"].asBool()) << r;
  Json::Value q;
  q["task_id"] = r["data"]["async_task_id"];
  raw = stack_->CallRaw("alice", "download", q);
  const std::string zip = stack_->root() + "/docs.zip";
  std::ofstream(zip, std::ios::binary) << raw.body;
  ProcessOutput names = RunProcess({"/usr/bin/python3", "-c",
                                    "import sys, zipfile\n"
                                    "for n in zipfile.ZipFile(sys.argv[1]).namelist(): print(n)\n",
                                    zip},
                                   BaseEnv(stack_->root()));
  EXPECT_EQ(names.out, "Docs/\nDocs/" + kShown + "\nDocs/other\xef\xbf\xbd.txt\n") << names.err;

  Json::Value rename;
  rename["path"] = "id:" + id;
  rename["name"] = "good.txt";
  r = stack_->Call("alice", "update", rename);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["path"].asString(), "/mydrive/Docs/good.txt");
  EXPECT_TRUE(Exists(Docs() + "good.txt"));
  EXPECT_FALSE(Exists(Docs() + kRaw));

  Json::Value del;
  del["files"].append("id:" + other);
  del["permanent"] = true;
  r = stack_->Call("alice", "delete", del);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(WaitTask("alice", r["data"]["async_task_id"].asString())["state"].asString(), "finished");
  EXPECT_FALSE(Exists(Docs() + "other\xe9.txt"));
  items = List();
  ASSERT_EQ(items.size(), 1u) << items;
  EXPECT_EQ(items[0]["name"].asString(), "good.txt");
}

TEST_F(NamesTest, NewNamesAreStoredInNfc) {
  Json::Value r = Create(kNfd, "typed on a Mac", "stop");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["name"].asString(), kNfc);
  EXPECT_TRUE(Exists(Docs() + kNfc));
  EXPECT_FALSE(Exists(Docs() + kNfd));
  // The other spelling names the same item: a conflict, and a look-up.
  ExpectError(Create(kNfc, "again", "stop"), 1031, "create file failed");
  Json::Value get;
  get["path"] = "/mydrive/Docs/" + kNfd;
  r = stack_->Call("alice", "get", get);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["name"].asString(), kNfc);

  Json::Value rename;
  rename["path"] = "/mydrive/Docs/" + kNfc;
  rename["name"] = "Re\xcc\x81sume\xcc\x81";
  r = stack_->Call("alice", "update", rename);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["name"].asString(), "R\xc3\xa9sum\xc3\xa9");
}

// A name made on disk in NFD keeps its bytes; the NFC spelling finds it and
// conflicts with it, and overwriting it replaces that file, not a second one.
TEST_F(NamesTest, BothSpellingsOfANameOnDiskAreOneItem) {
  OnDisk({{kNfd, "from a Mac client"}});
  Json::Value items = List();
  ASSERT_EQ(items.size(), 1u) << items;
  EXPECT_EQ(items[0]["name"].asString(), kNfd);
  const std::string id = items[0]["file_id"].asString();

  ExpectError(Create(kNfc, "typed", "stop"), 1031, "create file failed");
  Json::Value r = Create(kNfc, "replaced", "overwrite");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["file_id"].asString(), id);
  EXPECT_EQ(r["data"]["name"].asString(), kNfd);
  EXPECT_FALSE(Exists(Docs() + kNfc));
  std::ifstream in(Docs() + kNfd);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "replaced");
  r = Create(kNfc, "third", "autorename");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["name"].asString(), "caf\xc3\xa9 (1).txt");

  // Renaming it to its own other spelling respells it.
  Json::Value rename;
  rename["path"] = "id:" + id;
  rename["name"] = kNfc;
  r = stack_->Call("alice", "update", rename);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["name"].asString(), kNfc);
  EXPECT_TRUE(Exists(Docs() + kNfc));
  EXPECT_FALSE(Exists(Docs() + kNfd));
}

}  // namespace
}  // namespace orvel::test
