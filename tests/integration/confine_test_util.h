// ConfineTest: the fixture of the confinement tests. A stack with alice,
// whose home root fills behind the daemon's back; a folder `outside` next to
// the data folder with a secret (files only root may read, known content,
// inode and times) that nothing may read, write, rename or remove through
// alice's space; helpers to plant links, to swap an indexed item for a link,
// to run a method (answers and tasks) and to check that nothing escaped.
// Hook programs (hooks.h) go to hooks_. Not thread-safe.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "nimbard/platform.h"
#include "stack.h"
#include "transfer_test_util.h"

namespace orvel::test {

constexpr char kSecret[] = "ZQXSECRET 31415926 root only";

// What a method answered: its envelope (or raw bytes of a download) and,
// for a task, the task's end.
struct Outcome {
  bool ok = false;
  int code = 0;        // the API error code, or the task's service code
  std::string body;    // everything the caller received
};

class ConfineTest : public ::testing::Test, public TaskHelpers {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/confine-hooks-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    hooks_ = tmpl;
    setenv("ORVEL_SYNCD_HOOKS", hooks_.c_str(), 1);
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    home_ = stack_->HomeDir("alice");
    out_ = stack_->root() + "/outside";
    Sh("mkdir -p " + Q(out_ + "/dir/sub"));
    for (const char* f : {"/secret.txt", "/dir/a.txt", "/dir/report.txt", "/dir/sub/deep.txt", "/pic.jpg"})
      Write(out_ + f, kSecret);
    Sh("chmod -R go-rwx " + Q(out_));
    before_ = Snapshot(out_);
  }
  void TearDown() override {
    ExpectNothingEscaped();
    stack_.reset();
    unsetenv("ORVEL_SYNCD_HOOKS");
    Sh("rm -rf " + Q(hooks_));
  }

  static std::string Q(const std::string& s) { return "'" + s + "'"; }
  static void Sh(const std::string& cmd) { ASSERT_EQ(system(cmd.c_str()), 0) << cmd; }
  static void Write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }

  // An item made through the module ("create"): a folder when content is "".
  void Create(const std::string& path, const std::string& content = "") {
    Json::Value p;
    p["path"] = path;
    p["type"] = content.empty() ? "folder" : "file";
    if (!content.empty()) p["file_content"] = EncBase64Enc(content);
    Json::Value r = stack_->Call("alice", "create", p);
    ASSERT_TRUE(r["success"].asBool()) << r;
  }
  // Puts a link at rel in alice's home, as root would.
  void Plant(const std::string& rel, const std::string& target) {
    ASSERT_EQ(symlink(target.c_str(), (home_ + "/" + rel).c_str()), 0) << rel;
  }
  // Swaps the indexed item rel for a link to target, behind the daemon's back.
  void Swap(const std::string& rel, const std::string& target) {
    Sh("mv " + Q(home_ + "/" + rel) + " " + Q(home_ + "/.aside-" + std::to_string(++swaps_)));
    Plant(rel, target);
  }
  // Makes `point` run the shell text `script` (hooks.h).
  void Hook(const std::string& point, const std::string& script) {
    Write(hooks_ + "/" + point, "#!/bin/sh\nset -e\n" + script + "\n");
    ASSERT_EQ(chmod((hooks_ + "/" + point).c_str(), 0755), 0);
  }

  // Calls a method of the module as alice; waits for the task it starts.
  Outcome Run(const std::string& method, const Json::Value& params) {
    CgiResult raw = stack_->CallRaw("alice", method, params);
    Outcome o;
    o.body = raw.body;
    Json::Value r = raw.Json();
    if (!r.isObject()) {  // a file or an archive went out
      o.ok = raw.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE").empty();
      o.code = atoi(raw.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE").c_str());
      return o;
    }
    o.ok = r["success"].asBool();
    o.code = r["error"]["code"].asInt();
    const std::string task = r["data"]["async_task_id"].asString();
    if (!o.ok || task.empty()) return o;
    if (method == "download") {  // the archive, once the staging task ended
      Json::Value fetch;
      fetch["task_id"] = task;
      fetch["json_error"] = true;
      return Run("download", fetch);
    }
    PObject t = WaitTask("alice", task);
    o.ok = t["state"].asString() == "finished";
    o.code = static_cast<int>(t["error"]["code"].asInt64());
    o.body += t.toJsonString();
    return o;
  }

  // Everything below root as lstat sees it, with file contents.
  static std::map<std::string, std::string> Snapshot(const std::string& root) {
    std::map<std::string, std::string> out;
    struct stat st;
    if (lstat(root.c_str(), &st) != 0) return out;
    std::ostringstream key;
    key << st.st_ino << ":" << st.st_mode << ":" << st.st_size << ":" << st.st_mtim.tv_sec << "."
        << st.st_mtim.tv_nsec << ":" << st.st_ctim.tv_sec << "." << st.st_ctim.tv_nsec;
    out[root] = key.str() + (S_ISREG(st.st_mode) ? ":" + Read(root) : "");
    if (!S_ISDIR(st.st_mode)) return out;
    if (DIR* d = opendir(root.c_str())) {
      while (dirent* e = readdir(d)) {
        std::string n = e->d_name;
        if (n == "." || n == "..") continue;
        for (auto& kv : Snapshot(root + "/" + n)) out.insert(kv);
      }
      closedir(d);
    }
    return out;
  }

  // Regular files below root (links not followed) that hold the secret.
  static std::vector<std::string> FilesWithSecret(const std::string& root) {
    std::vector<std::string> found;
    for (const auto& kv : Snapshot(root))
      if (kv.second.find(kSecret) != std::string::npos) found.push_back(kv.first);
    return found;
  }

  // Nothing outside changed (content, inode, mode, size, times, entries),
  // and no copy of the secret reached the data folder.
  void ExpectNothingEscaped() {
    EXPECT_EQ(Snapshot(out_), before_);
    EXPECT_EQ(FilesWithSecret(stack_->DataDir()), std::vector<std::string>());
  }

  std::unique_ptr<TestStack> stack_;
  std::string hooks_, home_, out_;
  std::map<std::string, std::string> before_;
  int swaps_ = 0;
};

}  // namespace orvel::test
