// Each operation that used to lead out of a user's space, through entry.cgi
// and the daemon: a link to a file outside, a link to a folder outside, a
// folder swapped for a link after it was indexed (the daemon's rows still
// say "folder"), a folder of a server share swapped while the import was
// queued, and "..". Then links as items of their own: listed, archived as
// links, copied, moved and deleted as links, never followed.
#include <fcntl.h>

#include <map>
#include <sstream>

#include "confine_test_util.h"

namespace orvel::test {
namespace {

// A binary greyscale image (PGM) that libvips decodes.
std::string Pgm() { return std::string("P5\n4 4\n255\n") + std::string(16, '\x80'); }

class ConfineOpsTest : public ConfineTest {
 protected:
  // Indexed items, then swapped for links behind the daemon's back:
  // note.txt -> outside/secret.txt, pic.jpg -> an image outside, and the
  // folder docs -> outside/dir (whose a.txt and report.txt hold the secret).
  void PlantSwaps() {
    for (const char* f : {"/mydrive/docs", "/mydrive/dst"}) Create(f);
    Create("/mydrive/docs/a.txt", "legit a");
    Create("/mydrive/docs/img.jpg", "legit image");
    Create("/mydrive/note.txt", "legit note");
    Create("/mydrive/pic.jpg", "legit pic");
    Write(out_ + "/dir/img.jpg", Pgm());
    Write(out_ + "/pic.jpg", Pgm());
    before_ = Snapshot(out_);
    Swap("docs", out_ + "/dir");
    Swap("note.txt", out_ + "/secret.txt");
    Swap("pic.jpg", out_ + "/pic.jpg");
  }
  static Json::Value Files(std::initializer_list<const char*> paths) {
    Json::Value a(Json::arrayValue);
    for (const char* p : paths) a.append(p);
    return a;
  }
  Json::Value Params(std::initializer_list<std::pair<const char*, Json::Value>> kv) {
    Json::Value p(Json::objectValue);
    for (const auto& [k, v] : kv) p[k] = v;
    return p;
  }
  void ExpectRefused(const char* what, const std::string& method, const Json::Value& p, int code) {
    Outcome o = Run(method, p);
    EXPECT_FALSE(o.ok) << what;
    EXPECT_EQ(o.code, code) << what << ": " << o.body;
    EXPECT_EQ(o.body.find(kSecret), std::string::npos) << what;
  }
  void ExpectDone(const char* what, const std::string& method, const Json::Value& p) {
    Outcome o = Run(method, p);
    EXPECT_TRUE(o.ok) << what << ": " << o.body;
    EXPECT_EQ(o.body.find(kSecret), std::string::npos) << what;
  }
  std::string LinkAt(const std::string& rel) {
    char buf[4096];
    ssize_t n = readlink((home_ + "/" + rel).c_str(), buf, sizeof(buf));
    return n < 0 ? "" : std::string(buf, static_cast<size_t>(n));
  }
  static constexpr int kDenied = 1006;   // -402 through the module
  static constexpr int kDeniedTask = -402;
  static constexpr int kInvalidName = 1027;  // -703: ".." is no name
};

TEST_F(ConfineOpsTest, DownloadNeverFollowsALink) {
  PlantSwaps();
  const Json::Value t(true);
  ExpectRefused("file link", "download", Params({{"files", Files({"/mydrive/note.txt"})}, {"json_error", t}}),
                kDenied);
  ExpectRefused("below a swapped folder", "download",
                Params({{"files", Files({"/mydrive/docs/a.txt"})}, {"json_error", t}}), kDenied);
  ExpectRefused("..", "download", Params({{"files", Files({"/mydrive/../outside/secret.txt"})}, {"json_error", t}}),
                kInvalidName);
  // A swapped folder as a zip: the staging task fails, nothing is streamed.
  ExpectRefused("folder link as a zip", "download", Params({{"files", Files({"/mydrive/docs"})}}), kDenied);
}

TEST_F(ConfineOpsTest, ThumbnailNeverReadsThroughALink) {
  PlantSwaps();
  ExpectRefused("file link", "get_thumbnail", Params({{"path", "/mydrive/pic.jpg"}}), kDenied);
  ExpectRefused("below a swapped folder", "get_thumbnail", Params({{"path", "/mydrive/docs/img.jpg"}}), kDenied);
  ExpectRefused("..", "get_thumbnail", Params({{"path", "/mydrive/../outside/pic.jpg"}}), kInvalidName);
}

TEST_F(ConfineOpsTest, CopyNeverReadsThroughALink) {
  PlantSwaps();
  const Json::Value dst("/mydrive/dst");
  ExpectRefused("file link", "copy", Params({{"files", Files({"/mydrive/note.txt"})}, {"to_parent_folder", dst}}),
                kDeniedTask);
  ExpectRefused("folder link", "copy", Params({{"files", Files({"/mydrive/docs"})}, {"to_parent_folder", dst}}),
                kDeniedTask);
  ExpectRefused("below a swapped folder", "copy",
                Params({{"files", Files({"/mydrive/docs/a.txt"})}, {"to_parent_folder", dst}}), kDeniedTask);
  ExpectRefused("into a swapped folder", "copy",
                Params({{"files", Files({"/mydrive/dst"})}, {"to_parent_folder", "/mydrive/docs"}}), kDeniedTask);
  ExpectRefused("..", "copy", Params({{"files", Files({"/mydrive/.."})}, {"to_parent_folder", dst}}), kInvalidName);
}

TEST_F(ConfineOpsTest, UpdateNeverWritesThroughALink) {
  PlantSwaps();
  const Json::Value content(EncBase64Enc("new content"));
  ExpectRefused("file link", "update", Params({{"path", "/mydrive/note.txt"}, {"file_content", content}}), kDenied);
  ExpectRefused("below a swapped folder", "update",
                Params({{"path", "/mydrive/docs/a.txt"}, {"file_content", content}}), kDenied);
  ExpectRefused("rename below a swapped folder", "update",
                Params({{"path", "/mydrive/docs/a.txt"}, {"name", "b.txt"}}), kDenied);
  ExpectRefused("..", "update", Params({{"path", "/mydrive/docs/../../outside/secret.txt"}, {"name", "x"}}),
                kInvalidName);
  // Renaming the link entries themselves changes nothing outside.
  ExpectDone("rename a file link", "update", Params({{"path", "/mydrive/note.txt"}, {"name", "note2.txt"}}));
  ExpectDone("rename a folder link", "update", Params({{"path", "/mydrive/docs"}, {"name", "docs2"}}));
  EXPECT_EQ(LinkAt("docs2"), out_ + "/dir");
}

TEST_F(ConfineOpsTest, CreateAndUploadNeverWriteThroughALink) {
  PlantSwaps();
  ExpectRefused("folder below a swapped folder", "create", Params({{"path", "/mydrive/docs/new"}, {"type", "folder"}}),
                kDenied);
  ExpectRefused("file below a swapped folder", "create",
                Params({{"path", "/mydrive/docs/new.txt"}, {"type", "file"}, {"file_content", EncBase64Enc("x")}}),
                kDenied);
}

TEST_F(ConfineOpsTest, MoveAndDeleteNeverTakeAnythingOutOfItsPlaceOutside) {
  PlantSwaps();
  const Json::Value dst("/mydrive/dst");
  ExpectRefused("move below a swapped folder", "move",
                Params({{"files", Files({"/mydrive/docs/a.txt"})}, {"to_parent_folder", dst}}), kDeniedTask);
  ExpectRefused("move into a swapped folder", "move",
                Params({{"files", Files({"/mydrive/dst"})}, {"to_parent_folder", "/mydrive/docs"}}), kDeniedTask);
  ExpectRefused("delete below a swapped folder", "delete", Params({{"files", Files({"/mydrive/docs/a.txt"})}}),
                kDeniedTask);
  ExpectRefused("..", "delete", Params({{"files", Files({"/mydrive/docs/../.."})}}), kInvalidName);
  // The links themselves move and go as links.
  ExpectDone("move a file link", "move", Params({{"files", Files({"/mydrive/note.txt"})}, {"to_parent_folder", dst}}));
  EXPECT_EQ(LinkAt("dst/note.txt"), out_ + "/secret.txt");
  ExpectDone("delete a folder link", "delete", Params({{"files", Files({"/mydrive/docs"})}}));
  EXPECT_EQ(LinkAt("docs"), "");
}

TEST_F(ConfineOpsTest, ImportResolvesTheServerPathAgainWhenTheTaskRuns) {
  const std::string share = stack_->root() + "/share";
  Sh("mkdir -p " + Q(share + "/sub") + " && printf public > " + Q(share + "/sub/report.txt"));
  Json::Value shares(Json::arrayValue);
  shares[0]["name"] = "public";
  shares[0]["path"] = share;
  shares[0]["users"].append("alice");
  const std::string conf = stack_->root() + "/var/packages/ZemoraOrvel/target/etc/orvel.conf";
  Json::Value c;
  ASSERT_TRUE(Json::Reader().parse(Read(conf), c));
  c["tpx_shares"] = shares;
  Write(conf, c.toStyledString());
  stack_->StopDaemon();
  stack_->StartDaemon();
  Create("/mydrive/in");
  // Checked at submission; swapped for a link to a root-only folder before it runs.
  Hook("task-start-upload_from_tpx", "mv " + Q(share + "/sub") + " " + Q(share + "/sub.real") + " && ln -s " +
                                         Q(out_ + "/dir") + " " + Q(share + "/sub"));
  Json::Value p = Params({{"path", "/mydrive/in"}});
  p["tpx_paths"].append(share + "/sub/report.txt");
  ExpectRefused("folder swapped while queued", "upload_from_tpx", p, kErrServerPathRefused);
  p["tpx_paths"][0] = share + "/sub";
  Sh("rm " + Q(share + "/sub") + " && mv " + Q(share + "/sub.real") + " " + Q(share + "/sub"));
  ExpectRefused("the path itself swapped while queued", "upload_from_tpx", p, kErrServerPathRefused);
  p["tpx_paths"][0] = share + "/sub/../../outside/secret.txt";
  ExpectRefused("..", "upload_from_tpx", p, 1033);
}

class ConfineLinksTest : public ConfineOpsTest {
 protected:
  // Links root left in the home, indexed at the next start.
  void SetUp() override {
    ConfineOpsTest::SetUp();
    for (const char* f : {"/mydrive/box", "/mydrive/dst"}) Create(f);
    Create("/mydrive/box/x.txt", "x");
    Plant("lnk-file", out_ + "/secret.txt");
    Plant("lnk-dir", out_ + "/dir");
    Plant("box/up.jpg", "../../../../../outside/pic.jpg");
    Plant("box/near.txt", "x.txt");
    stack_->StopDaemon();
    stack_->StartDaemon();
  }
};

TEST_F(ConfineLinksTest, LinksAreListedAsItemsOfTheirOwn) {
  Json::Value r = stack_->Call("alice", "list", Params({{"path", "/mydrive"}}));
  ASSERT_TRUE(r["success"].asBool()) << r;
  std::map<std::string, Json::Value> items;
  for (const auto& i : r["data"]["items"]) items[i["name"].asString()] = i;
  ASSERT_EQ(items.count("lnk-dir"), 1u) << r;
  for (const char* name : {"lnk-dir", "lnk-file"}) {
    EXPECT_EQ(items[name]["type"].asString(), "file") << name;
    EXPECT_EQ(items[name]["content_type"].asString(), "inode/symlink") << name;
    EXPECT_EQ(items[name]["size"].asUInt64(), 0u) << name;
    EXPECT_EQ(items[name]["hash"].asString(), "") << name;
  }
  const Json::Value t(true);
  ExpectRefused("download a link", "download", Params({{"files", Files({"/mydrive/lnk-file"})}, {"json_error", t}}),
                kDenied);
  ExpectRefused("thumbnail of a link", "get_thumbnail", Params({{"path", "/mydrive/box/up.jpg"}}), 1012);
  ExpectRefused("below a link", "list", Params({{"path", "/mydrive/lnk-dir"}}), 1009);
}

// A link that stays inside the archived folder is stored as a link; one that
// climbs out is stored as a plain file holding its target text.
TEST_F(ConfineLinksTest, AFolderWithALinkIsArchivedWithTheLinkAsALink) {
  Outcome zip = Run("download", Params({{"files", Files({"/mydrive/box"})}}));
  ASSERT_TRUE(zip.ok) << zip.body;
  EXPECT_EQ(zip.body.find(kSecret), std::string::npos);
  const std::string file = stack_->root() + "/box.zip";
  Write(file, zip.body);
  ProcessOutput l = RunProcess({"/usr/bin/unzip", "-Z", file}, BaseEnv(stack_->root()));
  std::map<std::string, std::string> modes;
  std::istringstream lines(l.out);
  for (std::string line; std::getline(lines, line);) {
    const size_t sp = line.find_last_of(' ');
    if (sp != std::string::npos) modes[line.substr(sp + 1)] = line.substr(0, 4);
  }
  EXPECT_EQ(modes["box/near.txt"], "lrwx") << l.out;
  EXPECT_EQ(modes["box/up.jpg"].substr(0, 1), "-") << l.out;
}

TEST_F(ConfineLinksTest, LinksAreCopiedMovedUpdatedAndDeletedAsLinks) {
  const Json::Value dst("/mydrive/dst");
  ExpectDone("copy", "copy",
             Params({{"files", Files({"/mydrive/lnk-dir", "/mydrive/box"})}, {"to_parent_folder", dst}}));
  EXPECT_EQ(LinkAt("dst/lnk-dir"), out_ + "/dir");
  EXPECT_EQ(LinkAt("dst/box/up.jpg"), "../../../../../outside/pic.jpg");
  ExpectDone("rename", "update", Params({{"path", "/mydrive/lnk-dir"}, {"name", "renamed"}}));
  EXPECT_EQ(LinkAt("renamed"), out_ + "/dir");
  ExpectDone("move", "move", Params({{"files", Files({"/mydrive/renamed"})}, {"to_parent_folder", "/mydrive/box"}}));
  EXPECT_EQ(LinkAt("box/renamed"), out_ + "/dir");
  ExpectDone("delete", "delete", Params({{"files", Files({"/mydrive/box"})}}));
  EXPECT_EQ(LinkAt("box/renamed"), "");
  // New content replaces the link itself.
  ExpectDone("update content", "update",
             Params({{"path", "/mydrive/lnk-file"}, {"file_content", EncBase64Enc("mine now")}}));
  EXPECT_EQ(LinkAt("lnk-file"), "");
  EXPECT_EQ(Read(home_ + "/lnk-file"), "mine now");
  Json::Value r = stack_->Call("alice", "get", Params({{"path", "/mydrive/lnk-file"}}));
  EXPECT_EQ(r["data"]["content_type"].asString(), "application/octet-stream") << r;
}

}  // namespace
}  // namespace orvel::test
