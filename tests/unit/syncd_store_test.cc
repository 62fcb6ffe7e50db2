// The SQLite store of orvel-syncd: migrations on fresh, old and too-new
// databases, the listing SQL and its query plans, paging and totals, the
// maintained child counters, change numbers, the unlink queue and look-ups
// by name under either Unicode spelling.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "db/list_sql.h"
#include "db/schema.h"
#include "db/store.h"
#include "service_state.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/syncd-store-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    path_ = dir_ + "/sync.db";
  }
  void TearDown() override {
    store_.reset();
    RemoveTree(dir_);
  }
  void Open() {
    Status st = OpenSqliteStore(path_, &store_);
    ASSERT_TRUE(st.ok()) << st.ToString();
  }
  Node Add(const std::string& parent, const std::string& name, int type, uint64_t size = 0,
           int64_t mtime = 0) {
    Node n;
    n.file_id = parent.empty() ? "root" : parent + "/" + name;
    n.parent_id = parent;
    n.owner = "alice";
    n.name = name;
    n.type = type;
    n.size = size;
    n.modified_time = mtime;
    n.ext = ExtensionOf(name);
    Status st = store_->Insert(&n);
    EXPECT_TRUE(st.ok()) << st.ToString();
    return n;
  }
  std::vector<std::string> Names(const ListQuery& q, uint64_t* total = nullptr) {
    std::vector<Node> items;
    uint64_t t = 0;
    Status st = store_->ListPage(q, &items, &t);
    EXPECT_TRUE(st.ok()) << st.ToString();
    if (total) *total = t;
    std::vector<std::string> out;
    for (const Node& n : items) out.push_back(n.name);
    return out;
  }
  std::string dir_, path_;
  std::unique_ptr<Store> store_;
};

TEST_F(StoreTest, FreshDatabaseGetsEveryMigration) {
  Open();
  StoreStats s;
  ASSERT_TRUE(store_->Stats(&s).ok());
  EXPECT_EQ(s.schema_version, static_cast<uint64_t>(LatestSchemaVersion()));
  std::string state;
  ASSERT_TRUE(store_->GetState("status", &state).ok());
  EXPECT_EQ(state, "enabled");
}

