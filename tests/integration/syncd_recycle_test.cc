// The recycle bin against the real daemon: what was kept longer than
// recycle_keep_days goes for good when the daemon starts (the removal time
// is backdated in the database of the stopped daemon, so no test waits), 0
// keeps everything, and a folder deleted for good takes with it the content
// of items deleted earlier from below it.
#include <sqlite3.h>

#include <fstream>

#include "syncd_launcher.h"
#include "transfer_test_util.h"

namespace orvel::test {
namespace {

class RecycleDaemonTest : public SyncdTest, public TaskHelpers {
 protected:
  std::unique_ptr<Nimbard> TaskClient(const std::string& user) override { return Client(user); }

  void ToBin(const std::string& path, bool permanent = false) {
    EXPECT_EQ(RunTask("alice", "delete", DeleteArgs({path}, permanent))["state"].asString(), "finished") << path;
  }
  // Runs one statement on the database of the stopped daemon; returns the
  // first column of the first row ("" when none).
  std::string Sql(const std::string& sql) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open((Data() + "/@db/sync.db").c_str(), &db), SQLITE_OK);
    sqlite3_stmt* st = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    std::string out;
    if (sqlite3_step(st) == SQLITE_ROW && sqlite3_column_text(st, 0))
      out = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
    sqlite3_finalize(st);
    sqlite3_close(db);
    return out;
  }
  void Backdate(const std::string& id, int days) {
    Sql("UPDATE recycle SET removed_time = removed_time - " + std::to_string(days * 86400) +
        " WHERE file_id = '" + id + "'");
  }
  std::string Rows(const std::string& id) {
    return Sql("SELECT COUNT(*) FROM nodes WHERE file_id = '" + id + "'") + "/" +
           Sql("SELECT COUNT(*) FROM recycle WHERE file_id = '" + id + "'");
  }
  void WriteConfig(const std::string& json) {
    std::ofstream(root_ + "/var/packages/ZemoraOrvel/target/etc/orvel.conf") << json;
  }
};

TEST_F(RecycleDaemonTest, StartUpPurgesWhatWasKeptLongerThanTheConfiguredDays) {
  const std::string old_id = Put("/mydrive/old.txt", "old").file_id;
  const std::string new_id = Put("/mydrive/new.txt", "new").file_id;
  MkDir("/mydrive/Dir");
  const std::string dir_id = Put("/mydrive/Dir/inner.txt", "inner").file_id;
  ToBin("/mydrive/old.txt");
  ToBin("/mydrive/new.txt");
  ToBin("/mydrive/Dir/inner.txt");
  ASSERT_EQ(Stop(), 0);
  Backdate(old_id, 31);  // the default keeps 30 days
  Backdate(new_id, 29);
  Start();
  ASSERT_EQ(Stop(), 0);
  EXPECT_FALSE(Exists(Data() + "/@recycle/" + old_id));
  EXPECT_EQ(Rows(old_id), "0/0");
  EXPECT_TRUE(Exists(Data() + "/@recycle/" + new_id));
  EXPECT_EQ(Rows(new_id), "1/1");
  EXPECT_EQ(Rows(dir_id), "1/1");

  // 0 keeps everything, however old; 1 day purges what is older.
  WriteConfig("{\"web_account\": \"\", \"recycle_keep_days\": 0}\n");
  Backdate(new_id, 3650);
  Start();
  ASSERT_EQ(Stop(), 0);
  EXPECT_EQ(Rows(new_id), "1/1");
  WriteConfig("{\"web_account\": \"\", \"recycle_keep_days\": 1}\n");
  Start();
  EXPECT_EQ(Rows(dir_id), "1/1");  // removed today: kept
  ASSERT_EQ(Stop(), 0);
  EXPECT_EQ(Rows(new_id), "0/0");
  EXPECT_FALSE(Exists(Data() + "/@recycle/" + new_id));
  Start();
}

TEST_F(RecycleDaemonTest, FolderDeletedForGoodTakesWhatWasDeletedFromBelowIt) {
  MkDir("/mydrive/F");
  MkDir("/mydrive/F/G");
  const std::string x = Put("/mydrive/F/G/x.txt", "x").file_id;
  const std::string g = Put("/mydrive/F/G/y.txt", "y").file_id;
  ToBin("/mydrive/F/G/x.txt");
  ASSERT_TRUE(Exists(Data() + "/@recycle/" + x));
  ToBin("/mydrive/F", true);
  EXPECT_FALSE(Exists(Data() + "/@recycle/" + x));
  EXPECT_EQ(system(("test -z \"$(ls -A " + Tmp() + ")\"").c_str()), 0) << "left in @tmp";
  PObject listed;
  ASSERT_EQ(Call("alice", "recycle_list", PObject::MakeMap(), &listed), 0) << last_message_;
  EXPECT_EQ(listed["total"].asUInt64(), 0u);
  ASSERT_EQ(Stop(), 0);
  EXPECT_EQ(Rows(x), "0/0");
  EXPECT_EQ(Rows(g), "0/0");
  Start();
}

TEST_F(RecycleDaemonTest, RestoreAnswersNotFoundAlikeForOtherUsersAndUnknownIds) {
  const std::string id = Put("/mydrive/mine.txt", "mine").file_id;
  ToBin("/mydrive/mine.txt");
  PObject args = PObject::MakeMap(), result;
  args["files"] = Strings({"id:" + id});
  EXPECT_EQ(Call("bob", "recycle_restore", args, &result), -502);
  EXPECT_EQ(last_message_, "item not found in the recycle bin: id:" + id);
  args["files"] = Strings({"nothing-here"});
  EXPECT_EQ(Call("alice", "recycle_restore", args, &result), -502);
  EXPECT_EQ(last_message_, "item not found in the recycle bin: id:nothing-here");
  args["files"] = Strings({id});  // a bare id works too
  args["conflict"] = "overwrite";
  EXPECT_EQ(Call("alice", "recycle_restore", args, &result), -1101);
  EXPECT_EQ(last_message_, "conflict must be \"stop\" or \"autorename\"");
  args["conflict"] = "stop";
  ASSERT_EQ(Call("alice", "recycle_restore", args, &result), 0) << last_message_;
  EXPECT_EQ(result["items"][0]["path"].asString(), "/mydrive/mine.txt");
  EXPECT_TRUE(Exists(Home("alice") + "/mine.txt"));
}

}  // namespace
}  // namespace orvel::test
