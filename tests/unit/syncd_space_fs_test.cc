// The directory-fd steps of space_fs: nothing is reached through a link or
// "..", the last name is never followed, a link is copied as its text, and
// what is linked elsewhere is the inode that was opened, not what the name
// points to afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "space_fs.h"

namespace orvel::syncd {
namespace {

class SpaceFsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/space-fs-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    for (const char* d : {"/space", "/space/in", "/outside"}) ASSERT_EQ(mkdir((root_ + d).c_str(), 0700), 0);
    std::ofstream(root_ + "/outside/secret") << "secret";
    std::ofstream(root_ + "/space/in/mine") << "mine";
    ASSERT_EQ(symlink((root_ + "/outside").c_str(), (root_ + "/space/out").c_str()), 0);
    ASSERT_EQ(symlink("../outside/secret", (root_ + "/space/rel").c_str()), 0);
    space_.Reset(open((root_ + "/space").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(space_.valid());
  }
  void TearDown() override { RemoveTree(root_); }
  std::string root_;
  ScopedFd space_;
};

TEST_F(SpaceFsTest, NeitherALinkNorDotDotLeadsOut) {
  ScopedFd fd;
  for (const char* rel : {"out", "out/secret", "rel"}) {
    Status st = OpenBeneath(space_.get(), rel, O_RDONLY, 0, rel, &fd);
    EXPECT_EQ(st.code(), kErrPermission) << rel;
    EXPECT_EQ(st.message(), std::string("symbolic link not followed: ") + rel);
  }
  for (const char* rel : {"in/../../outside/secret", ".."}) {
    Status st = OpenBeneath(space_.get(), rel, O_RDONLY, 0, rel, &fd);
    EXPECT_EQ(st.code(), kErrPermission) << rel;
    EXPECT_EQ(st.message(), std::string("path leads out of its folder: ") + rel);
  }
  EXPECT_EQ(OpenBeneath(space_.get(), "missing/x", O_RDONLY, 0, "m", &fd).code(), kErrNotFound);
  ASSERT_TRUE(OpenBeneath(space_.get(), "in", O_RDONLY | O_DIRECTORY, 0, "in", &fd).ok());
  ScopedFd file;
  EXPECT_TRUE(OpenFileAt(fd.get(), "mine", "mine", &file).ok());
  EXPECT_EQ(OpenFileAt(space_.get(), "rel", "rel", &file).code(), kErrPermission);
  EXPECT_EQ(OpenFolderAt(space_.get(), "out", "out", &file).code(), kErrPermission);
  EXPECT_EQ(OpenFileAt(space_.get(), "..", "..", &file).code(), kErrInvalidName);
  // A pipe is refused at once instead of blocking the reader.
  ASSERT_EQ(mkfifo((root_ + "/space/pipe").c_str(), 0600), 0);
  Status st = OpenFileAt(space_.get(), "pipe", "pipe", &file);
  EXPECT_EQ(st.code(), kErrInvalidArgument);
  EXPECT_EQ(st.message(), "not a regular file: pipe");
}

TEST_F(SpaceFsTest, LinksAreMovedCopiedAndRemovedAsLinks) {
  ASSERT_TRUE(CopyLinkAt(space_.get(), "rel", space_.get(), "rel2", "rel").ok());
  char buf[64] = {0};
  ASSERT_GT(readlink((root_ + "/space/rel2").c_str(), buf, sizeof(buf) - 1), 0);
  EXPECT_STREQ(buf, "../outside/secret");
  EXPECT_EQ(CopyLinkAt(space_.get(), "in", space_.get(), "x", "in").code(), kErrInvalidArgument);
  ASSERT_TRUE(RenameAt(space_.get(), "out", space_.get(), "in2", RENAME_NOREPLACE, "out").ok());
  EXPECT_EQ(RenameAt(space_.get(), "rel", space_.get(), "in", RENAME_NOREPLACE, "rel").code(), kErrNameExists);
  ASSERT_TRUE(RemoveAt(space_.get(), "in2", "in2").ok());
  ASSERT_TRUE(SetTimesAt(space_.get(), "rel", 1000, 2000, "rel").ok());
  struct stat st;
  ASSERT_EQ(stat((root_ + "/outside/secret").c_str(), &st), 0);
  EXPECT_NE(st.st_mtime, 2000);
  std::ifstream in(root_ + "/outside/secret");
  std::string content;
  in >> content;
  EXPECT_EQ(content, "secret");
}

TEST_F(SpaceFsTest, TheInodeThatWasOpenedIsTheOneLinked) {
  ScopedFd in, file;
  ASSERT_TRUE(OpenFolderAt(space_.get(), "in", "in", &in).ok());
  ASSERT_TRUE(OpenFileAt(in.get(), "mine", "mine", &file).ok());
  // The name now points out of the space; the open inode is still ours.
  ASSERT_EQ(rename((root_ + "/space/in/mine").c_str(), (root_ + "/space/aside").c_str()), 0);
  ASSERT_EQ(symlink((root_ + "/outside/secret").c_str(), (root_ + "/space/in/mine").c_str()), 0);
  ASSERT_TRUE(LinkFdAt(file.get(), space_.get(), "handed", "handed").ok());
  std::ifstream handed(root_ + "/space/handed");
  std::string content;
  handed >> content;
  EXPECT_EQ(content, "mine");
  EXPECT_EQ(LinkFdAt(file.get(), space_.get(), "handed", "handed").code(), kErrNameExists);
}

TEST(TmpRelative, OnlyStrictlyInsideTheTempFolder) {
  Layout l = Layout::ForDataDir("/data");
  std::string rel;
  ASSERT_TRUE(TmpRelative(l, "/data/@tmp//download-1/", &rel).ok());
  EXPECT_EQ(rel, "download-1");
  for (const char* bad : {"/data/@tmp", "/data/@tmp/../homes", "/data/@tmp/./x", "data/@tmp/x", "/data/@tmpx/y"}) {
    Status st = TmpRelative(l, bad, &rel);
    EXPECT_EQ(st.code(), kErrPermission) << bad;
    EXPECT_EQ(st.message(), std::string("path outside the temp folder: ") + bad);
  }
}

}  // namespace
}  // namespace orvel::syncd