TEST_F(StoreTest, OldDatabaseIsMigratedKeepingItsRows) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  ASSERT_TRUE(MigrateSqlite(db, 1).ok());
  ASSERT_EQ(sqlite3_exec(db,
                         "INSERT INTO nodes (file_id, parent_id, owner, name, type) VALUES"
                         " ('r', '', 'bob', '', 1), ('c', 'r', 'bob', 'x.txt', 0)",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  int version = 0;
  ASSERT_TRUE(ReadSchemaVersion(db, &version).ok());
  EXPECT_EQ(version, 1);
  sqlite3_close(db);

  Open();
  StoreStats s;
  ASSERT_TRUE(store_->Stats(&s).ok());
  EXPECT_EQ(s.schema_version, static_cast<uint64_t>(LatestSchemaVersion()));
  Node root;
  ASSERT_TRUE(store_->GetById("r", &root).ok());
  EXPECT_EQ(root.child_count, 1u);  // kept by the version-1 triggers
  Node child;
  ASSERT_TRUE(store_->GetChild("r", "x.txt", &child).ok());
  EXPECT_TRUE(store_->PushUnlink("/x", 0).ok());  // a version-3 table
  Node home;
  ASSERT_TRUE(store_->GetRoot("bob", &home).ok());  // through the rebuilt home index
  EXPECT_EQ(home.file_id, "r");
}

// A group of reads opens its own read transaction, or joins the one already
// open and leaves it open for its owner to commit.
TEST_F(StoreTest, ReadSnapshotJoinsAnOpenTransactionAndEndsOnlyItsOwn) {
  Open();
  {
    ReadSnapshot snapshot(store_.get());
    EXPECT_TRUE(store_->InTransaction());
  }
  EXPECT_FALSE(store_->InTransaction());
  Transaction tx(store_.get(), true);
  ASSERT_TRUE(tx.status().ok());
  Node root = Add("", "", 1);
  {
    ReadSnapshot snapshot(store_.get());
    Node seen;
    EXPECT_TRUE(store_->GetById(root.file_id, &seen).ok());  // the write is visible inside
  }
  EXPECT_TRUE(store_->InTransaction());
  ASSERT_TRUE(tx.Commit().ok());
  Node kept;
  EXPECT_TRUE(store_->GetById(root.file_id, &kept).ok());
}

// Each look-up runs in many folders; its statement must keep its compiled
// plan whatever folder it is bound to.
TEST_F(StoreTest, LookUpsKeepTheirCompiledPlanFromFolderToFolder) {
  Open();
  Node root = Add("", "", 1);
  for (const char* folder : {"a", "b", "c"}) {
    Node f = Add(root.file_id, folder, 1);
    Add(f.file_id, "x.txt", 0);
    Add(f.file_id, "y.txt", 0);
  }
  for (const char* folder : {"a", "b", "c"}) {
    Node f, child;
    ASSERT_TRUE(store_->GetChild(root.file_id, folder, &f).ok());
    ASSERT_TRUE(store_->GetChild(f.file_id, "y.txt", &child).ok());
    ListQuery q;
    q.parent_id = f.file_id;
    q.limit = 10;
    EXPECT_EQ(Names(q), (std::vector<std::string>{"x.txt", "y.txt"}));
    Node home;
    ASSERT_TRUE(store_->GetRoot("alice", &home).ok());
  }
  StoreStats s;
  ASSERT_TRUE(store_->Stats(&s).ok());
  EXPECT_EQ(s.recompiled, 0u);
}

// A child is found under any Unicode spelling of its name, its own bytes
// first; a name that is not UTF-8 is found by its bytes only.
TEST_F(StoreTest, ChildIsFoundUnderEitherSpellingOfItsName) {
  Open();
  Add("", "", 1);
  Add("root", "cafe\xcc\x81", 1);       // NFD, as a Mac client writes it
  Add("root", "r\xc3\xa9sum\xc3\xa9", 0);  // NFC
  Add("root", "bad\xff", 0);
  Node n;
  ASSERT_TRUE(store_->GetChild("root", "caf\xc3\xa9", &n).ok());
  EXPECT_EQ(n.name, "cafe\xcc\x81");
  ASSERT_TRUE(store_->GetChild("root", "re\xcc\x81sume\xcc\x81", &n).ok());
  EXPECT_EQ(n.name, "r\xc3\xa9sum\xc3\xa9");
  ASSERT_TRUE(store_->GetChild("root", "bad\xff", &n).ok());
  Status st = store_->GetChild("root", "CAF\xc3\x89", &n);
  EXPECT_EQ(st.code(), kErrNotFound);
  EXPECT_EQ(st.message(), "no item named CAF\xc3\x89");
  // Both spellings stored (made on disk): each finds itself.
  Add("root", "caf\xc3\xa9", 0);
  ASSERT_TRUE(store_->GetChild("root", "caf\xc3\xa9", &n).ok());
  EXPECT_EQ(n.type, 0);
  ASSERT_TRUE(store_->GetChild("root", "cafe\xcc\x81", &n).ok());
  EXPECT_EQ(n.type, 1);
}

TEST_F(StoreTest, NewerDatabaseIsRefused) {
  Open();
  store_.reset();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "UPDATE schema_version SET version = 99", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  Status st = OpenSqliteStore(path_, &store_);
  EXPECT_EQ(st.code(), kErrInternal);
  EXPECT_EQ(st.message(), path_ + ": database schema version 99 is newer than this daemon (" +
                              std::to_string(LatestSchemaVersion()) + ")");
}

// The one table of migrations (nodes, browsing and tasks parts together)
// is strictly increasing, so no number repeats and none hides below another.
TEST(MigrationTable, VersionsStrictlyIncreaseAcrossAllParts) {
  const std::vector<Migration>& all = SqliteMigrations();
  ASSERT_FALSE(all.empty());
  Status st = CheckMigrationOrder(all);
  EXPECT_TRUE(st.ok()) << st.ToString();
  for (size_t i = 1; i < all.size(); ++i) EXPECT_LT(all[i - 1].version, all[i].version) << i;
  EXPECT_EQ(LatestSchemaVersion(), all.back().version);
}

// A table with a number out of place (or repeated) is refused as a whole,
// before anything runs, instead of the late entry being skipped.
TEST_F(StoreTest, OutOfOrderMigrationTableIsRefusedAndAppliesNothing) {
  const std::vector<Migration> swapped = {
      {1, "CREATE TABLE a (x)"}, {3, "CREATE TABLE c (x)"}, {2, "CREATE TABLE b (x)"}};
  const std::vector<Migration> repeated = {{1, "CREATE TABLE a (x)"}, {1, "CREATE TABLE b (x)"}};
  EXPECT_EQ(CheckMigrationOrder(swapped).message(),
            "migration table out of order: version 2 at position 3 follows version 3");
  EXPECT_EQ(CheckMigrationOrder({{0, "SELECT 1"}}).message(),
            "migration table out of order: version 0 at position 1 follows version 0");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  Status st = MigrateSqlite(db, swapped, -1);
  EXPECT_EQ(st.code(), kErrInternal);
  EXPECT_EQ(st.message(), "migration table out of order: version 2 at position 3 follows version 3");
  st = MigrateSqlite(db, repeated, -1);
  EXPECT_EQ(st.code(), kErrInternal);
  EXPECT_EQ(st.message(), "migration table out of order: version 1 at position 2 follows version 1");
  int tables = -1;
  sqlite3_stmt* q = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM sqlite_master", -1, &q, nullptr), SQLITE_OK);
  ASSERT_EQ(sqlite3_step(q), SQLITE_ROW);
  tables = sqlite3_column_int(q, 0);
  sqlite3_finalize(q);
  EXPECT_EQ(tables, 0);
  // The same entries in order apply.
  ASSERT_TRUE(MigrateSqlite(db, {swapped[0], swapped[2], swapped[1]}, -1).ok());
  int version = 0;
  ASSERT_TRUE(ReadSchemaVersion(db, &version).ok());
  EXPECT_EQ(version, 3);
  sqlite3_close(db);
}

TEST_F(StoreTest, ChildCountersFollowInsertsAndVanishing) {
  Open();
  Add("", "", 1);
  Node sub = Add("root", "sub", 1);
  Add("root", "a.txt", 0);
  Add("root", "b.txt", 0);
  Add("root/sub", "deep.txt", 0);
  Node root;
  ASSERT_TRUE(store_->GetById("root", &root).ok());
  EXPECT_EQ(root.child_count, 3u);
  EXPECT_EQ(root.child_dirs, 1u);

  ASSERT_TRUE(store_->MarkVanished("root/sub").ok());
  ASSERT_TRUE(store_->GetById("root", &root).ok());
  EXPECT_EQ(root.child_count, 2u);
  EXPECT_EQ(root.child_dirs, 0u);
  Node deep;
  ASSERT_TRUE(store_->GetById("root/sub/deep.txt", &deep).ok());
  EXPECT_TRUE(deep.vanished);
  // A vanished name is free again.
  Node again;
  again.file_id = "new-sub";
  again.parent_id = "root";
  again.owner = "alice";
  again.name = "sub";
  again.type = 1;
  EXPECT_TRUE(store_->Insert(&again).ok());
}

TEST_F(StoreTest, LiveNamesAreUniqueInAFolder) {
  Open();
  Add("", "", 1);
  Add("root", "a", 0);
  Node dup;
  dup.file_id = "other";
  dup.parent_id = "root";
  dup.owner = "alice";
  dup.name = "a";
  Status st = store_->Insert(&dup);
  EXPECT_EQ(st.code(), kErrNameExists);
  EXPECT_EQ(st.message(), "name already exists: a");
}

TEST_F(StoreTest, PagesSortByNameCaseInsensitivelyBothWays) {
  Open();
  Add("", "", 1);
  for (const char* n : {"b", "A", "c", "B2", "a1"}) Add("root", n, 0);
  ListQuery q;
  q.parent_id = "root";
  uint64_t total = 0;
  EXPECT_EQ(Names(q, &total), (std::vector<std::string>{"A", "a1", "b", "B2", "c"}));
  EXPECT_EQ(total, 5u);
  q.descending = true;
  EXPECT_EQ(Names(q), (std::vector<std::string>{"c", "B2", "b", "a1", "A"}));
  q.descending = false;
  q.offset = 1;
  q.limit = 2;
  EXPECT_EQ(Names(q, &total), (std::vector<std::string>{"a1", "b"}));
  EXPECT_EQ(total, 5u);
  q.offset = 5;
  EXPECT_TRUE(Names(q).empty());
}

TEST_F(StoreTest, EqualSortKeysPageInAStableOrder) {
  Open();
  Add("", "", 1);
  for (int i = 0; i < 6; ++i) Add("root", "f" + std::to_string(i), 0, i % 2 ? 10 : 20, 100);
  ListQuery q;
  q.parent_id = "root";
  q.sort = SortKey::kSize;
  EXPECT_EQ(Names(q), (std::vector<std::string>{"f1", "f3", "f5", "f0", "f2", "f4"}));
  q.descending = true;
  EXPECT_EQ(Names(q), (std::vector<std::string>{"f4", "f2", "f0", "f5", "f3", "f1"}));
  q.sort = SortKey::kModified;
  q.descending = false;
  q.limit = 2;
  q.offset = 2;
  EXPECT_EQ(Names(q), (std::vector<std::string>{"f2", "f3"}));
}

TEST_F(StoreTest, TypeAndExtensionFiltersCountWhatTheyKeep) {
  Open();
  Add("", "", 1);
  Add("root", "d1", 1);
  Add("root", "d2.jpg", 1);
  Add("root", "x.JPG", 0);
  Add("root", "y.png", 0);
  Add("root", "z.txt", 0);
  ListQuery q;
  q.parent_id = "root";
  uint64_t total = 0;
  q.files = false;
  EXPECT_EQ(Names(q, &total), (std::vector<std::string>{"d1", "d2.jpg"}));
  EXPECT_EQ(total, 2u);
  q.files = true;
  q.dirs = false;
  EXPECT_EQ(Names(q, &total), (std::vector<std::string>{"x.JPG", "y.png", "z.txt"}));
  EXPECT_EQ(total, 3u);
  q.extensions = {"jpg", "png"};
  EXPECT_EQ(Names(q, &total), (std::vector<std::string>{"x.JPG", "y.png"}));
  EXPECT_EQ(total, 2u);
}

// Every sort walks its partial index: no temp b-tree, whatever the
// direction or filter, so a page costs the same in any folder size.
TEST_F(StoreTest, ListQueriesWalkAnIndexWithoutSorting) {
  Open();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
  const char* expected_index[] = {"nodes_sort_name", "nodes_sort_size", "nodes_sort_mtime"};
  int k = 0;
  for (SortKey key : {SortKey::kName, SortKey::kSize, SortKey::kModified}) {
    for (bool desc : {false, true}) {
      for (bool only_files : {false, true}) {
        ListQuery q;
        q.parent_id = "p";
        q.sort = key;
        q.descending = desc;
        q.dirs = !only_files;
        SqlText t = BuildListSql(q, "id, name");
        std::string plan;
        sqlite3_stmt* st = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(db, ("EXPLAIN QUERY PLAN " + t.sql).c_str(), -1, &st, nullptr), SQLITE_OK)
            << t.sql;
        while (sqlite3_step(st) == SQLITE_ROW)
          plan += reinterpret_cast<const char*>(sqlite3_column_text(st, 3)) + std::string("\n");
        sqlite3_finalize(st);
        EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << t.sql << "\n" << plan;
        EXPECT_NE(plan.find(expected_index[k]), std::string::npos) << t.sql << "\n" << plan;
      }
    }
    ++k;
  }
  sqlite3_close(db);
}

