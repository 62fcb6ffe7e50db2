// See list_sql.h.
#include "db/list_sql.h"

namespace orvel::syncd {
namespace {

SqlArg Int(int64_t v) {
  SqlArg a;
  a.i = v;
  return a;
}

SqlArg Text(const std::string& v) {
  SqlArg a;
  a.is_text = true;
  a.s = v;
  return a;
}

// The WHERE clause shared by the page and its count.
std::string WhereClause(const ListQuery& q, std::vector<SqlArg>* args) {
  args->push_back(Text(q.parent_id));
  std::string where = "parent_id = ?1 AND removed = 0 AND vanished = 0";
  if (q.files != q.dirs) where += q.dirs ? " AND type = 1" : " AND type = 0";
  if (!q.extensions.empty()) {
    where += " AND ext IN (";
    for (size_t i = 0; i < q.extensions.size(); ++i) {
      args->push_back(Text(q.extensions[i]));
      where += (i ? ", ?" : "?") + std::to_string(args->size());
    }
    where += ")";
  }
  return where;
}

}  // namespace

std::string OrderByClause(SortKey key, bool descending) {
  const char* dir = descending ? " DESC" : " ASC";
  std::string col;
  switch (key) {
    case SortKey::kName: col = "name COLLATE NOCASE"; break;
    case SortKey::kSize: col = "size"; break;
    case SortKey::kModified: col = "modified_time"; break;
  }
  return col + dir + ", id" + dir;
}

SqlText BuildListSql(const ListQuery& q, const std::string& columns, const PageCursor* after,
                     uint64_t skip) {
  SqlText t;
  std::string where = WhereClause(q, &t.args);
  if (after) {
    // key >= v AND (key > v OR id > last): the first term lets SQLite seek
    // the index; the second orders rows with equal keys by id.
    std::string col = q.sort == SortKey::kName ? "name COLLATE NOCASE"
                      : q.sort == SortKey::kSize ? "size" : "modified_time";
    t.args.push_back(after->is_text ? Text(after->s) : Int(after->i));
    std::string v = "?" + std::to_string(t.args.size());
    t.args.push_back(Int(after->id));
    std::string id = "?" + std::to_string(t.args.size());
    const char* ge = q.descending ? " <= " : " >= ";
    const char* gt = q.descending ? " < " : " > ";
    where += " AND " + col + ge + v + " AND (" + col + gt + v + " OR id" + gt + id + ")";
  }
  t.args.push_back(Int(static_cast<int64_t>(q.limit)));
  std::string limit = "?" + std::to_string(t.args.size());
  t.args.push_back(Int(static_cast<int64_t>(after ? skip : q.offset)));
  std::string offset = "?" + std::to_string(t.args.size());
  t.sql = "SELECT " + columns + " FROM nodes WHERE " + where + " ORDER BY " +
          OrderByClause(q.sort, q.descending) + " LIMIT " + limit + " OFFSET " + offset;
  return t;
}

std::string ListQueryKey(const ListQuery& q) {
  std::string k = q.parent_id + "|" + std::to_string(static_cast<int>(q.sort)) + (q.descending ? "d" : "a") +
                  (q.files ? "f" : "") + (q.dirs ? "D" : "") + "|";
  for (const auto& e : q.extensions) k += e + ",";
  return k;
}

SqlText BuildCountSql(const ListQuery& q) {
  SqlText t;
  std::string where = WhereClause(q, &t.args);
  t.sql = "SELECT COUNT(*) FROM nodes WHERE " + where;
  return t;
}

bool ParseSortKey(const std::string& text, SortKey* key) {
  if (text == "name" || text.empty()) {
    *key = SortKey::kName;
  } else if (text == "size") {
    *key = SortKey::kSize;
  } else if (text == "modified_time" || text == "mtime") {
    *key = SortKey::kModified;
  } else {
    *key = SortKey::kName;
    return false;
  }
  return true;
}

}  // namespace orvel::syncd
