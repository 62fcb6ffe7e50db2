// Pure pieces of the transfer area: the archiver's accepted argument lists,
// conflict policies as the wire gives them, office types, and the task
// table's state changes.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>

#include "args.h"
#include "convert.h"
#include "db/store.h"
#include "db/task_store.h"
#include "nimbard/file.h"
#include "transfer.h"
#include "zip_stream.h"

namespace orvel {
namespace {

using archiver::Options;
using archiver::ParseArgs;

TEST(ArchiverArgs, AcceptsTheModulesFourArgumentLists) {
  Options o;
  std::string err;
  ASSERT_TRUE(ParseArgs({"-q", "-0", "-r", "-yf", "-cp", "jpn", "-", "./."}, &o, &err)) << err;
  EXPECT_EQ(o.code_page, "jpn");
  EXPECT_FALSE(o.utf8);
  EXPECT_FALSE(o.include_dot_only);
  EXPECT_EQ(o.folder, "./.");
  ASSERT_TRUE(ParseArgs({"-q", "-0", "-r", "-yf", "-UN=UTF8", "-", "./."}, &o, &err)) << err;
  EXPECT_TRUE(o.utf8);
  ASSERT_TRUE(ParseArgs({"-q", "-0", "-r", "-i", ".", "-yf", "-cp", "", "-", "./."}, &o, &err)) << err;
  EXPECT_TRUE(o.include_dot_only);
  EXPECT_EQ(o.code_page, "");
  ASSERT_TRUE(ParseArgs({"-q", "-0", "-r", "-i", ".", "-yf", "-UN=UTF8", "-", "./."}, &o, &err)) << err;
  EXPECT_TRUE(o.include_dot_only && o.utf8);
}

TEST(ArchiverArgs, RefusesEverythingElse) {
  Options o;
  std::string err;
  EXPECT_FALSE(ParseArgs({"-r", "out.zip", "."}, &o, &err));
  EXPECT_EQ(err, "expected \"-q\" at argument 1, got \"-r\"");
  EXPECT_FALSE(ParseArgs({"-q", "-0", "-r", "-yf", "-", "./."}, &o, &err));
  EXPECT_EQ(err, "expected -cp <code page> or -UN=UTF8");
  EXPECT_FALSE(ParseArgs({"-q", "-0", "-r", "-yf", "-cp"}, &o, &err));
  EXPECT_EQ(err, "-cp needs a code page");
  EXPECT_FALSE(ParseArgs({"-q", "-0", "-r", "-yf", "-UN=UTF8", "out.zip", "./."}, &o, &err));
  EXPECT_EQ(err, "expected \"-\" at argument 6, got \"out.zip\"");
  EXPECT_FALSE(ParseArgs({"-q", "-0", "-r", "-yf", "-UN=UTF8", "-", "a", "b"}, &o, &err));
  EXPECT_EQ(err, "expected exactly one folder after \"-\"");
  EXPECT_FALSE(ParseArgs({"-q", "-0", "-r", "-i", "*", "-yf", "-UN=UTF8", "-", "./."}, &o, &err));
}

TEST(ArchiverArgs, MapsLanguageCodesToCodePages) {
  EXPECT_EQ(archiver::CharsetForCodePage("jpn"), "CP932");
  EXPECT_EQ(archiver::CharsetForCodePage("CHT"), "CP950");
  EXPECT_EQ(archiver::CharsetForCodePage("enu"), "CP1252");
  EXPECT_EQ(archiver::CharsetForCodePage("CP437"), "CP437");
}

TEST(ConflictPolicy, TakesAStringOrAMapPerType) {
  syncd::ConflictPolicy p;
  ASSERT_TRUE(syncd::ParseConflictPolicy(PObject(), "autorename", &p).ok());
  EXPECT_EQ(p.file, "autorename");
  EXPECT_EQ(p.folder, "autorename");
  ASSERT_TRUE(syncd::ParseConflictPolicy(PObject("version"), "stop", &p).ok());
  EXPECT_EQ(p.For(false), "overwrite_server");
  EXPECT_EQ(p.For(true), "overwrite_server");
  ASSERT_TRUE(syncd::ParseConflictPolicy(PObject(""), "stop", &p).ok());
  EXPECT_EQ(p.file, "stop");
  PObject m = PObject::MakeMap();
  m["file"] = "skip";
  m["dir"] = "overwrite";
  ASSERT_TRUE(syncd::ParseConflictPolicy(m, "autorename", &p).ok());
  EXPECT_EQ(p.file, "skip");
  EXPECT_EQ(p.folder, "overwrite");
  m = PObject::MakeMap();
  m["default"] = "stop";
  m["folder"] = "skip";
  ASSERT_TRUE(syncd::ParseConflictPolicy(m, "autorename", &p).ok());
  EXPECT_EQ(p.file, "stop");
  EXPECT_EQ(p.folder, "skip");
}

TEST(ConflictPolicy, RefusesUnknownValues) {
  syncd::ConflictPolicy p;
  Status st = syncd::ParseConflictPolicy(PObject("merge"), "stop", &p);
  EXPECT_EQ(st.code(), kErrInvalidArgument);
  EXPECT_EQ(st.message(), "unknown conflict_policy: \"merge\"");
  st = syncd::ParseConflictPolicy(PObject(3), "stop", &p);
  EXPECT_EQ(st.message(), "conflict policy must be a string");
  PObject m = PObject::MakeMap();
  m["file"] = "sideways";
  EXPECT_EQ(syncd::ParseConflictPolicy(m, "stop", &p).code(), kErrInvalidArgument);
}

TEST(OfficeTypes, ConvertWordExcelAndPowerPointOnly) {
  EXPECT_EQ(syncd::OfficeTargetFormat("Report.DOCX"), "odt");
  EXPECT_EQ(syncd::OfficeTargetFormat("old.doc"), "odt");
  EXPECT_EQ(syncd::OfficeTargetFormat("sheet.xlsx"), "ods");
  EXPECT_EQ(syncd::OfficeTargetFormat("deck.ppt"), "odp");
  EXPECT_EQ(syncd::OfficeTargetFormat("photo.jpg"), "");
  EXPECT_EQ(syncd::OfficeTargetFormat("docx"), "");
  EXPECT_EQ(syncd::FindSoffice("/nonexistent/soffice"), "");
}

class TaskStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/taskstore-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    std::unique_ptr<syncd::Store> nodes;  // creates and migrates the database
    ASSERT_TRUE(syncd::OpenSqliteStore(dir_ + "/sync.db", &nodes).ok());
    ASSERT_TRUE(syncd::OpenSqliteTaskStore(dir_ + "/sync.db", &store_).ok());
  }
  void TearDown() override {
    store_.reset();
    File::Remove(dir_);
  }
  void Add(const std::string& id, int64_t created, const std::string& owner = "alice") {
    syncd::TaskRow r;
    r.task_id = id;
    r.kind = "copy";
    r.owner = owner;
    r.state = "queued";
    r.args = "x";
    r.created = created;
    ASSERT_TRUE(store_->Insert(r).ok());
  }
  std::string dir_;
  std::unique_ptr<syncd::TaskStore> store_;
};

