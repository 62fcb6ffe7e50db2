// See schema.h. Never edit a migration that has shipped: add a new one.
#include "db/schema.h"

#include <sqlite3.h>

#include "db/schema_browse.h"
#include "db/task_store.h"

namespace orvel::syncd {
namespace {

// Version 1: the nodes table, its listing indexes and the counters that keep
// totals cheap (child_count/child_dirs of a folder, kept by triggers).
const char kV1[] = R"SQL(
CREATE TABLE nodes (
  id INTEGER PRIMARY KEY,
  file_id TEXT NOT NULL UNIQUE,
  parent_id TEXT NOT NULL,
  owner TEXT NOT NULL,
  name TEXT NOT NULL,
  type INTEGER NOT NULL,
  size INTEGER NOT NULL DEFAULT 0,
  created_time INTEGER NOT NULL DEFAULT 0,
  access_time INTEGER NOT NULL DEFAULT 0,
  modified_time INTEGER NOT NULL DEFAULT 0,
  change_time INTEGER NOT NULL DEFAULT 0,
  hash TEXT NOT NULL DEFAULT '',
  sync_id INTEGER NOT NULL DEFAULT 0,
  max_id INTEGER NOT NULL DEFAULT 0,
  removed INTEGER NOT NULL DEFAULT 0,
  vanished INTEGER NOT NULL DEFAULT 0,
  encrypted INTEGER NOT NULL DEFAULT 0,
  permanent_link TEXT NOT NULL DEFAULT '',
  properties TEXT NOT NULL DEFAULT '{}',
  app_properties TEXT NOT NULL DEFAULT '{}',
  content_type TEXT NOT NULL DEFAULT '',
  revisions INTEGER NOT NULL DEFAULT 0,
  ext TEXT NOT NULL DEFAULT '',
  child_count INTEGER NOT NULL DEFAULT 0,
  child_dirs INTEGER NOT NULL DEFAULT 0
);
CREATE UNIQUE INDEX nodes_live_name ON nodes(parent_id, name) WHERE removed = 0 AND vanished = 0;
CREATE INDEX nodes_sort_name ON nodes(parent_id, name COLLATE NOCASE) WHERE removed = 0 AND vanished = 0;
CREATE INDEX nodes_sort_size ON nodes(parent_id, size) WHERE removed = 0 AND vanished = 0;
CREATE INDEX nodes_sort_mtime ON nodes(parent_id, modified_time) WHERE removed = 0 AND vanished = 0;
CREATE INDEX nodes_parent ON nodes(parent_id);
CREATE UNIQUE INDEX nodes_root ON nodes(owner) WHERE parent_id = '';
CREATE TRIGGER nodes_count_insert AFTER INSERT ON nodes
  WHEN NEW.removed = 0 AND NEW.vanished = 0 AND NEW.parent_id <> '' BEGIN
  UPDATE nodes SET child_count = child_count + 1, child_dirs = child_dirs + (NEW.type = 1)
    WHERE file_id = NEW.parent_id;
END;
CREATE TRIGGER nodes_count_delete AFTER DELETE ON nodes
  WHEN OLD.removed = 0 AND OLD.vanished = 0 AND OLD.parent_id <> '' BEGIN
  UPDATE nodes SET child_count = child_count - 1, child_dirs = child_dirs - (OLD.type = 1)
    WHERE file_id = OLD.parent_id;
END;
CREATE TRIGGER nodes_count_leave AFTER UPDATE OF parent_id, removed, vanished, type ON nodes
  WHEN OLD.removed = 0 AND OLD.vanished = 0 AND OLD.parent_id <> '' BEGIN
  UPDATE nodes SET child_count = child_count - 1, child_dirs = child_dirs - (OLD.type = 1)
    WHERE file_id = OLD.parent_id;
END;
CREATE TRIGGER nodes_count_enter AFTER UPDATE OF parent_id, removed, vanished, type ON nodes
  WHEN NEW.removed = 0 AND NEW.vanished = 0 AND NEW.parent_id <> '' BEGIN
  UPDATE nodes SET child_count = child_count + 1, child_dirs = child_dirs + (NEW.type = 1)
    WHERE file_id = NEW.parent_id;
END;
CREATE TABLE counters (name TEXT PRIMARY KEY, value INTEGER NOT NULL);
INSERT INTO counters VALUES ('change', 0);
)SQL";

// Version 2: persisted service state and freeze flags.
const char kV2[] = R"SQL(
CREATE TABLE service (key TEXT PRIMARY KEY, value TEXT NOT NULL);
INSERT INTO service VALUES ('status', 'enabled');
CREATE TABLE freeze (view_id INTEGER PRIMARY KEY, frozen INTEGER NOT NULL);
)SQL";

