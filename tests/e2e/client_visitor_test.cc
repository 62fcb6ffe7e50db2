// Sharing-link visitors over HTTP: a caller without an account who presents
// a link's token downloads a file of the linked folder byte for byte, the
// folder and a selection in it as zip archives, and reaches nothing outside
// the link (by path, by id, by another caller's staging task); an expired
// link refuses downloads; the link's role decides whether an update goes
// through. Each refusal is checked at the Files API (code and message) and
// at the daemon (its code and message).
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "http_client.h"
#include "nimbard/nimbard.h"
#include "stack.h"

namespace orvel::test {
namespace {

constexpr char kFiles[] = "ZEMO.ZemoraOrvel.Files";
const std::string kNotes = "The glacier walk starts at dawn.\n";
const std::string kBinary("\x00\x01\xff\xfe zip\r\n", 10);

struct Refusal {
  int code = 0;
  std::string message;
};

class ClientVisitorTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("fern", false, "fern-password");
    stack_->AddUser("gus", false, "gus-password");
    // Put on disk before fern's first request: the daemon indexes them then.
    const std::string home = stack_->HomeDir("fern");
    for (const char* dir : {"", "/Trip", "/Trip/photos", "/Private"}) ::mkdir((home + dir).c_str(), 0750);
    std::ofstream(home + "/Trip/notes.txt", std::ios::binary) << kNotes;
    std::ofstream(home + "/Trip/raw.bin", std::ios::binary) << kBinary;
    std::ofstream(home + "/Trip/photos/a.txt", std::ios::binary) << "a\n";
    std::ofstream(home + "/Private/secret.txt", std::ios::binary) << "mine\n";
    port_ = stack_->StartHttp();
    viewer_ = Link("/mydrive/Trip", "viewer");
    editor_ = Link("/mydrive/Trip", "editor");
    other_ = Link("/mydrive/Private", "viewer");
  }
  static void TearDownTestSuite() { delete stack_; }

  static std::string Link(const std::string& path, const std::string& role) {
    std::string out;
    EXPECT_EQ(stack_->Orvelctl({"link", "create", "fern", path, "--role", role}, &out), 0) << out;
    return out.substr(0, 64);
  }
  static ApiClient User(const std::string& name) {
    ApiClient c(port_);
    EXPECT_TRUE(c.Login(name, name + "-password"));
    return c;
  }
  // A Files call by a visitor (no session) with the token.
  static Json::Value Visit(const std::string& token, const std::string& method, Json::Value params) {
    params["sharing_token"] = token;
    return ApiClient(port_).Call(kFiles, method, params);
  }
  static std::string IdOf(const std::string& token, const std::string& path) {
    Json::Value p(Json::objectValue);
    p["path"] = path;
    Json::Value r = token.empty() ? User("fern").Call(kFiles, "get", p) : Visit(token, "get", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["file_id"].asString();
  }
  static Json::Value Files(const std::vector<std::string>& paths) {
    Json::Value a(Json::arrayValue);
    for (const auto& p : paths) a.append(p);
    Json::Value params(Json::objectValue);
    params["files"] = a;
    return params;
  }
  // "download" as a visitor; errors as JSON.
  static HttpAnswer Download(const std::string& token, Json::Value params) {
    params["json_error"] = true;
    if (!token.empty()) params["sharing_token"] = token;
    return ApiClient(port_).CallRaw(kFiles, "download", params);
  }
  static std::string StartArchive(const std::string& token, const std::vector<std::string>& paths) {
    Json::Value r = Download(token, Files(paths)).Json();
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["async_task_id"].asString();
  }
  static HttpAnswer FetchTask(const std::string& token, const std::string& task_id) {
    Json::Value p(Json::objectValue);
    p["task_id"] = task_id;
    return Download(token, p);
  }
  // The entries of a zip answer, sorted, after `unzip -t` accepted it.
  static std::string ZipEntries(const HttpAnswer& answer, const std::string& name) {
    const std::string zip = stack_->root() + "/" + name + ".zip";
    std::ofstream(zip, std::ios::binary) << answer.body;
    ProcessOutput t = RunProcess({"/usr/bin/unzip", "-tq", zip}, BaseEnv(stack_->root()));
    EXPECT_EQ(t.exit_code, 0) << t.out << t.err;
    std::istringstream listing(RunProcess({"/usr/bin/unzip", "-Z1", zip}, BaseEnv(stack_->root())).out);
    std::set<std::string> entries;
    for (std::string line; std::getline(listing, line);) entries.insert(line);
    std::string out;
    for (const std::string& e : entries) out += e + "\n";
    return out;
  }
  // The daemon's own answer to op for a caller (user "" = a visitor).
  static Refusal Daemon(const std::string& user, const std::string& token, const std::string& op,
                        const PObject& args) {
    Nimbard n;
    n.SetServer("unix:/tmp/cloud-syncservice", 0);
    n.SetUser(user, "", "");
    n.SetSharingToken(token);
    n.SetServerVersion(11061);
    n.SetTimeout(60);
    PObject result;
    if (n.Call(op, args, &result) == 0) return Refusal();
    return Refusal{n.GetLastError(), n.GetLastErrorMessage()};
  }
  static PObject TaskArgs(const std::string& id) {
    PObject a = PObject::MakeMap();
    a["task_id"] = id;
    return a;
  }
  static PObject FileArgs(const std::string& path) {
    PObject a = PObject::MakeMap();
    a["files"] = PObject::MakeArray();
    a["files"].push_back(path);
    return a;
  }
  static void ExpectApiError(const HttpAnswer& answer, int code, const std::string& message) {
    Json::Value r = answer.Json();
    EXPECT_FALSE(r["success"].asBool()) << answer.body;
    EXPECT_EQ(r["error"]["code"].asInt(), code) << answer.body;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), message) << answer.body;
  }
  static void ExpectDaemon(const Refusal& r, int code, const std::string& message) {
    EXPECT_EQ(r.code, code) << r.message;
    EXPECT_EQ(r.message, message);
  }

  static TestStack* stack_;
  static int port_;
  static std::string viewer_, editor_, other_;
};

