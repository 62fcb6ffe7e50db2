// Transfer over HTTP through lighttpd with curl: a multipart upload lands
// whole and downloads back byte for byte (handed over by X-Sendfile), a folder of 1,000 files downloads
// as a zip that unzip accepts, copy/move/delete tasks show in the listings,
// a client that hangs up mid-download leaves no links in @tmp, and a daemon
// killed between placing a copy and committing it (a fault
// point) leaves no half-copied item.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "../integration/transfer_test_util.h"
#include "stack.h"

namespace orvel::test {
namespace {

class TransferHttpTest : public ::testing::Test, public TaskHelpers {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("demo", false, "demo-password");
    // A folder of 1,000 files and one of bigger files, put on disk before the
    // user's first request: the daemon indexes them on first use.
    Fill(stack_->HomeDir("demo") + "/Thousand", 1000, 100);
    Fill(stack_->HomeDir("demo") + "/Big", 40, 1 << 20);
    port_ = stack_->StartHttp();
    sid_ = stack_->Login("demo").sid;
  }
  static void TearDownTestSuite() {
    delete stack_;
  }
  static void Fill(const std::string& dir, int count, size_t size) {
    ::mkdir(dir.substr(0, dir.find_last_of('/')).c_str(), 0750);
    ::mkdir(dir.c_str(), 0750);
    std::string block(size, 'x');
    for (int i = 0; i < count; ++i) {
      block[0] = static_cast<char>('a' + i % 26);
      std::ofstream(dir + "/f" + std::to_string(i) + ".txt", std::ios::binary) << block;
    }
  }
  static std::string Url(const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  static ProcessOutput Curl(std::vector<std::string> args) {
    args.insert(args.begin(), {"/usr/bin/curl", "-s", "--max-time", "120"});
    return RunProcess(args, BaseEnv(stack_->root()));
  }
  static Json::Value ParseJson(const std::string& text) {
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string errs;
    std::istringstream s(text);
    Json::parseFromStream(b, s, &v, &errs);
    return v;
  }
  // POSTs the module's method with form fields (each "name=value").
  static ProcessOutput Post(const std::vector<std::string>& fields, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {Url("/webapi/entry.cgi"), "-d", "api=ZEMO.ZemoraOrvel.Files",
                                     "-d", "version=1", "-d", "_sid=" + sid_};
    for (const auto& f : fields) {
      args.push_back("--data-urlencode");
      args.push_back(f);
    }
    args.insert(args.end(), extra.begin(), extra.end());
    return Curl(args);
  }
  static Json::Value Files(const std::vector<std::string>& fields) {
    ProcessOutput r = Post(fields);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v.isObject()) << r.out << r.err;
    return v;
  }
  static std::string Sha256Of(const std::string& path) {
    ProcessOutput r = RunProcess({"/usr/bin/sha256sum", path}, BaseEnv(stack_->root()));
    return r.out.substr(0, 64);
  }
  PObject WaitAsync(const Json::Value& answer) {
    EXPECT_TRUE(answer["success"].asBool()) << answer;
    return WaitTask("demo", answer["data"]["async_task_id"].asString());
  }
  uint64_t ListTotal(const std::string& path) {
    Json::Value r = Files({"method=list", "path=" + path, "limit=1"});
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["total"].asUInt64();
  }

