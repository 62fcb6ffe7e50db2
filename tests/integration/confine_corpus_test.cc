// The escape corpus: every method of "ZEMO.ZemoraOrvel.Files" that takes a
// path, through entry.cgi and the daemon, against every path of a corpus of
// escapes: links root left in the home (to a file and a folder outside, and
// a relative one), indexed items swapped for links behind the daemon's back,
// a destination folder swapped for a link between the op's checks and its
// task (a hook point), ".." in every spelling, long names, reserved names.
// Whatever each call answers, nothing outside the space is read, written,
// renamed or removed (the fixture's snapshot of `outside`), no byte of the
// secret reaches an answer or the data folder, and the daemon keeps serving.
#include <functional>
#include <set>

#include "confine_test_util.h"

namespace orvel::test {
namespace {

class ConfineCorpusTest : public ConfineTest {
 protected:
  void SetUp() override {
    ConfineTest::SetUp();
    for (const char* f : {"/mydrive/docs", "/mydrive/docs/sub", "/mydrive/dst", "/mydrive/dst2", "/mydrive/@tmp"})
      Create(f);
    Create("/mydrive/docs/a.txt", "legit a");
    Create("/mydrive/docs/sub/deep.txt", "legit deep");
    Create("/mydrive/docs/r.docx", "legit document");
    Create("/mydrive/note.txt", "legit note");
    Create("/mydrive/keep.txt", "keep");
    Plant("lnk-file", out_ + "/secret.txt");
    Plant("lnk-dir", out_ + "/dir");
    Plant("lnk-rel", "../../../../outside/secret.txt");
    share_ = stack_->root() + "/share";
    Sh("mkdir -p " + Q(share_ + "/sub") + " && printf public > " + Q(share_ + "/f.txt") + " && ln -s " +
       Q(out_ + "/dir") + " " + Q(share_ + "/out"));
    const std::string conf = stack_->root() + "/var/packages/ZemoraOrvel/target/etc/orvel.conf";
    Json::Value c;
    ASSERT_TRUE(Json::Reader().parse(Read(conf), c));
    c["tpx_shares"][0]["name"] = "public";
    c["tpx_shares"][0]["path"] = share_;
    c["tpx_shares"][0]["users"].append("*");
    Write(conf, c.toStyledString());
    stack_->StopDaemon();  // the planted links get indexed
    stack_->StartDaemon();
    Swap("docs", out_ + "/dir");
    Swap("note.txt", out_ + "/secret.txt");
    // Every task finds dst2 (checked by the op) swapped for a link outside.
    for (const char* kind : {"copy", "move", "delete", "download", "upload_from_tpx", "convert_office"}) {
      Hook(std::string("task-start-") + kind,
           "[ -L " + Q(home_ + "/dst2") + " ] || { mv " + Q(home_ + "/dst2") + " " + Q(home_ + "/.dst2") +
               " && ln -s " + Q(out_ + "/dir") + " " + Q(home_ + "/dst2") + "; }");
    }
  }

  static std::vector<std::string> Corpus() {
    const std::string nul("/mydrive/a\0b", 12);
    std::string deep = "/mydrive";
    for (int i = 0; i < 2100; ++i) deep += "/a";
    return {"/mydrive/note.txt", "/mydrive/docs", "/mydrive/docs/a.txt", "/mydrive/docs/sub/deep.txt",
            "/mydrive/docs/r.docx", "/mydrive/lnk-file", "/mydrive/lnk-dir", "/mydrive/lnk-dir/a.txt",
            "/mydrive/lnk-rel", "/mydrive/dst2",
            "..", "/..", "/mydrive/..", "/mydrive/../..", "/mydrive/../../outside/secret.txt",
            "/mydrive/docs/../../outside", "/mydrive/./docs/a.txt", "//mydrive//..//..", "mydrive/../x",
            "/mydrive/%2e%2e/outside", "/mydrive/.%2e/x", "/mydrive/..%2fx", "/mydrive/..\\..\\outside",
            "/mydrive/...", "/mydrive/\xe2\x80\xa5", "/mydrive/\xef\xbc\x8e\xef\xbc\x8e/outside",
            "id:../../outside", "link:../..", "/shared-with-me/../mydrive/docs/a.txt",
            "/mydrive/" + std::string(256, 'a'), deep, "/mydrive/@tmp", "/mydrive/@recycle/x", "/mydrive/.",
            nul, "/volume1/ZemoraOrvel/@tmp", "/etc/passwd"};
  }