TestStack* ClientVisitorTest::stack_ = nullptr;
int ClientVisitorTest::port_ = 0;
std::string ClientVisitorTest::viewer_, ClientVisitorTest::editor_, ClientVisitorTest::other_;

TEST_F(ClientVisitorTest, VisitorDownloadsAFileTheFolderAndASelection) {
  const std::string raw = IdOf(viewer_, "id:" + IdOf("", "/mydrive/Trip/raw.bin"));
  HttpAnswer file = Download(viewer_, Files({"id:" + raw}));
  EXPECT_EQ(file.status, 200);
  EXPECT_EQ(file.body, kBinary);

  const std::string folder = StartArchive(viewer_, {"/"});
  HttpAnswer zip = FetchTask(viewer_, folder);
  EXPECT_EQ(zip.status, 200);
  EXPECT_EQ(ZipEntries(zip, "folder"), "Trip/\nTrip/notes.txt\nTrip/photos/\nTrip/photos/a.txt\nTrip/raw.bin\n");

  const std::string notes = IdOf("", "/mydrive/Trip/notes.txt"), photos = IdOf("", "/mydrive/Trip/photos");
  const std::string pick = StartArchive(editor_, {"id:" + notes, "id:" + photos});
  EXPECT_EQ(ZipEntries(FetchTask(editor_, pick), "selection"), "notes.txt\nphotos/\nphotos/a.txt\n");

  // Visitors' staging tasks are not the owner's: fern's own listing has none.
  PObject list = PObject::MakeMap();
  list["owner"] = "fern";
  Nimbard admin;
  admin.SetServer("unix:/tmp/cloud-syncservice", 0);
  admin.SetServerVersion(11061);
  PObject tasks;
  ASSERT_EQ(admin.Call("admin_task_list", list, &tasks), 0) << admin.GetLastErrorMessage();
  EXPECT_EQ(tasks["tasks"].size(), 0u) << tasks.toJsonString();
}

