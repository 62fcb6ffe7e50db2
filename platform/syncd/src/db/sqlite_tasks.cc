// The SQLite back-end of TaskStore (see task_store.h), and the migration that
// adds its table. Its own connection to the daemon's database (WAL, FULL
// synchronous, busy time-out), with prepared statements kept open.
#include <sqlite3.h>

#include <unordered_map>

#include "db/sqlite_rows.h"
#include "db/task_store.h"

namespace orvel::syncd {

// Version 20: asynchronous tasks.
const char kTasksMigrationSql[] = R"SQL(
CREATE TABLE tasks (
  id INTEGER PRIMARY KEY,
  task_id TEXT NOT NULL UNIQUE,
  kind TEXT NOT NULL,
  owner TEXT NOT NULL,
  state TEXT NOT NULL,
  args BLOB NOT NULL,
  result BLOB NOT NULL DEFAULT x'',
  done INTEGER NOT NULL DEFAULT 0,
  total INTEGER NOT NULL DEFAULT 0,
  error_code INTEGER NOT NULL DEFAULT 0,
  error_message TEXT NOT NULL DEFAULT '',
  created INTEGER NOT NULL,
  started INTEGER NOT NULL DEFAULT 0,
  finished INTEGER NOT NULL DEFAULT 0,
  attempts INTEGER NOT NULL DEFAULT 0,
  cancel_requested INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX tasks_state ON tasks(state, id);
CREATE INDEX tasks_owner ON tasks(owner, id);
)SQL";

// Version 27: progress in bytes beside items.
const char kTaskBytesMigrationSql[] = R"SQL(
ALTER TABLE tasks ADD COLUMN bytes_done INTEGER NOT NULL DEFAULT 0;
ALTER TABLE tasks ADD COLUMN bytes_total INTEGER NOT NULL DEFAULT 0;
)SQL";

namespace {

constexpr int kBusyTimeoutMs = 15000;
const char kCols[] =
    "task_id, kind, owner, state, args, result, done, total, error_code, error_message, created,"
    " started, finished, attempts, cancel_requested, bytes_done, bytes_total";

using Stmt = CachedStmt;

void ReadRow(const Stmt& s, TaskRow* r) {
  r->task_id = s.Text(0);
  r->kind = s.Text(1);
  r->owner = s.Text(2);
  r->state = s.Text(3);
  r->args = s.Text(4);
  r->result = s.Text(5);
  r->done = static_cast<uint64_t>(s.Int(6));
  r->total = static_cast<uint64_t>(s.Int(7));
  r->error_code = static_cast<int>(s.Int(8));
  r->error_message = s.Text(9);
  r->created = s.Int(10);
  r->started = s.Int(11);
  r->finished = s.Int(12);
  r->attempts = static_cast<int>(s.Int(13));
  r->cancel_requested = s.Int(14) != 0;
  r->bytes_done = static_cast<uint64_t>(s.Int(15));
  r->bytes_total = static_cast<uint64_t>(s.Int(16));
}

class SqliteTaskStore : public TaskStore {
 public:
  explicit SqliteTaskStore(sqlite3* db) : db_(db) {}
  ~SqliteTaskStore() override {
    for (auto& kv : cache_) sqlite3_finalize(kv.second);
    sqlite3_close(db_);
  }

