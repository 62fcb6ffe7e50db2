// list_sql: the SQL (SQLite dialect) of one listing page, built from a
// ListQuery. Kept apart from the store so that tests can check the text and
// its query plan. Pure functions, thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "db/page_cursors.h"
#include "db/store.h"

namespace orvel::syncd {

struct SqlArg {
  bool is_text = false;
  int64_t i = 0;
  std::string s;
};

struct SqlText {
  std::string sql;
  std::vector<SqlArg> args;  // bound to ?1, ?2, ... in order
};

// The ORDER BY clause of a sort: each key is followed by the row id so that
// equal keys page in a stable order, and each matches one partial index
// (nodes_sort_name, nodes_sort_size, nodes_sort_mtime) so that SQLite walks
// the index instead of sorting.
std::string OrderByClause(SortKey key, bool descending);

// SELECT <columns> FROM nodes WHERE <live children of parent, filters>
// ORDER BY ... LIMIT ? OFFSET ?. With `after`, the rows that follow that
// cursor in the sort order (an index seek), skipping `skip` of them;
// without it, OFFSET is q.offset.
SqlText BuildListSql(const ListQuery& q, const std::string& columns,
                     const PageCursor* after = nullptr, uint64_t skip = 0);

// A text naming the query apart from its paging (folder, sort, filters):
// the key of its cursors.
std::string ListQueryKey(const ListQuery& q);

// SELECT COUNT(*) with the same filters (used only for extension filters;
// the unfiltered and type-filtered totals come from the parent's counters).
SqlText BuildCountSql(const ListQuery& q);

// Parses the wire's sort key: "name", "size", "modified_time" / "mtime".
// Unknown keys fall back to name (false returned).
bool ParseSortKey(const std::string& text, SortKey* key);

}  // namespace orvel::syncd
