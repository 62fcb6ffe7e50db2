// Name rules, Unicode spellings of names, autorename naming, extensions,
// item references and the unlink-path check of orvel-syncd.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "jobs.h"
#include "name_forms.h"
#include "paths.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

TEST(ValidateName, RefusesReservedAndMalformedNames) {
  for (const std::string& bad : std::vector<std::string>{"", ".", "..", "a/b", "/", std::string("a\0b", 3), std::string(256, 'x')}) {
    Status st = ValidateName(bad);
    EXPECT_EQ(st.code(), kErrInvalidName) << "name of " << bad.size() << " bytes";
  }
  EXPECT_EQ(ValidateName("..").message(), "invalid name: \"..\"");
  EXPECT_EQ(ValidateName(std::string(256, 'x')).message(), "name longer than 255 bytes");
}

TEST(NameForms, NewNamesAreNfcAndLookUpsTryEverySpelling) {
  const std::string nfc = "R\xc3\xa9sum\xc3\xa9", nfd = "Re\xcc\x81sume\xcc\x81";
  const std::string mixed = "Re\xcc\x81sum\xc3\xa9";
  EXPECT_EQ(NormalizeName(nfd), nfc);
  EXPECT_EQ(NormalizeName(mixed), nfc);
  EXPECT_EQ(NormalizeName(nfc), nfc);
  EXPECT_EQ(NormalizeName("\xef\xac\x81le"), "\xef\xac\x81le");  // a ligature: NFC, not NFKC
  EXPECT_EQ(NormalizeName("plain.txt"), "plain.txt");
  EXPECT_EQ(NormalizeName("bad\xff"), "bad\xff");  // not UTF-8: kept as it is
  EXPECT_EQ(NameForms(nfc), (std::vector<std::string>{nfc, nfd}));
  EXPECT_EQ(NameForms(nfd), (std::vector<std::string>{nfd, nfc}));
  EXPECT_EQ(NameForms(mixed), (std::vector<std::string>{mixed, nfc, nfd}));
  EXPECT_EQ(NameForms("a.txt"), (std::vector<std::string>{"a.txt"}));
  EXPECT_EQ(NameForms("bad\xff"), (std::vector<std::string>{"bad\xff"}));
  EXPECT_EQ(NameForms("\xe6\x97\xa5"), (std::vector<std::string>{"\xe6\x97\xa5"}));
}

TEST(ValidateName, AcceptsOrdinaryNames) {
  for (const std::string& good : std::vector<std::string>{"a", "...", "..a", ".bashrc", "a b", "résumé.pdf", "a\\b",
                                 std::string(255, 'x')})
    EXPECT_TRUE(ValidateName(good).ok()) << good;
}

TEST(AutoRenameName, NumbersBeforeTheExtension) {
  EXPECT_EQ(AutoRenameName("a.txt", false, 1), "a (1).txt");
  EXPECT_EQ(AutoRenameName("a.tar.gz", false, 2), "a.tar (2).gz");
  EXPECT_EQ(AutoRenameName("README", false, 3), "README (3)");
  EXPECT_EQ(AutoRenameName(".bashrc", false, 1), ".bashrc (1)");
  EXPECT_EQ(AutoRenameName("trailing.", false, 1), "trailing. (1)");
}

TEST(AutoRenameName, FoldersKeepTheirDots) {
  EXPECT_EQ(AutoRenameName("photos.2024", true, 1), "photos.2024 (1)");
}

TEST(AutoRenameName, StaysWithin255BytesOnACharacterBoundary) {
  std::string stem;
  while (stem.size() < 250) stem += "é";  // two bytes each
  std::string out = AutoRenameName(stem + ".txt", false, 12);
  EXPECT_LE(out.size(), 255u);
  EXPECT_TRUE(ValidateName(out).ok());
  EXPECT_EQ(out.substr(out.size() - 9), " (12).txt");
  // The cut never splits a two-byte character.
  std::string kept = out.substr(0, out.size() - 9);
  EXPECT_EQ(kept.size() % 2, 0u);
}

TEST(ExtensionOf, LowerCaseWithoutDot) {
  EXPECT_EQ(ExtensionOf("Photo.JPG"), "jpg");
  EXPECT_EQ(ExtensionOf("a.tar.gz"), "gz");
  EXPECT_EQ(ExtensionOf(".bashrc"), "");
  EXPECT_EQ(ExtensionOf("noext"), "");
}