  using Builder = std::function<Json::Value(const std::string&)>;
  static Json::Value One(const std::string& p) {
    Json::Value a(Json::arrayValue);
    a.append(p);
    return a;
  }
  // Every path-taking method, read-only ones first, removal last.
  std::vector<std::pair<std::string, Builder>> Methods() {
    auto with = [](std::initializer_list<std::pair<const char*, Builder>> list) {
      std::vector<std::pair<const char*, Builder>> kv(list);
      return [kv](const std::string& p) {
        Json::Value v(Json::objectValue);
        for (const auto& [k, b] : kv) v[k] = b(p);
        return v;
      };
    };
    auto path = [](const std::string& p) { return Json::Value(p); };
    auto fixed = [](const char* s) { return [s](const std::string&) { return Json::Value(s); }; };
    auto content = [](const std::string&) { return Json::Value(EncBase64Enc("new")); };
    auto share = [this](const std::string&) { return One(share_ + "/f.txt"); };
    return {
        {"list", with({{"path", path}})},
        {"get", with({{"path", path}})},
        {"list_ancestor", with({{"path", path}})},
        {"get_thumbnail", with({{"path", path}})},
        {"request_access", with({{"path", path}})},
        {"star", with({{"files", One}, {"starred", [](const std::string&) { return Json::Value(true); }}})},
        {"label", with({{"files", One}, {"labels", [](const std::string&) { return One("L"); }}})},
        {"search", with({{"keyword", fixed("ZQXSECRET")}, {"location", fixed("custom")}, {"custom_location", path}})},
        {"download", with({{"files", One}, {"json_error", [](const std::string&) { return Json::Value(true); }}})},
        {"copy", with({{"files", One}, {"to_parent_folder", fixed("/mydrive/dst")}})},
        {"copy", with({{"files", [](const std::string&) { return One("/mydrive/keep.txt"); }},
                       {"to_parent_folder", path}})},
        {"convert_office", with({{"files", One}})},
        {"upload_from_tpx", with({{"path", path}, {"tpx_paths", share}})},
        {"upload_from_tpx", with({{"path", fixed("/mydrive/dst")}, {"tpx_paths", One}})},
        {"create", with({{"path", [](const std::string& p) { return Json::Value(p + "/new"); }},
                         {"type", fixed("folder")}})},
        {"create", with({{"path", path}, {"type", fixed("file")}, {"file_content", content},
                         {"conflict_action", fixed("overwrite")}})},
        {"update", with({{"path", path}, {"file_content", content}})},
        {"update", with({{"path", path}, {"name", fixed("renamed")}})},
        {"move", with({{"files", One}, {"to_parent_folder", fixed("/mydrive/dst")}})},
        {"move", with({{"files", [](const std::string&) { return One("/mydrive/keep.txt"); }},
                       {"to_parent_folder", path}})},
        {"delete", with({{"files", One}})},
    };
  }

  // "upload" with a multipart body: the file part reaches the module as a
  // temp file of the framework's.
  CgiResult Upload(const std::string& path) {
    const std::string b = "----confine-corpus-boundary";
    auto part = [&](const std::string& disposition, const std::string& value) {
      return "--" + b + "\r\nContent-Disposition: form-data; " + disposition + "\r\n\r\n" + value + "\r\n";
    };
    SessionRecord s = stack_->Login("alice");
    CgiRequest req;
    req.content_type = "multipart/form-data; boundary=" + b;
    req.body = part("name=\"api\"", "ZEMO.ZemoraOrvel.Files") + part("name=\"version\"", "1") +
               part("name=\"method\"", "upload") + part("name=\"_sid\"", s.sid) + part("name=\"path\"", path) +
               part("name=\"conflict_action\"", "overwrite") +
               part("name=\"file\"; filename=\"f.txt\"", "uploaded") + "--" + b + "--\r\n";
    return stack_->Cgi(req);
  }

  // Runs each of `methods` on every path of the corpus; returns the calls made.
  size_t RunCorpus(const std::set<std::string>& methods) {
    size_t calls = 0;
    for (const auto& [method, params] : Methods()) {
      if (!methods.count(method)) continue;
      for (const std::string& p : Corpus()) {
        Outcome o = Run(method, params(p));
        ++calls;
        EXPECT_EQ(o.body.find(kSecret), std::string::npos) << method << " " << p;
        EXPECT_EQ(Snapshot(out_), before_) << "after " << method << " " << p;
      }
    }
    if (methods.count("upload")) {
      for (const std::string& p : Corpus()) {
        CgiResult r = Upload(p);
        ++calls;
        EXPECT_EQ(r.body.find(kSecret), std::string::npos) << "upload " << p;
        EXPECT_EQ(Snapshot(out_), before_) << "after upload " << p;
      }
    }
    // The daemon still serves, and the links are still links.
    Json::Value r = stack_->Call("alice", "list", Json::Value(Json::objectValue));
    EXPECT_TRUE(r["success"].asBool()) << r;
    return calls;
  }

  std::string share_;
};

TEST_F(ConfineCorpusTest, ReadingMethodsReadNothingOutside) {
  EXPECT_EQ(RunCorpus({"list", "get", "list_ancestor", "get_thumbnail", "request_access", "star", "label", "search",
                       "download"}),
            9 * Corpus().size());
}

TEST_F(ConfineCorpusTest, WritingMethodsWriteNothingOutside) {
  EXPECT_EQ(RunCorpus({"create", "update", "upload"}), 5 * Corpus().size());
}

TEST_F(ConfineCorpusTest, TasksTakeNothingFromOutside) {
  EXPECT_EQ(RunCorpus({"copy", "convert_office", "upload_from_tpx", "move", "delete"}), 8 * Corpus().size());
}

}  // namespace
}  // namespace orvel::test
