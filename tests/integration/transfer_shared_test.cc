// Copy, move, delete and download of items another user shared with the
// caller (orvelctl share), through the real client against the real
// daemon: what each role allows, where results land, and the refusals (a
// member's delete always goes to the owner's recycle bin); and what a
// permanent delete of a shared, marked folder leaves behind.
#include <sqlite3.h>

#include "syncd_launcher.h"
#include "transfer_test_util.h"

namespace orvel::test {
namespace {

class SharedTransferTest : public SyncdTest, public TaskHelpers {
 protected:
  std::unique_ptr<Nimbard> TaskClient(const std::string& user) override { return Client(user); }

  // alice's /mydrive/Team/{a.txt, sub/b.txt}, shared with bob as `role`.
  void ShareTeam(const std::string& role) {
    team_ = MkDir("/mydrive/Team").file_id;
    a_ = Put("/mydrive/Team/a.txt", "alpha").file_id;
    sub_ = MkDir("/mydrive/Team/sub").file_id;
    b_ = Put("/mydrive/Team/sub/b.txt", "bravo!").file_id;
    Share(role);
  }
  void Share(const std::string& role) {
    std::vector<std::string> argv = {ORVEL_ORVELCTL_PATH, "share", "alice", "/mydrive/Team", "--user", "bob",
                                     "--role", role};
    std::string out;
    ASSERT_EQ(RunCaptured(argv, &out), 0) << out;
  }
  int InfoError(const std::string& user, const std::string& path) {
    Nimbard::FileInfo info;
    auto c = Client(user);
    return c->GetFileInfo(path, info, {}) == 0 ? 0 : c->GetLastError();
  }
  void ExpectRefused(const std::string& op, const PObject& args, int code, const std::string& message) {
    EXPECT_EQ(Call("bob", op, args, nullptr), code) << op;
    EXPECT_EQ(last_message_, message) << op;
  }
  // Rows naming file_id in the tables of marks, shares, links and recent items.
  int RowsNaming(const std::string& id) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open_v2((Data() + "/@db/sync.db").c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    int total = 0;
    for (const char* table : {"stars", "mutes", "item_labels", "shares", "links", "recent", "access_requests"}) {
      sqlite3_stmt* st = nullptr;
      std::string sql = std::string("SELECT COUNT(*) FROM ") + table + " WHERE file_id = ?1";
      EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr), SQLITE_OK) << table;
      sqlite3_bind_text(st, 1, id.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(st) == SQLITE_ROW) total += sqlite3_column_int(st, 0);
      sqlite3_finalize(st);
    }
    sqlite3_close(db);
    return total;
  }
  void Mark(const std::string& user, const std::string& id) {
    PObject star = PObject::MakeMap();
    star["files"] = Strings({"id:" + id});
    star["actions"] = PObject::MakeArray();
    star["actions"].push_back(PObject::MakeMap());
    star["actions"][0]["starred"] = true;
    ASSERT_EQ(Call(user, "edit_star", star, nullptr), 0) << last_message_;
    PObject label = star;
    label["actions"][0] = PObject::MakeMap();
    label["actions"][0]["action"] = "add";
    label["actions"][0]["name"] = "Keep";
    ASSERT_EQ(Call(user, "edit_label", label, nullptr), 0) << last_message_;
  }
  std::string team_, a_, sub_, b_;
};

