// schema: the numbered migrations of the SQLite metadata database. The table
// schema_version holds the number of the last one applied; each migration
// runs in its own transaction, so a crash leaves the database at a whole
// version. A database newer than this build knows is refused.
// Not thread-safe per connection (called once when a connection opens).
#pragma once

#include <string>
#include <vector>

#include "orvelcommon/status.h"

struct sqlite3;

namespace orvel::syncd {

struct Migration {
  int version;
  const char* sql;
};

// Every migration of every part (nodes, browsing, tasks), in one table
// ordered by version. A new migration goes at the end with a number above
// every shipped one: a database already past a number never runs it.
const std::vector<Migration>& SqliteMigrations();
int LatestSchemaVersion();

// OK when every version in `table` is positive and above the one before it;
// otherwise kErrInternal naming the first entry out of order.
Status CheckMigrationOrder(const std::vector<Migration>& table);

// The version recorded in db (0 for a fresh database).
Status ReadSchemaVersion(sqlite3* db, int* version);
// Applies the missing migrations up to `target` (-1 = latest).
// kErrInternal when the database is newer than this build, or when the
// table is out of order (nothing is applied then).
Status MigrateSqlite(sqlite3* db, int target = -1);
// The same with an explicit table, for tests of the order check.
Status MigrateSqlite(sqlite3* db, const std::vector<Migration>& table, int target);

}  // namespace orvel::syncd
