// SyncdTest: a fixture that runs the real orvel-syncd in a private temp
// ZEMO_ROOT (users alice and bob), with helpers to stage and upload files
// through the real Nimbard client. Sets ZEMO_ROOT in the test process so the
// client finds the socket. Not thread-safe.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sodium.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "nimbard/file.h"
#include "nimbard/nimbard.h"
#include "orvelcommon/user_db.h"

namespace orvel::test {

class SyncdTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/syncd-it-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    setenv("ZEMO_ROOT", root_.c_str(), 1);
    std::string etc = root_ + "/var/packages/ZemoraOrvel/target/etc";
    ASSERT_EQ(system(("mkdir -p " + etc + " " + Data() + "/@db").c_str()), 0);
    std::ofstream(etc + "/orvel.conf") << "{\"web_account\": \"\"}\n";
    std::unique_ptr<UserDb> users;
    Status st = UserDb::Open(Data() + "/@db/users.db", &users);
    ASSERT_TRUE(st.ok()) << st.ToString();
    ASSERT_TRUE(users->AddUser("alice", "pw", false, &alice_).ok());
    ASSERT_TRUE(users->AddUser("bob", "pw", false, &bob_).ok());
    Start();
  }
  void TearDown() override {
    // A clean SIGTERM exit is 0; sanitizer reports in the daemon are not.
    if (pid_ > 0) {
      int ws = Stop();
      EXPECT_TRUE(WIFEXITED(ws) && WEXITSTATUS(ws) == 0) << "daemon wait status " << ws;
    }
    if (HasFailure()) {
      std::ifstream log(root_ + "/syncd.log");
      std::stringstream ss;
      ss << log.rdbuf();
      std::string text = ss.str();
      if (text.size() > 4000) text = text.substr(text.size() - 4000);
      fprintf(stderr, "--- daemon log (tail) ---\n%s\n", text.c_str());
    }
    if (!getenv("ORVEL_KEEP_TEST_ROOT")) File::Remove(root_);
  }

  std::string Data() const { return root_ + "/volume1/ZemoraOrvel"; }
  std::string Home(const std::string& u) const { return Data() + "/homes/" + u; }
  std::string Tmp() const { return Data() + "/@tmp"; }
  std::string Socket() const { return root_ + "/tmp/cloud-syncservice"; }
  std::string PidFile() const { return root_ + "/var/packages/ZemoraOrvel/target/var/orvel-syncd.pid"; }

  // Starts the daemon and waits for its socket (10 s).
  void Start() {
    pid_ = fork();
    if (pid_ == 0) {
      int fd = open((root_ + "/syncd.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      dup2(fd, 2);
      dup2(fd, 1);
      execl(ORVEL_SYNCD_PATH, ORVEL_SYNCD_PATH, "--foreground", static_cast<char*>(nullptr));
      _exit(127);
    }
    for (int i = 0; i < 400; ++i) {
      std::string status;
      Nimbard probe;
      probe.SetTimeout(5);
      if (probe.GetServiceStatus(status) == 0) return;
      int ws;
      if (waitpid(pid_, &ws, WNOHANG) == pid_) {
        pid_ = -1;
        FAIL() << "orvel-syncd exited at start-up";
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    FAIL() << "orvel-syncd did not answer in 10 s";
  }
  // SIGTERM (or another signal) and wait; returns the wait status.
  int Stop(int sig = SIGTERM) {
    if (pid_ <= 0) return -1;
    kill(pid_, sig);
    int ws = 0;
    waitpid(pid_, &ws, 0);
    pid_ = -1;
    return ws;
  }
  bool Alive() const { return pid_ > 0 && kill(pid_, 0) == 0; }

  // A client set up as the web module sets it up.
  std::unique_ptr<Nimbard> Client(const std::string& user = "alice") const {
    auto n = std::make_unique<Nimbard>();
    n->SetSSL(false, false, "", "");
    n->SetServer("unix:/tmp/cloud-syncservice", 0);
    n->SetForwardInfo("127.0.0.1", 0, "http");
    n->SetUser(user, "", "");
    n->SetServerVersion(11061);
    n->SetTimeout(30);
    return n;
  }

  // Writes content into a new file in @tmp and returns its path.
  std::string Stage(const std::string& content) {
    std::string path = Tmp() + "/upload-" + std::to_string(++staged_);
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  static std::string Sha256(const std::string& s) {
    unsigned char d[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(d, reinterpret_cast<const unsigned char*>(s.data()), s.size());
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (unsigned char b : d) {
      out.push_back(kHex[b >> 4]);
      out.push_back(kHex[b & 15]);
    }
    return out;
  }
  // The upload request the module builds for a file.
  PObject FileRequest(const std::string& path, const std::string& content,
                      const std::string& policy = "stop") {
    PObject r = PObject::MakeMap();
    r["path"] = path;
    r["sync_id"] = 0;
    r["max_id"] = 0;
    r["conflict_policy"] = policy;
    r["is_dir"] = false;
    r["file_type"] = "file";
    r["file_data_path"] = Stage(content);
    r["file"]["size"] = static_cast<unsigned long long>(content.size());
    r["file"]["hash"] = Sha256(content);
    r["file"]["refer"] = false;
    r["file"]["is_delta"] = false;
    r["file"]["real_size"] = static_cast<unsigned long long>(content.size());
    return r;
  }
  PObject FolderRequest(const std::string& path, const std::string& policy = "stop") {
    PObject r = PObject::MakeMap();
    r["path"] = path;
    r["conflict_policy"] = policy;
    r["is_dir"] = true;
    r["file_type"] = "dir";
    return r;
  }
  // Uploads and expects success.
  Nimbard::FileInfo Put(const std::string& path, const std::string& content,
                        const std::string& policy = "stop") {
    Nimbard::FileInfo info;
    auto c = Client();
    EXPECT_EQ(c->UploadFile(FileRequest(path, content, policy), info), 0)
        << path << ": " << c->GetLastErrorMessage() << " (" << c->GetLastError() << ")";
    return info;
  }
  Nimbard::FileInfo MkDir(const std::string& path) {
    Nimbard::FileInfo info;
    auto c = Client();
    EXPECT_EQ(c->UploadFile(FolderRequest(path), info), 0)
        << path << ": " << c->GetLastErrorMessage() << " (" << c->GetLastError() << ")";
    return info;
  }
  // The error code of a failed upload (0 when it succeeded).
  int UploadError(const PObject& request, const std::string& user = "alice") {
    Nimbard::FileInfo info;
    auto c = Client(user);
    return c->UploadFile(request, info) == 0 ? 0 : c->GetLastError();
  }
  static std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  static bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
  }

  std::string root_;
  pid_t pid_ = -1;
  UserRecord alice_, bob_;
  int staged_ = 0;
};

}  // namespace orvel::test
