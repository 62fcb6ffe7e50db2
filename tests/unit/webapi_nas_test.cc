// The NAS-side helpers modules use: URL encoding, MIME look-up, shell-less
// pipes, the file outputer's exact bytes, personal settings and user look-ups.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "internal/request_user.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/user_db.h"
#include "zemo/nas.h"

namespace {

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void MakeDirs(const std::string& path) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos == path.size() || path[pos] == '/') ::mkdir(path.substr(0, pos).c_str(), 0755);
  }
}

// A private ZEMO_ROOT for the test, and stdout capture.
class NasHelpers : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/webapi-nas-XXXXXX";
    root_ = ::mkdtemp(tmpl);
    ::setenv("ZEMO_ROOT", root_.c_str(), 1);
  }
  void TearDown() override {
    ::unsetenv("ZEMO_ROOT");
    std::system(("rm -rf '" + root_ + "'").c_str());
  }

  void WriteFile(const std::string& rel, const std::string& text, mode_t mode = 0644) {
    std::string path = root_ + rel;
    MakeDirs(path.substr(0, path.rfind('/')));
    std::ofstream(path, std::ios::binary) << text;
    ::chmod(path.c_str(), mode);
  }

  // Runs fn with stdout going to a file; returns what was written.
  template <class Fn>
  std::string CaptureStdout(Fn fn) {
    std::string path = root_ + "/stdout";
    std::fflush(stdout);
    int saved = ::dup(1);
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(fd, 1);
    ::close(fd);
    fn();
    std::fflush(stdout);
    ::dup2(saved, 1);
    ::close(saved);
    return ReadAll(path);
  }

  std::string root_;
};

TEST_F(NasHelpers, UrlEncodeKeepsOnlyUnreserved) {
  EXPECT_EQ("a%20b%2Fc~d-e_f.g%3D%26%C3%BC", UrlEncode("a b/c~d-e_f.g=&\xC3\xBC"));
  EXPECT_EQ("a b/c=&\xC3\xBC", UrlDecode("a%20b%2fc=&%C3%BC"));
  EXPECT_EQ("100%+%4", UrlDecode("100%+%4"));
}

TEST_F(NasHelpers, MimeTypeRootCopyFirstCaseInsensitive) {
  WriteFile("/etc/mime.types", "# comment tst\napplication/x-zemo-test\ttst mp3\n");
  EXPECT_EQ("application/x-zemo-test", HTTPFileOutputer::GetMimeType("dir.x/REPORT.TsT"));
  EXPECT_EQ("application/x-zemo-test", HTTPFileOutputer::GetMimeType("song.mp3"));
  EXPECT_EQ("", HTTPFileOutputer::GetMimeType("no_extension"));
  EXPECT_EQ("", HTTPFileOutputer::GetMimeType("trailing."));
  EXPECT_EQ("", HTTPFileOutputer::GetMimeType("x.zemo-unknown-ext"));
  // The first line naming an extension wins; an edited table is read again.
  WriteFile("/etc/mime.types", "application/x-first tst\napplication/x-second tst\n");
  EXPECT_EQ("application/x-first", HTTPFileOutputer::GetMimeType("a.tst"));
  if (::access("/etc/mime.types", R_OK) != 0) GTEST_SKIP() << "no system mime.types";
  EXPECT_EQ("image/svg+xml", HTTPFileOutputer::GetMimeType("Logo.SVG"));
}

TEST_F(NasHelpers, PopenPassesArgvWithoutShell) {
  WriteFile("/usr/bin/argdump", "#!/bin/sh\nfor a in \"$@\"; do printf '<%s>\\n' \"$a\"; done\nexit 3\n",
            0755);
  FILE* p = TLIBCPopen({"/usr/bin/argdump", "a b", "$HOME", "; echo hacked", "*", ""}, "r");
  ASSERT_NE(nullptr, p) << std::strerror(errno);
  std::string out;
  char buf[256];
  while (size_t n = std::fread(buf, 1, sizeof(buf), p)) out.append(buf, n);
  EXPECT_EQ(3, TLIBCPclose(p));
  EXPECT_EQ("<a b>\n<$HOME>\n<; echo hacked>\n<*>\n<>\n", out);
}

TEST_F(NasHelpers, PopenFailures) {
  errno = 0;
  EXPECT_EQ(nullptr, TLIBCPopen({"/usr/bin/zemo-not-there"}, "r"));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(nullptr, TLIBCPopen({}, "r"));
  EXPECT_EQ(nullptr, TLIBCPopen({"/bin/true"}, "rw"));
  EXPECT_EQ(-1, TLIBCPclose(stdin));
}

