// orvel-syncd copy, move, delete and their dry runs as tasks, the task ops
// and their restart rules, through the real Nimbard client.
#include <sqlite3.h>

#include "syncd_launcher.h"
#include "transfer_test_util.h"

namespace orvel::test {
namespace {

class TransferTasksTest : public SyncdTest, public TaskHelpers {
 protected:
  std::unique_ptr<Nimbard> TaskClient(const std::string& user) override { return Client(user); }

  // /mydrive/src/{a.txt, sub/b.txt} and /mydrive/dst.
  void MakeTree() {
    MkDir("/mydrive/src");
    Put("/mydrive/src/a.txt", "alpha");
    MkDir("/mydrive/src/sub");
    Put("/mydrive/src/sub/b.txt", "bravo!");
    MkDir("/mydrive/dst");
  }
  std::string IdOf(const std::string& path) {
    Nimbard::FileInfo info;
    auto c = Client();
    if (c->GetFileInfo(path, info, {}) != 0) return "";
    return info.file_id;
  }
  int Orvelctl(std::vector<std::string> args, std::string* out) {
    args.insert(args.begin(), ORVEL_ORVELCTL_PATH);
    return RunCaptured(args, out);
  }
  int InfoError(const std::string& path) {
    Nimbard::FileInfo info;
    auto c = Client();
    return c->GetFileInfo(path, info, {}) == 0 ? 0 : c->GetLastError();
  }
};

TEST_F(TransferTasksTest, CopyMakesNewItemsWithTheSameContent) {
  MakeTree();
  PObject task = RunTask("alice", "copy", ItemArgs({"/mydrive/src", "/mydrive/src/a.txt"}, "/mydrive/dst"));
  ASSERT_EQ(task["state"].asString(), "finished") << task.toJsonString();
  EXPECT_EQ(task["progress"]["done"].asUInt64(), 5u);
  EXPECT_EQ(task["result"]["items"][0]["path"].asString(), "/mydrive/dst/src");
  EXPECT_EQ(task["result"]["items"][1]["path"].asString(), "/mydrive/dst/a.txt");
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/src/sub/b.txt"), "bravo!");
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/a.txt"), "alpha");
  EXPECT_NE(IdOf("/mydrive/dst/src/sub/b.txt"), IdOf("/mydrive/src/sub/b.txt"));
  EXPECT_FALSE(IdOf("/mydrive/dst/src/sub/b.txt").empty());
  EXPECT_EQ(ReadAll(Home("alice") + "/src/a.txt"), "alpha");
}

TEST_F(TransferTasksTest, CopyAppliesEachConflictPolicy) {
  MakeTree();
  Nimbard::FileInfo old = Put("/mydrive/dst/a.txt", "old");
  PObject t = RunTask("alice", "copy", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst"));
  EXPECT_EQ(t["result"]["items"][0]["path"].asString(), "/mydrive/dst/a (1).txt");  // default autorename

  t = RunTask("alice", "copy", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst", "stop"));
  EXPECT_EQ(t["state"].asString(), "failed");
  EXPECT_EQ(t["error"]["code"].asInt64(), kErrNameExists);
  EXPECT_EQ(t["error"]["message"].asString(), "name already exists: /mydrive/dst/a.txt");

  t = RunTask("alice", "copy", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst", "skip"));
  EXPECT_TRUE(t["result"]["items"][0]["skipped"].asBool());
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/a.txt"), "old");

  t = RunTask("alice", "copy", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst", "version"));
  EXPECT_EQ(t["result"]["items"][0]["file_id"].asString(), old.file_id);
  Nimbard::FileInfo now;
  ASSERT_EQ(Client()->GetFileInfo("/mydrive/dst/a.txt", now, {}), 0);
  EXPECT_EQ(now.revisions, 1u);
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/a.txt"), "alpha");
  EXPECT_EQ(ReadAll(Data() + "/@versions/" + Sha256("old")), "old");
}

TEST_F(TransferTasksTest, CopyMergesFoldersUnderOverwrite) {
  MakeTree();
  MkDir("/mydrive/dst/src");
  Put("/mydrive/dst/src/keep.txt", "keep");
  Put("/mydrive/dst/src/a.txt", "old");
  PObject t = RunTask("alice", "copy", ItemArgs({"/mydrive/src"}, "/mydrive/dst", "overwrite"));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/src/a.txt"), "alpha");
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/src/keep.txt"), "keep");
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/src/sub/b.txt"), "bravo!");
}

TEST_F(TransferTasksTest, DryRunsCountItemsAndReportConflictsWithoutATask) {
  MakeTree();
  Put("/mydrive/dst/a.txt", "old");
  PObject r;
  ASSERT_EQ(Call("alice", "copy_dry_run", ItemArgs({"/mydrive/src", "/mydrive/src/a.txt"}, "/mydrive/dst"), &r), 0);
  EXPECT_EQ(r["items"].asUInt64(), 5u);
  EXPECT_EQ(r["size"].asUInt64(), 16u);
  ASSERT_EQ(r["conflicts"].size(), 1u);
  EXPECT_EQ(r["conflicts"][0]["source"].asString(), "/mydrive/src/a.txt");
  EXPECT_EQ(r["conflicts"][0]["target"].asString(), "/mydrive/dst/a.txt");
  EXPECT_EQ(r["conflicts"][0]["policy"].asString(), "autorename");
  ASSERT_EQ(Call("alice", "move_dry_run", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/src"), &r), 0);
  EXPECT_EQ(r["conflicts"].size(), 0u) << "moving an item where it is is no conflict";
  PObject list;
  ASSERT_EQ(Call("", "admin_task_list", PObject::MakeMap(), &list), 0);
  EXPECT_EQ(list["tasks"].size(), 0u);
}

TEST_F(TransferTasksTest, RefusesBadSelectionsBeforeAnyTask) {
  MakeTree();
  struct Case {
    const char* op;
    std::vector<std::string> files;
    const char* dest;
    int code;
    const char* message;
  } cases[] = {
      {"copy", {"/mydrive/src"}, "/mydrive/src/sub", kErrIntoItself,
       "cannot copy a folder into itself: /mydrive/src"},
      {"move", {"/mydrive/src"}, "/mydrive/src", kErrIntoItself,
       "cannot move a folder into itself: /mydrive/src"},
      {"move_dry_run", {"/mydrive/src"}, "/mydrive/src/sub", kErrIntoItself,
       "cannot move a folder into itself: /mydrive/src"},
      {"copy", {"/mydrive/nope"}, "/mydrive/dst", kErrNotFound, "item not found: /mydrive/nope"},
      {"copy", {"/mydrive/src/a.txt"}, "/mydrive/src/a.txt", kErrNotFolder, "not a folder: /mydrive/src/a.txt"},
      {"move", {"/mydrive/src/a.txt"}, "/mydrive/gone", kErrNotFound, "item not found: /mydrive/gone"},
      {"copy", {}, "/mydrive/dst", kErrInvalidArgument, "no items given"},
      {"copy", {"/mydrive/src"}, "", kErrInvalidArgument, "no destination folder given"},
      {"move", {"/mydrive"}, "/mydrive/dst", kErrInvalidArgument, "cannot move /mydrive itself"},
      {"copy", {"/mydrive/../x"}, "/mydrive/dst", kErrInvalidName, ""},
  };
  for (const Case& c : cases) {
    PObject r;
    EXPECT_EQ(Call("alice", c.op, ItemArgs(c.files, c.dest), &r), c.code) << c.op << " " << c.dest;
    if (*c.message) {
      EXPECT_EQ(last_message_, c.message);
    }
  }
  PObject args = ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst", "bogus");
  EXPECT_EQ(Call("alice", "copy", args, nullptr), kErrInvalidArgument);
  EXPECT_EQ(last_message_, "unknown conflict_policy: \"bogus\"");
  args = ItemArgs({"/mydrive/src/a.txt", "/mydrive/src/sub"}, "/mydrive/dst");
  args["change_name"] = "x";
  EXPECT_EQ(Call("alice", "move", args, nullptr), kErrInvalidArgument);
  EXPECT_EQ(last_message_, "change_name needs exactly one item");
  std::string bob_id = IdOf("/mydrive/src");
  EXPECT_EQ(Call("bob", "copy", ItemArgs({"id:" + bob_id}, "/mydrive"), nullptr), kErrPermission);
}

TEST_F(TransferTasksTest, MoveKeepsTheIdentityAndRenamesWithChangeName) {
  MakeTree();
  const std::string id = IdOf("/mydrive/src/a.txt");
  PObject args = ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst");
  args["change_name"] = "renamed.txt";
  PObject t = RunTask("alice", "move", args);
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(IdOf("/mydrive/dst/renamed.txt"), id);
  EXPECT_EQ(InfoError("/mydrive/src/a.txt"), kErrNotFound);
  EXPECT_FALSE(Exists(Home("alice") + "/src/a.txt"));

  const std::string folder = IdOf("/mydrive/src");
  t = RunTask("alice", "move", ItemArgs({"/mydrive/src"}, "/mydrive/dst"));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(IdOf("/mydrive/dst/src"), folder);
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/src/sub/b.txt"), "bravo!");
}

TEST_F(TransferTasksTest, MoveOverAFileReplacesItsContentUnderOverwrite) {
  MakeTree();
  Nimbard::FileInfo target = Put("/mydrive/dst/a.txt", "old");
  PObject t = RunTask("alice", "move", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst", "overwrite"));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(IdOf("/mydrive/dst/a.txt"), target.file_id);
  EXPECT_EQ(ReadAll(Home("alice") + "/dst/a.txt"), "alpha");
  EXPECT_EQ(InfoError("/mydrive/src/a.txt"), kErrNotFound);
}

TEST_F(TransferTasksTest, DeleteToTheRecycleBinKeepsTheItem) {
  MakeTree();
  const std::string id = IdOf("/mydrive/src");
  const std::string child = IdOf("/mydrive/src/sub/b.txt");
  PObject t = RunTask("alice", "delete", DeleteArgs({"/mydrive/src"}, false));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(InfoError("/mydrive/src"), kErrNotFound);
  EXPECT_EQ(InfoError("id:" + id), kErrInRecycleBin);
  EXPECT_EQ(InfoError("id:" + child), kErrInRecycleBin);
  EXPECT_EQ(ReadAll(Data() + "/@recycle/" + id + "/sub/b.txt"), "bravo!");
  // The name is free again, and a restart keeps the removed rows as they are.
  MkDir("/mydrive/src");
  Stop();
  Start();
  EXPECT_EQ(InfoError("id:" + id), kErrInRecycleBin);

  t = RunTask("alice", "delete", DeleteArgs({"id:" + id}, true));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(InfoError("id:" + id), kErrNotFound);
  EXPECT_FALSE(Exists(Data() + "/@recycle/" + id));
}

TEST_F(TransferTasksTest, PermanentDeleteRemovesContentAndRows) {
  MakeTree();
  const std::string id = IdOf("/mydrive/src/sub");
  PObject t = RunTask("alice", "delete", DeleteArgs({"/mydrive/src/sub", "/mydrive/src/a.txt"}, true));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(InfoError("id:" + id), kErrNotFound);
  EXPECT_FALSE(Exists(Home("alice") + "/src/sub"));
  EXPECT_FALSE(Exists(Home("alice") + "/src/a.txt"));
  PObject r;
  EXPECT_EQ(Call("alice", "delete", DeleteArgs({"/mydrive"}, true), &r), kErrInvalidArgument);
  EXPECT_EQ(last_message_, "cannot delete /mydrive itself");
  EXPECT_EQ(Call("alice", "delete", DeleteArgs({}, false), &r), kErrInvalidArgument);
}

TEST_F(TransferTasksTest, TasksBelongToTheirOwner) {
  MakeTree();
  PObject t = RunTask("alice", "copy", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst"));
  PObject args = PObject::MakeMap();
  args["task_id"] = t["task_id"];
  PObject r;
  EXPECT_EQ(Call("bob", "task_get", args, &r), kErrTaskNotFound);
  args["task_id"] = "0123";
  EXPECT_EQ(Call("alice", "task_get", args, &r), kErrTaskNotFound);
  EXPECT_EQ(last_message_, "task not found: 0123");
  EXPECT_EQ(Call("alice", "admin_task_show", args, &r), kErrTaskNotFound);
}

// A task row left "running" by a killed daemon, with its staged copy.
void PlantRunningTask(const std::string& db_path, const std::string& id, const std::string& kind,
                      const std::string& args_msgpack) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(db_path.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* st = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db,
                               "INSERT INTO tasks (task_id, kind, owner, state, args, done, total, created,"
                               " started, attempts) VALUES (?1, ?2, 'alice', 'running', ?3, 1, 3, 1, 1, 1)",
                               -1, &st, nullptr),
            SQLITE_OK);
  sqlite3_bind_text(st, 1, id.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(st, 2, kind.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_blob(st, 3, args_msgpack.data(), static_cast<int>(args_msgpack.size()), SQLITE_TRANSIENT);
  EXPECT_EQ(sqlite3_step(st), SQLITE_DONE);
  sqlite3_finalize(st);
  sqlite3_close(db);
}

TEST_F(TransferTasksTest, RestartFailsInterruptedCopiesAndRedoesStaging) {
  MakeTree();
  const std::string src = IdOf("/mydrive/src");
  Stop();
  PObject copy_args = PObject::MakeMap();
  copy_args["sources"].push_back(src);
  copy_args["dest"] = IdOf("/mydrive/dst");
  PObject dl_args = PObject::MakeMap();
  dl_args["sources"].push_back(src);
  PlantRunningTask(Data() + "/@db/sync.db", "c0ffee", "copy", wire::Encode(copy_args));
  PlantRunningTask(Data() + "/@db/sync.db", "d0wn", "download", wire::Encode(dl_args));
  ASSERT_EQ(system(("mkdir -p '" + Tmp() + "/task-c0ffee-copy-0/half'").c_str()), 0);
  Start();
  PObject copy = WaitTask("alice", "c0ffee");
  EXPECT_EQ(copy["state"].asString(), "failed");
  EXPECT_EQ(copy["error"]["code"].asInt64(), kErrTaskFailed);
  EXPECT_EQ(copy["error"]["message"].asString(),
            "task interrupted by a service restart after 1 of 3 items; finished items are kept, the item in progress was taken back");
  EXPECT_FALSE(Exists(Tmp() + "/task-c0ffee-copy-0"));
  PObject dl = WaitTask("alice", "d0wn");
  EXPECT_EQ(dl["state"].asString(), "finished") << dl.toJsonString();
  EXPECT_EQ(dl["attempts"].asInt64(), 2);
  EXPECT_EQ(ReadAll(dl["result"]["path"].asString() + "/src/sub/b.txt"), "bravo!");
}

// Downloads hand out hard links in @tmp; content deleted for good must not
// stay reachable through them.
TEST_F(TransferTasksTest, PermanentDeleteRemovesDownloadLinksOfItsContent) {
  MakeTree();
  Put("/mydrive/keep.txt", "keep");
  PObject args = PObject::MakeMap();
  args["files"] = Strings({"/mydrive/src", "/mydrive/keep.txt"});
  PObject staged = RunTask("alice", "download", args);
  ASSERT_EQ(staged["state"].asString(), "finished") << staged.toJsonString();
  const std::string staging = staged["result"]["path"].asString();
  ASSERT_EQ(system(("mkdir '" + Tmp() + "/download-one'").c_str()), 0);
  PObject one = PObject::MakeMap();
  one["files"] = Strings({"/mydrive/src/a.txt"});
  one["temp_dir"] = Tmp() + "/download-one";
  ASSERT_EQ(Call("alice", "download", one, nullptr), 0) << last_message_;
  ASSERT_EQ(ReadAll(Tmp() + "/download-one/a.txt"), "alpha");

  PObject t = RunTask("alice", "delete", DeleteArgs({"/mydrive/src"}, true));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_FALSE(Exists(Tmp() + "/download-one/a.txt"));
  EXPECT_FALSE(Exists(staging + "/src/a.txt"));
  EXPECT_FALSE(Exists(staging + "/src/sub/b.txt"));
  EXPECT_EQ(ReadAll(staging + "/keep.txt"), "keep") << "links of live content stay";
}

TEST_F(TransferTasksTest, OrvelctlListsShowsAndCancelsTasks) {
  MakeTree();
  PObject t = RunTask("alice", "copy", ItemArgs({"/mydrive/src/a.txt"}, "/mydrive/dst"));
  const std::string id = t["task_id"].asString();
  std::string out;
  EXPECT_EQ(Orvelctl({"task", "list"}, &out), 0) << out;
  EXPECT_NE(out.find(id + "  copy"), std::string::npos) << out;
  EXPECT_NE(out.find("finished"), std::string::npos) << out;
  EXPECT_EQ(Orvelctl({"task", "show", id}, &out), 0) << out;
  EXPECT_NE(out.find("state:    finished"), std::string::npos) << out;
  EXPECT_EQ(Orvelctl({"task", "cancel", id}, &out), 0) << out;
  EXPECT_NE(out.find("state:    finished"), std::string::npos) << "an ended task stays as it ended";
  EXPECT_EQ(Orvelctl({"task", "show", "nope"}, &out), 1);
  EXPECT_NE(out.find("admin_task_show failed: task not found: nope (-705)"), std::string::npos) << out;
  EXPECT_EQ(Orvelctl({"task"}, &out), 2);
}

}  // namespace
}  // namespace orvel::test
