// sqlite_rows: small helpers of the SQLite stores: a statement cache whose
// borrowed statements reset themselves (the one statement guard of the
// stores), binding of mixed argument
// lists, and the nodes columns read into a Node.
//
// Threading: a StmtCache belongs to one connection and one thread at a time.
#pragma once

#include <sqlite3.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "db/store.h"

namespace orvel::syncd {

// The nodes columns in the order ReadNodeRow expects, prefixed with `alias.`.
std::string NodeColumns(const std::string& alias);

// A statement borrowed from a StmtCache, reset and unbound when it ends.
class CachedStmt {
 public:
  CachedStmt(sqlite3* db, sqlite3_stmt* st) : db_(db), st_(st) {}
  ~CachedStmt();
  CachedStmt(const CachedStmt&) = delete;
  CachedStmt& operator=(const CachedStmt&) = delete;

  CachedStmt& Bind(int i, int64_t v);
  CachedStmt& Bind(int i, const std::string& v);
  CachedStmt& Blob(int i, const std::string& v);
  // SQLITE_ROW -> true; SQLITE_DONE -> false with *st OK; an error sets *st.
  bool Step(Status* st);
  Status Run();
  bool Null(int col) const { return sqlite3_column_type(st_, col) == SQLITE_NULL; }
  int64_t Int(int col) const { return sqlite3_column_int64(st_, col); }
  std::string Text(int col) const;
  // Reads the NodeColumns() that start at column `first`.
  void ReadNode(int first, Node* n) const;
  // SQLITE_CONSTRAINT as the given code, busy as kErrBusy, else kErrStorage.
  Status Error(int rc, int constraint_code = kErrNameExists) const;
  int last_rc() const { return last_rc_; }
  int Changes() const { return sqlite3_changes(db_); }

 private:
  sqlite3* db_;
  sqlite3_stmt* st_;
  int last_rc_ = SQLITE_OK;
};

class StmtCache {
 public:
  explicit StmtCache(sqlite3* db) : db_(db) {}
  ~StmtCache();
  StmtCache(const StmtCache&) = delete;
  StmtCache& operator=(const StmtCache&) = delete;
  CachedStmt Prepare(const std::string& sql);
  sqlite3* db() const { return db_; }

 private:
  sqlite3* db_;
  std::unordered_map<std::string, sqlite3_stmt*> cache_;
};

}  // namespace orvel::syncd
