// The platform archiver (<build>/platform/archiver/zip) run as the module
// runs it: from inside the folder, writing the zip to stdout. Checked with
// unzip and Python's zipfile (names, UTF-8 flag, links, empty archives).
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

TEST_F(ArchiverTest, RefusesOtherArgumentsWithStatus16) {
  EXPECT_EQ(Zip(dir_ + "/f", "-r out.zip ."), 16);
}

}  // namespace
}  // namespace orvel::test