TEST_F(TaskStoreTest, ClaimsTheOldestQueuedTaskOnce) {
  Add("t1", 10);
  Add("t2", 11);
  syncd::TaskRow row;
  bool found = false;
  ASSERT_TRUE(store_->ClaimNext(100, &row, &found).ok());
  ASSERT_TRUE(found);
  EXPECT_EQ(row.task_id, "t1");
  EXPECT_EQ(row.state, "running");
  EXPECT_EQ(row.attempts, 1);
  EXPECT_EQ(row.started, 100);
  ASSERT_TRUE(store_->ClaimNext(100, &row, &found).ok());
  EXPECT_EQ(row.task_id, "t2");
  ASSERT_TRUE(store_->ClaimNext(100, &row, &found).ok());
  EXPECT_FALSE(found);
  std::vector<syncd::TaskRow> running;
  ASSERT_TRUE(store_->ListRunning(&running).ok());
  EXPECT_EQ(running.size(), 2u);
}

TEST_F(TaskStoreTest, CancelEndsAQueuedTaskAndMarksARunningOne) {
  Add("queued", 1);
  Add("running", 2);
  syncd::TaskRow row;
  bool found = false;
  ASSERT_TRUE(store_->ClaimNext(5, &row, &found).ok());  // takes "queued"
  Add("later", 3);
  bool was_queued = false;
  ASSERT_TRUE(store_->RequestCancel("later", 7, &was_queued).ok());
  EXPECT_TRUE(was_queued);
  ASSERT_TRUE(store_->Get("later", &row).ok());
  EXPECT_EQ(row.state, "cancelled");
  EXPECT_EQ(row.error_code, kErrTaskCancelled);
  ASSERT_TRUE(store_->RequestCancel("queued", 7, &was_queued).ok());
  EXPECT_FALSE(was_queued);
  ASSERT_TRUE(store_->Get("queued", &row).ok());
  EXPECT_EQ(row.state, "running");
  EXPECT_TRUE(row.cancel_requested);
  EXPECT_EQ(store_->Get("nope", &row).code(), kErrNotFound);
}

