// The SQLite back-end of Store (see store.h). One sqlite3 connection per
// object, WAL journal, synchronous=FULL (an acknowledged commit survives a
// power cut), a busy time-out for concurrent writers, and a cache of prepared
// statements keyed by their text.
#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "db/browse_store.h"
#include "db/list_sql.h"
#include "db/page_cursors.h"
#include "db/recycle_store.h"
#include "db/schema.h"
#include "db/sqlite_rows.h"
#include "db/store.h"
#include "fault.h"
#include "name_forms.h"

namespace orvel::syncd {
namespace {

constexpr int kBusyTimeoutMs = 15000;

const char kColumns[] =
    "id, file_id, parent_id, owner, name, type, size, created_time, access_time, "
    "modified_time, change_time, hash, sync_id, max_id, removed, vanished, encrypted, "
    "permanent_link, properties, app_properties, content_type, revisions, ext, "
    "child_count, child_dirs";

using Stmt = CachedStmt;

constexpr char kRevisionColumns[] = "file_id, sync_id, size, modified_time, hash, id, created, writer";

// Binds the writable columns of n to ?1..?23 (in kColumns order, without id
// and the maintained counters).
void BindNode(Stmt& s, const Node& n) {
  s.Bind(1, n.file_id).Bind(2, n.parent_id).Bind(3, n.owner).Bind(4, n.name);
  s.Bind(5, int64_t{n.type}).Bind(6, static_cast<int64_t>(n.size));
  s.Bind(7, n.created_time).Bind(8, n.access_time).Bind(9, n.modified_time).Bind(10, n.change_time);
  s.Bind(11, n.hash).Bind(12, static_cast<int64_t>(n.sync_id)).Bind(13, static_cast<int64_t>(n.max_id));
  s.Bind(14, int64_t{n.removed}).Bind(15, int64_t{n.vanished}).Bind(16, int64_t{n.encrypted});
  s.Bind(17, n.permanent_link).Bind(18, n.properties).Bind(19, n.app_properties);
  s.Bind(20, n.content_type).Bind(21, int64_t{n.revisions}).Bind(22, n.ext);
}

class SqliteStore : public Store {
 public:
  SqliteStore(sqlite3* db, PageCursors* cursors) : db_(db), cursors_(cursors) {}
  ~SqliteStore() override {
    browse_.reset();  // its statements belong to db_
    recycle_.reset();
    for (auto& kv : cache_) sqlite3_finalize(kv.second);
    sqlite3_close(db_);
  }

  Status Begin(bool write) override {
    if (!sqlite3_get_autocommit(db_)) return Status(kErrInternal, "nested transaction");
    return Exec(write ? "BEGIN IMMEDIATE" : "BEGIN");
  }
  Status Commit() override {
    if (int e = fault::Check("db.commit")) {
      Exec("ROLLBACK");
      return Status(kErrStorage, std::string("COMMIT: ") + strerror(e));
    }
    Status st = Exec("COMMIT");
    if (!st.ok() && !sqlite3_get_autocommit(db_)) Exec("ROLLBACK");
    return st;
  }
  void Rollback() override {
    if (!sqlite3_get_autocommit(db_)) Exec("ROLLBACK");
  }
  bool InTransaction() const override { return !sqlite3_get_autocommit(db_); }

  Status GetById(const std::string& file_id, Node* out) override {
    return GetOne(std::string("SELECT ") + kColumns + " FROM nodes WHERE file_id = ?1", file_id,
                  "", out, "no item with id " + file_id);
  }
  Status GetByLink(const std::string& link, Node* out) override {
    return GetOne(std::string("SELECT ") + kColumns +
                      " FROM nodes WHERE permanent_link = ?1 AND permanent_link <> ''"
                      " AND removed = 0 AND vanished = 0",
                  link, "", out, "no item with link " + link);
  }
  Status GetRoot(const std::string& owner, Node* out) override {
    return GetOne(std::string("SELECT ") + kColumns + " FROM nodes WHERE owner = ?1 AND parent_id IS ''",
                  owner, "", out, "no home for " + owner);
  }
  Status GetChild(const std::string& parent_id, const std::string& name, Node* out) override {
    // The exact bytes first, then the other Unicode spellings of the name.
    for (const std::string& form : NameForms(name)) {
      Status st = GetOne(std::string("SELECT ") + kColumns +
                             " FROM nodes WHERE parent_id = ?1 AND name = ?2 AND removed = 0 AND vanished = 0",
                         parent_id, form, out, "no item named " + name);
      if (st.code() != kErrNotFound) return st;
    }
    return Status(kErrNotFound, "no item named " + name);
  }