// Pages continued from a remembered cursor must equal plain OFFSET pages:
// with equal sort keys, jumps between cursors, and after a write.
TEST_F(StoreTest, ContinuedPagesEqualOffsetPages) {
  Open();
  Add("", "", 1);
  // "x5" and "X5" tie under the case-insensitive name sort; sizes and
  // times repeat too.
  for (int i = 0; i < 39; ++i)
    Add("root", std::string(i / 13 == 1 ? "X" : "x") + std::to_string(i % 13) + (i / 13 == 2 ? "b" : ""), 0,
        static_cast<uint64_t>(i % 4), i % 5);
  auto check = [&](const char* when) {
    for (SortKey key : {SortKey::kName, SortKey::kSize, SortKey::kModified}) {
      for (bool desc : {false, true}) {
        ListQuery all;
        all.parent_id = "root";
        all.sort = key;
        all.descending = desc;
        std::vector<std::string> expected = Names(all);
        ListQuery q = all;
        q.limit = 7;
        std::vector<std::string> walked;
        for (q.offset = 0; q.offset < expected.size(); q.offset += q.limit) {
          auto page = Names(q);
          walked.insert(walked.end(), page.begin(), page.end());
        }
        EXPECT_EQ(walked, expected) << when << " sort " << static_cast<int>(key) << (desc ? " desc" : "");
        q.offset = 17;  // between two cursors
        q.limit = 5;
        EXPECT_EQ(Names(q), std::vector<std::string>(expected.begin() + 17, expected.begin() + 22)) << when;
      }
    }
  };
  check("initial");
  Add("root", "x7B", 0, 2, 3);
  uint64_t seq = 0;
  ASSERT_TRUE(store_->NextChange(&seq).ok());
  ASSERT_TRUE(store_->TouchAncestors("root", seq).ok());
  check("after a write");
}