TEST(ParseItemRef, MyDriveForms) {
  ItemRef r;
  for (const char* root : {"", "/", "/mydrive", "/mydrive/", "//mydrive//"}) {
    ASSERT_TRUE(ParseItemRef(root, &r).ok()) << root;
    EXPECT_EQ(r.kind, ItemRef::Kind::kMyDrive);
    EXPECT_TRUE(r.components.empty()) << root;
  }
  ASSERT_TRUE(ParseItemRef("/mydrive/a//b/", &r).ok());
  EXPECT_EQ(r.components, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(MyDrivePath(r.components), "/mydrive/a/b");
}

TEST(ParseItemRef, IdAndLink) {
  ItemRef r;
  ASSERT_TRUE(ParseItemRef("id:abc123", &r).ok());
  EXPECT_EQ(r.kind, ItemRef::Kind::kId);
  EXPECT_EQ(r.key, "abc123");
  ASSERT_TRUE(ParseItemRef("link:xyz", &r).ok());
  EXPECT_EQ(r.kind, ItemRef::Kind::kLink);
  EXPECT_EQ(ParseItemRef("id:", &r).code(), kErrInvalidName);
}

TEST(ParseItemRef, DotComponentsAreInvalidNames) {
  ItemRef r;
  for (const char* p : {"/mydrive/..", "/mydrive/a/../b", "/mydrive/./a"}) {
    Status st = ParseItemRef(p, &r);
    EXPECT_EQ(st.code(), kErrInvalidName) << p;
    EXPECT_EQ(st.message(), std::string("invalid path: ") + p);
  }
}

TEST(ParseItemRef, OtherSpacesAreOutside) {
  ItemRef r;
  for (const char* p : {"/other", "mydrive/a", "/mydriveX/a", "/.."}) {
    Status st = ParseItemRef(p, &r);
    EXPECT_EQ(st.code(), kErrOutsideSpace) << p;
  }
}

class UnlinkPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/syncd-unlink-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    tmp_ = root_ + "/@tmp";
    ASSERT_EQ(mkdir(tmp_.c_str(), 0777), 0);
    ASSERT_EQ(mkdir((root_ + "/outside").c_str(), 0777), 0);
  }
  void TearDown() override { RemoveTree(root_); }
  std::string root_, tmp_;
};

TEST_F(UnlinkPathTest, OnlyStrictlyInsideTheTempFolder) {
  EXPECT_TRUE(CheckUnlinkPath(tmp_ + "/upload-1", tmp_).ok());
  EXPECT_TRUE(CheckUnlinkPath(tmp_ + "//upload-1/", tmp_).ok());
  EXPECT_TRUE(CheckUnlinkPath(tmp_ + "/gone/x", tmp_).ok());  // nothing there to remove
  for (const std::string& p : {tmp_, tmp_ + "/", root_ + "/outside/x", tmp_ + "/../outside/x",
                               std::string("relative/x"), std::string("")}) {
    Status st = CheckUnlinkPath(p, tmp_);
    EXPECT_EQ(st.code(), kErrPermission) << p;
    EXPECT_EQ(st.message(), "unlink refused outside the temp folder: " + p);
  }
}

TEST_F(UnlinkPathTest, RefusesALinkedFolderLeadingOut) {
  ASSERT_EQ(symlink((root_ + "/outside").c_str(), (tmp_ + "/evil").c_str()), 0);
  EXPECT_EQ(CheckUnlinkPath(tmp_ + "/evil/x", tmp_).code(), kErrPermission);
  // The link itself may go: removing it does not touch its target.
  EXPECT_TRUE(CheckUnlinkPath(tmp_ + "/evil", tmp_).ok());
}

TEST_F(UnlinkPathTest, RemoveTreeDoesNotFollowLinks) {
  std::ofstream(root_ + "/outside/keep") << "x";
  ASSERT_EQ(mkdir((tmp_ + "/t").c_str(), 0777), 0);
  ASSERT_EQ(symlink((root_ + "/outside").c_str(), (tmp_ + "/t/link").c_str()), 0);
  std::ofstream(tmp_ + "/t/file") << "y";
  ASSERT_TRUE(RemoveTree(tmp_ + "/t").ok());
  struct stat st;
  EXPECT_NE(lstat((tmp_ + "/t").c_str(), &st), 0);
  EXPECT_EQ(stat((root_ + "/outside/keep").c_str(), &st), 0);
  EXPECT_TRUE(RemoveTree(tmp_ + "/missing").ok());
}

}  // namespace
}  // namespace orvel::syncd
