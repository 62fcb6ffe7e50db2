// The platform archiver (<build>/platform/archiver/zip) run as the module
// runs it: from inside the folder, writing the zip to stdout. Checked with
// unzip and Python's zipfile (names, UTF-8 flag, links, empty archives, a
// tree crafted to escape the extraction folder).
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "nimbard/file.h"
#include "transfer_test_util.h"

namespace orvel::test {
namespace {

class ArchiverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/archiver-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    ASSERT_EQ(system(("mkdir -p '" + dir_ + "/f/sub' '" + dir_ + "/f/empty' '" + dir_ + "/none'").c_str()), 0);
    std::ofstream(dir_ + "/f/a.txt") << "alpha";
    std::ofstream(dir_ + "/f/sub/caf\xc3\xa9.txt") << "cafe";
    ASSERT_EQ(symlink("a.txt", (dir_ + "/f/link").c_str()), 0);
  }
  void TearDown() override { File::Remove(dir_); }
  // Runs zip in folder with the arguments after "/usr/bin/zip"; the archive
  // goes to <dir>/out.zip. Returns the exit status.
  int Zip(const std::string& folder, const std::string& args) {
    std::string out;
    return RunCaptured({"/bin/sh", "-c", "cd '" + folder + "' && " + ORVEL_ARCHIVER_PATH + " " + args +
                                             " > '" + dir_ + "/out.zip'"},
                       &out);
  }
  std::string Python(const std::string& code) {
    std::string out;
    RunCaptured({"/usr/bin/python3", "-c", "import zipfile, stat\nz = zipfile.ZipFile('" + dir_ +
                                               "/out.zip')\n" + code},
                &out);
    return out;
  }
  std::string dir_;
};

TEST_F(ArchiverTest, WritesAStoreOnlyZipOfTheFolder) {
  ASSERT_EQ(Zip(dir_ + "/f", "-q -0 -r -yf -UN=UTF8 - ./."), 0);
  std::string out;
  EXPECT_EQ(RunCaptured({"/usr/bin/unzip", "-tq", dir_ + "/out.zip"}, &out), 0) << out;
  EXPECT_EQ(Python("for i in z.infolist(): print(i.filename, i.compress_type, bool(i.flag_bits & 0x800))"),
            "a.txt 0 False\nempty/ 0 False\nlink 0 False\nsub/ 0 False\nsub/caf\xc3\xa9.txt 0 True\n");
  EXPECT_EQ(Python("i = z.getinfo('link'); print(stat.S_ISLNK(i.external_attr >> 16), z.read(i).decode())"),
            "True a.txt\n");
  EXPECT_EQ(Python("print(z.read('sub/caf\xc3\xa9.txt').decode())"), "cafe\n");
}

// Through a pipe, as the module reads it, file content is spliced from the
// files: entries that span several blocks, end mid-block or are empty must
// come out whole, with the CRC of what was sent.
TEST_F(ArchiverTest, FileContentThroughAPipeIsWhole) {
  const std::string g = dir_ + "/g";
  ASSERT_EQ(system(("mkdir -p '" + g + "' && head -c 3145731 /dev/urandom > '" + g + "/big' && head -c 1048576 "
                    "/dev/urandom > '" + g + "/block' && printf x > '" + g + "/one' && : > '" + g + "/zero'").c_str()),
            0);
  std::string out;
  ASSERT_EQ(RunCaptured({"/bin/sh", "-c", "cd '" + g + "' && " + ORVEL_ARCHIVER_PATH +
                                              " -q -0 -r -yf -UN=UTF8 - ./. | cat > '" + dir_ + "/out.zip'"},
                        &out),
            0);
  EXPECT_EQ(RunCaptured({"/usr/bin/unzip", "-tq", dir_ + "/out.zip"}, &out), 0) << out;
  EXPECT_EQ(Python("for i in z.infolist(): print(i.filename, i.file_size, z.read(i) == open('" + g +
                   "/' + i.filename, 'rb').read())"),
            "big 3145731 True\nblock 1048576 True\none 1 True\nzero 0 True\n");
}

TEST_F(ArchiverTest, ConvertsNamesToTheCodePage) {
  ASSERT_EQ(Zip(dir_ + "/f", "-q -0 -r -yf -cp CP1252 - ./."), 0);
  EXPECT_EQ(Python("i = z.infolist()[-1]; print(i.orig_filename.encode('cp437') == 'sub/caf\\xe9.txt'.encode('cp1252'), "
                   "bool(i.flag_bits & 0x800))"),
            "True False\n");
}

TEST_F(ArchiverTest, AnEmptyFolderGivesAnEmptyArchive) {
  ASSERT_EQ(Zip(dir_ + "/none", "-q -0 -r -i . -yf -UN=UTF8 - ./."), 0);
  EXPECT_EQ(Python("print(len(z.infolist()))"), "0\n");
}