  static TestStack* stack_;
  static int port_;
  static std::string sid_;
};
TestStack* TransferHttpTest::stack_ = nullptr;
int TransferHttpTest::port_ = 0;
std::string TransferHttpTest::sid_;

TEST_F(TransferHttpTest, UploadedFileLandsWholeAndDownloadsBack) {
  const std::string src = stack_->root() + "/upload.bin";
  {
    std::mt19937_64 rng(42);
    std::vector<uint64_t> block(1 << 17);  // 1 MiB
    std::ofstream out(src, std::ios::binary);
    for (int i = 0; i < 64; ++i) {
      for (auto& w : block) w = rng();
      out.write(reinterpret_cast<const char*>(block.data()), block.size() * 8);
    }
  }
  ProcessOutput up = Curl({Url("/webapi/entry.cgi"), "-F", "api=ZEMO.ZemoraOrvel.Files", "-F",
                           "version=1", "-F", "method=upload", "-F", "_sid=" + sid_, "-F",
                           "path=/mydrive/upload.bin", "-F", "type=file", "-F", "file=@" + src});
  Json::Value r = ParseJson(up.out);
  ASSERT_TRUE(r["success"].asBool()) << up.out << up.err;
  EXPECT_EQ(r["data"]["size"].asUInt64(), 64u << 20);
  EXPECT_EQ(r["data"]["hash"].asString(), Sha256Of(src));
  EXPECT_EQ(Sha256Of(stack_->HomeDir("demo") + "/upload.bin"), Sha256Of(src));

  // The download is handed to lighttpd by X-Sendfile: the client sees the
  // module's headers and the bytes, not the header naming the link.
  const std::string back = stack_->root() + "/download.bin";
  ProcessOutput down = Post({"method=download", "files=[\"/mydrive/upload.bin\"]"}, {"-o", back, "-D", "-"});
  ASSERT_EQ(down.exit_code, 0) << down.err;
  EXPECT_EQ(Sha256Of(back), Sha256Of(src));
  EXPECT_NE(down.out.find("Content-Disposition: attachment; filename=\"upload.bin\""), std::string::npos)
      << down.out;
  EXPECT_NE(down.out.find("Content-Length: 67108864\r\n"), std::string::npos) << down.out;
  EXPECT_EQ(down.out.find("X-Sendfile"), std::string::npos) << down.out;
  ProcessOutput links = RunProcess({"/usr/bin/find", stack_->DataDir() + "/@tmp/handover", "-samefile",
                                    stack_->HomeDir("demo") + "/upload.bin"},
                                   BaseEnv(stack_->root()));
  EXPECT_NE(links.out, "") << "not handed over by X-Sendfile";
}

TEST_F(TransferHttpTest, FolderOfAThousandFilesDownloadsAsAZip) {
  Json::Value r = Files({"method=download", "files=[\"/mydrive/Thousand\"]"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  PObject task = WaitAsync(r);
  ASSERT_EQ(task["state"].asString(), "finished") << task.toJsonString();
  const std::string zip = stack_->root() + "/thousand.zip";
  ProcessOutput d = Post({"method=download", "task_id=" + r["data"]["async_task_id"].asString()},
                         {"-o", zip, "-D", "-"});
  EXPECT_NE(d.out.find("filename=\"downloads.zip\""), std::string::npos) << d.out;
  ProcessOutput t = RunProcess({"/usr/bin/unzip", "-tq", zip}, BaseEnv(stack_->root()));
  EXPECT_EQ(t.exit_code, 0) << t.out << t.err;
  ProcessOutput l = RunProcess({"/usr/bin/unzip", "-Z1", zip}, BaseEnv(stack_->root()));
  EXPECT_EQ(std::count(l.out.begin(), l.out.end(), '\n'), 1001) << "the folder and its 1,000 files";
}

// A client that hangs up in the middle of a download: the web server
// terminates entry.cgi (SIGTERM), which must still remove the staging it was
// streaming. Sends the request by hand and closes after the first bytes.
TEST_F(TransferHttpTest, ClientThatHangsUpLeavesNoDownloadStaging) {
  for (const char* what : {"folder", "file"}) {
    SCOPED_TRACE(what);
    bool folder = std::string(what) == "folder";
    std::string body = "api=ZEMO.ZemoraOrvel.Files&version=1&method=download&_sid=" + sid_;
    std::string staging;
    if (folder) {
      Json::Value r = Files({"method=download", "files=[\"/mydrive/Big\"]"});
      PObject task = WaitAsync(r);
      ASSERT_EQ(task["state"].asString(), "finished") << task.toJsonString();
      staging = task["result"]["path"].asString();
      body += "&task_id=" + r["data"]["async_task_id"].asString();
    } else {
      body += "&files=%5B%22%2Fmydrive%2FBig%2Ff0.txt%22%5D";
    }
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port_));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    std::string req = "POST /webapi/entry.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                      "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                      std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    ASSERT_EQ(::write(fd, req.data(), req.size()), static_cast<ssize_t>(req.size()));
    char buf[4096];
    ssize_t got = ::read(fd, buf, sizeof(buf));  // the stream has begun
    ASSERT_GT(got, 0);
    ASSERT_EQ(std::string(buf, 12), "HTTP/1.1 200");
    linger off = {1, 0};  // hang up hard, as a closed browser tab does
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &off, sizeof(off));
    ::close(fd);
    // entry.cgi queues its temp path for removal once it has unwound; wait
    // for that to have happened (bounded).
    bool clean = false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!clean && std::chrono::steady_clock::now() < deadline) {
      ProcessOutput ls = RunProcess({"/bin/ls", "-A", stack_->DataDir() + "/@tmp"}, BaseEnv(stack_->root()));
      clean = (staging.empty() || ls.out.find(staging.substr(staging.find_last_of('/') + 1)) == std::string::npos) &&
              ls.out.find("download-") == std::string::npos;
      if (!clean) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(clean) << "the download's links stayed in @tmp";
  }
}

