// The module through entry.cgi with a caller who misbehaves: a "file_tmp"
// naming someone else's file, data-changing methods sent as GET, and
// sessions of accounts that an administrator disables, expires, deletes or
// gives a new password.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

const char kBoundary[] = "----orvel-security-test";

std::string Part(const std::string& disposition, const std::string& content) {
  return std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; " + disposition +
         "\r\n\r\n" + content + "\r\n";
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

class ModuleSecurity : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    stack_->AddUser("bob");
  }
  void Create(const std::string& user, const std::string& path, const std::string& content) {
    Json::Value p;
    p["path"] = path;
    p["type"] = "file";
    p["file_content"] = EncBase64Enc(content);
    Json::Value r = stack_->Call(user, "create", p);
    ASSERT_TRUE(r["success"].asBool()) << r;
  }
  // An "upload" request of alice's with the module's parameters.
  CgiRequest Upload(const std::string& file_tmp) {
    CgiRequest req;
    req.params = {{"api", "ZEMO.ZemoraOrvel.Files"}, {"method", "upload"}, {"version", "1"},
                  {"_sid", stack_->Login("alice").sid}, {"path", "/mydrive/got.txt"},
                  {"type", "file"}, {"file_tmp", file_tmp}};
    return req;
  }
  static void ExpectError(const CgiResult& r, int code, const std::string& message) {
    Json::Value v = r.Json();
    EXPECT_FALSE(v["success"].asBool()) << r.body << r.err;
    EXPECT_EQ(v["error"]["code"].asInt(), code) << r.body;
    EXPECT_EQ(v["error"]["errors"]["message"].asString(), message) << r.body;
  }
  std::unique_ptr<TestStack> stack_;
};

TEST_F(ModuleSecurity, UploadLeavesAFileNamedByTheClientAlone) {
  const std::string victim = stack_->root() + "/victim.txt";
  std::ofstream(victim) << "root's";
  Create("bob", "/mydrive/keep.txt", "bob's");
  const std::string bobs = stack_->HomeDir("bob") + "/keep.txt";
  for (const std::string& target : {victim, bobs, stack_->HomeDir("bob")}) {
    SCOPED_TRACE(target);
    CgiRequest by_form = Upload(target);
    ExpectError(stack_->Cgi(by_form), 1003, "file doesn't exist");
    CgiRequest by_query = Upload(target);
    by_query.content_type = "application/x-www-form-urlencoded";  // params stay in the URL
    ExpectError(stack_->Cgi(by_query), 1003, "file doesn't exist");
    CgiRequest by_get = Upload(target);
    by_get.method = "GET";
    ExpectError(stack_->Cgi(by_get), 400, "method needs POST");
  }
  // With a real file part, the received file is stored, not the named one.
  CgiRequest multipart = Upload(victim);
  multipart.content_type = std::string("multipart/form-data; boundary=") + kBoundary;
  multipart.body = Part("name=\"file_tmp\"", bobs) +
                   Part("name=\"file\"; filename=\"got.txt\"", "received") + "--" + kBoundary +
                   "--\r\n";
  Json::Value r = stack_->Cgi(multipart).Json();
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(ReadAll(stack_->HomeDir("alice") + "/got.txt"), "received");
  EXPECT_EQ(ReadAll(victim), "root's");
  EXPECT_EQ(ReadAll(bobs), "bob's");
}

TEST_F(ModuleSecurity, DataChangingMethodsNeedPostWhileLinksStillDownload) {
  Create("alice", "/mydrive/doc.txt", "hello");
  SessionRecord s = stack_->Login("alice");
  const std::string doc = stack_->HomeDir("alice") + "/doc.txt";
  CgiRequest del;
  del.method = "GET";
  del.params = {{"api", "ZEMO.ZemoraOrvel.Files"}, {"method", "delete"}, {"version", "1"},
                {"_sid", s.sid}, {"path", "[\"/mydrive/doc.txt\"]"}};
  ExpectError(stack_->Cgi(del), 400, "method needs POST");
  CgiRequest mkdir = del;
  mkdir.params = {{"api", "ZEMO.ZemoraOrvel.Files"}, {"method", "create"}, {"version", "1"},
                  {"_sid", s.sid}, {"path", "/mydrive/new"}, {"type", "folder"}};
  ExpectError(stack_->Cgi(mkdir), 400, "method needs POST");
  EXPECT_TRUE(Exists(doc));
  EXPECT_FALSE(Exists(stack_->HomeDir("alice") + "/new"));

  // A browser link: the session cookie and "_token" in the URL.
  CgiRequest download;
  download.method = "GET";
  download.cookie = "id=" + s.sid;
  download.params = {{"api", "ZEMO.ZemoraOrvel.Files"}, {"method", "download"}, {"version", "1"},
                     {"_token", s.token}, {"files", "[\"/mydrive/doc.txt\"]"}};
  CgiResult got = stack_->Cgi(download);
  EXPECT_EQ(got.body, "hello") << got.headers << got.err;
  CgiRequest thumb = download;
  thumb.params = {{"api", "ZEMO.ZemoraOrvel.Files"}, {"method", "get_thumbnail"}, {"version", "1"},
                  {"_token", s.token}, {"path", "/mydrive/doc.txt"}};
  Json::Value t = stack_->Cgi(thumb).Json();
  EXPECT_NE(t["error"]["code"].asInt(), 400) << t;
  EXPECT_NE(t["error"]["code"].asInt(), 105) << t;  // the caller was recognised
}

TEST_F(ModuleSecurity, AdministratorChangesEndSessionsAtOnce) {
  const std::vector<std::vector<std::string>> changes = {
      {"user", "set", "alice", "--password", "new secret"},
      {"user", "set", "alice", "--enabled", "off"},
      {"user", "set", "alice", "--system-enabled", "off"},
      {"user", "set", "alice", "--expired", "on"},
      {"user", "delete", "alice"},
  };
  const std::vector<std::vector<std::string>> undo = {
      {},
      {"user", "set", "alice", "--enabled", "on"},
      {"user", "set", "alice", "--system-enabled", "on"},
      {"user", "set", "alice", "--expired", "off"},
      {},
  };
  SessionRecord bob = stack_->Login("bob");
  for (size_t i = 0; i < changes.size(); ++i) {
    SCOPED_TRACE(changes[i][1] + " " + changes[i].back());
    SessionRecord s = stack_->Login("alice");
    ASSERT_TRUE(stack_->Call("alice", "recent")["success"].asBool());
    std::string out;
    ASSERT_EQ(stack_->Orvelctl(changes[i], &out), 0) << out;
    SessionRecord gone;
    EXPECT_EQ(stack_->Users().LookupSession(s.sid, 3600, 3600, &gone).code(), kErrNotFound);
    Json::Value r = stack_->Call("alice", "recent");
    EXPECT_EQ(r["error"]["code"].asInt(), 105) << r;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), "permission denied by anonymous");
    if (!undo[i].empty()) {
      ASSERT_EQ(stack_->Orvelctl(undo[i], &out), 0) << out;
    }
  }
  SessionRecord still;
  EXPECT_TRUE(stack_->Users().LookupSession(bob.sid, 3600, 3600, &still).ok());
  std::string out;
  EXPECT_EQ(stack_->Orvelctl({"user", "delete", "alice"}, &out), 1);
  EXPECT_EQ(out, "orvelctl: no user named 'alice'\n");
}

}  // namespace
}  // namespace orvel::test
