// See sqlite_rows.h.
#include "db/sqlite_rows.h"

namespace orvel::syncd {

std::string NodeColumns(const std::string& a) {
  std::string out;
  for (const char* c : {"id", "file_id", "parent_id", "owner", "name", "type", "size", "created_time",
                        "access_time", "modified_time", "change_time", "hash", "sync_id", "max_id",
                        "removed", "vanished", "encrypted", "permanent_link", "properties",
                        "app_properties", "content_type", "revisions", "ext", "child_count",
                        "child_dirs"}) {
    if (!out.empty()) out += ", ";
    out += a + "." + c;
  }
  return out;
}

CachedStmt::~CachedStmt() {
  if (st_) {
    sqlite3_reset(st_);
    sqlite3_clear_bindings(st_);
  }
}

CachedStmt& CachedStmt::Bind(int i, int64_t v) {
  if (st_) sqlite3_bind_int64(st_, i, v);
  return *this;
}

CachedStmt& CachedStmt::Bind(int i, const std::string& v) {
  if (st_) sqlite3_bind_text(st_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
  return *this;
}

CachedStmt& CachedStmt::Blob(int i, const std::string& v) {
  if (st_) sqlite3_bind_blob(st_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
  return *this;
}

bool CachedStmt::Step(Status* st) {
  if (!st_) {
    *st = Status(kErrInternal, std::string("statement did not prepare: ") + sqlite3_errmsg(db_));
    return false;
  }
  last_rc_ = sqlite3_step(st_);
  if (last_rc_ == SQLITE_ROW) return true;
  if (last_rc_ != SQLITE_DONE) *st = Error(last_rc_);
  return false;
}

Status CachedStmt::Run() {
  Status st;
  while (Step(&st)) {
  }
  return st;
}

std::string CachedStmt::Text(int col) const {
  const unsigned char* p = sqlite3_column_text(st_, col);
  return p ? std::string(reinterpret_cast<const char*>(p), sqlite3_column_bytes(st_, col)) : "";
}

void CachedStmt::ReadNode(int f, Node* n) const {
  n->row_id = Int(f + 0);
  n->file_id = Text(f + 1);
  n->parent_id = Text(f + 2);
  n->owner = Text(f + 3);
  n->name = Text(f + 4);
  n->type = static_cast<int>(Int(f + 5));
  n->size = static_cast<uint64_t>(Int(f + 6));
  n->created_time = Int(f + 7);
  n->access_time = Int(f + 8);
  n->modified_time = Int(f + 9);
  n->change_time = Int(f + 10);
  n->hash = Text(f + 11);
  n->sync_id = static_cast<uint64_t>(Int(f + 12));
  n->max_id = static_cast<uint64_t>(Int(f + 13));
  n->removed = Int(f + 14) != 0;
  n->vanished = Int(f + 15) != 0;
  n->encrypted = Int(f + 16) != 0;
  n->permanent_link = Text(f + 17);
  n->properties = Text(f + 18);
  n->app_properties = Text(f + 19);
  n->content_type = Text(f + 20);
  n->revisions = static_cast<uint32_t>(Int(f + 21));
  n->ext = Text(f + 22);
  n->child_count = static_cast<uint64_t>(Int(f + 23));
  n->child_dirs = static_cast<uint64_t>(Int(f + 24));
}

Status CachedStmt::Error(int rc, int constraint_code) const {
  if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED || (rc & 0xff) == SQLITE_BUSY)
    return Status(kErrBusy, std::string("database busy: ") + sqlite3_errmsg(db_));
  if ((rc & 0xff) == SQLITE_CONSTRAINT)
    return Status(constraint_code, std::string("constraint: ") + sqlite3_errmsg(db_));
  return Status(kErrStorage, std::string("database: ") + sqlite3_errmsg(db_));
}

StmtCache::~StmtCache() {
  for (auto& kv : cache_) sqlite3_finalize(kv.second);
}

CachedStmt StmtCache::Prepare(const std::string& sql) {
  auto it = cache_.find(sql);
  if (it == cache_.end()) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &st, nullptr) != SQLITE_OK) {
      sqlite3_finalize(st);
      return CachedStmt(db_, nullptr);
    }
    it = cache_.emplace(sql, st).first;
  }
  return CachedStmt(db_, it->second);
}

}  // namespace orvel::syncd