TEST_F(TransferHttpTest, CopyMoveAndDeleteShowInTheListings) {
  ASSERT_TRUE(Files({"method=create", "path=/mydrive/Work", "type=folder"})["success"].asBool());
  PObject t = WaitAsync(Files({"method=copy", "files=[\"/mydrive/Thousand\"]", "to_parent_folder=/mydrive/Work"}));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(ListTotal("/mydrive/Work/Thousand"), 1000u);
  t = WaitAsync(Files({"method=move", "files=[\"/mydrive/Work/Thousand\"]", "to_parent_folder=/mydrive",
                       "change_name=Moved"}));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(ListTotal("/mydrive/Moved"), 1000u);
  EXPECT_EQ(ListTotal("/mydrive/Work"), 0u);
  t = WaitAsync(Files({"method=delete", "files=[\"/mydrive/Moved\"]", "permanent=true"}));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  Json::Value r = Files({"method=get", "path=/mydrive/Moved"});
  EXPECT_EQ(r["error"]["code"].asInt(), 1002) << r;
}

TEST_F(TransferHttpTest, KilledDaemonLeavesNoHalfCopiedItem) {
  ASSERT_TRUE(Files({"method=create", "path=/mydrive/Target", "type=folder"})["success"].asBool());
  // The daemon dies right after the copy is renamed into place and before
  // its rows are committed: the window where the whole item is in place.
  stack_->StopDaemon();
  stack_->StartDaemon({"ORVEL_FAULT=at=1,action=kill,step=point.place.renamed"});
  Json::Value r = Files({"method=copy", "files=[\"/mydrive/Big\"]", "to_parent_folder=/mydrive/Target"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  const std::string id = r["data"]["async_task_id"].asString();
  int ws = stack_->WaitDaemonExit();
  ASSERT_TRUE(WIFSIGNALED(ws) && WTERMSIG(ws) == SIGKILL) << "wait status " << ws;
  const std::string copy = stack_->HomeDir("demo") + "/Target/Big";
  struct stat st;
  ASSERT_EQ(::lstat(copy.c_str(), &st), 0) << "the daemon died inside the window";

  // Start-up takes the rename back (its intent record) before anything
  // looks at the tree, then fails the task.
  stack_->StartDaemon();
  PObject t = WaitTask("demo", id);
  EXPECT_EQ(t["state"].asString(), "failed") << t.toJsonString();
  EXPECT_EQ(t["error"]["code"].asInt64(), kErrTaskFailed);
  EXPECT_EQ(t["error"]["message"].asString(),
            "task interrupted by a service restart after 41 of 41 items; finished items are kept, "
            "the item in progress was taken back");
  EXPECT_NE(::lstat(copy.c_str(), &st), 0) << "no copy under its final name without its rows";
  EXPECT_EQ(ListTotal("/mydrive/Target"), 0u);
  EXPECT_EQ(ListTotal("/mydrive/Big"), 40u);
  ProcessOutput tmp = RunProcess({"/bin/ls", "-A", stack_->DataDir() + "/@tmp"}, BaseEnv(stack_->root()));
  EXPECT_EQ(tmp.out.find("task-" + id), std::string::npos) << tmp.out;
  EXPECT_EQ(tmp.out.find("intent-"), std::string::npos) << tmp.out;
}

}  // namespace
}  // namespace orvel::test