  Status ListPage(const ListQuery& q, std::vector<Node>* items, uint64_t* total) override {
    items->clear();
    *total = 0;
    if (!q.files && !q.dirs) return Status::OK();
    Node parent;
    ORVEL_RETURN_IF_ERROR(GetById(q.parent_id, &parent));
    if (q.extensions.empty()) {
      *total = q.files && q.dirs ? parent.child_count
               : q.dirs          ? parent.child_dirs
                                 : parent.child_count - parent.child_dirs;
    } else {
      SqlText c = BuildCountSql(q);
      Stmt s = Prepare(c.sql);
      BindAll(s, c.args);
      Status st;
      if (s.Step(&st)) *total = static_cast<uint64_t>(s.Int(0));
      ORVEL_RETURN_IF_ERROR(st);
    }
    if (q.limit == 0 || q.offset >= *total) return Status::OK();
    // Continue from where an earlier page of this query left off.
    std::string key = ListQueryKey(q);
    uint64_t generation = parent.max_id * 1000003u + parent.child_count;
    PageCursor cursor;
    uint64_t at = 0;
    bool have = cursors_->Find(key, generation, q.offset, &cursor, &at);
    SqlText t = BuildListSql(q, kColumns, have ? &cursor : nullptr, q.offset - at);
    Stmt s = Prepare(t.sql);
    BindAll(s, t.args);
    Status st;
    while (s.Step(&st)) {
      items->emplace_back();
      s.ReadNode(0, &items->back());
    }
    if (st.ok() && !items->empty()) {
      const Node& last = items->back();
      PageCursor next;
      next.id = last.row_id;
      next.is_text = q.sort == SortKey::kName;
      if (next.is_text) next.s = last.name;
      else next.i = q.sort == SortKey::kSize ? static_cast<int64_t>(last.size) : last.modified_time;
      cursors_->Put(key, generation, q.offset + items->size(), next);
    }
    return st;
  }

  Status ListAllChildren(const std::string& parent_id, std::vector<Node>* out) override {
    return ListWhere("parent_id = ?1 ORDER BY name", parent_id, out);
  }
  Status ListRoots(std::vector<Node>* out) override {
    return ListWhere("parent_id IS '' AND ?1 = '' ORDER BY owner", "", out);
  }

  Status Insert(Node* node) override {
    Stmt s = Prepare(
        "INSERT INTO nodes (file_id, parent_id, owner, name, type, size, created_time, access_time,"
        " modified_time, change_time, hash, sync_id, max_id, removed, vanished, encrypted,"
        " permanent_link, properties, app_properties, content_type, revisions, ext)"
        " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17,"
        " ?18, ?19, ?20, ?21, ?22)");
    BindNode(s, *node);
    Status st = s.Run();
    if (st.code() == kErrNameExists)
      return Status(kErrNameExists, "name already exists: " + node->name);
    if (st.ok()) node->row_id = sqlite3_last_insert_rowid(db_);
    return st;
  }

  Status Update(const Node& node) override {
    Stmt s = Prepare(
        "UPDATE nodes SET file_id = ?1, parent_id = ?2, owner = ?3, name = ?4, type = ?5, size = ?6,"
        " created_time = ?7, access_time = ?8, modified_time = ?9, change_time = ?10, hash = ?11,"
        " sync_id = ?12, max_id = ?13, removed = ?14, vanished = ?15, encrypted = ?16,"
        " permanent_link = ?17, properties = ?18, app_properties = ?19, content_type = ?20,"
        " revisions = ?21, ext = ?22 WHERE id = ?23");
    BindNode(s, node);
    s.Bind(23, node.row_id);
    Status st = s.Run();
    if (st.code() == kErrNameExists)
      return Status(kErrNameExists, "name already exists: " + node.name);
    return st;
  }