TEST(ListSql, BuildsFiltersAndBindsInOrder) {
  ListQuery q;
  q.parent_id = "p";
  q.dirs = false;
  q.extensions = {"jpg", "png"};
  q.limit = 10;
  q.offset = 20;
  SqlText t = BuildListSql(q, "id");
  EXPECT_EQ(t.sql,
            "SELECT id FROM nodes WHERE parent_id = ?1 AND removed = 0 AND vanished = 0"
            " AND type = 0 AND ext IN (?2, ?3) ORDER BY name COLLATE NOCASE ASC, id ASC"
            " LIMIT ?4 OFFSET ?5");
  ASSERT_EQ(t.args.size(), 5u);
  EXPECT_EQ(t.args[2].s, "png");
  EXPECT_EQ(t.args[3].i, 10);
  EXPECT_EQ(t.args[4].i, 20);
  EXPECT_EQ(OrderByClause(SortKey::kModified, true), "modified_time DESC, id DESC");
}

TEST(ListSql, SortKeys) {
  SortKey k;
  EXPECT_TRUE(ParseSortKey("mtime", &k));
  EXPECT_EQ(k, SortKey::kModified);
  EXPECT_TRUE(ParseSortKey("modified_time", &k));
  EXPECT_TRUE(ParseSortKey("size", &k));
  EXPECT_EQ(k, SortKey::kSize);
  EXPECT_FALSE(ParseSortKey("colour", &k));
  EXPECT_EQ(k, SortKey::kName);
}