TEST_F(ClientVisitorTest, NothingOutsideTheLinkIsReached) {
  const std::string secret = IdOf("", "/mydrive/Private/secret.txt");
  const std::string root = IdOf("", "/mydrive");
  const std::string sibling = IdOf("", "/mydrive/Private");
  for (const std::string& path : {std::string("/mydrive/Private/secret.txt"), std::string("/mydrive"),
                                  "id:" + secret, "id:" + sibling, "id:" + root}) {
    SCOPED_TRACE(path);
    ExpectApiError(Download(viewer_, Files({path})), 1006, "download file failed");
    ExpectDaemon(Daemon("", viewer_, "download_dry_run", FileArgs(path)), -402, "permission denied: " + path);
  }
  // A relative path names no space at all, as in every other visitor op.
  ExpectDaemon(Daemon("", viewer_, "download_dry_run", FileArgs("../Private")), -505,
               "path outside every known space: ../Private");
  ExpectApiError(Download(viewer_, Files({"../Private"})), 1002, "download file failed");
  ExpectApiError(Download("0123456789abcdef", Files({"/"})), 1007, "download file failed");
  ExpectDaemon(Daemon("", "0123456789abcdef", "download_dry_run", FileArgs("/")), -403,
               "sharing token invalid or expired");

  // A staging task is reached only with the token that made it: another
  // visitor, the link's owner and another user get "not found" as for an
  // unknown id; a caller with neither account nor token is refused first.
  const std::string task = StartArchive(viewer_, {"/"});
  const std::string unknown = "0123456789abcdef0123456789abcdef";
  for (const std::string& id : {task, unknown}) {
    SCOPED_TRACE(id);
    ExpectApiError(FetchTask(other_, id), 1002, "download archive file failure");
    ExpectDaemon(Daemon("", other_, "download_task_result", TaskArgs(id)), -705, "task not found: " + id);
    ExpectDaemon(Daemon("fern", "", "download_task_result", TaskArgs(id)), -705, "task not found: " + id);
    ExpectDaemon(Daemon("gus", viewer_, "download_task_result", TaskArgs(id)), -705, "task not found: " + id);
    ExpectDaemon(Daemon("", "", "download_task_result", TaskArgs(id)), -403, "sharing token invalid or expired");
    ExpectApiError(FetchTask("", id), 1007, "download archive file failure");
  }
  // A user's own task is not the visitor's either, and visitors have no task ops.
  Json::Value r = User("fern").Call(kFiles, "download", Files({"/mydrive/Private"}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  const std::string own = r["data"]["async_task_id"].asString();
  ExpectDaemon(Daemon("", viewer_, "download_task_result", TaskArgs(own)), -705, "task not found: " + own);
  ExpectDaemon(Daemon("", viewer_, "task_cancel", TaskArgs(own)), -403, "sharing token invalid or expired");
  EXPECT_EQ(FetchTask(viewer_, task).status, 200) << "the task's own visitor still fetches it";
}

TEST_F(ClientVisitorTest, ExpiredLinkRefusesDownloads) {
  const std::string token = Link("/mydrive/Trip", "viewer");
  const std::string notes = IdOf(token, "id:" + IdOf("", "/mydrive/Trip/notes.txt"));
  EXPECT_EQ(Download(token, Files({"id:" + notes})).body, kNotes);
  const std::string task = StartArchive(token, {"/"});

  // The link's expiry moves into the past while the daemon runs.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((stack_->DataDir() + "/@db/sync.db").c_str(), &db), SQLITE_OK);
  sqlite3_busy_timeout(db, 10000);
  const std::string sql = "UPDATE links SET expires = 1 WHERE token = '" + token + "'";
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  EXPECT_EQ(sqlite3_changes(db), 1);
  sqlite3_close(db);

  ExpectApiError(Download(token, Files({"id:" + notes})), 1007, "download file failed");
  ExpectApiError(FetchTask(token, task), 1007, "download archive file failure");
  ExpectDaemon(Daemon("", token, "download_task_result", TaskArgs(task)), -403, "sharing token invalid or expired");
}

TEST_F(ClientVisitorTest, ViewerLinkCannotUpdateAnEditorLinkCan) {
  const std::string id = IdOf("", "/mydrive/Trip/photos/a.txt");
  Json::Value p(Json::objectValue);
  p["path"] = "id:" + id;
  p["name"] = "b.txt";
  Json::Value r = Visit(viewer_, "update", p);
  EXPECT_EQ(r["error"]["code"].asInt(), 1006) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "update file information failed") << r;
  PObject rename = PObject::MakeMap();
  rename["path"] = "id:" + id;
  rename["name"] = "b.txt";
  ExpectDaemon(Daemon("", viewer_, "update_file", rename), -402,
               "permission denied: /Trip/photos/a.txt is shared as viewer");
  r = Visit(editor_, "update", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["name"].asString(), "b.txt");
  p["name"] = "a.txt";
  r = Visit(editor_, "update", p);
  EXPECT_TRUE(r["success"].asBool()) << r;
}

}  // namespace
}  // namespace orvel::test