  Status MarkVanished(const std::string& file_id) override {
    Stmt s = Prepare(
        "WITH RECURSIVE sub(fid) AS (SELECT ?1 UNION ALL SELECT n.file_id FROM nodes n"
        " JOIN sub ON n.parent_id = sub.fid)"
        " UPDATE nodes SET vanished = 1 WHERE vanished = 0 AND file_id IN (SELECT fid FROM sub)");
    s.Bind(1, file_id);
    return s.Run();
  }

  Status Purge(const std::string& file_id) override {
    Stmt s = Prepare(
        "WITH RECURSIVE sub(fid) AS (SELECT ?1 UNION ALL SELECT n.file_id FROM nodes n"
        " JOIN sub ON n.parent_id = sub.fid)"
        " DELETE FROM nodes WHERE file_id IN (SELECT fid FROM sub)");
    s.Bind(1, file_id);
    return s.Run();
  }

  Status NextChange(uint64_t* seq) override {
    Stmt s = Prepare("UPDATE counters SET value = value + 1 WHERE name = 'change' RETURNING value");
    Status st;
    if (s.Step(&st)) *seq = static_cast<uint64_t>(s.Int(0));
    else if (st.ok()) st = Status(kErrInternal, "change counter missing");
    // Finish the statement so that RETURNING's write is complete.
    while (st.ok() && s.Step(&st)) {
    }
    return st;
  }

  Status TouchAncestors(const std::string& parent_id, uint64_t seq) override {
    Stmt s = Prepare(
        "WITH RECURSIVE up(fid) AS (SELECT ?1 UNION ALL SELECT n.parent_id FROM nodes n"
        " JOIN up ON n.file_id = up.fid WHERE n.parent_id <> '')"
        " UPDATE nodes SET max_id = ?2 WHERE file_id IN (SELECT fid FROM up) AND max_id < ?2");
    s.Bind(1, parent_id).Bind(2, static_cast<int64_t>(seq));
    return s.Run();
  }

  Status AddRevision(const Revision& r) override {
    Stmt s = Prepare(
        "INSERT INTO revisions (file_id, sync_id, size, modified_time, hash, created, writer)"
        " VALUES (?1, ?2, ?3, ?4, ?5, strftime('%s','now'), COALESCE((SELECT writer FROM"
        " content_writers WHERE file_id = ?1 AND sync_id = ?2), ''))");
    s.Bind(1, r.file_id).Bind(2, static_cast<int64_t>(r.sync_id)).Bind(3, static_cast<int64_t>(r.size));
    s.Bind(4, r.modified_time).Bind(5, r.hash);
    return s.Run();
  }

  static RevisionRow ReadRevision(const Stmt& s) {
    RevisionRow r;
    r.file_id = s.Text(0);
    r.sync_id = static_cast<uint64_t>(s.Int(1));
    r.size = static_cast<uint64_t>(s.Int(2));
    r.modified_time = s.Int(3);
    r.hash = s.Text(4);
    r.id = s.Int(5);
    r.created = s.Int(6);
    r.writer = s.Text(7);
    return r;
  }

  Status ListRevisions(const std::string& file_id, std::vector<Revision>* out) override {
    out->clear();
    Stmt s = Prepare("SELECT " + std::string(kRevisionColumns) + " FROM revisions WHERE file_id = ?1 ORDER BY sync_id");
    s.Bind(1, file_id);
    Status st;
    while (s.Step(&st)) out->push_back(ReadRevision(s));
    return st;
  }

  Status ListRevisionPage(const std::string& file_id, uint64_t offset, uint64_t limit,
                          std::vector<RevisionRow>* out, uint64_t* total) override {
    out->clear();
    Stmt c = Prepare("SELECT COUNT(*) FROM revisions WHERE file_id = ?1");
    c.Bind(1, file_id);
    Status st;
    *total = c.Step(&st) ? static_cast<uint64_t>(c.Int(0)) : 0;
    ORVEL_RETURN_IF_ERROR(st);
    Stmt s = Prepare("SELECT " + std::string(kRevisionColumns) +
                     " FROM revisions WHERE file_id = ?1 ORDER BY id DESC LIMIT ?2 OFFSET ?3");
    s.Bind(1, file_id).Bind(2, static_cast<int64_t>(limit)).Bind(3, static_cast<int64_t>(offset));
    while (s.Step(&st)) out->push_back(ReadRevision(s));
    return st;
  }

