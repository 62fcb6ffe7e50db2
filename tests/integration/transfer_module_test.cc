// The module's transfer methods through the real entry.cgi and daemon:
// downloads (one file, a folder as a zip through the platform archiver,
// dry runs, the download error headers), copy/move/delete answers,
// conversion, import from server paths and revisions on upload.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "nimbard/platform.h"
#include "stack.h"
#include "transfer_test_util.h"

namespace orvel::test {
namespace {

class TransferModuleTest : public ::testing::Test, public TaskHelpers {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    stack_->AddUser("bob");
  }
  Json::Value Create(const std::string& path, const std::string& content = "",
                     const std::string& conflict = "") {
    Json::Value p;
    p["path"] = path;
    p["type"] = content.empty() ? "folder" : "file";
    if (!content.empty()) p["file_content"] = EncBase64Enc(content);
    if (!conflict.empty()) p["conflict_action"] = conflict;
    Json::Value r = stack_->Call("alice", "create", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"];
  }
  static Json::Value Files(const std::vector<std::string>& paths) {
    Json::Value a(Json::arrayValue);
    for (const auto& p : paths) a.append(p);
    return a;
  }
  static void ExpectError(const Json::Value& r, int code, const std::string& message) {
    EXPECT_FALSE(r["success"].asBool()) << r;
    EXPECT_EQ(r["error"]["code"].asInt(), code) << r;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), message) << r;
  }
  // The headers of a download error without json_error.
  static void ExpectDownloadError(const CgiResult& r, int code) {
    EXPECT_EQ(r.Header("Cache-control"), "no-store") << r.headers;
    EXPECT_EQ(r.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE"), std::to_string(code)) << r.headers;
    EXPECT_EQ(r.Header("Status"), "400 Bad Request") << r.headers;
    EXPECT_EQ(r.Header("Content-Type"), "");
    EXPECT_EQ(r.body, "");
  }
  size_t TmpEntries() {
    size_t n = 0;
    std::string dir = stack_->DataDir() + "/@tmp";
    if (DIR* d = opendir(dir.c_str())) {
      while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
      closedir(d);
    }
    return n;
  }
  void WaitTmpEmpty() {
    for (int i = 0; i < 500 && TmpEntries() != 0; ++i) usleep(10000);
    EXPECT_EQ(TmpEntries(), 0u) << "staged downloads must be removed after the answer";
  }
  std::string WriteTemp(const std::string& name, const std::string& bytes) {
    std::string path = stack_->root() + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  // Restarts the daemon with extra configuration keys.
  void Reconfigure(const Json::Value& extra) {
    const std::string path = stack_->root() + "/var/packages/ZemoraOrvel/target/etc/orvel.conf";
    Json::Value conf;
    std::ifstream in(path);
    in >> conf;
    for (const auto& k : extra.getMemberNames()) conf[k] = extra[k];
    std::ofstream(path) << conf;
    stack_->StopDaemon();
    stack_->StartDaemon();
  }
  std::unique_ptr<TestStack> stack_;
};

TEST_F(TransferModuleTest, DownloadsOneFileWithItsHeaders) {
  Create("/mydrive/page.html", "<p>hi</p>");
  Json::Value p;
  p["files"] = Files({"/mydrive/page.html"});
  p["force_download"] = false;
  CgiResult r = stack_->CallRaw("alice", "download", p);
  EXPECT_EQ(r.body, "<p>hi</p>");
  EXPECT_EQ(r.Header("Content-Type"), "text/plain");
  EXPECT_EQ(r.Header("Content-Disposition"), "inline; filename=\"page.html\"; filename*=utf-8''page.html");
  EXPECT_EQ(r.Header("X-Download-Options"), "noopen");
  EXPECT_EQ(r.Header("Accept-Ranges"), "none");
  EXPECT_EQ(r.Header("Content-Length"), "9");
  WaitTmpEmpty();
}

TEST_F(TransferModuleTest, DownloadsAFolderAsAZipThroughATask) {
  Create("/mydrive/Album");
  Create("/mydrive/Album/one.txt", "first");
  Create("/mydrive/Album/Inner");
  Create("/mydrive/Album/Inner/two.txt", "second");
  Create("/mydrive/solo.txt", "solo");
  Json::Value p;
  p["files"] = Files({"/mydrive/Album", "/mydrive/solo.txt"});
  Json::Value r = stack_->Call("alice", "download", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  const std::string task = r["data"]["async_task_id"].asString();
  ASSERT_FALSE(task.empty()) << r;

  Json::Value q;
  q["task_id"] = task;
  q["archive_name"] = "mine";
  CgiResult zip = stack_->CallRaw("alice", "download", q);
  EXPECT_EQ(zip.Header("Content-Disposition"),
            "attachment; filename=\"mine.zip\"; filename*=utf-8''mine.zip");
  EXPECT_EQ(zip.Header("Content-Type"), "application/octet-stream");
  const std::string file = WriteTemp("out.zip", zip.body);
  ProcessOutput t = RunProcess({"/usr/bin/unzip", "-t", file}, BaseEnv(stack_->root()));
  EXPECT_EQ(t.exit_code, 0) << t.out << t.err;
  ProcessOutput l = RunProcess({"/usr/bin/unzip", "-Z1", file}, BaseEnv(stack_->root()));
  EXPECT_EQ(l.out, "Album/\nAlbum/Inner/\nAlbum/Inner/two.txt\nAlbum/one.txt\nsolo.txt\n");
  ProcessOutput c = RunProcess({"/usr/bin/unzip", "-p", file, "Album/Inner/two.txt"}, BaseEnv(stack_->root()));
  EXPECT_EQ(c.out, "second");
  WaitTmpEmpty();
  // The staging is gone once it was sent.
  ExpectDownloadError(stack_->CallRaw("alice", "download", q), 1002);
}

TEST_F(TransferModuleTest, DownloadDryRunAnswersItemsAndSize) {
  Create("/mydrive/Album");
  Create("/mydrive/Album/one.txt", "first");
  Create("/mydrive/two.txt", "second");
  Json::Value p;
  p["files"] = Files({"/mydrive/Album", "/mydrive/two.txt"});
  p["dry_run"] = true;
  Json::Value r = stack_->Call("alice", "download", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["result"]["items"].asUInt64(), 3u);
  EXPECT_EQ(r["data"]["result"]["size"].asUInt64(), 11u);
  EXPECT_TRUE(r["data"]["result"]["archive"].asBool());
}

TEST_F(TransferModuleTest, DownloadFailuresAnswerWithTheErrorHeaders) {
  Create("/mydrive/a.txt", "a");
  ExpectDownloadError(stack_->CallRaw("alice", "download"), 114);
  Json::Value p;
  p["files"] = Files({"/mydrive/missing.txt"});
  ExpectDownloadError(stack_->CallRaw("alice", "download", p), 1002);
  p["dry_run"] = true;
  ExpectDownloadError(stack_->CallRaw("alice", "download", p), 1002);
  Json::Value sel;
  sel["files"] = Json::Value(Json::arrayValue);
  sel["files"].append(Json::Value(Json::objectValue));
  ExpectDownloadError(stack_->CallRaw("alice", "download", sel), 114);
  Json::Value t;
  t["task_id"] = "feedface";
  ExpectDownloadError(stack_->CallRaw("alice", "download", t), 1002);

  // The same as JSON when asked.
  Json::Value j;
  j["json_error"] = true;
  ExpectError(stack_->Call("alice", "download", j), 114, "no file seleted");
  j["files"] = Files({"/mydrive/missing.txt"});
  ExpectError(stack_->Call("alice", "download", j), 1002, "download file failed");
  j["dry_run"] = true;
  ExpectError(stack_->Call("alice", "download", j), 1002, "download dry run failed");
  t["json_error"] = true;
  ExpectError(stack_->Call("alice", "download", t), 1002, "download archive file failure");
  // Another user's task is as good as none.
  Create("/mydrive/F");
  Json::Value f;
  f["files"] = Files({"/mydrive/F"});
  Json::Value r = stack_->Call("alice", "download", f);
  t["task_id"] = r["data"]["async_task_id"];
  ExpectError(stack_->Call("bob", "download", t), 1002, "download archive file failure");
}

TEST_F(TransferModuleTest, CopyMoveAndDeleteAnswerTasksAndRefusals) {
  Create("/mydrive/src");
  Create("/mydrive/src/a.txt", "alpha");
  Create("/mydrive/dst");
  Json::Value p;
  p["files"] = Files({"/mydrive/src"});
  p["to_parent_folder"] = "/mydrive/dst";
  Json::Value r = stack_->Call("alice", "copy", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  PObject task = WaitTask("alice", r["data"]["async_task_id"].asString());
  EXPECT_EQ(task["state"].asString(), "finished") << task.toJsonString();
  p["dry_run"] = true;
  r = stack_->Call("alice", "copy", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["result"]["conflicts"][0]["target"].asString(), "/mydrive/dst/src");
  EXPECT_FALSE(r["data"].isMember("async_task_id"));

  p["to_parent_folder"] = "/mydrive/src";
  ExpectError(stack_->Call("alice", "copy", p), 1031, "copy dry run failed");
  p["dry_run"] = false;
  ExpectError(stack_->Call("alice", "move", p), 1031, "move file failed");
  p["conflict_action"] = "sideways";
  p["to_parent_folder"] = "/mydrive/dst";
  ExpectError(stack_->Call("alice", "copy", p), 1022, "copy file failed");

  Json::Value m;
  m["files"] = Files({"/mydrive/src/a.txt"});
  m["to_parent_folder"] = "/mydrive/dst";
  m["change_name"] = "b.txt";
  r = stack_->Call("alice", "move", m);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(WaitTask("alice", r["data"]["async_task_id"].asString())["state"].asString(), "finished");
  Json::Value list;
  list["path"] = "/mydrive/dst";
  r = stack_->Call("alice", "list", list);
  ASSERT_EQ(r["data"]["items"].size(), 2u) << r;
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "b.txt");

  Json::Value d;
  d["files"] = Files({"/mydrive/dst"});
  r = stack_->Call("alice", "delete", d);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(WaitTask("alice", r["data"]["async_task_id"].asString())["state"].asString(), "finished");
  list["path"] = "/mydrive";
  r = stack_->Call("alice", "list", list);
  EXPECT_EQ(r["data"]["total"].asUInt64(), 1u) << r;
  d["files"] = Files({"/mydrive/dst"});
  ExpectError(stack_->Call("alice", "delete", d), 1002, "remove file failed");
}

// A minimal Word document (Office Open XML), made with Python's zipfile.
std::string MakeDocx(const std::string& path, const std::string& env_root) {
  const std::string script =
      "import sys, zipfile\n"
      "z = zipfile.ZipFile(sys.argv[1], 'w')\n"
      "z.writestr('[Content_Types].xml', '<?xml version=\"1.0\"?><Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\"><Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/><Default Extension=\"xml\" ContentType=\"application/xml\"/><Override PartName=\"/word/document.xml\" ContentType=\"application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml\"/></Types>')\n"
      "z.writestr('_rels/.rels', '<?xml version=\"1.0\"?><Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\"><Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument\" Target=\"word/document.xml\"/></Relationships>')\n"
      "z.writestr('word/document.xml', '<?xml version=\"1.0\"?><w:document xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\"><w:body><w:p><w:r><w:t>Quarterly report</w:t></w:r></w:p></w:body></w:document>')\n"
      "z.close()\n";
  ProcessOutput r = RunProcess({"/usr/bin/python3", "-c", script, path}, BaseEnv(env_root));
  EXPECT_EQ(r.exit_code, 0) << r.err;
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

TEST_F(TransferModuleTest, ConvertsAWordDocumentToOpenDocument) {
  if (access("/usr/bin/soffice", X_OK) != 0) GTEST_SKIP() << "LibreOffice is not installed";
  Create("/mydrive/docs");
  Create("/mydrive/docs/report.docx", MakeDocx(stack_->root() + "/report.docx", stack_->root()));
  Json::Value p;
  p["files"] = Files({"/mydrive/docs/report.docx"});
  Json::Value r = stack_->Call("alice", "convert_office", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  PObject task = WaitTask("alice", r["data"]["async_task_id"].asString());
  ASSERT_EQ(task["state"].asString(), "finished") << task.toJsonString();
  EXPECT_EQ(task["result"]["items"][0]["path"].asString(), "/mydrive/docs/report.odt");
  std::ifstream in(stack_->HomeDir("alice") + "/docs/report.odt", std::ios::binary);
  std::string head(80, '\0');
  in.read(&head[0], 80);
  EXPECT_NE(head.find("mimetypeapplication/vnd.oasis.opendocument.text"), std::string::npos);

  p["files"] = Files({"/mydrive/docs"});
  ExpectError(stack_->Call("alice", "convert_office", p), 1026, "remove file failed");
}

TEST_F(TransferModuleTest, ConversionWithoutLibreOfficeIsAClearError) {
  Create("/mydrive/report.docx", "not really a document");
  Json::Value extra;
  extra["office_converter"] = "/nonexistent/soffice";
  Reconfigure(extra);
  Json::Value p;
  p["files"] = Files({"/mydrive/report.docx"});
  ExpectError(stack_->Call("alice", "convert_office", p), 1030, "remove file failed");
  p["files"] = Files({"/mydrive/nothing.docx"});
  ExpectError(stack_->Call("alice", "convert_office", p), 1002, "remove file failed");
}

TEST_F(TransferModuleTest, ImportsFromConfiguredServerPaths) {
  const std::string share = stack_->root() + "/share";
  ASSERT_EQ(system(("mkdir -p '" + share + "/photos/2024' && printf one > '" + share +
                    "/photos/2024/a.jpg' && printf two > '" + share + "/notes.txt'")
                       .c_str()),
            0);
  Json::Value shares(Json::arrayValue);
  shares[0]["name"] = "public";
  shares[0]["path"] = share;
  shares[0]["users"].append("alice");
  Json::Value extra;
  extra["tpx_shares"] = shares;
  Reconfigure(extra);
  Create("/mydrive/in");
  Json::Value p;
  p["path"] = "/mydrive/in";
  p["tpx_paths"] = Files({share + "/photos", share + "/notes.txt"});
  Json::Value r = stack_->Call("alice", "upload_from_tpx", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  PObject task = WaitTask("alice", r["data"]["async_task_id"].asString());
  ASSERT_EQ(task["state"].asString(), "finished") << task.toJsonString();
  Json::Value get;
  get["path"] = "/mydrive/in/photos/2024/a.jpg";
  r = stack_->Call("alice", "get", get);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["size"].asUInt64(), 3u);

  // "stop" is the default: importing again fails in the task.
  p["tpx_paths"] = Files({share + "/notes.txt"});
  r = stack_->Call("alice", "upload_from_tpx", p);
  task = WaitTask("alice", r["data"]["async_task_id"].asString());
  EXPECT_EQ(task["state"].asString(), "failed");
  EXPECT_EQ(task["error"]["code"].asInt64(), kErrNameExists);

  p["tpx_paths"] = Files({stack_->root() + "/var"});
  ExpectError(stack_->Call("alice", "upload_from_tpx", p), 1033, "upload file failed");
  p["tpx_paths"] = Files({share + "/../share/../volume1"});
  ExpectError(stack_->Call("alice", "upload_from_tpx", p), 1033, "upload file failed");
  p["tpx_paths"] = Files({share + "/nope.txt"});
  ExpectError(stack_->Call("alice", "upload_from_tpx", p), 1034, "upload file failed");
  p["tpx_paths"] = Files({share + "/notes.txt"});
  p["path"] = "/mydrive";
  ExpectError(stack_->Call("bob", "upload_from_tpx", p), 1033, "upload file failed");
  p["tpx_paths"] = share + "/notes.txt";
  ExpectError(stack_->Call("alice", "upload_from_tpx", p), 1000, "prepare upload request failed");
}

TEST_F(TransferModuleTest, VersionConflictKeepsTheOldContentAsARevision) {
  Json::Value first = Create("/mydrive/v.txt", "one");
  Json::Value second = Create("/mydrive/v.txt", "two", "version");
  EXPECT_EQ(second["file_id"], first["file_id"]);
  EXPECT_EQ(second["revisions"].asUInt(), 1u);
  EXPECT_EQ(second["size"].asUInt64(), 3u);
}

}  // namespace
}  // namespace orvel::test