TEST_F(StoreTest, ChangeNumbersClimbToTheRoot) {
  Open();
  Add("", "", 1);
  Add("root", "a", 1);
  Add("root/a", "b", 1);
  uint64_t s1 = 0, s2 = 0;
  ASSERT_TRUE(store_->NextChange(&s1).ok());
  ASSERT_TRUE(store_->NextChange(&s2).ok());
  EXPECT_EQ(s2, s1 + 1);
  ASSERT_TRUE(store_->TouchAncestors("root/a/b", s2).ok());
  for (const char* id : {"root", "root/a", "root/a/b"}) {
    Node n;
    ASSERT_TRUE(store_->GetById(id, &n).ok());
    EXPECT_EQ(n.max_id, s2) << id;
  }
}

TEST_F(StoreTest, UnlinkJobsComeDueInOrder) {
  Open();
  ASSERT_TRUE(store_->PushUnlink("/late", 200).ok());
  ASSERT_TRUE(store_->PushUnlink("/early", 100).ok());
  std::vector<UnlinkJob> due;
  ASSERT_TRUE(store_->DueUnlinks(150, 10, &due).ok());
  ASSERT_EQ(due.size(), 1u);
  EXPECT_EQ(due[0].path, "/early");
  int64_t wait = 0;
  ASSERT_TRUE(store_->NextUnlinkDelay(150, &wait).ok());
  EXPECT_EQ(wait, 0);
  ASSERT_TRUE(store_->DeleteUnlink(due[0].id).ok());
  ASSERT_TRUE(store_->NextUnlinkDelay(150, &wait).ok());
  EXPECT_EQ(wait, 50);
}