  Status GetRevision(const std::string& file_id, int64_t id, RevisionRow* out) override {
    Stmt s = Prepare("SELECT " + std::string(kRevisionColumns) + " FROM revisions WHERE file_id = ?1 AND id = ?2");
    s.Bind(1, file_id).Bind(2, id);
    Status st;
    if (s.Step(&st)) {
      *out = ReadRevision(s);
      return Status::OK();
    }
    ORVEL_RETURN_IF_ERROR(st);
    return Status(kErrNotFound, "revision not found: " + std::to_string(id));
  }

  Status PruneRevisions(const std::string& file_id, const RevisionKeep& keep, std::vector<std::string>* hashes,
                        uint32_t* remaining) override {
    hashes->clear();
    Stmt s = Prepare(
        "DELETE FROM revisions WHERE file_id = ?1 AND (created < ?2 OR id NOT IN (SELECT id FROM"
        " revisions WHERE file_id = ?1 ORDER BY id DESC LIMIT ?3)) RETURNING hash");
    s.Bind(1, file_id).Bind(2, keep.created_before).Bind(3, static_cast<int64_t>(keep.keep_count));
    Status st;
    while (s.Step(&st)) hashes->push_back(s.Text(0));
    ORVEL_RETURN_IF_ERROR(st);
    Stmt u = Prepare(
        "UPDATE nodes SET revisions = (SELECT COUNT(*) FROM revisions WHERE file_id = ?1)"
        " WHERE file_id = ?1 RETURNING revisions");
    u.Bind(1, file_id);
    *remaining = 0;
    while (u.Step(&st)) *remaining = static_cast<uint32_t>(u.Int(0));
    return st;
  }

  Status FilesWithOldRevisions(int64_t before, size_t max, std::vector<std::string>* out) override {
    out->clear();
    Stmt s = Prepare("SELECT DISTINCT file_id FROM revisions WHERE created < ?1 LIMIT ?2");
    s.Bind(1, before).Bind(2, static_cast<int64_t>(max));
    Status st;
    while (s.Step(&st)) out->push_back(s.Text(0));
    return st;
  }

  Status HashReferenced(const std::string& hash, bool* referenced) override {
    Stmt s = Prepare("SELECT 1 FROM revisions WHERE hash = ?1 LIMIT 1");
    s.Bind(1, hash);
    Status st;
    *referenced = s.Step(&st);
    return st;
  }

  Status SetContentWriter(const std::string& file_id, uint64_t sync_id, const std::string& writer) override {
    Stmt s = Prepare(
        "INSERT INTO content_writers (file_id, sync_id, writer) VALUES (?1, ?2, ?3)"
        " ON CONFLICT(file_id) DO UPDATE SET sync_id = ?2, writer = ?3");
    s.Bind(1, file_id).Bind(2, static_cast<int64_t>(sync_id)).Bind(3, writer);
    return s.Run();
  }

  Status GetState(const std::string& key, std::string* value) override {
    Stmt s = Prepare("SELECT value FROM service WHERE key = ?1");
    s.Bind(1, key);
    Status st;
    if (s.Step(&st)) {
      *value = s.Text(0);
      return Status::OK();
    }
    return st.ok() ? Status(kErrNotFound, "no service state " + key) : st;
  }
  Status SetState(const std::string& key, const std::string& value) override {
    Stmt s = Prepare("INSERT INTO service (key, value) VALUES (?1, ?2)"
                     " ON CONFLICT(key) DO UPDATE SET value = excluded.value");
    s.Bind(1, key).Bind(2, value);
    return s.Run();
  }
  Status GetFreeze(uint32_t view_id, bool* frozen) override {
    Stmt s = Prepare("SELECT frozen FROM freeze WHERE view_id = ?1");
    s.Bind(1, int64_t{view_id});
    Status st;
    *frozen = s.Step(&st) && s.Int(0) != 0;
    return st;
  }
  Status SetFreeze(uint32_t view_id, bool frozen) override {
    Stmt s = Prepare("INSERT INTO freeze (view_id, frozen) VALUES (?1, ?2)"
                     " ON CONFLICT(view_id) DO UPDATE SET frozen = excluded.frozen");
    s.Bind(1, int64_t{view_id}).Bind(2, int64_t{frozen});
    return s.Run();
  }

