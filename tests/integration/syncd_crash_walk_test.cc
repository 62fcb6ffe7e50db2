// The crash walk: upload, copy, move, delete and update are run against the
// real daemon with the fault-injection seam (ORVEL_FAULT) failing the 1st,
// 2nd, 3rd ... durable step with EIO or ENOSPC, or killing the daemon there,
// until the operation completes without reaching N (so steps added later are
// walked too). After each run the daemon is restarted on the same tree and
// stopped, and the tree and database are checked offline: integrity_check is
// "ok", every live row is on disk with its size and hash and every entry on
// disk has a live row, the recycle bin and its rows agree, no intent record
// or daemon temp is left, every item that existed before is still there
// under its id (or went as the operation allows), nothing is half made, and
// what the daemon acknowledged happened.
//
// Each run starts from a copy of the same fixture tree. Under ASan the
// ENOSPC walks are skipped: they take the same paths as EIO, only the errno
// differs, and the sanitized daemon is several times slower.
#include <sodium.h>
#include <sqlite3.h>

#include <dirent.h>

#include <functional>
#include <map>
#include <set>

#include "syncd_launcher.h"
#include "transfer_test_util.h"

namespace orvel::test {
namespace {

constexpr int kMaxSteps = 80;  // a walk longer than this is a runaway

struct Row {
  std::string id, parent, name;
  int type = 0;
  int64_t size = 0;
  std::string hash;
  bool removed = false, vanished = false;
};

// What one run of an operation was told by the daemon.
struct Acks {
  std::vector<bool> calls;  // per call: answered with success
  std::string task_state;   // the last task's state after the restart
};

class CrashWalkTest;

// An operation: its calls, and what must hold after a run of them.
struct Op {
  const char* name;
  std::function<void(CrashWalkTest*, Acks*)> run;
  std::function<void(CrashWalkTest*, const Acks&)> check;
};

class CrashWalkTest : public SyncdTest,
                      public TaskHelpers,
                      public ::testing::WithParamInterface<std::tuple<int, const char*>> {
 public:
  using SyncdTest::Client;
  using SyncdTest::Data;
  using SyncdTest::FileRequest;
  using SyncdTest::Sha256;
  std::unique_ptr<Nimbard> TaskClient(const std::string& user) override { return Client(user); }

  // The fixture: /mydrive/{src/{a.txt, sub/b.txt}, dst/a.txt, doc.txt}.
  void MakeFixture() {
    MkDir("/mydrive/src");
    Put("/mydrive/src/a.txt", "alpha");
    MkDir("/mydrive/src/sub");
    Put("/mydrive/src/sub/b.txt", "bravo!");
    MkDir("/mydrive/dst");
    Put("/mydrive/dst/a.txt", "old a");
    Put("/mydrive/doc.txt", "document v1");
    for (const char* p : {"/mydrive/src", "/mydrive/src/a.txt", "/mydrive/src/sub", "/mydrive/src/sub/b.txt",
                          "/mydrive/dst", "/mydrive/dst/a.txt", "/mydrive/doc.txt"}) {
      Nimbard::FileInfo info;
      ASSERT_EQ(Client()->GetFileInfo(p, info, {}), 0) << p;
      ids_[p] = info.file_id;
    }
  }
  const std::string& Id(const std::string& path) { return ids_.at(path); }

  // Runs one call; records whether it succeeded.
  bool Do(Acks* acks, const std::string& op, const PObject& args, PObject* result = nullptr) {
    PObject scratch;
    bool ok = Call("alice", op, args, result ? result : &scratch) == 0;
    acks->calls.push_back(ok);
    return ok;
  }
  // Submits a task op and waits until it ends or the daemon dies.
  bool DoTask(Acks* acks, const std::string& op, const PObject& args) {
    PObject r;
    if (!Do(acks, op, args, &r)) return false;
    task_id_ = r["task_id"].asString();
    PObject q = PObject::MakeMap();
    q["task_id"] = task_id_;
    for (int tries = 0; tries < 6000; ++tries) {
      PObject g;
      if (Call("alice", "task_get", q, &g) != 0) {
        if (DaemonDied()) return false;
        continue;
      }
      const std::string state = g["task"]["state"].asString();
      if (state == "finished") return true;
      if (state == "failed" || state == "cancelled") return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ADD_FAILURE() << "task " << task_id_ << " did not end";
    return false;
  }
  // True once the daemon killed itself at the fault (reaped here).
  bool DaemonDied() {
    int ws = 0;
    if (pid_ > 0 && waitpid(pid_, &ws, WNOHANG) == pid_) {
      EXPECT_TRUE(WIFSIGNALED(ws) && WTERMSIG(ws) == SIGKILL) << "wait status " << ws;
      pid_ = -1;
    }
    return pid_ <= 0;
  }

  // Runs op with the Nth step failing; false when N was not reached.
  bool RunWithFault(const Op& op, int n, const char* action) {
    Restore();
    std::string setting = "at=" + std::to_string(n) + ",action=" + action;
    size_t log_from = ReadAll(root_ + "/syncd.log").size();
    {
      // Only this daemon gets the seam, even when Start() fails.
      setenv("ORVEL_FAULT", setting.c_str(), 1);
      std::unique_ptr<const char, void (*)(const char*)> unset("ORVEL_FAULT", [](const char* n) { unsetenv(n); });
      Start();
    }
    task_id_.clear();
    Acks acks;
    op.run(this, &acks);
    bool reached = ReadAll(root_ + "/syncd.log").find("fault injected at", log_from) != std::string::npos;
    if (reached && std::string(action) == "kill") {
      int ws = 0;
      if (pid_ > 0) {
        EXPECT_EQ(waitpid(pid_, &ws, 0), pid_);
      }
      EXPECT_TRUE(pid_ <= 0 || (WIFSIGNALED(ws) && WTERMSIG(ws) == SIGKILL)) << "wait status " << ws;
      pid_ = -1;
    } else {
      EXPECT_FALSE(DaemonDied());
      EXPECT_EQ(Stop(), 0);
    }
    Start();  // recovery and reconciliation, without the seam
    if (!task_id_.empty()) acks.task_state = TaskState(task_id_);
    EXPECT_EQ(Stop(), 0);
    SCOPED_TRACE(std::string(op.name) + " with " + setting);
    CheckInvariants();
    op.check(this, acks);
    return reached;
  }

  void Snapshot() {
    ASSERT_EQ(Stop(), 0);
    ASSERT_EQ(system(("cp -a " + Data() + " " + root_ + "/fixture").c_str()), 0);
  }
  void Restore() {
    ASSERT_EQ(system(("rm -rf " + Data() + " && cp -a " + root_ + "/fixture " + Data()).c_str()), 0);
  }
  std::string TaskState(const std::string& id) {
    PObject q = PObject::MakeMap(), g;
    q["task_id"] = id;
    EXPECT_EQ(Call("alice", "task_get", q, &g), 0) << last_message_;
    return g["task"]["state"].asString();
  }

  // --- offline checks (daemon stopped) ---

  void LoadRows() {
    rows_.clear();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open_v2((Data() + "/@db/sync.db").c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &st, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(st), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)), "ok");
    sqlite3_finalize(st);
    ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM intents", -1, &st, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(st), SQLITE_ROW);
    EXPECT_EQ(sqlite3_column_int(st, 0), 0) << "an intent record outlived the restart";
    sqlite3_finalize(st);
    ASSERT_EQ(sqlite3_prepare_v2(db,
                                 "SELECT file_id, parent_id, name, type, size, hash, removed, vanished"
                                 " FROM nodes WHERE owner = 'alice'",
                                 -1, &st, nullptr),
              SQLITE_OK);
    while (sqlite3_step(st) == SQLITE_ROW) {
      Row r;
      auto text = [&](int c) { return std::string(reinterpret_cast<const char*>(sqlite3_column_text(st, c))); };
      r.id = text(0);
      r.parent = text(1);
      r.name = text(2);
      r.type = sqlite3_column_int(st, 3);
      r.size = sqlite3_column_int64(st, 4);
      r.hash = text(5);
      r.removed = sqlite3_column_int(st, 6) != 0;
      r.vanished = sqlite3_column_int(st, 7) != 0;
      rows_[r.id] = r;
    }
    sqlite3_finalize(st);
    recycled_.clear();
    ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT file_id FROM recycle", -1, &st, nullptr), SQLITE_OK);
    while (sqlite3_step(st) == SQLITE_ROW)
      recycled_.insert(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)));
    sqlite3_finalize(st);
    sqlite3_close(db);
  }

  // "/mydrive/..." of a live row ("" when it or a folder above is not live).
  std::string LivePath(const std::string& id) {
    auto it = rows_.find(id);
    if (it == rows_.end() || it->second.removed || it->second.vanished) return "";
    if (it->second.parent.empty()) return "/mydrive";
    std::string up = LivePath(it->second.parent);
    return up.empty() ? "" : up + "/" + it->second.name;
  }

  static void WalkDisk(const std::string& dir, const std::string& view, std::map<std::string, std::string>* out) {
    DIR* d = opendir(dir.c_str());
    ASSERT_NE(d, nullptr) << dir;
    while (const dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name == "." || name == "..") continue;
      std::string path = dir + "/" + name;
      struct stat st;
      ASSERT_EQ(lstat(path.c_str(), &st), 0);
      if (S_ISDIR(st.st_mode)) {
        (*out)[view + "/" + name] = "/";
        WalkDisk(path, view + "/" + name, out);
      } else {
        (*out)[view + "/" + name] = Sha256(ReadAll(path));
      }
    }
    closedir(d);
  }

  void CheckInvariants() {
    LoadRows();
    std::map<std::string, std::string> disk, db;  // view path -> "/" or hash
    WalkDisk(Home("alice"), "/mydrive", &disk);
    for (const auto& [id, r] : rows_) {
      std::string p = LivePath(id);
      if (p.empty() || p == "/mydrive") continue;
      db[p] = r.type == 1 ? "/" : r.hash;
      if (r.type == 0) {
        EXPECT_EQ(static_cast<size_t>(r.size), ReadAll(Home("alice") + p.substr(8)).size()) << p;
      }
    }
    EXPECT_EQ(disk, db) << "the tree and the database disagree";
    // The bin's records name exactly the removed tops, each on its own in @recycle.
    std::set<std::string> bin;
    for (const auto& [id, r] : rows_) {
      auto parent = rows_.find(r.parent);
      bool top = r.removed && (parent == rows_.end() || !parent->second.removed || recycled_.count(id));
      if (top) bin.insert(id);
    }
    EXPECT_EQ(recycled_, bin) << "the recycle records and the removed rows disagree";
    std::set<std::string> recycled, leftovers;
    for (const std::string& name : List(Data() + "/@recycle")) recycled.insert(name);
    EXPECT_EQ(recycled, bin) << "the recycle bin and its rows disagree";
    for (const std::string& name : List(Tmp())) {
      if (name.rfind("upload-", 0) != 0) leftovers.insert(name);
    }
    EXPECT_TRUE(leftovers.empty()) << "left in @tmp: " << *leftovers.begin();
  }
  static std::vector<std::string> List(const std::string& dir) {
    std::vector<std::string> out;
    DIR* d = opendir(dir.c_str());
    if (!d) return out;
    while (const dirent* e = readdir(d)) {
      if (strcmp(e->d_name, ".") && strcmp(e->d_name, "..")) out.push_back(e->d_name);
    }
    closedir(d);
    return out;
  }

  // The live item with that id: its path, content hash ("/" for a folder).
  std::string PathOf(const std::string& id) { return LivePath(id); }
  std::string HashAt(const std::string& view) {
    for (const auto& [id, r] : rows_) {
      if (LivePath(id) == view) return r.type == 1 ? "/" : r.hash;
    }
    return "";
  }
  bool Purged(const std::string& id) { return rows_.count(id) == 0; }
  bool InBin(const std::string& id) { return rows_.count(id) && rows_[id].removed && !rows_[id].vanished; }
  // Every fixture item not in `may_go` is still live under its id.
  void ExpectKept(const std::set<std::string>& may_go) {
    for (const auto& [path, id] : ids_) {
      if (may_go.count(path)) continue;
      EXPECT_FALSE(PathOf(id).empty()) << path << " (" << id << ") was lost";
    }
  }

  std::map<std::string, std::string> ids_;  // fixture path -> file id
  std::map<std::string, Row> rows_;
  std::set<std::string> recycled_;  // file ids of the recycle table
  std::string task_id_;
};