// Version 3: revisions, the unlink job queue, and lookups by permanent link
// and by extension.
const char kV3[] = R"SQL(
CREATE TABLE revisions (
  id INTEGER PRIMARY KEY,
  file_id TEXT NOT NULL,
  sync_id INTEGER NOT NULL,
  size INTEGER NOT NULL,
  modified_time INTEGER NOT NULL,
  hash TEXT NOT NULL,
  created INTEGER NOT NULL
);
CREATE INDEX revisions_file ON revisions(file_id, sync_id);
CREATE TABLE unlink_jobs (id INTEGER PRIMARY KEY, path TEXT NOT NULL, not_before INTEGER NOT NULL);
CREATE INDEX unlink_jobs_due ON unlink_jobs(not_before);
CREATE INDEX nodes_link ON nodes(permanent_link) WHERE permanent_link <> '';
CREATE INDEX nodes_ext ON nodes(parent_id, ext) WHERE removed = 0 AND vanished = 0;
)SQL";

Status Exec(sqlite3* db, const char* sql) {
  char* err = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &err) != SQLITE_OK) {
    std::string msg = err ? err : sqlite3_errmsg(db);
    sqlite3_free(err);
    int rc = sqlite3_errcode(db);
    return Status(rc == SQLITE_BUSY || rc == SQLITE_LOCKED ? kErrBusy : kErrStorage,
                  "migration: " + msg);
  }
  return Status::OK();
}

// Undo records of writes that rename entries before their commit (intent.h).
const char kV22[] = R"SQL(
CREATE TABLE intents (
  id INTEGER PRIMARY KEY,
  steps BLOB NOT NULL
);
)SQL";

// The recycle bin's records (db/recycle_store.h): one per top of what a
// delete moved into the bin, gone with its node when the node is purged.
// Tops removed before this version get a record without a path (restored
// into their folder when it is live, else into /mydrive).
const char kV23[] = R"SQL(
CREATE TABLE recycle (
  file_id TEXT PRIMARY KEY,
  owner TEXT NOT NULL,
  removed_time INTEGER NOT NULL,
  removed_by TEXT NOT NULL,
  parent_id TEXT NOT NULL,
  original_path TEXT NOT NULL
);
CREATE INDEX recycle_owner ON recycle(owner, removed_time);
CREATE INDEX recycle_time ON recycle(removed_time);
CREATE TRIGGER recycle_on_purge AFTER DELETE ON nodes BEGIN
  DELETE FROM recycle WHERE file_id = OLD.file_id;
END;
INSERT INTO recycle (file_id, owner, removed_time, removed_by, parent_id, original_path)
  SELECT n.file_id, n.owner, n.change_time, n.owner, n.parent_id, '' FROM nodes n
  WHERE n.removed = 1 AND NOT EXISTS
    (SELECT 1 FROM nodes p WHERE p.file_id = n.parent_id AND p.removed = 1);
)SQL";

// Version 24: who wrote each content version, carried into its revision;
// revisions by content (retention removes a kept file once no row holds it).
const char kV24[] = R"SQL(
ALTER TABLE revisions ADD COLUMN writer TEXT NOT NULL DEFAULT '';
CREATE INDEX revisions_hash ON revisions(hash);
CREATE INDEX revisions_created ON revisions(created);
CREATE TABLE content_writers (
  file_id TEXT PRIMARY KEY,
  sync_id INTEGER NOT NULL,
  writer TEXT NOT NULL
);
)SQL";