TEST_F(SharedTransferTest, ViewerCopiesOutAndDownloadsButChangesNothing) {
  ShareTeam("viewer");
  PObject t = RunTask("bob", "copy", ItemArgs({"/shared-with-me/Team/a.txt", "id:" + sub_}, "/mydrive"));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(t["result"]["items"][0]["source"].asString(), "/shared-with-me/Team/a.txt");
  EXPECT_EQ(t["result"]["items"][0]["path"].asString(), "/mydrive/a.txt");
  EXPECT_EQ(t["result"]["items"][1]["path"].asString(), "/mydrive/sub");
  EXPECT_EQ(ReadAll(Home("bob") + "/a.txt"), "alpha");
  EXPECT_EQ(ReadAll(Home("bob") + "/sub/b.txt"), "bravo!");
  EXPECT_EQ(InfoError("bob", "/mydrive/sub/b.txt"), 0);  // bob's own rows now

  // One file is handed over at once; a folder is staged by a task.
  const std::string temp = Tmp() + "/download-shared";
  ASSERT_EQ(mkdir(temp.c_str(), 0755), 0);
  PObject args = PObject::MakeMap();
  args["files"] = Strings({"id:" + b_});
  args["temp_dir"] = temp;
  PObject r;
  ASSERT_EQ(Call("bob", "download", args, &r), 0) << last_message_;
  EXPECT_EQ(ReadAll(r["file_path"].asString()), "bravo!");
  args["files"] = Strings({"/shared-with-me/Team"});
  t = RunTask("bob", "download", args);
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(ReadAll(t["result"]["path"].asString() + "/Team/sub/b.txt"), "bravo!");

  const std::string no_take = "permission denied: /shared-with-me/Team is shared as viewer, which cannot move or delete its items";
  ExpectRefused("move", ItemArgs({"/shared-with-me/Team/a.txt"}, "/shared-with-me/Team/sub"), kErrPermission, no_take);
  ExpectRefused("delete", DeleteArgs({"id:" + b_}, false), kErrPermission,
                "permission denied: /shared-with-me/Team/sub is shared as viewer, which cannot move or delete its items");
  Put("/mydrive/mine.txt", "mine");  // alice's; bob uploads his own below
  Nimbard::FileInfo info;
  auto bob = Client("bob");
  ASSERT_EQ(bob->UploadFile(FileRequest("/mydrive/mine.txt", "bob's"), info), 0);
  ExpectRefused("copy", ItemArgs({"/mydrive/mine.txt"}, "/shared-with-me/Team"), kErrPermission,
                "permission denied: /shared-with-me/Team is shared as viewer, which cannot receive items");
  EXPECT_EQ(ReadAll(Home("alice") + "/Team/a.txt"), "alpha");
  EXPECT_EQ(ReadAll(Home("alice") + "/Team/sub/b.txt"), "bravo!");

  // A commenter is no different; a user without a share reaches nothing.
  Share("commenter");
  ExpectRefused("move", ItemArgs({"/shared-with-me/Team/a.txt"}, "/shared-with-me/Team/sub"), kErrPermission,
                "permission denied: /shared-with-me/Team is shared as commenter, which cannot move or delete its items");
  std::string out;
  ASSERT_EQ(RunCaptured({ORVEL_ORVELCTL_PATH, "unshare", "alice", "/mydrive/Team", "--user", "bob"}, &out), 0) << out;
  ExpectRefused("copy", ItemArgs({"id:" + a_}, "/mydrive"), kErrPermission, "permission denied: id:" + a_);
}

