// orvel-syncd browsing: list_file paging, sorting and filters, get_file_info
// records, path and caller errors.
#include "syncd_launcher.h"

namespace orvel::test {
namespace {

class SyncdFilesTest : public SyncdTest {
 protected:
  // Lists path; returns the names and sets *total, or fails the test.
  std::vector<std::string> List(const std::string& path, const Nimbard::SearchNodeFilter& f,
                                uint64_t* total = nullptr) {
    auto c = Client();
    std::vector<Nimbard::FileInfo> items;
    uint64_t t = 0;
    EXPECT_EQ(c->ListFile(path, false, f, items, t, {}), 0) << c->GetLastErrorMessage();
    if (total) *total = t;
    std::vector<std::string> names;
    for (const auto& i : items) names.push_back(i.name);
    return names;
  }
  int ListError(const std::string& path, const Nimbard::SearchNodeFilter& f,
                const std::string& user = "alice", std::string* message = nullptr) {
    auto c = Client(user);
    std::vector<Nimbard::FileInfo> items;
    uint64_t t = 0;
    if (c->ListFile(path, false, f, items, t, {}) == 0) return 0;
    if (message) *message = c->GetLastErrorMessage();
    return c->GetLastError();
  }
  void MakeNumbered(int n) {
    for (int i = 0; i < n; ++i) {
      char name[32];
      snprintf(name, sizeof(name), "/mydrive/f%02d.txt", i);
      PObject r = FileRequest(name, std::string(static_cast<size_t>((i * 7) % n), 'x'));
      r["mtime"]["refer"] = false;
      r["mtime"]["mtime"] = 1700000000ull + static_cast<unsigned long long>((i * 3) % n);
      Nimbard::FileInfo info;
      ASSERT_EQ(Client()->UploadFile(r, info), 0);
    }
  }
};

TEST_F(SyncdFilesTest, PagesByOffsetAndLimit) {
  MakeNumbered(25);
  Nimbard::SearchNodeFilter f;
  f.limit = 10;
  uint64_t total = 0;
  auto page1 = List("/mydrive", f, &total);
  EXPECT_EQ(total, 25u);
  ASSERT_EQ(page1.size(), 10u);
  EXPECT_EQ(page1.front(), "f00.txt");
  f.offset = 20;
  auto page3 = List("/mydrive", f, &total);
  EXPECT_EQ(page3, (std::vector<std::string>{"f20.txt", "f21.txt", "f22.txt", "f23.txt", "f24.txt"}));
  EXPECT_EQ(total, 25u);
  f.offset = 30;
  EXPECT_TRUE(List("/mydrive", f).empty());
  f.offset = 0;
  f.limit = 0;  // the daemon's default page
  EXPECT_EQ(List("", f).size(), 25u);
}

TEST_F(SyncdFilesTest, SortsBySizeAndModifiedTimeBothWays) {
  MakeNumbered(5);  // sizes f0..f4 = 0,2,4,1,3; mtimes +0,+3,+1,+4,+2
  Nimbard::SearchNodeFilter f;
  f.sort_by = "size";
  EXPECT_EQ(List("/mydrive", f), (std::vector<std::string>{"f00.txt", "f03.txt", "f01.txt", "f04.txt", "f02.txt"}));
  f.sort_direction = "desc";
  EXPECT_EQ(List("/mydrive", f), (std::vector<std::string>{"f02.txt", "f04.txt", "f01.txt", "f03.txt", "f00.txt"}));
  f.sort_by = "mtime";
  EXPECT_EQ(List("/mydrive", f), (std::vector<std::string>{"f03.txt", "f01.txt", "f04.txt", "f02.txt", "f00.txt"}));
  f.sort_by = "modified_time";
  f.sort_direction = "asc";
  EXPECT_EQ(List("/mydrive", f).front(), "f00.txt");
  f.sort_by = "colour";
  std::string msg;
  EXPECT_EQ(ListError("/mydrive", f, "alice", &msg), kErrInvalidArgument);
  EXPECT_EQ(msg, "unknown sort key: \"colour\"");
}

TEST_F(SyncdFilesTest, FiltersByTypeAndExtension) {
  MkDir("/mydrive/Docs");
  Put("/mydrive/a.JPG", "1");
  Put("/mydrive/b.png", "2");
  Put("/mydrive/c.txt", "3");
  Nimbard::SearchNodeFilter f;
  uint64_t total = 0;
  f.type = "dir";
  EXPECT_EQ(List("/mydrive", f, &total), (std::vector<std::string>{"Docs"}));
  EXPECT_EQ(total, 1u);
  f.type = "file";
  f.extensions = {"jpg", ".PNG"};
  EXPECT_EQ(List("/mydrive", f, &total), (std::vector<std::string>{"a.JPG", "b.png"}));
  EXPECT_EQ(total, 2u);
  f.type = "file,folder";
  f.extensions.clear();
  EXPECT_EQ(List("/mydrive", f, &total).size(), 4u);
  f.type = "symlink";
  EXPECT_EQ(ListError("/mydrive", f), kErrInvalidArgument);
}

TEST_F(SyncdFilesTest, RefusesPagesOverTenThousand) {
  Nimbard::SearchNodeFilter f;
  f.limit = 10001;
  std::string msg;
  EXPECT_EQ(ListError("/mydrive", f, "alice", &msg), kErrTooLargeToAnswer);
  EXPECT_EQ(msg, "limit 10001 is over 10000 items");
  f.limit = 10000;
  EXPECT_EQ(ListError("/mydrive", f), 0);
}

TEST_F(SyncdFilesTest, ListErrorsNameTheirCause) {
  Put("/mydrive/a.txt", "x");
  Nimbard::SearchNodeFilter f;
  EXPECT_EQ(ListError("/mydrive/a.txt", f), kErrNotFolder);
  EXPECT_EQ(ListError("/mydrive/a.txt/b", f), kErrNotFolder);
  EXPECT_EQ(ListError("/mydrive/missing", f), kErrNotFound);
  EXPECT_EQ(ListError("/mydrive/..", f), kErrInvalidName);
  EXPECT_EQ(ListError("/elsewhere", f), kErrOutsideSpace);
  f.label_id = "L1";
  EXPECT_EQ(ListError("/mydrive", f), kErrLabelNotFound);
  f.label_id.clear();
  f.starred = true;
  uint64_t total = 9;
  EXPECT_TRUE(List("/mydrive", f, &total).empty());
  EXPECT_EQ(total, 0u);
}

TEST_F(SyncdFilesTest, CallersMustBeKnownUsers) {
  Nimbard::SearchNodeFilter f;
  std::string msg;
  EXPECT_EQ(ListError("/mydrive", f, "mallory", &msg), kErrPermission);
  EXPECT_EQ(msg, "unknown user: mallory");
  EXPECT_EQ(ListError("/mydrive", f, "", &msg), kErrSharingToken);
  EXPECT_EQ(ListError("/mydrive", f, "anonymous"), kErrSharingToken);
  // sudo needs a root peer; the test runs as root when it can.
  auto c = Client("alice");
  c->SetSudoUser("bob");
  std::vector<Nimbard::FileInfo> items;
  uint64_t total = 0;
  int rc = c->ListFile("/mydrive", false, f, items, total, {});
  if (geteuid() == 0) EXPECT_EQ(rc, 0);
  else EXPECT_EQ(c->GetLastError(), kErrPermission);
}

TEST_F(SyncdFilesTest, GetFileInfoAnswersTheFullRecord) {
  MkDir("/mydrive/d");
  Nimbard::FileInfo put = Put("/mydrive/d/notes.txt", "hello");
  Nimbard::FileInfo info;
  auto c = Client();
  ASSERT_EQ(c->GetFileInfo("/mydrive/d/notes.txt", info, {}), 0) << c->GetLastErrorMessage();
  EXPECT_EQ(info.file_id, put.file_id);
  EXPECT_EQ(info.name, "notes.txt");
  EXPECT_EQ(info.path, "/mydrive/d/notes.txt");
  EXPECT_EQ(info.display_path, "/mydrive/d/notes.txt");
  EXPECT_EQ(info.tpx_path, Home("alice") + "/d/notes.txt");
  EXPECT_EQ(info.type, 0);
  EXPECT_EQ(info.size, 5u);
  EXPECT_EQ(info.hash, Sha256("hello"));
  EXPECT_EQ(info.content_type, "text/plain");
  EXPECT_EQ(info.owner_name, "alice");
  EXPECT_EQ(info.owner_uid, alice_.uid);
  EXPECT_GT(info.sync_id, 0u);
  EXPECT_EQ(info.properties, "{}");
  EXPECT_TRUE(info.capabilities.can_read && info.capabilities.can_write &&
              info.capabilities.can_share && info.capabilities.can_organize);
  EXPECT_TRUE(info.permissions.empty());
  EXPECT_TRUE(info.labels.empty());

  Nimbard::FileInfo by_id;
  ASSERT_EQ(c->GetFileInfo("id:" + put.file_id, by_id, {}), 0);
  EXPECT_EQ(by_id.path, "/mydrive/d/notes.txt");
  Nimbard::FileInfo root;
  ASSERT_EQ(c->GetFileInfo("/", root, {}), 0);
  EXPECT_EQ(root.path, "/mydrive");
  EXPECT_EQ(root.type, 1);
  // The parent folder's max id follows the change below it.
  Nimbard::FileInfo d;
  ASSERT_EQ(c->GetFileInfo("/mydrive/d", d, {}), 0);
  EXPECT_EQ(d.max_id, info.sync_id);
}

TEST_F(SyncdFilesTest, AnotherUsersIdIsRefused) {
  Nimbard::FileInfo put = Put("/mydrive/secret.txt", "s");
  auto c = Client("bob");
  Nimbard::FileInfo info;
  EXPECT_NE(c->GetFileInfo("id:" + put.file_id, info, {}), 0);
  EXPECT_EQ(c->GetLastError(), kErrPermission);
  EXPECT_NE(c->GetFileInfo("id:0000", info, {}), 0);
  EXPECT_EQ(c->GetLastError(), kErrNotFound);
}

}  // namespace
}  // namespace orvel::test
