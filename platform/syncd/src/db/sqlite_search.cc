// See sqlite_search.h. A keyword search walks the FTS5 index (bm25 score,
// name weighted above content) and joins the nodes by row id; filters are
// conditions on the joined row. Without a keyword the nodes are filtered
// directly.
#include "db/sqlite_search.h"

namespace orvel::syncd {
namespace {

std::string JsonList(const std::vector<std::string>& v) {
  std::string out = "[";
  for (const std::string& s : v) {
    if (out.size() > 1) out += ",";
    out += "\"";
    for (unsigned char c : s) {
      if (c == '"' || c == '\\') out += '\\';
      if (c < 0x20) continue;
      out += static_cast<char>(c);
    }
    out += "\"";
  }
  return out + "]";
}

class WhereBuilder {
 public:
  WhereBuilder(SearchWhere* w, int first) : w_(w), next_(first) {}
  std::string Text(const std::string& v) {
    w_->args.push_back(SqlValue{true, v, 0});
    return "?" + std::to_string(next_++);
  }
  std::string Int(int64_t v) {
    w_->args.push_back(SqlValue{false, "", v});
    return "?" + std::to_string(next_++);
  }
  void And(const std::string& cond) { w_->sql += " AND " + cond; }

 private:
  SearchWhere* w_;
  int next_;
};

std::string SharedSubtree(WhereBuilder& b, const std::vector<std::string>& roots) {
  return "n.file_id IN (WITH RECURSIVE sub(id) AS (SELECT value FROM json_each(" + b.Text(JsonList(roots)) +
         ") UNION SELECT c.file_id FROM nodes c JOIN sub ON c.parent_id = sub.id"
         " WHERE c.removed = 0 AND c.vanished = 0) SELECT id FROM sub)";
}

void Bind(CachedStmt& s, const std::vector<SqlValue>& args, int first) {
  int i = first;
  for (const SqlValue& a : args) {
    if (a.is_text) s.Bind(i++, a.text);
    else s.Bind(i++, a.num);
  }
}

}  // namespace

SearchWhere BuildSearchWhere(const SearchQuery& q, int first) {
  SearchWhere w;
  w.sql = "n.parent_id <> '' AND n.removed = 0 AND n.vanished = 0";
  WhereBuilder b(&w, first);
  switch (q.scope) {
    case SearchQuery::Scope::kMine: b.And("n.owner = " + b.Text(q.user)); break;
    case SearchQuery::Scope::kShared:
      b.And(q.shared_roots.empty() ? "0" : SharedSubtree(b, q.shared_roots));
      break;
    case SearchQuery::Scope::kFolder:
      b.And("n.parent_id IN (SELECT value FROM json_each(" + b.Text(JsonList(q.folders)) + "))");
      break;
    case SearchQuery::Scope::kAll:
      if (q.shared_roots.empty()) b.And("n.owner = " + b.Text(q.user));
      else b.And("(n.owner = " + b.Text(q.user) + " OR " + SharedSubtree(b, q.shared_roots) + ")");
      break;
  }
  if (q.files != q.dirs) b.And(q.dirs ? "n.type = 1" : "n.type = 0");
  if (!q.extensions.empty())
    b.And("n.ext IN (SELECT value FROM json_each(" + b.Text(JsonList(q.extensions)) + "))");
  if (!q.label_ids.empty())
    b.And("n.file_id IN (SELECT file_id FROM item_labels WHERE user = " + b.Text(q.user) +
          " AND label_id IN (SELECT value FROM json_each(" + b.Text(JsonList(q.label_ids)) + ")))");
  if (q.start_time > 0) b.And("n.modified_time >= " + b.Int(q.start_time));
  if (q.end_time > 0) b.And("n.modified_time <= " + b.Int(q.end_time));
  if (q.min_size > 0) b.And("n.size >= " + b.Int(static_cast<int64_t>(q.min_size)));
  if (q.max_size > 0) b.And("n.size <= " + b.Int(static_cast<int64_t>(q.max_size)));
  if (!q.owner_is.empty()) b.And("n.owner = " + b.Text(q.owner_is));
  if (!q.owner_not.empty()) b.And("n.owner <> " + b.Text(q.owner_not));
  return w;
}

std::string SearchOrder(const SearchQuery& q) {
  const char* dir = q.descending ? " DESC" : " ASC";
  switch (q.sort) {
    case SearchQuery::Sort::kScore:
      if (!q.match.empty()) return std::string("score") + dir + ", n.id" + dir;
      return std::string("n.name COLLATE NOCASE") + dir + ", n.id" + dir;
    case SearchQuery::Sort::kName: return std::string("n.name COLLATE NOCASE") + dir + ", n.id" + dir;
    case SearchQuery::Sort::kSize: return std::string("n.size") + dir + ", n.id" + dir;
    case SearchQuery::Sort::kModified: return std::string("n.modified_time") + dir + ", n.id" + dir;
  }
  return "n.id";
}

Status SqliteSearch::Pending(size_t max, std::vector<PendingIndex>* out) {
  out->clear();
  CachedStmt s = c_->Prepare("SELECT id, node_row FROM search_pending ORDER BY id LIMIT ?1");
  s.Bind(1, static_cast<int64_t>(max));
  Status st;
  while (s.Step(&st)) out->push_back(PendingIndex{s.Int(0), s.Int(1)});
  return st;
}

Status SqliteSearch::NodeByRow(int64_t row_id, Node* out) {
  CachedStmt s = c_->Prepare("SELECT " + NodeColumns("n") + " FROM nodes n WHERE n.id = ?1");
  s.Bind(1, row_id);
  Status st;
  if (!s.Step(&st)) {
    ORVEL_RETURN_IF_ERROR(st);
    return Status(kErrNotFound, "no row " + std::to_string(row_id));
  }
  s.ReadNode(0, out);
  return Status::OK();
}

Status SqliteSearch::IndexRow(const PendingIndex& p, bool live, const std::string& name,
                              const std::string& body) {
  {
    CachedStmt s = c_->Prepare("DELETE FROM search_fts WHERE rowid = ?1");
    ORVEL_RETURN_IF_ERROR(s.Bind(1, p.node_row).Run());
  }
  if (live) {
    CachedStmt s = c_->Prepare("INSERT INTO search_fts (rowid, name, body) VALUES (?1, ?2, ?3)");
    ORVEL_RETURN_IF_ERROR(s.Bind(1, p.node_row).Bind(2, name).Bind(3, body).Run());
  }
  CachedStmt s = c_->Prepare("DELETE FROM search_pending WHERE id = ?1");
  return s.Bind(1, p.queue_id).Run();
}

Status SqliteSearch::Search(const SearchQuery& q, std::vector<SearchHit>* hits, uint64_t* total) {
  hits->clear();
  bool fts = !q.match.empty();
  int first = fts ? 2 : 1;
  SearchWhere w = BuildSearchWhere(q, first);
  std::string from = fts ? " FROM search_fts JOIN nodes n ON n.id = search_fts.rowid WHERE search_fts MATCH ?1 AND "
                         : " FROM nodes n WHERE ";
  std::string cols = NodeColumns("n");
  if (fts) {
    cols += ", bm25(search_fts, 10.0, 1.0) AS score";
    cols += q.snippet ? ", snippet(search_fts, 1, '<b>', '</b>', '...', 16)" : ", ''";
  } else {
    cols += ", 0, ''";
  }
  int paging = first + static_cast<int>(w.args.size());
  Status st;
  {
    CachedStmt s = c_->Prepare("SELECT " + cols + from + w.sql + " ORDER BY " + SearchOrder(q) +
                               " LIMIT ?" + std::to_string(paging) + " OFFSET ?" + std::to_string(paging + 1));
    if (fts) s.Bind(1, q.match);
    Bind(s, w.args, first);
    s.Bind(paging, static_cast<int64_t>(q.limit)).Bind(paging + 1, static_cast<int64_t>(q.offset));
    while (s.Step(&st)) {
      hits->emplace_back();
      s.ReadNode(0, &hits->back().node);
      hits->back().snippet = s.Text(26);
    }
    ORVEL_RETURN_IF_ERROR(st);
  }
  CachedStmt s = c_->Prepare("SELECT COUNT(*)" + from + w.sql);
  if (fts) s.Bind(1, q.match);
  Bind(s, w.args, first);
  *total = s.Step(&st) ? static_cast<uint64_t>(s.Int(0)) : 0;
  return st;
}

Status SqliteSearch::SubtreeFolders(const std::string& folder_id, std::vector<std::string>* out) {
  out->clear();
  CachedStmt s = c_->Prepare(
      "WITH RECURSIVE sub(id) AS (SELECT ?1 UNION SELECT c.file_id FROM nodes c JOIN sub ON"
      " c.parent_id = sub.id WHERE c.type = 1 AND c.removed = 0 AND c.vanished = 0) SELECT id FROM sub");
  s.Bind(1, folder_id);
  Status st;
  while (s.Step(&st)) out->push_back(s.Text(0));
  return st;
}

std::unique_ptr<SqliteSearch> NewSqliteSearch(StmtCache* c) { return std::make_unique<SqliteSearch>(c); }

}  // namespace orvel::syncd
