// The authorization matrix over HTTP through lighttpd: every row of
// access_matrix_rows.cc for every caller and every way of naming the item.
// An allowed cell must succeed (an asynchronous one must finish its task);
// a refused cell must answer a refusal, change no file, folder or database
// row, and no answer to a non-owner may name the owner's private file.
// One stack per group of rows; the items are put back only after allowed writes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <set>
#include <sstream>

#include "../integration/transfer_test_util.h"
#include "http_client.h"
#include "access_matrix.h"
#include "access_snapshot.h"
#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

using matrix::Cell;
using matrix::Fixture;
using matrix::Group;
using matrix::Request;
using matrix::Row;
using matrix::Undo;
using matrix::Via;
using matrix::Who;

constexpr Who kCallers[] = {Who::kOwner, Who::kEditor,  Who::kCommenter,      Who::kViewer,
                            Who::kOther, Who::kVisitor, Who::kVisitorEditor, Who::kAnonymous};
constexpr Via kWays[] = {Via::kPath, Via::kId, Via::kShared, Via::kLink};

// Codes a refusal may carry: denied or no session (105, 402), not found
// (1002), permission (1006), sharing token (1007), bad argument or name
// (1022, 1027). Anything else (an internal error) is a fault of its own.
// 407: wrong passwords from one caller end up held back by the login throttle.
const std::set<int> kRefusalCodes = {105, 402, 407, 1002, 1006, 1007, 1022, 1027};

Request Make(const std::string& api, const std::string& method,
             std::vector<std::pair<std::string, std::string>> fields) {
  Request r;
  r.api = api;
  r.method = method;
  r.fields = std::move(fields);
  return r;
}

struct Outcome {
  bool ok = false;
  int code = 0;
  std::string text;  // the answer (headers and body), for messages and the leak check
};

