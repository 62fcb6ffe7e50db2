// HTTPFileHandOver (X-Sendfile downloads) and the hand-over folder's sweep:
// what may be handed over, the check right before the hand-over, and which
// links a sweep removes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "orvelcommon/handover.h"
#include "zemo/nas.h"

namespace {

class HandOverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/handover-unit-XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    tmp_ = root_ + "/@tmp";
    ASSERT_EQ(::mkdir(tmp_.c_str(), 01777), 0);
    ASSERT_EQ(::mkdir((tmp_ + "/download-1").c_str(), 0700), 0);
    Write(tmp_ + "/download-1/a.txt", "content");
    Write(root_ + "/outside.txt", "outside");
  }
  void TearDown() override { ASSERT_EQ(std::system(("rm -rf '" + root_ + "'").c_str()), 0); }
  static void Write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static ino_t Inode(const std::string& path) {
    struct stat st = {};
    ::lstat(path.c_str(), &st);
    return st.st_ino;
  }
  // What Output writes, through a memory stream.
  static int OutputTo(HTTPFileHandOver* h, std::string* out) {
    char* buf = nullptr;
    size_t len = 0;
    FILE* f = ::open_memstream(&buf, &len);
    int rc = h->Output("text/plain", f);
    std::fclose(f);
    out->assign(buf, len);
    std::free(buf);
    return rc;
  }
  int Links() {
    int n = 0;
    if (FILE* p = ::popen(("ls -A '" + orvel::HandOverFolder(tmp_) + "' 2>/dev/null").c_str(), "r")) {
      for (int c; (c = std::fgetc(p)) != EOF;) n += c == '\n';
      ::pclose(p);
    }
    return n;
  }
  std::string root_, tmp_;
};

TEST_F(HandOverTest, HandsOverALinkToTheStagedInode) {
  HTTPFileHandOver h(tmp_);
  ASSERT_EQ(h.Stage(tmp_ + "/download-1/a.txt"), 0) << std::strerror(errno);
  std::string out;
  ASSERT_EQ(OutputTo(&h, &out), 0);
  EXPECT_EQ(out, "Content-Type: text/plain\r\nX-Sendfile: " + h.link_path() + "\r\nStatus: 200 OK\r\n\r\n");
  EXPECT_EQ(h.link_path().rfind(tmp_ + "/handover/", 0), 0u);
  EXPECT_EQ(Inode(h.link_path()), Inode(tmp_ + "/download-1/a.txt"));
  struct stat st = {};
  ASSERT_EQ(::stat(orvel::HandOverFolder(tmp_).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0711u);
  // The download's own link may go: the hand-over link keeps the file.
  ASSERT_EQ(::unlink((tmp_ + "/download-1/a.txt").c_str()), 0);
  std::ifstream in(h.link_path());
  std::string text;
  in >> text;
  EXPECT_EQ(text, "content");
}

TEST_F(HandOverTest, RefusesWhatLiesOutsideOrIsNotAPlainFile) {
  ASSERT_EQ(::symlink((root_ + "/outside.txt").c_str(), (tmp_ + "/download-1/link.txt").c_str()), 0);
  ASSERT_EQ(::symlink(root_.c_str(), (tmp_ + "/up").c_str()), 0);
  const struct {
    std::string path;
    int err;
  } cases[] = {
      {root_ + "/outside.txt", EPERM},                  // not below @tmp
      {tmp_ + "/../outside.txt", EPERM},                // climbs out
      {tmp_ + "/up/outside.txt", ELOOP},                // through a link
      {tmp_ + "/download-1/link.txt", ELOOP},           // a link itself
      {tmp_ + "/download-1", EINVAL},                   // a folder
      {tmp_ + "/download-1/missing.txt", ENOENT},
  };
  for (const auto& c : cases) {
    HTTPFileHandOver h(tmp_);
    errno = 0;
    EXPECT_EQ(h.Stage(c.path), -1) << c.path;
    EXPECT_EQ(errno, c.err) << c.path;
    std::string out;
    EXPECT_EQ(OutputTo(&h, &out), -1) << c.path;
    EXPECT_EQ(out, "") << c.path;
  }
  EXPECT_EQ(Links(), 0);
}

TEST_F(HandOverTest, LinkSwappedBeforeTheHandOverIsRefusedAndRemoved) {
  for (bool symlink : {false, true}) {
    HTTPFileHandOver h(tmp_);
    ASSERT_EQ(h.Stage(tmp_ + "/download-1/a.txt"), 0);
    ASSERT_EQ(::unlink(h.link_path().c_str()), 0);
    if (symlink) {
      ASSERT_EQ(::symlink((root_ + "/outside.txt").c_str(), h.link_path().c_str()), 0);
    } else {
      ASSERT_EQ(::link((root_ + "/outside.txt").c_str(), h.link_path().c_str()), 0);
    }
    std::string out;
    errno = 0;
    EXPECT_EQ(OutputTo(&h, &out), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(out, "");
  }
  EXPECT_EQ(Links(), 0);  // each refused link went with its object
}

TEST_F(HandOverTest, FolderOthersCanWriteIsRefused) {
  ASSERT_EQ(::mkdir(orvel::HandOverFolder(tmp_).c_str(), 0777), 0);
  ASSERT_EQ(::chmod(orvel::HandOverFolder(tmp_).c_str(), 0777), 0);
  HTTPFileHandOver h(tmp_);
  errno = 0;
  EXPECT_EQ(h.Stage(tmp_ + "/download-1/a.txt"), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST_F(HandOverTest, SweepRemovesOldLinksAndStrangeNamesOnly) {
  ASSERT_EQ(::mkdir(orvel::HandOverFolder(tmp_).c_str(), 0711), 0);
  const std::string folder = orvel::HandOverFolder(tmp_) + "/";
  Write(folder + orvel::HandOverLinkName(1000), "old");
  Write(folder + orvel::HandOverLinkName(1200), "at the limit");
  Write(folder + orvel::HandOverLinkName(1300), "new");
  Write(folder + "stray", "not a link name");
  EXPECT_EQ(orvel::HandOverLinkName(1000).size(), 4u + 1 + 16);
  EXPECT_NE(orvel::HandOverLinkName(1000), orvel::HandOverLinkName(1000));
  EXPECT_EQ(orvel::SweepHandOver(tmp_, 1500, 300), 2);  // 1000 and "stray"
  EXPECT_EQ(Links(), 2);
  EXPECT_EQ(orvel::SweepHandOver(tmp_, 1501, 300), 1);
  EXPECT_EQ(orvel::SweepHandOver(tmp_ + "/none", 1501, 300), 0);
}

}  // namespace
