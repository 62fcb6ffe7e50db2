// orvel-syncd upload_file: files and folders, the five conflict policies,
// content checks and the errors of bad destinations.
#include "syncd_launcher.h"

namespace orvel::test {
namespace {

using SyncdUploadTest = SyncdTest;

TEST_F(SyncdUploadTest, StoresTheStagedFileByRenamingIt) {
  PObject req = FileRequest("/mydrive/a.txt", "alpha");
  std::string staged = req["file_data_path"].asString();
  Nimbard::FileInfo info;
  auto c = Client();
  ASSERT_EQ(c->UploadFile(req, info), 0) << c->GetLastErrorMessage();
  EXPECT_EQ(info.path, "/mydrive/a.txt");
  EXPECT_EQ(ReadAll(Home("alice") + "/a.txt"), "alpha");
  EXPECT_FALSE(Exists(staged));
}

TEST_F(SyncdUploadTest, StopRefusesAnExistingName) {
  Put("/mydrive/a.txt", "one");
  Nimbard::FileInfo info;
  auto c = Client();
  EXPECT_NE(c->UploadFile(FileRequest("/mydrive/a.txt", "two"), info), 0);
  EXPECT_EQ(c->GetLastError(), kErrNameExists);
  EXPECT_EQ(c->GetLastErrorMessage(), "name already exists: /mydrive/a.txt");
  EXPECT_EQ(ReadAll(Home("alice") + "/a.txt"), "one");
}

TEST_F(SyncdUploadTest, SkipAnswersTheExistingItem) {
  Nimbard::FileInfo first = Put("/mydrive/a.txt", "one");
  Nimbard::FileInfo again = Put("/mydrive/a.txt", "two", "skip");
  EXPECT_EQ(again.file_id, first.file_id);
  EXPECT_EQ(again.hash, Sha256("one"));
  EXPECT_EQ(ReadAll(Home("alice") + "/a.txt"), "one");
}

TEST_F(SyncdUploadTest, AutorenameNumbersTheNewName) {
  Put("/mydrive/a.txt", "one");
  EXPECT_EQ(Put("/mydrive/a.txt", "two", "autorename").name, "a (1).txt");
  EXPECT_EQ(Put("/mydrive/a.txt", "three", "autorename").name, "a (2).txt");
  EXPECT_EQ(ReadAll(Home("alice") + "/a (2).txt"), "three");
  MkDir("/mydrive/d.old");
  Nimbard::FileInfo info;
  ASSERT_EQ(Client()->UploadFile(FolderRequest("/mydrive/d.old", "autorename"), info), 0);
  EXPECT_EQ(info.name, "d.old (1)");
}

TEST_F(SyncdUploadTest, OverwriteReplacesContentKeepingTheItem) {
  Nimbard::FileInfo first = Put("/mydrive/a.txt", "one");
  Nimbard::FileInfo second = Put("/mydrive/a.txt", "second", "overwrite");
  EXPECT_EQ(second.file_id, first.file_id);
  EXPECT_EQ(second.size, 6u);
  EXPECT_EQ(second.hash, Sha256("second"));
  EXPECT_GT(second.sync_id, first.sync_id);
  EXPECT_EQ(second.revisions, 0u);
  EXPECT_EQ(ReadAll(Home("alice") + "/a.txt"), "second");
  EXPECT_FALSE(Exists(Data() + "/@versions/" + Sha256("one")));
}

TEST_F(SyncdUploadTest, OverwriteServerKeepsTheOldContentAsARevision) {
  Nimbard::FileInfo first = Put("/mydrive/a.txt", "one");
  Nimbard::FileInfo second = Put("/mydrive/a.txt", "two", "overwrite_server");
  EXPECT_EQ(second.file_id, first.file_id);
  EXPECT_EQ(second.revisions, 1u);
  EXPECT_EQ(ReadAll(Data() + "/@versions/" + Sha256("one")), "one");
  EXPECT_EQ(ReadAll(Home("alice") + "/a.txt"), "two");
  EXPECT_EQ(Put("/mydrive/a.txt", "three", "overwrite_server").revisions, 2u);
}

TEST_F(SyncdUploadTest, ContentMustMatchItsSizeAndHash) {
  PObject bad_hash = FileRequest("/mydrive/a.txt", "data");
  bad_hash["file"]["hash"] = Sha256("other");
  EXPECT_EQ(UploadError(bad_hash), kErrHashMismatch);
  PObject bad_size = FileRequest("/mydrive/a.txt", "data");
  bad_size["file"]["size"] = 99ull;
  EXPECT_EQ(UploadError(bad_size), kErrHashMismatch);
  EXPECT_FALSE(Exists(Home("alice") + "/a.txt"));
  Nimbard::FileInfo info;
  EXPECT_NE(Client()->GetFileInfo("/mydrive/a.txt", info, {}), 0);
}

TEST_F(SyncdUploadTest, DestinationErrors) {
  Put("/mydrive/file.txt", "x");
  EXPECT_EQ(UploadError(FileRequest("/mydrive/nowhere/a.txt", "x")), kErrParentNotFound);
  EXPECT_EQ(UploadError(FileRequest("/mydrive/file.txt/a.txt", "x")), kErrNotFolder);
  EXPECT_EQ(UploadError(FileRequest("/mydrive/../a.txt", "x")), kErrInvalidName);
  EXPECT_EQ(UploadError(FileRequest("/mydrive", "x")), kErrInvalidName);
  EXPECT_EQ(UploadError(FileRequest("/mydrive/" + std::string(256, 'n'), "x")), kErrInvalidName);
  PObject gone = FileRequest("/mydrive/b.txt", "x");
  gone["file_data_path"] = Tmp() + "/no-such-upload";
  EXPECT_EQ(UploadError(gone), kErrDataMissing);
  EXPECT_EQ(UploadError(FileRequest("/mydrive/c.txt", "x", "version")), kErrInvalidArgument);
}

TEST_F(SyncdUploadTest, FoldersAndTheirConflicts) {
  Nimbard::FileInfo d = MkDir("/mydrive/photos");
  EXPECT_EQ(d.type, 1);
  Nimbard::FileInfo nested = MkDir("/mydrive/photos/2024");
  EXPECT_EQ(nested.parent_id, d.file_id);
  EXPECT_EQ(UploadError(FolderRequest("/mydrive/photos")), kErrNameExists);
  Nimbard::FileInfo same;
  ASSERT_EQ(Client()->UploadFile(FolderRequest("/mydrive/photos", "overwrite"), same), 0);
  EXPECT_EQ(same.file_id, d.file_id);
  Put("/mydrive/f", "x");
  EXPECT_EQ(UploadError(FolderRequest("/mydrive/f", "overwrite")), kErrNotFolder);
  EXPECT_EQ(UploadError(FileRequest("/mydrive/photos", "x", "overwrite")), kErrIsFolder);
  struct stat st;
  ASSERT_EQ(stat((Home("alice") + "/photos/2024").c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST_F(SyncdUploadTest, KeepsTheGivenTimesAndProperties) {
  PObject r = FileRequest("/mydrive/t.txt", "t");
  r["mtime"]["refer"] = false;
  r["mtime"]["mtime"] = 1600000000ull;
  r["created_time"] = 1500000000ull;
  r["properties"]["colour"] = "blue";
  Nimbard::FileInfo info;
  ASSERT_EQ(Client()->UploadFile(r, info), 0);
  EXPECT_EQ(info.modified_time, 1600000000u);
  EXPECT_EQ(info.created_time, 1500000000u);
  EXPECT_EQ(info.properties, "{\"colour\":\"blue\"}");
  struct stat st;
  ASSERT_EQ(stat((Home("alice") + "/t.txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mtime, 1600000000);
}

TEST_F(SyncdUploadTest, FreezeAndServiceStateRefuseWork) {
  Put("/mydrive/a.txt", "x");
  auto admin = Client("");
  PObject freeze = PObject::MakeMap();
  freeze["view_id"] = 0u;
  freeze["frozen"] = true;
  ASSERT_EQ(admin->Call("admin_set_freeze", freeze, nullptr), 0) << admin->GetLastErrorMessage();
  EXPECT_EQ(UploadError(FileRequest("/mydrive/b.txt", "x")), kErrBusy);
  Nimbard::FileInfo info;
  EXPECT_EQ(Client()->GetFileInfo("/mydrive/a.txt", info, {}), 0);  // reads go on
  bool frozen = false;
  ASSERT_EQ(admin->GetFreeze(0, frozen), 0);
  EXPECT_TRUE(frozen);

  PObject state = PObject::MakeMap();
  state["status"] = "moving_db";
  ASSERT_EQ(admin->Call("admin_set_status", state, nullptr), 0);
  auto c = Client();
  EXPECT_NE(c->GetFileInfo("/mydrive/a.txt", info, {}), 0);
  EXPECT_EQ(c->GetLastError(), kErrBusy);
  EXPECT_EQ(c->GetLastErrorMessage(), "service is moving_db");
  state["status"] = "asleep";
  EXPECT_NE(admin->Call("admin_set_status", state, nullptr), 0);
  EXPECT_EQ(admin->GetLastError(), kErrInvalidArgument);
}

// The staged file is renamed into a space, so the daemon takes it only from
// directly inside @tmp and never through a link, even from a root peer; a
// refused file is left where it was.
TEST_F(SyncdUploadTest, StagedFileMustLieDirectlyInTmp) {
  const std::string victim = root_ + "/victim.txt";
  std::ofstream(victim) << "root's";
  Put("/mydrive/mine.txt", "alice's");
  PObject outside = FileRequest("/mydrive/a.txt", "root's");
  outside["file_data_path"] = victim;
  PObject via_link = FileRequest("/mydrive/b.txt", "root's");
  ASSERT_EQ(symlink(victim.c_str(), (Tmp() + "/link").c_str()), 0);
  via_link["file_data_path"] = Tmp() + "/link";
  PObject other_home = FileRequest("/mydrive/c.txt", "alice's");
  other_home["file_data_path"] = Home("alice") + "/mine.txt";
  for (PObject* req : {&outside, &via_link, &other_home}) {
    Nimbard::FileInfo info;
    auto c = Client("bob");
    EXPECT_NE(c->UploadFile(*req, info), 0);
    EXPECT_EQ(c->GetLastError(), kErrInvalidArgument);
    EXPECT_EQ(c->GetLastErrorMessage().find("file_data_path refused ("), 0u) << c->GetLastErrorMessage();
  }
  EXPECT_EQ(ReadAll(victim), "root's");
  EXPECT_EQ(ReadAll(Home("alice") + "/mine.txt"), "alice's");
  EXPECT_FALSE(Exists(Home("bob") + "/a.txt"));
  // update_file takes new content by the same rule.
  PObject update = PObject::MakeMap();
  update["path"] = "/mydrive/mine.txt";
  update["file_data_path"] = victim;
  Nimbard::FileInfo info;
  auto c = Client();
  EXPECT_NE(c->UpdateFileInfo(update, info), 0);
  EXPECT_EQ(c->GetLastError(), kErrInvalidArgument);
  EXPECT_EQ(ReadAll(Home("alice") + "/mine.txt"), "alice's");
}

// Visitors guessing sharing tokens are throttled per client address. The
// daemon's throttle clock is fixed in orvel.conf for this test.
TEST_F(SyncdUploadTest, GuessedSharingTokensAreThrottledPerAddress) {
  Stop();
  std::ofstream(root_ + "/var/packages/ZemoraOrvel/target/etc/orvel.conf")
      << "{\"web_account\": \"\", \"throttle_clock\": 1700000000}\n";
  Start();
  Put("/mydrive/shared.txt", "s");
  PObject link = PObject::MakeMap();
  link["path"] = "/mydrive/shared.txt";
  PObject made;
  auto admin = Client("");
  admin->SetSudoUser("alice");
  ASSERT_EQ(admin->Call("link_create", link, &made), 0) << admin->GetLastErrorMessage();
  auto visit = [&](const std::string& token, const std::string& address) {
    Nimbard visitor;
    visitor.SetServer("unix:/tmp/cloud-syncservice", 0);
    visitor.SetForwardInfo(address, 443, "https");
    visitor.SetUser("", "", "");
    visitor.SetSharingToken(token);
    visitor.SetServerVersion(11061);
    Nimbard::FileInfo info;
    return visitor.GetFileInfo("/", info, {}) == 0 ? 0 : visitor.GetLastError();
  };
  const std::string good = made["token"].asString();
  EXPECT_EQ(visit(good, "198.51.100.9"), 0);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(visit("guess-" + std::to_string(i), "198.51.100.9"), kErrSharingToken);
  EXPECT_EQ(visit("guess-5", "198.51.100.9"), kErrTooManyAttempts);
  EXPECT_EQ(visit(good, "198.51.100.9"), kErrTooManyAttempts);  // refused before the look-up
  EXPECT_EQ(visit(good, "203.0.113.5"), 0);
  Stop();
  std::ifstream log(root_ + "/syncd.log");
  std::stringstream text;
  text << log.rdbuf();
  EXPECT_NE(text.str().find("sharing token look-up from 198.51.100.9 refused: throttled for 1 s"),
            std::string::npos);
  Start();
}

}  // namespace
}  // namespace orvel::test