TEST_F(NasHelpers, OutputFileWritesHeadersThenBytes) {
  std::string content;
  for (int i = 0; content.size() < 200000; ++i) content += std::to_string(i);
  WriteFile("/data.bin", content);
  HTTPFileOutputer outputer;
  int rc = 0;
  std::string got = CaptureStdout([&] {
    std::printf("X-Before: 1\r\n");
    rc = outputer.Output(root_ + "/data.bin", "audio/mpeg");
  });
  EXPECT_EQ(0, rc);
  std::string head = "X-Before: 1\r\nContent-Type: audio/mpeg\r\nContent-Length: " +
                     std::to_string(content.size()) + "\r\nStatus: 200 OK\r\n\r\n";
  EXPECT_EQ(head, got.substr(0, head.size()));
  EXPECT_TRUE(got.substr(head.size()) == content);
}

TEST_F(NasHelpers, OutputRefusesFoldersAndMissingFiles) {
  HTTPFileOutputer outputer;
  std::string got = CaptureStdout([&] {
    EXPECT_EQ(-1, outputer.Output(root_, "text/plain"));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_EQ(-1, outputer.Output(root_ + "/missing", "text/plain"));
    EXPECT_EQ(ENOENT, errno);
  });
  EXPECT_EQ("", got);
}

TEST_F(NasHelpers, OutputPipeStreamsWithoutLength) {
  WriteFile("/usr/bin/gen", "#!/bin/sh\nprintf 'zip-bytes'\n", 0755);
  FILE* p = TLIBCPopen({"/usr/bin/gen"}, "r");
  ASSERT_NE(nullptr, p);
  HTTPFileOutputer outputer;
  std::string got = CaptureStdout([&] { EXPECT_EQ(0, outputer.Output(p, "a.zip", "")); });
  EXPECT_EQ(0, TLIBCPclose(p));
  EXPECT_EQ("Content-Type: application/octet-stream\r\nStatus: 200 OK\r\n\r\nzip-bytes", got);
}

TEST_F(NasHelpers, PersonalSettingsRoundTrip) {
  WebMan webman(1);
  Json::Value settings;
  ASSERT_EQ(0, webman.loadUserJsonSettings("alice", settings));
  EXPECT_EQ(Json::Value(Json::objectValue), settings);
  settings["PLX.App.PersonalSettings.Instance"]["codepage"] = "enu";
  ASSERT_EQ(0, webman.saveUserJsonSettings("alice", settings));
  Json::Value loaded;
  ASSERT_EQ(0, webman.loadUserJsonSettings("alice", loaded));
  EXPECT_EQ(settings, loaded);
  EXPECT_EQ(-1, webman.loadUserJsonSettings("../alice", loaded));
  WriteFile("/var/packages/ZemoraOrvel/target/var/usersettings/bob.json", "[1]");
  EXPECT_EQ(-1, webman.loadUserJsonSettings("bob", loaded));
}

TEST_F(NasHelpers, UserLookupsAndAppPrivilege) {
  SyncConfigMgr conf;
  ASSERT_EQ(0, conf.Init());
  MakeDirs(conf.GetDbConnectParam());
  std::unique_ptr<orvel::UserDb> db;
  ASSERT_TRUE(orvel::UserDb::Open(conf.GetUserDbPath(), &db).ok());
  orvel::UserRecord alice, bob;
  ASSERT_TRUE(db->AddUser("alice", "pw", true, &alice).ok());
  ASSERT_TRUE(db->AddUser("bob", "pw", false, &bob).ok());
  ASSERT_TRUE(db->SetFlag("bob", "app_privilege", false).ok());

  SDK::UserService users;
  SDK::User user;
  ASSERT_EQ(0, users.GetUserByUid(alice.uid, &user));
  EXPECT_EQ("alice", user.getName());
  EXPECT_EQ(-1, users.GetUserByUid(99999, &user));
  SDK::UserAppPrivilege priv;
  EXPECT_EQ(0, priv.Check("alice", "127.0.0.1"));
  EXPECT_EQ(1, priv.Check("bob", "127.0.0.1"));
  EXPECT_EQ(2, priv.Check("nobody", "127.0.0.1"));

  ZEMOUSER* rec = nullptr;
  ASSERT_EQ(0, ZEMOUserGet("alice", &rec));
  EXPECT_STREQ("alice", rec->name);
  EXPECT_EQ(alice.uid, rec->uid);
  EXPECT_EQ(1, rec->admin);
  ZEMOUserFree(rec);
  EXPECT_EQ(-1, ZEMOUserGet("nobody", &rec));

  // While a request holds its caller, look-ups of that name answer from the
  // record the session check read; other names, and the next request, read
  // the database.
  ASSERT_TRUE(db->GetUser("bob", &bob).ok());
  {
    zemo::RequestUserScope request(bob);
    ASSERT_TRUE(db->SetFlag("bob", "app_privilege", true).ok());
    ASSERT_TRUE(db->SetFlag("alice", "app_privilege", false).ok());
    EXPECT_EQ(1, priv.Check("bob", "127.0.0.1"));
    EXPECT_EQ(1, priv.Check("alice", "127.0.0.1"));
    ASSERT_EQ(0, users.GetUserByName("bob", &user));
    EXPECT_EQ(bob.uid, user.getUid());
  }
  EXPECT_EQ(0, priv.Check("bob", "127.0.0.1"));
}

}  // namespace
