// sqlite_search: the FTS5 search index of the SQLite browsing store: its
// queue of rows to (re)index, index updates and the search query itself.
//
// Threading: belongs to one connection (through its StmtCache), one thread
// at a time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "db/browse_store.h"
#include "db/sqlite_rows.h"

namespace orvel::syncd {

class SqliteSearch {
 public:
  explicit SqliteSearch(StmtCache* c) : c_(c) {}
  Status Pending(size_t max, std::vector<PendingIndex>* out);
  Status NodeByRow(int64_t row_id, Node* out);
  Status IndexRow(const PendingIndex& p, bool live, const std::string& name, const std::string& body);
  Status Search(const SearchQuery& q, std::vector<SearchHit>* hits, uint64_t* total);
  Status SubtreeFolders(const std::string& folder_id, std::vector<std::string>* out);

 private:
  StmtCache* c_;
};

std::unique_ptr<SqliteSearch> NewSqliteSearch(StmtCache* c);

// The WHERE conditions (over nodes "n") of q after the FTS match, with
// their arguments bound to ?first, ?first+1, ...; exposed for tests.
struct SqlValue {
  bool is_text = true;
  std::string text;
  int64_t num = 0;
};
struct SearchWhere {
  std::string sql;
  std::vector<SqlValue> args;
};
SearchWhere BuildSearchWhere(const SearchQuery& q, int first);
// ORDER BY terms for q ("score" names the bm25 column of a keyword search).
std::string SearchOrder(const SearchQuery& q);

}  // namespace orvel::syncd
