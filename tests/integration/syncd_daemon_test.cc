// orvel-syncd as a process: bad frames, restart and crash safety, start-up
// reconciliation and temp cleaning, the unlink queue, shutdown, the pid-file
// lock, and orvelctl against it.
#include <sys/socket.h>
#include <sys/un.h>
#include <utime.h>

#include <cstring>

#include "orvelcommon/wire.h"
#include "syncd_launcher.h"

namespace orvel::test {
namespace {

class SyncdDaemonTest : public SyncdTest {
 protected:
  int Connect() {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, Socket().c_str(), sizeof(addr.sun_path) - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    timeval tv{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    return fd;
  }
  void SendRaw(int fd, const std::string& bytes) {
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  static std::string Frame(const std::string& body) {
    uint32_t n = static_cast<uint32_t>(body.size());
    std::string hdr = {static_cast<char>(n >> 24), static_cast<char>(n >> 16),
                       static_cast<char>(n >> 8), static_cast<char>(n)};
    return hdr + body;
  }
  // The error code of the next answer, or 0 when the daemon closed instead.
  int AnswerCode(int fd) {
    PObject answer;
    bool eof = false;
    if (!wire::ReadFrame(fd, &answer, &eof).ok()) return 0;
    EXPECT_FALSE(answer["ok"].asBool());
    return static_cast<int>(answer["error"]["code"].asInt64());
  }
  void ExpectServing() {
    ASSERT_TRUE(Alive());
    std::string status;
    auto c = Client();
    EXPECT_EQ(c->GetServiceStatus(status), 0) << c->GetLastErrorMessage();
    EXPECT_EQ(status, "enabled");
  }
  int Orvelctl(const std::string& args, std::string* out) {
    std::string cmd = std::string(ORVEL_ORVELCTL_PATH) + " " + args + " 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    char buf[4096];
    out->clear();
    while (size_t n = fread(buf, 1, sizeof(buf), p)) out->append(buf, n);
    int ws = pclose(p);
    return WIFEXITED(ws) ? WEXITSTATUS(ws) : -1;
  }
};

TEST_F(SyncdDaemonTest, MalformedMsgpackGetsAnErrorThenTheConnectionCloses) {
  int fd = Connect();
  SendRaw(fd, Frame("\xc1\xc1\xc1 garbage"));
  EXPECT_EQ(AnswerCode(fd), kErrInvalidArgument);
  char c;
  EXPECT_EQ(read(fd, &c, 1), 0);  // closed
  close(fd);
  ExpectServing();
}

TEST_F(SyncdDaemonTest, OversizedFrameIsRefused) {
  int fd = Connect();
  SendRaw(fd, std::string("\xff\xff\xff\xff", 4) + "xx");
  EXPECT_EQ(AnswerCode(fd), kErrInvalidArgument);
  close(fd);
  ExpectServing();
}

TEST_F(SyncdDaemonTest, WellFramedBadRequestsKeepTheConnection) {
  int fd = Connect();
  ASSERT_TRUE(wire::WriteFrame(fd, PObject(42)).ok());
  EXPECT_EQ(AnswerCode(fd), kErrInvalidArgument);
  PObject req = PObject::MakeMap();
  req["protocol"] = 11060;
  req["op"] = "status";
  ASSERT_TRUE(wire::WriteFrame(fd, req).ok());
  EXPECT_EQ(AnswerCode(fd), kErrProtocolVersion);
  req["protocol"] = 11061;
  req["op"] = "make_coffee";
  ASSERT_TRUE(wire::WriteFrame(fd, req).ok());
  EXPECT_EQ(AnswerCode(fd), kErrInvalidArgument);
  req["op"] = "list_file";
  req["user"] = "alice";
  req["args"] = "not a map";
  ASSERT_TRUE(wire::WriteFrame(fd, req).ok());
  EXPECT_EQ(AnswerCode(fd), kErrInvalidArgument);
  req["args"] = PObject::MakeMap();
  req["args"]["filter"] = 7;
  ASSERT_TRUE(wire::WriteFrame(fd, req).ok());
  EXPECT_EQ(AnswerCode(fd), kErrInvalidArgument);
  req["op"] = "status";
  ASSERT_TRUE(wire::WriteFrame(fd, req).ok());
  PObject answer;
  ASSERT_TRUE(wire::ReadFrame(fd, &answer).ok());
  EXPECT_TRUE(answer["ok"].asBool());
  close(fd);
}

TEST_F(SyncdDaemonTest, TruncatedFramesAndHangUpsAreSurvived) {
  for (int i = 0; i < 20; ++i) {
    int fd = Connect();
    SendRaw(fd, i % 2 ? std::string("\x00\x00\x10", 3) : Frame("\x85\xa1").substr(0, 5));
    close(fd);
  }
  ExpectServing();
}

TEST_F(SyncdDaemonTest, RestartKeepsData) {
  Nimbard::FileInfo put = Put("/mydrive/keep.txt", "kept");
  ASSERT_EQ(WEXITSTATUS(Stop()), 0);
  EXPECT_FALSE(Exists(Socket()));
  EXPECT_FALSE(Exists(PidFile()));
  Start();
  Nimbard::FileInfo info;
  auto c = Client();
  ASSERT_EQ(c->GetFileInfo("id:" + put.file_id, info, {}), 0) << c->GetLastErrorMessage();
  EXPECT_EQ(info.hash, Sha256("kept"));
  EXPECT_EQ(info.sync_id, put.sync_id);  // nothing changed, nothing re-numbered
}

TEST_F(SyncdDaemonTest, AcknowledgedUploadsSurviveAKill) {
  MkDir("/mydrive/d");
  for (int i = 0; i < 5; ++i) Put("/mydrive/d/f" + std::to_string(i), std::to_string(i));
  Stop(SIGKILL);
  Start();
  Nimbard::SearchNodeFilter f;
  std::vector<Nimbard::FileInfo> items;
  uint64_t total = 0;
  ASSERT_EQ(Client()->ListFile("/mydrive/d", false, f, items, total, {}), 0);
  EXPECT_EQ(total, 5u);
}

TEST_F(SyncdDaemonTest, ReconciliationIndexesAddedFilesAndMarksVanishedOnes) {
  Nimbard::FileInfo gone = Put("/mydrive/gone.txt", "bye");
  Put("/mydrive/edit.txt", "v1");
  Stop();
  ASSERT_EQ(unlink((Home("alice") + "/gone.txt").c_str()), 0);
  ASSERT_EQ(mkdir((Home("alice") + "/restored").c_str(), 0755), 0);
  std::ofstream(Home("alice") + "/restored/photo.jpg") << "jpeg bytes";
  std::ofstream(Home("alice") + "/edit.txt") << "version two";
  // An administrator restores a whole home for a user who never logged in.
  ASSERT_EQ(mkdir(Home("bob").c_str(), 0755), 0);
  std::ofstream(Home("bob") + "/old.txt") << "old";
  Start();

  auto c = Client();
  Nimbard::FileInfo info;
  ASSERT_EQ(c->GetFileInfo("/mydrive/restored/photo.jpg", info, {}), 0) << c->GetLastErrorMessage();
  EXPECT_EQ(info.hash, Sha256("jpeg bytes"));
  EXPECT_EQ(info.content_type, "image/jpeg");
  ASSERT_EQ(c->GetFileInfo("/mydrive/edit.txt", info, {}), 0);
  EXPECT_EQ(info.hash, Sha256("version two"));
  EXPECT_NE(c->GetFileInfo("id:" + gone.file_id, info, {}), 0);
  EXPECT_EQ(c->GetLastError(), kErrNotFound);
  auto b = Client("bob");
  ASSERT_EQ(b->GetFileInfo("/mydrive/old.txt", info, {}), 0) << b->GetLastErrorMessage();
  // The name of a vanished item can be used again.
  Put("/mydrive/gone.txt", "back");
}

TEST_F(SyncdDaemonTest, OldTempFilesAreCleanedAtStartUp) {
  Stop();
  std::ofstream(Tmp() + "/old-upload") << "x";
  std::ofstream(Tmp() + "/new-upload") << "y";
  struct utimbuf two_days_ago = {time(nullptr) - 2 * 86400, time(nullptr) - 2 * 86400};
  ASSERT_EQ(utime((Tmp() + "/old-upload").c_str(), &two_days_ago), 0);
  Start();
  EXPECT_FALSE(Exists(Tmp() + "/old-upload"));
  EXPECT_TRUE(Exists(Tmp() + "/new-upload"));
  struct stat st;
  ASSERT_EQ(stat(Tmp().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 01777u);
}

TEST_F(SyncdDaemonTest, UnlinkJobsRemoveTempPathsOnly) {
  std::string victim = Stage("temp");
  auto c = Client();
  PObject args = PObject::MakeMap();
  args["path"] = victim;
  ASSERT_EQ(c->Call("job_push_unlink", args, nullptr), 0) << c->GetLastErrorMessage();
  for (int i = 0; i < 200 && Exists(victim); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(25));
  EXPECT_FALSE(Exists(victim));
  // A folder and then a file in it, as a download queues them: the file is
  // gone with its folder, which is not a refusal.
  const std::string folder = Tmp() + "/download-1";
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  std::ofstream(folder + "/part.bin") << "x";
  for (const std::string& path : {folder, folder + "/part.bin"}) {
    args["path"] = path;
    ASSERT_EQ(c->Call("job_push_unlink", args, nullptr), 0) << c->GetLastErrorMessage();
  }
  const std::string last = Stage("last");  // queued after both: its removal means both ran
  args["path"] = last;
  ASSERT_EQ(c->Call("job_push_unlink", args, nullptr), 0);
  for (int i = 0; i < 200 && Exists(last); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  EXPECT_FALSE(Exists(folder));
  std::ifstream log(root_ + "/syncd.log");
  const std::string text((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text.find("refused"), std::string::npos) << text;

  Put("/mydrive/mine.txt", "mine");
  args["path"] = Home("alice") + "/mine.txt";
  EXPECT_NE(c->Call("job_push_unlink", args, nullptr), 0);
  EXPECT_EQ(c->GetLastError(), kErrPermission);
  args["path"] = Tmp() + "/../homes/alice/mine.txt";
  EXPECT_NE(c->Call("job_push_unlink", args, nullptr), 0);
  EXPECT_TRUE(Exists(Home("alice") + "/mine.txt"));
}

TEST_F(SyncdDaemonTest, ASecondDaemonOnTheSameRootRefusesToStart) {
  pid_t second = fork();
  if (second == 0) {
    int fd = open("/dev/null", O_WRONLY);
    dup2(fd, 2);
    execl(ORVEL_SYNCD_PATH, ORVEL_SYNCD_PATH, static_cast<char*>(nullptr));
    _exit(127);
  }
  int ws = 0;
  waitpid(second, &ws, 0);
  EXPECT_TRUE(WIFEXITED(ws));
  EXPECT_EQ(WEXITSTATUS(ws), 1);
  ExpectServing();
}

TEST_F(SyncdDaemonTest, OrvelctlDrivesStateAndFreeze) {
  std::string out;
  EXPECT_EQ(Orvelctl("service status", &out), 0);
  EXPECT_EQ(out, "enabled\n");
  EXPECT_EQ(Orvelctl("freeze on", &out), 0);
  EXPECT_EQ(Orvelctl("service set-state disabled", &out), 0);
  EXPECT_EQ(Orvelctl("status", &out), 0);
  EXPECT_NE(out.find("state:          disabled"), std::string::npos) << out;
  EXPECT_NE(out.find("freeze:         on"), std::string::npos) << out;
  EXPECT_EQ(Orvelctl("service set-state sleepy", &out), 2);
  EXPECT_EQ(Orvelctl("user set nobody --admin on", &out), 1);
  EXPECT_EQ(out, "orvelctl: no user named 'nobody'\n");
  // State and freeze persist over a restart.
  Stop();
  Start();
  std::string status;
  bool frozen = false;
  auto admin = Client("");
  ASSERT_EQ(admin->GetServiceStatus(status), 0);
  ASSERT_EQ(admin->GetFreeze(0, frozen), 0);
  EXPECT_EQ(status, "disabled");
  EXPECT_TRUE(frozen);
  Stop();
  EXPECT_EQ(Orvelctl("status", &out), 1);
  EXPECT_NE(out.find("(is orvel-syncd running?)"), std::string::npos) << out;
}

}  // namespace
}  // namespace orvel::test