TEST_F(TaskStoreTest, ListsOneOwnersTasksNewestFirstByPageAndState) {
  for (int i = 0; i < 5; ++i) Add("a" + std::to_string(i), 100 + i);
  Add("b0", 200, "bob");
  ASSERT_TRUE(store_->Finish("a1", "finished", "", 0, "", 300).ok());
  ASSERT_TRUE(store_->Finish("a3", "cancelled", "", -1116, "task cancelled", 300).ok());
  ASSERT_TRUE(store_->SetProgress("a4", 2, 4, 512, 1024).ok());
  std::vector<syncd::TaskRow> rows;
  uint64_t total = 0;
  ASSERT_TRUE(store_->ListOwned("alice", {}, 1, 2, &rows, &total).ok());
  EXPECT_EQ(total, 5u);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].task_id, "a3");
  EXPECT_EQ(rows[1].task_id, "a2");
  ASSERT_TRUE(store_->ListOwned("alice", {"finished", "cancelled"}, 0, 10, &rows, &total).ok());
  EXPECT_EQ(total, 2u);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].task_id, "a3");
  EXPECT_EQ(rows[1].task_id, "a1");
  ASSERT_TRUE(store_->ListOwned("alice", {"queued"}, 0, 1, &rows, &total).ok());
  EXPECT_EQ(total, 3u);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].task_id, "a4");
  EXPECT_EQ(rows[0].done, 2u);
  EXPECT_EQ(rows[0].bytes_done, 512u);
  EXPECT_EQ(rows[0].bytes_total, 1024u);
  ASSERT_TRUE(store_->ListOwned("carol", {}, 0, 10, &rows, &total).ok());
  EXPECT_EQ(total, 0u);
  EXPECT_TRUE(rows.empty());

  // The owner's rows are found through the owner index, in its order.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((dir_ + "/sync.db").c_str(), &db), SQLITE_OK);
  sqlite3_stmt* st = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db,
                               "EXPLAIN QUERY PLAN SELECT task_id FROM tasks WHERE owner = 'alice' AND"
                               " ('' = '' OR instr('', state) > 0) ORDER BY id DESC LIMIT 2 OFFSET 1",
                               -1, &st, nullptr),
            SQLITE_OK);
  std::string plan;
  while (sqlite3_step(st) == SQLITE_ROW) plan += reinterpret_cast<const char*>(sqlite3_column_text(st, 3));
  sqlite3_finalize(st);
  sqlite3_close(db);
  EXPECT_NE(plan.find("USING INDEX tasks_owner"), std::string::npos) << plan;
  EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << plan;
}

TEST_F(TaskStoreTest, PrunesOnlyTasksThatEndedLongAgo) {
  Add("old", 1);
  Add("new", 2);
  Add("open", 3);
  ASSERT_TRUE(store_->Finish("old", "finished", "r", 0, "", 100).ok());
  ASSERT_TRUE(store_->Finish("new", "failed", "", kErrTaskFailed, "boom", 500).ok());
  uint64_t removed = 0;
  ASSERT_TRUE(store_->PruneEnded(200, &removed).ok());
  EXPECT_EQ(removed, 1u);
  std::vector<syncd::TaskRow> all;
  ASSERT_TRUE(store_->List("", 10, &all).ok());
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].task_id, "open");
  EXPECT_EQ(all[1].error_message, "boom");
  ASSERT_TRUE(store_->List("bob", 10, &all).ok());
  EXPECT_TRUE(all.empty());
}

}  // namespace
}  // namespace orvel