  Status PushUnlink(const std::string& path, int64_t not_before) override {
    Stmt s = Prepare("INSERT INTO unlink_jobs (path, not_before) VALUES (?1, ?2)");
    s.Bind(1, path).Bind(2, not_before);
    return s.Run();
  }
  Status DueUnlinks(int64_t now, size_t max, std::vector<UnlinkJob>* out) override {
    out->clear();
    Stmt s = Prepare("SELECT id, path, not_before FROM unlink_jobs WHERE not_before <= ?1"
                     " ORDER BY not_before, id LIMIT ?2");
    s.Bind(1, now).Bind(2, static_cast<int64_t>(max));
    Status st;
    while (s.Step(&st)) out->push_back(UnlinkJob{s.Int(0), s.Text(1), s.Int(2)});
    return st;
  }
  Status DeleteUnlink(int64_t id) override {
    Stmt s = Prepare("DELETE FROM unlink_jobs WHERE id = ?1");
    s.Bind(1, id);
    return s.Run();
  }
  Status AddIntent(const std::string& steps, int64_t* id) override {
    Stmt s = Prepare("INSERT INTO intents (steps) VALUES (?1)");
    s.Blob(1, steps);
    ORVEL_RETURN_IF_ERROR(s.Run());
    *id = sqlite3_last_insert_rowid(db_);
    return Status::OK();
  }
  Status DropIntent(int64_t id) override {
    Stmt s = Prepare("DELETE FROM intents WHERE id = ?1");
    s.Bind(1, id);
    return s.Run();
  }
  Status ListIntents(std::vector<std::pair<int64_t, std::string>>* out) override {
    out->clear();
    Stmt s = Prepare("SELECT id, steps FROM intents ORDER BY id");
    Status st;
    while (s.Step(&st)) out->emplace_back(s.Int(0), s.Text(1));
    return st;
  }
  Status NextUnlinkDelay(int64_t now, int64_t* seconds) override {
    Stmt s = Prepare("SELECT MIN(not_before) FROM unlink_jobs");
    Status st;
    *seconds = -1;
    if (s.Step(&st) && !s.Null(0))
      *seconds = std::max<int64_t>(0, s.Int(0) - now);
    return st;
  }

  Status Stats(StoreStats* out) override {
    *out = StoreStats();
    struct Q {
      const char* sql;
      uint64_t* field;
    } qs[] = {
        {"SELECT COUNT(*) FROM nodes WHERE type = 0 AND removed = 0 AND vanished = 0", &out->files},
        {"SELECT COUNT(*) FROM nodes WHERE type = 1 AND parent_id <> '' AND removed = 0"
         " AND vanished = 0", &out->folders},
        {"SELECT COALESCE(SUM(size), 0) FROM nodes WHERE type = 0 AND removed = 0 AND vanished = 0",
         &out->bytes},
        {"SELECT COUNT(*) FROM nodes WHERE vanished = 1", &out->vanished},
        {"SELECT COUNT(*) FROM nodes WHERE parent_id IS ''", &out->homes},
        {"SELECT COUNT(*) FROM revisions", &out->revisions},
        {"SELECT COUNT(*) FROM unlink_jobs", &out->unlink_jobs},
        {"SELECT MAX(version) FROM schema_version", &out->schema_version},
        {"SELECT value FROM counters WHERE name = 'change'", &out->max_id},
    };
    for (const Q& q : qs) {
      Stmt s = Prepare(q.sql);
      Status st;
      if (s.Step(&st)) *q.field = static_cast<uint64_t>(s.Int(0));
      ORVEL_RETURN_IF_ERROR(st);
    }
    for (sqlite3_stmt* st = sqlite3_next_stmt(db_, nullptr); st; st = sqlite3_next_stmt(db_, st))
      out->recompiled += static_cast<uint64_t>(sqlite3_stmt_status(st, SQLITE_STMTSTATUS_REPREPARE, 0));
    return Status::OK();
  }