// Version 28: the home index's condition written with IS. SQLite marks a
// statement for recompiling whenever a bound value is compared with a partial
// index's literal, so with "parent_id = ''" every look-up by "parent_id = ?"
// (a child by name, a listing page) was compiled again on each new folder.
const char kV28[] = R"SQL(
DROP INDEX nodes_root;
CREATE UNIQUE INDEX nodes_root ON nodes(owner) WHERE parent_id IS '';
)SQL";

}  // namespace

const std::vector<Migration>& SqliteMigrations() {
  static const std::vector<Migration> kAll = {{1, kV1}, {2, kV2}, {3, kV3},
                                              {10, kBrowseSchemaV10}, {11, kBrowseSchemaV11},
                                              {20, kTasksMigrationSql}, {21, kBrowseSchemaV21},
                                              {22, kV22}, {23, kV23}, {24, kV24},
                                              {25, kBrowseSchemaV25}, {27, kTaskBytesMigrationSql},
                                              {28, kV28}};
  return kAll;
}

int LatestSchemaVersion() { return SqliteMigrations().back().version; }

Status CheckMigrationOrder(const std::vector<Migration>& table) {
  int previous = 0;
  for (size_t i = 0; i < table.size(); ++i) {
    if (table[i].version <= previous)
      return Status(kErrInternal, "migration table out of order: version " +
                                      std::to_string(table[i].version) + " at position " +
                                      std::to_string(i + 1) + " follows version " +
                                      std::to_string(previous));
    previous = table[i].version;
  }
  return Status::OK();
}

Status ReadSchemaVersion(sqlite3* db, int* version) {
  ORVEL_RETURN_IF_ERROR(Exec(db, "CREATE TABLE IF NOT EXISTS schema_version (version INTEGER NOT NULL)"));
  sqlite3_stmt* st = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT MAX(version) FROM schema_version", -1, &st, nullptr) != SQLITE_OK)
    return Status(kErrStorage, std::string("schema_version: ") + sqlite3_errmsg(db));
  *version = sqlite3_step(st) == SQLITE_ROW ? sqlite3_column_int(st, 0) : 0;
  sqlite3_finalize(st);
  return Status::OK();
}

Status MigrateSqlite(sqlite3* db, int target) { return MigrateSqlite(db, SqliteMigrations(), target); }

Status MigrateSqlite(sqlite3* db, const std::vector<Migration>& table, int target) {
  // A number out of order would be skipped on every database already past
  // it; refuse the whole table instead of leaving such a hole.
  ORVEL_RETURN_IF_ERROR(CheckMigrationOrder(table));
  const int latest = table.empty() ? 0 : table.back().version;
  if (target < 0) target = latest;
  // One writer migrates; others wait for the write lock, then see the result.
  ORVEL_RETURN_IF_ERROR(Exec(db, "BEGIN IMMEDIATE"));
  int version = 0;
  Status st = ReadSchemaVersion(db, &version);
  Exec(db, "COMMIT");
  if (!st.ok()) return st;
  if (version > latest)
    return Status(kErrInternal, "database schema version " + std::to_string(version) +
                                    " is newer than this daemon (" + std::to_string(latest) + ")");
  for (const Migration& m : table) {
    if (m.version > target) break;
    ORVEL_RETURN_IF_ERROR(Exec(db, "BEGIN IMMEDIATE"));
    int current = 0;
    st = ReadSchemaVersion(db, &current);
    if (st.ok() && current < m.version) {
      st = Exec(db, m.sql);
      if (st.ok()) {
        std::string record = "DELETE FROM schema_version; INSERT INTO schema_version VALUES (" +
                             std::to_string(m.version) + ")";
        st = Exec(db, record.c_str());
      }
    }
    if (!st.ok()) {
      Exec(db, "ROLLBACK");
      return Status(st.code(), st.message() + " (version " + std::to_string(m.version) + ")");
    }
    ORVEL_RETURN_IF_ERROR(Exec(db, "COMMIT"));
  }
  return Status::OK();
}

}  // namespace orvel::syncd