TEST_F(StoreTest, ServiceStateAndFreezePersist) {
  Open();
  ASSERT_TRUE(store_->SetState("status", "moving_db").ok());
  ASSERT_TRUE(store_->SetFreeze(0, true).ok());
  store_.reset();
  Open();
  std::string state;
  bool frozen = false;
  ASSERT_TRUE(store_->GetState("status", &state).ok());
  ASSERT_TRUE(store_->GetFreeze(0, &frozen).ok());
  EXPECT_EQ(state, "moving_db");
  EXPECT_TRUE(frozen);
  ASSERT_TRUE(store_->GetFreeze(7, &frozen).ok());
  EXPECT_FALSE(frozen);
}

// The daemon's cache of those rows writes them before it changes, and a
// change that could not be committed leaves it as it was.
TEST_F(StoreTest, ServiceStateCacheFollowsOnlyCommittedRows) {
  Open();
  std::string state;
  bool frozen = true;
  ServiceState cache;
  ASSERT_TRUE(cache.Get(store_.get(), 0, &state, &frozen).ok());
  EXPECT_EQ(state, "enabled");
  EXPECT_FALSE(frozen);
  ASSERT_TRUE(cache.SetState(store_.get(), "disabled").ok());
  ASSERT_TRUE(cache.SetFreeze(store_.get(), 0, true).ok());
  ASSERT_TRUE(cache.SetFreeze(store_.get(), 3, true).ok());

  ServiceState fresh;  // as after a restart: from the rows
  ASSERT_TRUE(fresh.Get(store_.get(), 3, &state, &frozen).ok());
  EXPECT_EQ(state, "disabled");
  EXPECT_TRUE(frozen);

  {
    Transaction busy(store_.get(), true);  // the change's own BEGIN fails
    ASSERT_TRUE(busy.status().ok());
    EXPECT_FALSE(cache.SetState(store_.get(), "moving_db").ok());
    EXPECT_FALSE(cache.SetFreeze(store_.get(), 0, false).ok());
  }
  ASSERT_TRUE(cache.Get(store_.get(), 0, &state, &frozen).ok());
  EXPECT_EQ(state, "disabled");
  EXPECT_TRUE(frozen);
  ASSERT_TRUE(store_->GetState("status", &state).ok());
  EXPECT_EQ(state, "disabled");
}

}  // namespace
}  // namespace orvel::syncd
