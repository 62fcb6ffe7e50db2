// The SQLite back-end of RecycleStore (see recycle_store.h): the recycle
// table of migration 23. Its rows go with their node when the node is purged
// (a trigger on nodes).
#include "db/recycle_store.h"
#include "db/sqlite_rows.h"

namespace orvel::syncd {
namespace {

const char kEntryColumns[] = "file_id, owner, removed_time, removed_by, parent_id, original_path";

void ReadEntry(const CachedStmt& s, RecycleEntry* e) {
  e->file_id = s.Text(0);
  e->owner = s.Text(1);
  e->removed_time = s.Int(2);
  e->removed_by = s.Text(3);
  e->parent_id = s.Text(4);
  e->original_path = s.Text(5);
}

Status ReadEntries(CachedStmt& s, std::vector<RecycleEntry>* out) {
  out->clear();
  Status st;
  while (s.Step(&st)) {
    out->emplace_back();
    ReadEntry(s, &out->back());
  }
  return st;
}

class SqliteRecycleStore : public RecycleStore {
 public:
  explicit SqliteRecycleStore(sqlite3* db) : c_(db) {}

  Status Add(const RecycleEntry& e) override {
    CachedStmt s = c_.Prepare(std::string("INSERT OR REPLACE INTO recycle (") + kEntryColumns +
                              ") VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
    s.Bind(1, e.file_id).Bind(2, e.owner).Bind(3, e.removed_time).Bind(4, e.removed_by);
    return s.Bind(5, e.parent_id).Bind(6, e.original_path).Run();
  }

  Status Remove(const std::string& file_id) override {
    return c_.Prepare("DELETE FROM recycle WHERE file_id = ?1").Bind(1, file_id).Run();
  }

  Status Get(const std::string& file_id, RecycleEntry* out) override {
    CachedStmt s = c_.Prepare(std::string("SELECT ") + kEntryColumns + " FROM recycle WHERE file_id = ?1");
    s.Bind(1, file_id);
    Status st;
    if (s.Step(&st)) {
      ReadEntry(s, out);
      return Status::OK();
    }
    return st.ok() ? Status(kErrNotFound, "item not found in the recycle bin: id:" + file_id) : st;
  }

  Status List(const std::string& owner, bool descending, uint64_t offset, uint64_t limit,
              std::vector<RecycleEntry>* out, uint64_t* total) override {
    const char* order = descending ? " ORDER BY removed_time DESC, rowid DESC" : " ORDER BY removed_time, rowid";
    CachedStmt s = c_.Prepare(std::string("SELECT ") + kEntryColumns + " FROM recycle WHERE owner = ?1" +
                              order + " LIMIT ?2 OFFSET ?3");
    s.Bind(1, owner).Bind(2, static_cast<int64_t>(limit)).Bind(3, static_cast<int64_t>(offset));
    ORVEL_RETURN_IF_ERROR(ReadEntries(s, out));
    CachedStmt c = c_.Prepare("SELECT COUNT(*) FROM recycle WHERE owner = ?1");
    c.Bind(1, owner);
    Status st;
    *total = c.Step(&st) ? static_cast<uint64_t>(c.Int(0)) : 0;
    return st;
  }

  Status RemovedBefore(const std::string& owner, int64_t before, std::vector<RecycleEntry>* out) override {
    CachedStmt s = c_.Prepare(std::string("SELECT ") + kEntryColumns +
                              " FROM recycle WHERE (?1 = '' OR owner = ?1) AND removed_time < ?2"
                              " ORDER BY removed_time, rowid");
    s.Bind(1, owner).Bind(2, before);
    return ReadEntries(s, out);
  }

  Status TopsBelow(const std::string& file_id, std::vector<std::string>* out) override {
    CachedStmt s = c_.Prepare(
        "WITH RECURSIVE sub(fid) AS (SELECT file_id FROM nodes WHERE parent_id = ?1"
        " UNION ALL SELECT n.file_id FROM nodes n JOIN sub ON n.parent_id = sub.fid)"
        " SELECT r.file_id FROM recycle r JOIN sub ON r.file_id = sub.fid ORDER BY r.removed_time, r.rowid");
    s.Bind(1, file_id);
    out->clear();
    Status st;
    while (s.Step(&st)) out->push_back(s.Text(0));
    return st;
  }

  Status UnflagBelow(const std::string& file_id, int64_t now) override {
    CachedStmt s = c_.Prepare(
        "WITH RECURSIVE sub(fid) AS (SELECT n.file_id FROM nodes n WHERE n.parent_id = ?1"
        "   AND n.removed = 1 AND n.file_id NOT IN (SELECT file_id FROM recycle)"
        " UNION ALL SELECT n.file_id FROM nodes n JOIN sub ON n.parent_id = sub.fid"
        "   WHERE n.removed = 1 AND n.file_id NOT IN (SELECT file_id FROM recycle))"
        " UPDATE nodes SET removed = 0, change_time = ?2 WHERE file_id IN (SELECT fid FROM sub)");
    return s.Bind(1, file_id).Bind(2, now).Run();
  }

 private:
  StmtCache c_;
};

}  // namespace

std::unique_ptr<RecycleStore> NewSqliteRecycleStore(sqlite3* db) {
  return std::make_unique<SqliteRecycleStore>(db);
}

}  // namespace orvel::syncd
