// schema: the numbered migrations of the SQLite metadata database. The table
// schema_version holds the number of the last one applied; each migration
// runs in its own transaction, so a crash leaves the database at a whole
// version. A database newer than this build knows is refused.
// Not thread-safe per connection (called once when a connection opens).
#pragma once

#include <string>
#include <vector>

#include "nimbard/status.h"

struct sqlite3;

namespace orvel::syncd {

struct Migration {
  int version;
  const char* sql;
};

// All migrations, in order (versions 1, 2, 3, ...).
const std::vector<Migration>& SqliteMigrations();
int LatestSchemaVersion();

// The version recorded in db (0 for a fresh database).
Status ReadSchemaVersion(sqlite3* db, int* version);
// Applies the missing migrations up to `target` (-1 = latest).
// kErrInternal when the database is newer than this build.
Status MigrateSqlite(sqlite3* db, int target = -1);

}  // namespace orvel::syncd