class AccessMatrixTest : public ::testing::TestWithParam<matrix::Group>, public TaskHelpers {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    ASSERT_NE(stack_, nullptr);
    for (Who who : kCallers) {
      if (matrix::HasAccount(who)) stack_->AddUser(matrix::AccountName(who), false, matrix::AccountName(who) + "-password");
    }
    ConfigureImportAndConverter();
    port_ = stack_->StartHttp();
    for (Who who : kCallers) {
      if (matrix::HasAccount(who)) fx_.sid[who] = Login(who);
    }
    MakeItems();
  }

  // A server folder every user may import from, and a stand-in for
  // LibreOffice that writes the converted file (the matrix tests who may
  // convert, not the conversion).
  void ConfigureImportAndConverter() {
    const std::string root = stack_->root();
    fx_.import_dir = root + "/import";
    ASSERT_EQ(::mkdir(fx_.import_dir.c_str(), 0755), 0);
    std::ofstream(fx_.import_dir + "/in.txt") << "imported\n";
    const std::string soffice = root + "/fake-soffice";
    std::ofstream(soffice) << "#!/bin/sh\n# --convert-to FORMAT --outdir DIR SOURCE\n"
                              "base=$(basename \"$9\")\nprintf 'converted\\n' > \"$8/${base%.*}.$6\"\n";
    ::chmod(soffice.c_str(), 0755);
    const std::string conf_path = root + "/var/packages/ZemoraOrvel/target/etc/orvel.conf";
    Json::Value conf;
    std::ifstream(conf_path) >> conf;
    conf["office_converter"] = soffice;
    conf["tpx_shares"][0]["name"] = "import";
    conf["tpx_shares"][0]["path"] = fx_.import_dir;
    conf["tpx_shares"][0]["users"].append("*");
    std::ofstream(conf_path) << conf;
    stack_->StopDaemon();
    stack_->StartDaemon();
  }

  std::string Login(Who who) {
    const std::string name = matrix::AccountName(who);
    // From an address of its own: the cells' wrong passwords never hold it back.
    const std::string text = HttpPostForm(port_, {{"api", "ZEMO.API.Auth"}, {"method", "login"}, {"version", "1"},
                                                  {"account", name}, {"passwd", name + "-password"}},
                                          "", "", 200);
    Json::Value v = Envelope(text);
    EXPECT_TRUE(v["success"].asBool()) << text;
    return v["data"]["sid"].asString();
  }

  static Json::Value Envelope(const std::string& text) {
    size_t split = text.rfind("\r\n\r\n");
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string errs;
    std::istringstream s(split == std::string::npos ? text : text.substr(split + 4));
    if (!Json::parseFromStream(b, s, &v, &errs) || !v.isObject() || !v.isMember("success")) return Json::Value();
    return v;
  }

  // Sends one request as the caller; waits for the task of an asynchronous
  // answer.
  Outcome Send(const Request& req, Who who, Via via) {
    FormFields fields = {
        {"api", req.api}, {"method", req.method}, {"version", std::to_string(req.version)}};
    fields.insert(fields.end(), req.fields.begin(), req.fields.end());
    if (matrix::HasAccount(who)) fields.emplace_back("_sid", req.fresh_sid ? Login(who) : fx_.sid[who]);
    if (who == Who::kVisitor || (matrix::HasAccount(who) && via == Via::kLink)) {
      fields.emplace_back("sharing_token", fx_.view_token);
    } else if (who == Who::kVisitorEditor) {
      fields.emplace_back("sharing_token", fx_.edit_token);
    }
    Outcome o;
    // Each caller comes from its own loopback address, as different people
    // would, so one caller's failed logins do not hold back another's.
    const uint8_t source = static_cast<uint8_t>(10 + static_cast<int>(who));
    o.text = HttpPostForm(port_, fields, req.upload, req.upload.empty() ? "" : "uploaded\n", source);
    Json::Value v = Envelope(o.text);
    if (v.isNull()) {  // a file or a thumbnail: the download error header says whether it failed
      const size_t header = o.text.find("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE: ");
      o.ok = HttpStatus(o.text) == 200 && header == std::string::npos;
      o.code = header == std::string::npos ? 0 : std::atoi(o.text.c_str() + header + 35);
      return o;
    }
    o.ok = v["success"].asBool();
    o.code = v["error"]["code"].asInt();
    if (o.ok && v["data"].isMember("async_task_id") && matrix::HasAccount(who)) {
      PObject task = WaitTask(matrix::AccountName(who), v["data"]["async_task_id"].asString());
      o.ok = task["state"].asString() == "finished";
      o.code = static_cast<int>(task["error"]["code"].asInt64());
      o.text += "\ntask: " + task.toJsonString();
    } else if (o.ok && v["data"].isMember("async_task_id")) {
      // A visitor's staging task: fetching its zip waits for it to end.
      FormFields fetch = {{"api", req.api}, {"method", "download"}, {"version", "1"},
                          {"task_id", v["data"]["async_task_id"].asString()}, fields.back()};
      const std::string zip = HttpPostForm(port_, fetch, "", "", source);
      o.ok = HttpStatus(zip) == 200 && zip.find("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE") == std::string::npos;
      o.text += "\nzip: " + std::to_string(zip.size()) + " bytes";
    }
    return o;
  }

  // As the owner; fails the test unless it succeeds. Returns the answer's data.
  Json::Value OwnerCall(const std::string& method, std::vector<std::pair<std::string, std::string>> fields) {
    Outcome o = Send(Make("ZEMO.ZemoraOrvel.Files", method, std::move(fields)), Who::kOwner, Via::kPath);
    EXPECT_TRUE(o.ok) << method << ": " << o.text;
    return Envelope(o.text)["data"];
  }

  std::string Create(Who who, const std::string& path, const std::string& content, bool folder = false) {
    std::vector<std::pair<std::string, std::string>> f = {{"path", path}, {"type", folder ? "folder" : "file"}};
    if (!folder) f.emplace_back("file_content", EncBase64Enc(content));
    Outcome o = Send(Make("ZEMO.ZemoraOrvel.Files", "create", f), who, Via::kPath);
    EXPECT_TRUE(o.ok) << path << ": " << o.text;
    return Envelope(o.text)["data"]["file_id"].asString();
  }

  std::string Orvelctl(const std::vector<std::string>& args) {
    std::string out;
    EXPECT_EQ(stack_->Orvelctl(args, &out), 0) << out;
    return out;
  }

  void MakeItems() {
    MakeShared();
    Create(Who::kOwner, "/mydrive/Private", "", true);
    fx_.private_id = Create(Who::kOwner, "/mydrive/Private/secret.txt", "secret\n");
    for (Who who : {Who::kOwner, Who::kEditor, Who::kCommenter, Who::kViewer, Who::kOther}) {
      Create(who, "/mydrive/mine.txt", "mine\n");
    }
    fx_.download_task = OwnerCall("download", {{"files", "[\"/mydrive/Shared/Sub\"]"}})["async_task_id"].asString();
    ASSERT_FALSE(fx_.download_task.empty());
    // The viewer link's visitor stages Sub too; its task is no account's.
    const FormFields visit = {{"api", "ZEMO.ZemoraOrvel.Files"}, {"method", "download"}, {"version", "1"},
                              {"files", "[\"id:" + fx_.ids["Sub"] + "\"]"}, {"sharing_token", fx_.view_token}};
    fx_.visitor_task = Envelope(HttpPostForm(port_, visit))["data"]["async_task_id"].asString();
    ASSERT_FALSE(fx_.visitor_task.empty());
    EXPECT_EQ(WaitTask("", fx_.visitor_task)["state"].asString(), "finished");
  }

  // Shared and what lies in it, its shares and its two links.
  void MakeShared() {
    fx_.ids[""] = Create(Who::kOwner, "/mydrive/Shared", "", true);
    fx_.ids["Sub"] = Create(Who::kOwner, "/mydrive/Shared/Sub", "", true);
    fx_.ids["doc.txt"] = Create(Who::kOwner, "/mydrive/Shared/doc.txt", "doc\n");
    fx_.ids["pic.png"] = Create(Who::kOwner, "/mydrive/Shared/pic.png", TinyPng());
    fx_.ids["sheet.csv"] = Create(Who::kOwner, "/mydrive/Shared/sheet.csv", "a,b\n1,2\n");
    OwnerCall("label", {{"files", "[\"id:" + fx_.ids["doc.txt"] + "\"]"}, {"labels", "[\"Important\"]"}});
    fx_.owner_label_id = OwnerCall("get", {{"path", "id:" + fx_.ids["doc.txt"]}})["labels"][0]["label_id"].asString();
    for (Who who : {Who::kEditor, Who::kCommenter, Who::kViewer}) {
      const std::string role = who == Who::kEditor ? "editor" : who == Who::kCommenter ? "commenter" : "viewer";
      Orvelctl({"share", "olive", "/mydrive/Shared", "--user", matrix::AccountName(who), "--role", role});
    }
    fx_.view_token = Orvelctl({"link", "create", "olive", "/mydrive/Shared"}).substr(0, 64);
    fx_.edit_token = Orvelctl({"link", "create", "olive", "/mydrive/Shared", "--role", "editor"}).substr(0, 64);
  }

  // A 1x1 PNG, so that an allowed thumbnail request has something to render.
  static std::string TinyPng() {
    static const unsigned char kPng[] = {
        0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44, 0x52,
        0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x02, 0x00, 0x00, 0x00, 0x90, 0x77, 0x53,
        0xde, 0x00, 0x00, 0x00, 0x0c, 0x49, 0x44, 0x41, 0x54, 0x08, 0xd7, 0x63, 0xf8, 0xcf, 0xc0, 0x00,
        0x00, 0x03, 0x01, 0x01, 0x00, 0x18, 0xdd, 0x8d, 0xb0, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e,
        0x44, 0xae, 0x42, 0x60, 0x82};
    return std::string(reinterpret_cast<const char*>(kPng), sizeof(kPng));
  }

  // Puts the items back where and as they were after an allowed write.
  void Restore(Undo undo) {
    const std::string doc = "id:" + fx_.ids["doc.txt"], shared = "id:" + fx_.ids[""];
    switch (undo) {
      case Undo::kNone: return;
      case Undo::kRenameBack:
        OwnerCall("update", {{"path", doc}, {"name", "doc.txt"}});
        OwnerCall("update", {{"path", shared}, {"name", "Shared"}});
        return;
      case Undo::kMoveBack:
        OwnerCall("move", {{"files", "[\"" + doc + "\"]"}, {"to_parent_folder", shared}});
        return;
      case Undo::kMoveFolderBack:
        OwnerCall("move", {{"files", "[\"" + shared + "\"]"}, {"to_parent_folder", "/mydrive"}});
        return;
      case Undo::kRemakeShared: MakeShared(); return;
      case Undo::kRecreateDoc: fx_.ids["doc.txt"] = Create(Who::kOwner, "/mydrive/Shared/doc.txt", "doc\n"); return;
    }
  }

  // Runs one cell and checks it; returns whether it was allowed and appends
  // the answer's code ("ok" or the error code) to *line.
  bool RunCell(const Row& row, Who who, Via via, int serial, DataSnapshot* baseline, std::string* line) {
    Request req;
    row.build(Cell{fx_, who, via, serial}, &req);
    const bool allowed = row.allowed(who, via);
    Outcome o = Send(req, who, via);
    char code[16];
    std::snprintf(code, sizeof(code), " %5s", o.ok ? "ok" : std::to_string(o.code).c_str());
    *line += code;
    const std::string where = std::string(row.label) + " by " + matrix::WhoName(who) + " via " + matrix::ViaName(via);
    if (who != Who::kOwner) {
      EXPECT_EQ(o.text.find(fx_.private_id), std::string::npos) << where << " names the private file:\n" << o.text;
      EXPECT_EQ(o.text.find("secret.txt"), std::string::npos) << where << " names the private file:\n" << o.text;
    }
    DataSnapshot after = DataSnapshot::Take(stack_->DataDir());
    if (allowed) {
      EXPECT_TRUE(o.ok) << where << ": must be allowed, answered " << o.code << "\n" << o.text;
      if (o.ok && row.undo != Undo::kNone) {
        EXPECT_NE(baseline->DiffTo(after), "") << where << ": the write left no trace";
        Restore(row.undo);
        after = DataSnapshot::Take(stack_->DataDir());
      }
    } else {
      EXPECT_FALSE(o.ok) << where << ": must be refused\n" << o.text;
      EXPECT_TRUE(o.ok || kRefusalCodes.count(o.code) == 1) << where << ": refused with " << o.code << "\n" << o.text;
      EXPECT_EQ(baseline->DiffTo(after), "") << where << ": refused, yet changed";
    }
    *baseline = std::move(after);
    return allowed;
  }

  std::unique_ptr<TestStack> stack_;
  int port_ = 0;
  Fixture fx_;
};

