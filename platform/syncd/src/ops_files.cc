// Browsing: list_file (one page of a folder) and get_file_info (one item).
// A page costs O(page): it walks one of the folder's sort indexes and takes
// the total from the folder's maintained child counters (docs/daemon.md).
#include <algorithm>
#include <ctime>

#include "access.h"
#include "db/list_sql.h"
#include "item.h"
#include "ops.h"

namespace orvel::syncd {
namespace {

constexpr uint64_t kDefaultPage = 1000;
constexpr uint64_t kMaxPage = 10000;

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// The filter's "type": a comma-joined string ("file,dir") or an array.
Status ParseTypeFilter(const PObject& v, ListQuery* q) {
  std::vector<std::string> tokens;
  if (v.isString()) {
    std::string s = v.asString();
    size_t start = 0;
    while (start <= s.size()) {
      size_t comma = s.find(',', start);
      if (comma == std::string::npos) comma = s.size();
      tokens.push_back(s.substr(start, comma - start));
      start = comma + 1;
    }
  } else if (v.isArray()) {
    for (const PObject& e : v.asArray()) tokens.push_back(e.asString());
  } else if (!v.isNull()) {
    return Status(kErrInvalidArgument, "filter \"type\" must be a string or an array");
  }
  bool files = false, dirs = false;
  for (std::string t : tokens) {
    t = Lower(t);
    t.erase(0, t.find_first_not_of(' '));
    t.erase(t.find_last_not_of(' ') + 1);
    if (t.empty()) continue;
    if (t == "file") files = true;
    else if (t == "dir" || t == "folder") dirs = true;
    else return Status(kErrInvalidArgument, "unknown type filter: \"" + t + "\"");
  }
  if (files || dirs) {
    q->files = files;
    q->dirs = dirs;
  }
  return Status::OK();
}

}  // namespace

// Reads the list filter of docs/wire.md into q; *label_id and *starred pick
// marked items only.
Status ParseListFilter(const PObject& f, ListQuery* q, std::string* label_id, bool* starred) {
  label_id->clear();
  *starred = false;
  if (f.isNull()) return Status::OK();
  if (!f.isMap()) return Status(kErrInvalidArgument, "argument \"filter\" must be a map");
  std::string sort_by = "name", direction = "asc";
  ORVEL_RETURN_IF_ERROR(ArgString(f, "sort_by", &sort_by));
  ORVEL_RETURN_IF_ERROR(ArgString(f, "sort_direction", &direction));
  if (!ParseSortKey(Lower(sort_by), &q->sort))
    return Status(kErrInvalidArgument, "unknown sort key: \"" + sort_by + "\"");
  direction = Lower(direction);
  if (direction != "asc" && direction != "desc" && !direction.empty())
    return Status(kErrInvalidArgument, "sort_direction must be asc or desc: \"" + direction + "\"");
  q->descending = direction == "desc";
  uint64_t limit = 0;
  ORVEL_RETURN_IF_ERROR(ArgUInt(f, "limit", &limit));
  ORVEL_RETURN_IF_ERROR(ArgUInt(f, "offset", &q->offset));
  if (limit > kMaxPage)
    return Status(kErrTooLargeToAnswer, "limit " + std::to_string(limit) + " is over " +
                                            std::to_string(kMaxPage) + " items");
  q->limit = limit == 0 ? kDefaultPage : limit;
  ORVEL_RETURN_IF_ERROR(ParseTypeFilter(f["type"], q));
  std::vector<std::string> exts;
  ORVEL_RETURN_IF_ERROR(ArgStringList(f, "extensions", &exts));
  for (std::string e : exts) {
    e = Lower(e);
    if (!e.empty() && e[0] == '.') e.erase(0, 1);
    if (!e.empty()) q->extensions.push_back(e);
  }
  ORVEL_RETURN_IF_ERROR(ArgString(f, "label_id", label_id));
  return ArgBool(f, "starred", starred);
}

namespace {

Status ResolveArgPath(RequestContext& ctx, const PObject& args, Access* out) {
  std::string path;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  return ResolveAccess(ctx, path, out);
}

// A page of the folder's children that carry the caller's star or label.
Status ListMarkedChildren(RequestContext& ctx, const ListQuery& q, const std::string& label_id,
                          bool starred, std::vector<Node>* rows, uint64_t* total) {
  if (IsVisitor(ctx)) return Status::OK();  // visitors have no marks
  MarkQuery m;
  m.kind = starred ? MarkQuery::Kind::kStarred : MarkQuery::Kind::kLabelled;
  m.user = ctx.caller.user.name;
  if (!label_id.empty()) {
    Label label;
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->GetLabel(m.user, label_id, &label));
    m.kind = MarkQuery::Kind::kLabelled;
    m.label_id = label_id;
  }
  m.parent_id = q.parent_id;
  m.sort = q.sort;
  m.descending = q.descending;
  m.files = q.files;
  m.dirs = q.dirs;
  m.extensions = q.extensions;
  m.offset = q.offset;
  m.limit = q.limit;
  std::vector<Node> found;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->ListMarked(m, &found, total));
  if (starred && !label_id.empty()) {  // both: starred among the labelled
    ItemMarks marks;
    std::vector<std::string> ids;
    for (const Node& n : found) ids.push_back(n.file_id);
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->MarksAmong(m.user, ids, &marks));
    for (Node& n : found)
      if (marks.starred.count(n.file_id)) rows->push_back(std::move(n));
    *total = rows->size();
    return Status::OK();
  }
  *rows = std::move(found);
  return Status::OK();
}

}  // namespace