std::string Base64(const std::string& s) {
  std::string out(sodium_base64_ENCODED_LEN(s.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(&out[0], out.size(), reinterpret_cast<const unsigned char*>(s.data()), s.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  out.resize(strlen(out.c_str()));
  return out;
}

PObject Policy(const char* file, const char* folder) {
  PObject p = PObject::MakeMap();
  p["file"] = file;
  p["folder"] = folder;
  return p;
}

const Op kOps[] = {
    {"upload",
     [](CrashWalkTest* t, Acks* a) {
       Nimbard::FileInfo info;
       a->calls.push_back(t->Client()->UploadFile(t->FileRequest("/mydrive/dst/new.txt", "fresh"), info) == 0);
       if (!a->calls.back()) return;
       a->calls.push_back(
           t->Client()->UploadFile(t->FileRequest("/mydrive/doc.txt", "document v2", "overwrite_server"), info) == 0);
     },
     [](CrashWalkTest* t, const Acks& a) {
       t->ExpectKept({});
       std::string fresh = t->HashAt("/mydrive/dst/new.txt");
       EXPECT_TRUE(fresh.empty() || fresh == CrashWalkTest::Sha256("fresh")) << "half-made upload";
       if (a.calls.size() > 0 && a.calls[0]) {
         EXPECT_EQ(fresh, CrashWalkTest::Sha256("fresh"));
       }
       std::string doc = t->HashAt(t->PathOf(t->Id("/mydrive/doc.txt")));
       if (a.calls.size() > 1 && a.calls[1]) {
         EXPECT_EQ(doc, CrashWalkTest::Sha256("document v2"));
       } else {
         EXPECT_TRUE(doc == CrashWalkTest::Sha256("document v1") || doc == CrashWalkTest::Sha256("document v2"));
       }
     }},
    {"copy",
     [](CrashWalkTest* t, Acks* a) {
       PObject args = TaskHelpers::ItemArgs({"/mydrive/src", "/mydrive/src/a.txt"}, "/mydrive/dst");
       args["conflict"] = Policy("overwrite_server", "autorename");
       t->DoTask(a, "copy", args);
     },
     [](CrashWalkTest* t, const Acks& a) {
       t->ExpectKept({});
       std::string copy = t->HashAt("/mydrive/dst/src");
       if (!copy.empty()) {  // whole or not at all
         EXPECT_EQ(t->HashAt("/mydrive/dst/src/a.txt"), CrashWalkTest::Sha256("alpha"));
         EXPECT_EQ(t->HashAt("/mydrive/dst/src/sub/b.txt"), CrashWalkTest::Sha256("bravo!"));
       }
       EXPECT_TRUE(t->HashAt("/mydrive/dst/src (1)").empty());
       if (a.task_state == "finished") {
         EXPECT_FALSE(copy.empty());
         EXPECT_EQ(t->HashAt("/mydrive/dst/a.txt"), CrashWalkTest::Sha256("alpha"));
       } else {
         EXPECT_EQ(a.task_state, "failed");
       }
     }},
    {"move",
     [](CrashWalkTest* t, Acks* a) {
       t->DoTask(a, "move", TaskHelpers::ItemArgs({"/mydrive/src/sub", "/mydrive/src/a.txt"}, "/mydrive/dst", "overwrite"));
     },
     [](CrashWalkTest* t, const Acks& a) {
       // The moved a.txt gives its content to dst/a.txt, whose id stays.
       bool given = t->HashAt(t->PathOf(t->Id("/mydrive/dst/a.txt"))) == CrashWalkTest::Sha256("alpha");
       EXPECT_NE(given, !t->PathOf(t->Id("/mydrive/src/a.txt")).empty()) << "a.txt kept or given, exactly once";
       t->ExpectKept({"/mydrive/src/a.txt"});
       std::string sub = t->PathOf(t->Id("/mydrive/src/sub"));
       EXPECT_TRUE(sub == "/mydrive/src/sub" || sub == "/mydrive/dst/sub") << sub;
       if (a.task_state == "finished") {
         EXPECT_EQ(sub, "/mydrive/dst/sub");
         EXPECT_TRUE(given);
       }
     }},
    {"delete",
     [](CrashWalkTest* t, Acks* a) {
       if (!t->DoTask(a, "delete", TaskHelpers::DeleteArgs({"/mydrive/src/a.txt"}, false))) return;
       if (!t->DoTask(a, "delete", TaskHelpers::DeleteArgs({"/mydrive/src/sub"}, true))) return;
       t->DoTask(a, "delete", TaskHelpers::DeleteArgs({"id:" + t->Id("/mydrive/src/a.txt")}, true));
     },
     [](CrashWalkTest* t, const Acks&) {
       t->ExpectKept({"/mydrive/src/a.txt", "/mydrive/src/sub", "/mydrive/src/sub/b.txt"});
       const std::string a_id = t->Id("/mydrive/src/a.txt"), sub = t->Id("/mydrive/src/sub");
       EXPECT_TRUE(!t->PathOf(a_id).empty() || t->InBin(a_id) || t->Purged(a_id));
       EXPECT_TRUE((!t->PathOf(sub).empty() && !t->PathOf(t->Id("/mydrive/src/sub/b.txt")).empty()) || t->Purged(sub));
     }},
    {"restore",
     [](CrashWalkTest* t, Acks* a) {
       // sub goes to the bin, then its folder: restoring sub makes src again.
       if (!t->DoTask(a, "delete", TaskHelpers::DeleteArgs({"/mydrive/src/sub"}, false))) return;
       if (!t->DoTask(a, "delete", TaskHelpers::DeleteArgs({"/mydrive/src"}, false))) return;
       PObject args = PObject::MakeMap();
       args["files"] = TaskHelpers::Strings({"id:" + t->Id("/mydrive/src/sub")});
       t->Do(a, "recycle_restore", args);
     },
     [](CrashWalkTest* t, const Acks& a) {
       t->ExpectKept({"/mydrive/src", "/mydrive/src/a.txt", "/mydrive/src/sub", "/mydrive/src/sub/b.txt"});
       const std::string sub = t->Id("/mydrive/src/sub"), b = t->Id("/mydrive/src/sub/b.txt");
       const std::string src = t->Id("/mydrive/src");
       EXPECT_TRUE(t->InBin(sub) || t->PathOf(sub) == "/mydrive/src/sub") << t->PathOf(sub);
       EXPECT_EQ(t->InBin(sub), t->PathOf(b).empty()) << "b.txt follows its folder";
       EXPECT_TRUE(t->InBin(src) || t->PathOf(src) == "/mydrive/src");
       if (a.calls.size() == 3 && a.calls[2]) {
         EXPECT_EQ(t->PathOf(sub), "/mydrive/src/sub");
         EXPECT_EQ(t->PathOf(b), "/mydrive/src/sub/b.txt");
         EXPECT_TRUE(t->InBin(src));
       }
     }},
    {"update",
     [](CrashWalkTest* t, Acks* a) {
       PObject args = PObject::MakeMap();
       args["path"] = "/mydrive/doc.txt";
       args["name"] = "renamed.txt";
       args["file_content"] = Base64("document v2");
       if (!t->Do(a, "update_file", args)) return;
       PObject folder = PObject::MakeMap();
       folder["path"] = "/mydrive/src";
       folder["name"] = "source";
       t->Do(a, "update_file", folder);
     },
     [](CrashWalkTest* t, const Acks& a) {
       t->ExpectKept({});
       std::string doc = t->PathOf(t->Id("/mydrive/doc.txt"));
       std::string hash = t->HashAt(doc);
       bool before = doc == "/mydrive/doc.txt" && hash == CrashWalkTest::Sha256("document v1");
       bool after = doc == "/mydrive/renamed.txt" && hash == CrashWalkTest::Sha256("document v2");
       EXPECT_TRUE(before || after) << doc << " " << hash;
       if (!a.calls.empty() && a.calls[0]) {
         EXPECT_TRUE(after);
       }
       std::string src = t->PathOf(t->Id("/mydrive/src"));
       EXPECT_TRUE(src == "/mydrive/src" || src == "/mydrive/source") << src;
       if (a.calls.size() > 1 && a.calls[1]) {
         EXPECT_EQ(src, "/mydrive/source");
       }
     }},
};

TEST_P(CrashWalkTest, EveryStepLeavesAConsistentTree) {
  const Op& op = kOps[std::get<0>(GetParam())];
  const char* action = std::get<1>(GetParam());
#if defined(__SANITIZE_ADDRESS__)
  if (std::string(action) == "enospc") GTEST_SKIP() << "same paths as eio; walked in the normal build";
#endif
  MakeFixture();
  Snapshot();
  int n = 1;
  while (RunWithFault(op, n, action) && !HasFailure()) {
    ++n;
    ASSERT_LT(n, kMaxSteps) << "the walk does not end";
  }
  EXPECT_GT(n, 3) << "the seam was never reached";
  std::cout << "[ walked    ] " << op.name << " with " << action << ": " << n - 1 << " steps\n";
  Restore();
  Start();
}

INSTANTIATE_TEST_SUITE_P(Ops, CrashWalkTest,
                         ::testing::Combine(::testing::Range(0, 6), ::testing::Values("eio", "enospc", "kill")),
                         [](const ::testing::TestParamInfo<std::tuple<int, const char*>>& info) {
                           return std::string(kOps[std::get<0>(info.param)].name) + "_" + std::get<1>(info.param);
                         });

}  // namespace
}  // namespace orvel::test