TEST_P(AccessMatrixTest, EveryMethodEveryCallerEveryWayOfNamingTheItem) {
  DataSnapshot baseline = DataSnapshot::Take(stack_->DataDir());
  int cells = 0, allowed = 0;
  // The answers, one line per row: per caller (owner, editor, commenter,
  // viewer, other, visitor, editor-link visitor, anonymous) the four ways
  // path, id, shared-with-me, link.
  std::string table;
  for (const Row& row : matrix::Rows()) {
    if (row.group != GetParam()) continue;
    char label[32];
    std::snprintf(label, sizeof(label), "%-22s", row.label);
    std::string line = label;
    for (Who who : kCallers) {
      for (Via via : kWays) {
        if (!row.targeted && via != Via::kPath) continue;
        allowed += RunCell(row, who, row.targeted ? via : Via::kNone, ++cells, &baseline, &line);
      }
      line += " |";
    }
    table += line + "\n";
  }
  std::printf("%saccess matrix: %d cells, %d allowed, %d refused\n", table.c_str(), cells, allowed,
              cells - allowed);
}

std::string GroupName(const ::testing::TestParamInfo<Group>& info) {
  static const char* const kNames[] = {"Read", "MarksListingsAuthInfo", "Write", "Transfer"};
  return kNames[static_cast<int>(info.param)];
}

}  // namespace

namespace matrix {
// How gtest names a group in its output.
void PrintTo(Group group, std::ostream* os) { *os << GroupName({group, 0}); }
}  // namespace matrix

namespace {

INSTANTIATE_TEST_SUITE_P(Groups, AccessMatrixTest,
                         ::testing::Values(Group::kRead, Group::kMarks, Group::kWrite, Group::kTransfer),
                         GroupName);

}  // namespace
}  // namespace orvel::test
