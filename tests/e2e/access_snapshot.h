// A snapshot of what a request may change: every entry of the data folder
// (path, type, size, content hash, modification time) and every row of the
// daemon's database tables, so a test can show that a refused request
// changed nothing. Left out: the search index's tables (a search keeps them
// current as it reads), the user database (sessions record their last use),
// the modification time of @tmp itself (entry.cgi receives every upload there
// before any method runs), and the download staging folders in @tmp with the
// queue of unlink jobs that removes them (the module makes the folder before
// the daemon answers, and the daemon's job thread removes it at its own pace).
// Not thread-safe.
#pragma once

#include <map>
#include <string>

namespace orvel::test {

struct DataSnapshot {
  std::map<std::string, std::string> entries;  // path below the data folder -> description
  std::map<std::string, std::string> rows;     // "<table>: <row's values>" -> "+" per copy

  static DataSnapshot Take(const std::string& data_dir);
  // One line per difference ("+ added", "- removed", "~ changed"); "" if none.
  std::string DiffTo(const DataSnapshot& after) const;
};

}  // namespace orvel::test