TEST_F(SharedTransferTest, EditorMovesAndDeletesInsideTheSharedFolder) {
  ShareTeam("editor");
  PObject t = RunTask("bob", "move", ItemArgs({"/shared-with-me/Team/a.txt"}, "/shared-with-me/Team/sub"));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(t["result"]["items"][0]["path"].asString(), "/shared-with-me/Team/sub/a.txt");
  EXPECT_EQ(t["result"]["items"][0]["file_id"].asString(), a_);
  EXPECT_EQ(ReadAll(Home("alice") + "/Team/sub/a.txt"), "alpha");
  EXPECT_EQ(InfoError("alice", "/mydrive/Team/sub/a.txt"), 0);

  // What an editor copies in belongs to the folder's owner.
  Nimbard::FileInfo info;
  ASSERT_EQ(Client("bob")->UploadFile(FileRequest("/mydrive/notes.txt", "from bob"), info), 0);
  PObject dry;
  ASSERT_EQ(Call("bob", "copy_dry_run", ItemArgs({"/mydrive/notes.txt"}, "id:" + team_), &dry), 0);
  EXPECT_EQ(dry["items"].asUInt64(), 1u);
  t = RunTask("bob", "copy", ItemArgs({"/mydrive/notes.txt"}, "id:" + team_));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(t["result"]["items"][0]["path"].asString(), "/shared-with-me/Team/notes.txt");
  EXPECT_EQ(ReadAll(Home("alice") + "/Team/notes.txt"), "from bob");
  EXPECT_EQ(InfoError("alice", "/mydrive/Team/notes.txt"), 0);

  t = RunTask("bob", "delete", DeleteArgs({"/shared-with-me/Team/sub/b.txt"}, false));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(t["result"]["items"][0]["source"].asString(), "/shared-with-me/Team/sub/b.txt");
  EXPECT_EQ(InfoError("alice", "id:" + b_), kErrInRecycleBin);
  EXPECT_EQ(InfoError("bob", "id:" + b_), kErrInRecycleBin);
  ExpectRefused("delete", DeleteArgs({"id:" + b_}, true), kErrPermission,
                "permission denied: only the owner can delete id:" + b_ + " for good");
  // Asked for good, a member's delete still goes to the owner's recycle bin;
  // only the owner empties it.
  t = RunTask("bob", "delete", DeleteArgs({"id:" + a_}, true));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_FALSE(t["result"]["items"][0]["permanent"].asBool()) << t.toJsonString();
  EXPECT_FALSE(Exists(Home("alice") + "/Team/sub/a.txt"));
  EXPECT_EQ(ReadAll(Data() + "/@recycle/" + a_), "alpha");
  EXPECT_EQ(InfoError("alice", "id:" + a_), kErrInRecycleBin);
  t = RunTask("alice", "delete", DeleteArgs({"id:" + a_}, true));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_TRUE(t["result"]["items"][0]["permanent"].asBool()) << t.toJsonString();
  EXPECT_FALSE(Exists(Data() + "/@recycle/" + a_));
  EXPECT_EQ(InfoError("alice", "id:" + a_), kErrNotFound);

  // The shared folder itself stays the owner's, and moves stay in its space.
  ExpectRefused("delete", DeleteArgs({"/shared-with-me/Team"}, false), kErrPermission,
                "permission denied: only the owner can move or delete /shared-with-me/Team");
  ExpectRefused("move", ItemArgs({"id:" + team_}, "/shared-with-me/Team/sub"), kErrPermission,
                "permission denied: only the owner can move or delete /shared-with-me/Team");
  ExpectRefused("move", ItemArgs({"/shared-with-me/Team/notes.txt"}, "/mydrive"), kErrPermission,
                "permission denied: /shared-with-me/Team/notes.txt cannot move to another user's space; copy it");
  ExpectRefused("move", ItemArgs({"/mydrive/notes.txt"}, "/shared-with-me/Team"), kErrPermission,
                "permission denied: /mydrive/notes.txt cannot move to another user's space; copy it");
  EXPECT_EQ(InfoError("alice", "/mydrive/Team"), 0);
}

TEST_F(SharedTransferTest, PermanentDeleteRemovesEveryRowNamingThePurgedItems) {
  ShareTeam("viewer");
  Mark("alice", team_);
  Mark("alice", b_);
  Mark("bob", a_);
  std::string out;
  ASSERT_EQ(RunCaptured({ORVEL_ORVELCTL_PATH, "link", "create", "alice", "/mydrive/Team/sub"}, &out), 0) << out;
  Nimbard::FileInfo info;
  ASSERT_EQ(Client("bob")->GetFileInfo("id:" + b_, info, {}), 0);  // a recent entry for bob
  const std::string other = Put("/mydrive/other.txt", "other").file_id;
  Mark("alice", other);
  ASSERT_EQ(RowsNaming(team_), 3);   // star, label, share
  ASSERT_EQ(RowsNaming(b_), 4);      // star, label, recent of alice and of bob
  ASSERT_EQ(RowsNaming(sub_), 1);    // the link

  // To the recycle bin first: everything stays for a restore.
  PObject t = RunTask("alice", "delete", DeleteArgs({"/mydrive/Team"}, false));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  EXPECT_EQ(RowsNaming(team_), 3);
  t = RunTask("alice", "delete", DeleteArgs({"id:" + team_}, true));
  ASSERT_EQ(t["state"].asString(), "finished") << t.toJsonString();
  for (const std::string& id : {team_, a_, sub_, b_}) EXPECT_EQ(RowsNaming(id), 0) << id;
  EXPECT_EQ(RowsNaming(other), 3);  // star, label, recent
  PObject r;
  ASSERT_EQ(Call("bob", "list_shared_with_me", PObject::MakeMap(), &r), 0) << last_message_;
  EXPECT_EQ(r["total"].asUInt64(), 0u);
}

}  // namespace
}  // namespace orvel::test