Status OpListFile(RequestContext& ctx, const PObject& args, PObject* result) {
  bool recursive = false;
  std::vector<std::string> extra;
  ORVEL_RETURN_IF_ERROR(ArgBool(args, "recursive", &recursive));
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "extra", &extra));  // accepted; none defined yet
  if (recursive) return Status(kErrInvalidArgument, "recursive listing is not supported");
  ListQuery q;
  std::string label_id;
  bool starred = false;
  ORVEL_RETURN_IF_ERROR(ParseListFilter(args["filter"], &q, &label_id, &starred));

  std::vector<Node> rows;
  uint64_t total = 0;
  PObject items;
  {
    // The folder, its page, the total and the items' marks from one
    // snapshot (and one read lock instead of one per statement).
    ReadSnapshot snapshot(ctx.store.get());
    Access folder;
    ORVEL_RETURN_IF_ERROR(ResolveArgPath(ctx, args, &folder));
    if (!folder.node.is_dir()) return Status(kErrNotFolder, "not a folder: " + folder.view_path);
    q.parent_id = folder.node.file_id;
    if (starred || !label_id.empty())
      ORVEL_RETURN_IF_ERROR(ListMarkedChildren(ctx, q, label_id, starred, &rows, &total));
    else
      ORVEL_RETURN_IF_ERROR(ctx.store->ListPage(q, &rows, &total));
    std::vector<Access> children;
    children.reserve(rows.size());
    for (Node& n : rows) children.push_back(ChildAccess(ctx.d->layout, folder, std::move(n)));
    ORVEL_RETURN_IF_ERROR(AccessItemsPacked(ctx, std::move(children), &items));
  }
  (*result)["items"] = std::move(items);
  (*result)["total"] = static_cast<unsigned long long>(total);
  return Status::OK();
}

Status OpGetFileInfo(RequestContext& ctx, const PObject& args, PObject* result) {
  std::vector<std::string> extra;
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "extra", &extra));  // accepted; none defined yet
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveArgPath(ctx, args, &item));
  if (!IsVisitor(ctx) && !item.node.is_dir())  // an opened file counts as recent
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->TouchRecent(ctx.caller.user.name, item.node.file_id,
                                                           static_cast<int64_t>(time(nullptr))));
  return AccessRecord(ctx, item, &(*result)["file"]);
}

}  // namespace orvel::syncd