// A tree made to escape: names that Windows reads as paths or drives, a
// name that CP932 turns into backslashes, bytes that are not UTF-8, and links
// that leave the tree. Every entry must stay below the extraction folder,
// read as Windows and as POSIX paths, and unzip must place nothing outside.
TEST_F(ArchiverTest, EveryEntryStaysUnderTheExtractionFolder) {
  const std::string t = dir_ + "/t";
  ASSERT_EQ(system(("mkdir -p '" + t + "/sub' '" + t + "/d/e' '" + t + "/... '").c_str()), 0);
  for (const char* name : {"..\\..\\evil.txt", "C:\\win.ini", "a:b", "\xc2\xa5..\xc2\xa5..\xc2\xa5yen.txt",
                           "bad\xff.txt", "sub/..\\up.txt", "sub/x.txt"})
    std::ofstream(t + "/" + name) << "x";
  const std::pair<const char*, const char*> links[] = {
      {"/etc/passwd", "abs"},   {"../outside", "up"},     {"sub/x.txt", "ok"},
      {"../ok", "sub/back"},    {"../..", "d/e/top"},     {"d/e/top/..", "via"},
      {"..\\..\\evil.txt", "win"}};
  for (const auto& [target, name] : links) ASSERT_EQ(symlink(target, (t + "/" + name).c_str()), 0) << name;

  // name kind [link target or content of a link stored as a file] safe
  const std::string check =
      "import posixpath, sys\n"
      "from pathlib import PurePosixPath, PureWindowsPath\n"
      "enc = sys.argv[1]\n"
      "for i in z.infolist():\n"
      "  n = i.filename if i.flag_bits & 0x800 else i.orig_filename.encode('cp437').decode(enc)\n"
      "  link = stat.S_ISLNK(i.external_attr >> 16)\n"
      "  kind = 'link' if link else 'dir' if n.endswith('/') else 'file'\n"
      "  text = z.read(i).decode(enc) if kind != 'dir' else ''\n"
      "  safe = all(not p.anchor and '..' not in p.parts for p in (PureWindowsPath(n), PurePosixPath(n)))\n"
      "  if link:\n"
      "    full = posixpath.normpath(posixpath.join(posixpath.dirname(n), text))\n"
      "    safe = safe and not PureWindowsPath(text).anchor and full != '..' and not full.startswith('../')\n"
      "  print(n, kind, text if link or text != 'x' else '', safe)\n";
  const std::string r = "\xef\xbf\xbd";
  ASSERT_EQ(Zip(t, "-q -0 -r -yf -UN=UTF8 - ./."), 0);
  EXPECT_EQ(Python("import sys; sys.argv = ['', 'utf-8']\n" + check),
            "_... / dir  True\n"
            ".._.._evil.txt file  True\n"
            "C__win.ini file  True\n"
            "a_b file  True\n"
            "abs file /etc/passwd True\n"
            "bad" + r + ".txt file  True\n"
            "d/ dir  True\n"
            "d/e/ dir  True\n"
            "d/e/top link ../.. True\n"
            "ok link sub/x.txt True\n"
            "sub/ dir  True\n"
            "sub/.._up.txt file  True\n"
            "sub/back link ../ok True\n"
            "sub/x.txt file  True\n"
            "up file ../outside True\n"
            "via file d/e/top/.. True\n"
            "win link .._.._evil.txt True\n"
            "\xc2\xa5..\xc2\xa5..\xc2\xa5yen.txt file  True\n");
  ASSERT_EQ(Zip(t, "-q -0 -r -yf -cp jpn - ./."), 0);
  const std::string jpn = Python("import sys; sys.argv = ['', 'cp932']\n" + check);
  EXPECT_NE(jpn.find("\n_.._.._yen.txt file  True\n"), std::string::npos) << jpn;
  EXPECT_NE(jpn.find("\nbad_.txt file  True\n"), std::string::npos) << jpn;
  EXPECT_EQ(jpn.find("False"), std::string::npos) << jpn;

  // unzip recreates the kept links; nothing lands outside "top".
  for (const char* args : {"-q -0 -r -yf -UN=UTF8 - ./.", "-q -0 -r -yf -cp jpn - ./."}) {
    ASSERT_EQ(Zip(t, args), 0);
    std::string out;
    ASSERT_EQ(system(("rm -rf '" + dir_ + "/x' && mkdir -p '" + dir_ + "/x/top'").c_str()), 0);
    ASSERT_EQ(RunCaptured({"/usr/bin/unzip", "-q", dir_ + "/out.zip", "-d", dir_ + "/x/top"}, &out), 0) << out;
    RunCaptured({"/usr/bin/python3", "-c",
                 "import os, sys\n"
                 "top = os.path.realpath(sys.argv[1] + '/top')\n"
                 "print(sorted(os.listdir(sys.argv[1])))\n"
                 "for d, dirs, files in os.walk(top):\n"
                 "  for f in dirs + files:\n"
                 "    p = os.path.join(d, f)\n"
                 "    real = os.path.realpath(p)\n"
                 "    if real != top and not real.startswith(top + '/'): print('outside:', p)\n",
                 dir_ + "/x"},
                &out);
    EXPECT_EQ(out, "['top']\n") << args;
  }
}

TEST_F(ArchiverTest, RefusesOtherArgumentsWithStatus16) {
  EXPECT_EQ(Zip(dir_ + "/f", "-r out.zip ."), 16);
}

}  // namespace
}  // namespace orvel::test
