// Transfer over HTTP through lighttpd with curl: a multipart upload lands
// whole and downloads back byte for byte, a folder of 1,000 files downloads
// as a zip that unzip accepts, copy/move/delete tasks show in the listings,
// and a daemon killed in the middle of a copy leaves no half-copied item.
#include <gtest/gtest.h>
#include <signal.h>
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
  std::unique_ptr<Nimbard> TaskClient(const std::string& user) override {
    auto n = std::make_unique<Nimbard>();
    n->SetServer("unix:/tmp/cloud-syncservice", 0);
    n->SetUser(user, "", "");
    n->SetServerVersion(11061);
    n->SetTimeout(60);
    return n;
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

  const std::string back = stack_->root() + "/download.bin";
  ProcessOutput down = Post({"method=download", "files=[\"/mydrive/upload.bin\"]"}, {"-o", back});
  ASSERT_EQ(down.exit_code, 0) << down.err;
  EXPECT_EQ(Sha256Of(back), Sha256Of(src));
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
  Json::Value r = Files({"method=copy", "files=[\"/mydrive/Big\"]", "to_parent_folder=/mydrive/Target"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  const std::string id = r["data"]["async_task_id"].asString();
  // Kill as soon as the copy has started (or ended, on a fast disk).
  PObject args = PObject::MakeMap();
  args["task_id"] = id;
  for (int i = 0; i < 2000; ++i) {
    PObject g;
    ASSERT_EQ(Call("demo", "task_get", args, &g), 0) << last_message_;
    if (g["task"]["progress"]["done"].asUInt64() > 0 || g["task"]["state"].asString() != "queued") break;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  stack_->KillDaemon();
  stack_->StartDaemon();
  PObject t = WaitTask("demo", id);
  const std::string state = t["state"].asString();
  ASSERT_TRUE(state == "finished" || state == "failed") << t.toJsonString();
  const std::string copy = stack_->HomeDir("demo") + "/Target/Big";
  struct stat st;
  if (state == "failed") {
    EXPECT_EQ(t["error"]["code"].asInt64(), kErrTaskFailed);
    EXPECT_NE(::lstat(copy.c_str(), &st), 0) << "no half-copied folder under its final name";
    EXPECT_EQ(ListTotal("/mydrive/Target"), 0u);
  } else {
    EXPECT_EQ(ListTotal("/mydrive/Target/Big"), 40u);
  }
  ProcessOutput tmp = RunProcess({"/bin/ls", stack_->DataDir() + "/@tmp"}, BaseEnv(stack_->root()));
  EXPECT_EQ(tmp.out.find("task-" + id), std::string::npos) << tmp.out;
}

}  // namespace
}  // namespace orvel::test