 private:
  Status Exec(const char* sql) {
    char* err = nullptr;
    int rc = sqlite3_exec(db_, sql, nullptr, nullptr, &err);
    if (rc == SQLITE_OK) return Status::OK();
    std::string msg = err ? err : sqlite3_errmsg(db_);
    sqlite3_free(err);
    return Status(rc == SQLITE_BUSY || rc == SQLITE_LOCKED ? kErrBusy : kErrStorage,
                  std::string(sql) + ": " + msg);
  }

  // Statements are prepared once per connection and reused.
  Stmt Prepare(const std::string& sql) {
    auto it = cache_.find(sql);
    if (it == cache_.end()) {
      sqlite3_stmt* st = nullptr;
      if (sqlite3_prepare_v3(db_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &st, nullptr) != SQLITE_OK)
        return Stmt(db_, nullptr);
      it = cache_.emplace(sql, st).first;
    }
    return Stmt(db_, it->second);
  }

  static void BindAll(Stmt& s, const std::vector<SqlArg>& args) {
    for (size_t i = 0; i < args.size(); ++i) {
      if (args[i].is_text) s.Bind(static_cast<int>(i + 1), args[i].s);
      else s.Bind(static_cast<int>(i + 1), args[i].i);
    }
  }

  Status GetOne(const std::string& sql, const std::string& a1, const std::string& a2, Node* out,
                const std::string& not_found) {
    Stmt s = Prepare(sql);
    s.Bind(1, a1);
    if (sql.find("?2") != std::string::npos) s.Bind(2, a2);
    Status st;
    if (s.Step(&st)) {
      s.ReadNode(0, out);
      return Status::OK();
    }
    return st.ok() ? Status(kErrNotFound, not_found) : st;
  }

  Status ListWhere(const std::string& where, const std::string& a1, std::vector<Node>* out) {
    out->clear();
    Stmt s = Prepare(std::string("SELECT ") + kColumns + " FROM nodes WHERE " + where);
    s.Bind(1, a1);
    Status st;
    while (s.Step(&st)) {
      out->emplace_back();
      s.ReadNode(0, &out->back());
    }
    return st;
  }

  BrowseStore* browse() override {
    if (!browse_) browse_ = NewSqliteBrowseStore(db_);
    return browse_.get();
  }
  RecycleStore* recycle() override {
    if (!recycle_) recycle_ = NewSqliteRecycleStore(db_);
    return recycle_.get();
  }

  sqlite3* db_;
  PageCursors* cursors_;  // shared by every connection to this database
  std::unique_ptr<BrowseStore> browse_;
  std::unique_ptr<RecycleStore> recycle_;
  std::unordered_map<std::string, sqlite3_stmt*> cache_;
};

}  // namespace

Status OpenSqliteStore(const std::string& path, std::unique_ptr<Store>* out, bool migrate) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db,
                           SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    std::string msg = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close(db);
    return Status(kErrStorage, "open " + path + ": " + msg);
  }
  auto store = std::make_unique<SqliteStore>(db, PageCursors::ForDatabase(path));
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  sqlite3_extended_result_codes(db, 1);
  for (const char* pragma : {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL",
                             "PRAGMA foreign_keys = OFF", "PRAGMA cache_size = -16384"}) {
    char* err = nullptr;
    if (sqlite3_exec(db, pragma, nullptr, nullptr, &err) != SQLITE_OK) {
      std::string msg = err ? err : sqlite3_errmsg(db);
      sqlite3_free(err);
      return Status(kErrStorage, "open " + path + ": " + pragma + ": " + msg);
    }
  }
  if (migrate) {
    Status st = MigrateSqlite(db);
    if (!st.ok()) return Status(st.code(), path + ": " + st.message());
  }
  *out = std::move(store);
  return Status::OK();
}

}  // namespace orvel::syncd