  Status Insert(const TaskRow& r) override {
    Stmt s = Prepare(
        "INSERT INTO tasks (task_id, kind, owner, state, args, total, created)"
        " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    s.Bind(1, r.task_id).Bind(2, r.kind).Bind(3, r.owner).Bind(4, r.state).Blob(5, r.args);
    s.Bind(6, static_cast<int64_t>(r.total)).Bind(7, r.created);
    return s.Run();
  }

  Status Get(const std::string& task_id, TaskRow* out) override {
    Stmt s = Prepare(std::string("SELECT ") + kCols + " FROM tasks WHERE task_id = ?1");
    s.Bind(1, task_id);
    Status st;
    if (s.Step(&st)) {
      ReadRow(s, out);
      return Status::OK();
    }
    return st.ok() ? Status(kErrNotFound, "task not found: " + task_id) : st;
  }

  Status List(const std::string& owner, size_t limit, std::vector<TaskRow>* out) override {
    out->clear();
    Stmt s = Prepare(std::string("SELECT ") + kCols +
                     " FROM tasks WHERE (?1 = '' OR owner = ?1) ORDER BY id DESC LIMIT ?2");
    s.Bind(1, owner).Bind(2, static_cast<int64_t>(limit));
    return Collect(s, out);
  }

  Status ListOwned(const std::string& owner, const std::vector<std::string>& states, uint64_t offset,
                   uint64_t limit, std::vector<TaskRow>* out, uint64_t* total) override {
    out->clear();
    *total = 0;
    // ",queued,running," or "" for every state: one statement whatever the filter.
    std::string set;
    for (const std::string& st : states) set += "," + st;
    if (!set.empty()) set += ",";
    const char kWhere[] = " FROM tasks WHERE owner = ?1 AND (?2 = '' OR instr(?2, ',' || state || ',') > 0)";
    {
      Stmt s = Prepare(std::string("SELECT COUNT(*)") + kWhere);
      s.Bind(1, owner).Bind(2, set);
      Status st;
      if (s.Step(&st)) *total = static_cast<uint64_t>(s.Int(0));
      while (s.Step(&st)) {
      }
      ORVEL_RETURN_IF_ERROR(st);
    }
    Stmt s = Prepare(std::string("SELECT ") + kCols + kWhere + " ORDER BY id DESC LIMIT ?3 OFFSET ?4");
    s.Bind(1, owner).Bind(2, set).Bind(3, static_cast<int64_t>(limit)).Bind(4, static_cast<int64_t>(offset));
    return Collect(s, out);
  }

  Status ClaimNext(int64_t now, TaskRow* out, bool* found) override {
    *found = false;
    Stmt s = Prepare(std::string("UPDATE tasks SET state = 'running', started = ?1,"
                                 " attempts = attempts + 1 WHERE id = (SELECT id FROM tasks"
                                 " WHERE state = 'queued' ORDER BY id LIMIT 1) RETURNING ") +
                     kCols);
    s.Bind(1, now);
    Status st;
    if (s.Step(&st)) {
      ReadRow(s, out);
      *found = true;
      while (s.Step(&st)) {
      }
    }
    return st;
  }

  Status SetProgress(const std::string& task_id, uint64_t done, uint64_t total, uint64_t bytes_done,
                     uint64_t bytes_total) override {
    Stmt s = Prepare(
        "UPDATE tasks SET done = ?2, total = ?3, bytes_done = ?4, bytes_total = ?5 WHERE task_id = ?1");
    s.Bind(1, task_id).Bind(2, static_cast<int64_t>(done)).Bind(3, static_cast<int64_t>(total));
    s.Bind(4, static_cast<int64_t>(bytes_done)).Bind(5, static_cast<int64_t>(bytes_total));
    return s.Run();
  }

  Status Finish(const std::string& task_id, const std::string& state, const std::string& result,
                int error_code, const std::string& message, int64_t now) override {
    Stmt s = Prepare(
        "UPDATE tasks SET state = ?2, result = ?3, error_code = ?4, error_message = ?5,"
        " finished = ?6 WHERE task_id = ?1");
    s.Bind(1, task_id).Bind(2, state).Blob(3, result).Bind(4, int64_t{error_code});
    s.Bind(5, message).Bind(6, now);
    return s.Run();
  }

  Status RequestCancel(const std::string& task_id, int64_t now, bool* was_queued) override {
    *was_queued = false;
    {
      Stmt s = Prepare(
          "UPDATE tasks SET state = 'cancelled', cancel_requested = 1, finished = ?2,"
          " error_code = -1116, error_message = 'task cancelled'"
          " WHERE task_id = ?1 AND state = 'queued'");
      s.Bind(1, task_id).Bind(2, now);
      ORVEL_RETURN_IF_ERROR(s.Run());
      if (s.Changes() > 0) {
        *was_queued = true;
        return Status::OK();
      }
    }
    Stmt s = Prepare("UPDATE tasks SET cancel_requested = 1 WHERE task_id = ?1");
    s.Bind(1, task_id);
    return s.Run();
  }

  Status ListRunning(std::vector<TaskRow>* out) override {
    out->clear();
    Stmt s = Prepare(std::string("SELECT ") + kCols + " FROM tasks WHERE state = 'running' ORDER BY id");
    return Collect(s, out);
  }

  Status Requeue(const std::string& task_id) override {
    Stmt s = Prepare("UPDATE tasks SET state = 'queued' WHERE task_id = ?1");
    s.Bind(1, task_id);
    return s.Run();
  }

  Status PruneEnded(int64_t before, uint64_t* removed) override {
    Stmt s = Prepare(
        "DELETE FROM tasks WHERE state IN ('finished', 'failed', 'cancelled') AND finished < ?1");
    s.Bind(1, before);
    Status st = s.Run();
    *removed = st.ok() ? static_cast<uint64_t>(s.Changes()) : 0;
    return st;
  }

 private:
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

  static Status Collect(Stmt& s, std::vector<TaskRow>* out) {
    Status st;
    while (s.Step(&st)) {
      out->emplace_back();
      ReadRow(s, &out->back());
    }
    return st;
  }

  sqlite3* db_;
  std::unordered_map<std::string, sqlite3_stmt*> cache_;
};

}  // namespace

Status OpenSqliteTaskStore(const std::string& path, std::unique_ptr<TaskStore>* out) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    std::string msg = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close(db);
    return Status(kErrStorage, "open " + path + ": " + msg);
  }
  auto store = std::make_unique<SqliteTaskStore>(db);
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  for (const char* pragma : {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL"}) {
    if (sqlite3_exec(db, pragma, nullptr, nullptr, nullptr) != SQLITE_OK)
      return Status(kErrStorage, "open " + path + ": " + pragma + ": " + sqlite3_errmsg(db));
  }
  *out = std::move(store);
  return Status::OK();
}

}  // namespace orvel::syncd
