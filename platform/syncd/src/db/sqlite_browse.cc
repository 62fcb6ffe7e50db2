// The SQLite back-end of BrowseStore (see browse_store.h): marks, sharing,
// recent items, backups and access requests. The search index lives in
// sqlite_search.cc. Lists of ids and names are bound as one JSON array
// (json_each), so every statement text stays fixed and cached.
#include <ctime>

#include "db/browse_store.h"
#include "db/sqlite_rows.h"
#include "db/sqlite_search.h"

namespace orvel::syncd {
namespace {

std::string JsonArray(const std::vector<std::string>& v) {
  std::string out = "[";
  for (const std::string& s : v) {
    if (out.size() > 1) out += ",";
    out += "\"";
    for (unsigned char c : s) {
      if (c == '"' || c == '\\') {
        out += '\\';
        out += static_cast<char>(c);
      } else if (c < 0x20) {
        char buf[8];
        snprintf(buf, sizeof(buf), "\\u%04x", c);
        out += buf;
      } else {
        out += static_cast<char>(c);
      }
    }
    out += "\"";
  }
  return out + "]";
}

std::string SortSql(SortKey key, bool desc) {
  const char* dir = desc ? " DESC" : " ASC";
  switch (key) {
    case SortKey::kSize: return std::string("n.size") + dir + ", n.id" + dir;
    case SortKey::kModified: return std::string("n.modified_time") + dir + ", n.id" + dir;
    default: return std::string("n.name COLLATE NOCASE") + dir + ", n.id" + dir;
  }
}

// FROM/WHERE of a mark query; ?1 user, ?2 label id or groups, ?3 parent,
// ?4 extensions (JSON arrays where lists).
std::string MarkedFrom(const MarkQuery& q) {
  std::string from;
  switch (q.kind) {
    case MarkQuery::Kind::kStarred:
      from = " FROM stars m JOIN nodes n ON n.file_id = m.file_id WHERE m.user = ?1";
      break;
    case MarkQuery::Kind::kLabelled:
      from = " FROM item_labels m JOIN nodes n ON n.file_id = m.file_id"
             " WHERE m.user = ?1 AND m.label_id = ?2";
      break;
    case MarkQuery::Kind::kSharedWithMe:
      from = " FROM nodes n WHERE n.file_id IN (SELECT file_id FROM shares WHERE"
             " (kind = 'user' AND name = ?1) OR (kind = 'group' AND name IN"
             " (SELECT value FROM json_each(?2)))) AND n.owner <> ?1";
      break;
    case MarkQuery::Kind::kSharedWithOthers:
      from = " FROM nodes n WHERE n.owner = ?1 AND n.file_id IN"
             " (SELECT file_id FROM shares WHERE owner = ?1 UNION"
             " SELECT file_id FROM links WHERE owner = ?1)";
      break;
  }
  from += " AND n.removed = 0 AND n.vanished = 0";
  if (!q.parent_id.empty()) from += " AND n.parent_id = ?3";
  if (q.files != q.dirs) from += q.dirs ? " AND n.type = 1" : " AND n.type = 0";
  if (!q.extensions.empty()) from += " AND n.ext IN (SELECT value FROM json_each(?4))";
  return from;
}

constexpr char kLinkColumns[] =
    "SELECT token, file_id, owner, role, created, expires, password_hash FROM links";

SharingLink ReadLink(const CachedStmt& s) {
  return SharingLink{s.Text(0), s.Text(1), s.Text(2), s.Text(3), s.Int(4), s.Int(5), s.Text(6)};
}

class SqliteBrowseStore : public BrowseStore {
 public:
  explicit SqliteBrowseStore(sqlite3* db) : c_(db), search_(NewSqliteSearch(&c_)) {}

  Status SetStar(const std::string& user, const std::string& file_id, bool on) override {
    CachedStmt s = c_.Prepare(on ? "INSERT OR IGNORE INTO stars (user, file_id, created) VALUES (?1, ?2, ?3)"
                                 : "DELETE FROM stars WHERE user = ?1 AND file_id = ?2");
    s.Bind(1, user).Bind(2, file_id);
    if (on) s.Bind(3, static_cast<int64_t>(time(nullptr)));
    return s.Run();
  }
  Status SetMute(const std::string& user, const std::string& file_id, bool on) override {
    CachedStmt s = c_.Prepare(on ? "INSERT OR IGNORE INTO mutes (user, file_id) VALUES (?1, ?2)"
                                 : "DELETE FROM mutes WHERE user = ?1 AND file_id = ?2");
    return s.Bind(1, user).Bind(2, file_id).Run();
  }

  Status GetLabel(const std::string& user, const std::string& id, Label* out) override {
    return OneLabel("SELECT label_id, user, name, color FROM labels WHERE user = ?1 AND label_id = ?2",
                    user, id, out);
  }
  Status GetLabelByName(const std::string& user, const std::string& name, Label* out) override {
    return OneLabel("SELECT label_id, user, name, color FROM labels WHERE user = ?1 AND"
                    " name = ?2 COLLATE NOCASE",
                    user, name, out);
  }
  Status CreateLabel(const Label& l) override {
    CachedStmt s = c_.Prepare("INSERT INTO labels (label_id, user, name, color, created) VALUES (?1, ?2, ?3, ?4, ?5)");
    s.Bind(1, l.label_id).Bind(2, l.user).Bind(3, l.name).Bind(4, l.color);
    s.Bind(5, static_cast<int64_t>(time(nullptr)));
    Status st;
    s.Step(&st);
    if (!st.ok() && (s.last_rc() & 0xff) == SQLITE_CONSTRAINT)
      return Status(kErrLabelExists, "label name already exists: " + l.name);
    return st;
  }
  Status UpdateLabel(const Label& l) override {
    CachedStmt s = c_.Prepare("UPDATE labels SET name = ?3, color = ?4 WHERE user = ?1 AND label_id = ?2");
    s.Bind(1, l.user).Bind(2, l.label_id).Bind(3, l.name).Bind(4, l.color);
    Status st;
    s.Step(&st);
    if (!st.ok() && (s.last_rc() & 0xff) == SQLITE_CONSTRAINT)
      return Status(kErrLabelExists, "label name already exists: " + l.name);
    ORVEL_RETURN_IF_ERROR(st);
    if (sqlite3_changes(c_.db()) == 0) return Status(kErrLabelNotFound, "label not found: " + l.label_id);
    return Status::OK();
  }
  Status ListLabels(const std::string& user, std::vector<Label>* out) override {
    out->clear();
    CachedStmt s = c_.Prepare("SELECT label_id, user, name, color FROM labels WHERE user = ?1 ORDER BY name COLLATE NOCASE");
    s.Bind(1, user);
    Status st;
    while (s.Step(&st)) out->push_back(Label{s.Text(0), s.Text(1), s.Text(2), s.Text(3)});
    return st;
  }
  Status SetItemLabel(const std::string& user, const std::string& label_id, const std::string& file_id,
                      bool on) override {
    CachedStmt s = c_.Prepare(on ? "INSERT OR IGNORE INTO item_labels (user, label_id, file_id, created)"
                                   " VALUES (?1, ?2, ?3, ?4)"
                                 : "DELETE FROM item_labels WHERE user = ?1 AND label_id = ?2 AND file_id = ?3");
    s.Bind(1, user).Bind(2, label_id).Bind(3, file_id);
    if (on) s.Bind(4, static_cast<int64_t>(time(nullptr)));
    return s.Run();
  }

  Status MarksAmong(const std::string& user, const std::vector<std::string>& ids, ItemMarks* out) override {
    *out = ItemMarks();
    if (ids.empty()) return Status::OK();
    // The page's ids drive each look-up, one probe per id in each table's
    // file_id index. ("file_id IN (SELECT value FROM json_each(?))" would
    // first build a temporary index of the ids for every table.)
    // Most users have no stars or labels, and many spaces no shares or
    // links: one probe per table says which may hold a mark, and the ids are
    // looked up only there (CASE, because SQLite evaluates both sides of an
    // AND).
    Status st;
    bool any_star = false, any_label = false, any_share = false;
    {
      CachedStmt s = c_.Prepare(
          "SELECT EXISTS (SELECT 1 FROM stars WHERE user = ?1), EXISTS (SELECT 1 FROM item_labels WHERE user = ?1),"
          " EXISTS (SELECT 1 FROM shares) OR EXISTS (SELECT 1 FROM links)");
      s.Bind(1, user);
      if (s.Step(&st)) any_star = s.Int(0) != 0, any_label = s.Int(1) != 0, any_share = s.Int(2) != 0;
      ORVEL_RETURN_IF_ERROR(st);
    }
    if (!any_star && !any_share && !any_label) return Status::OK();
    std::string json = JsonArray(ids);
    if (any_star || any_share) {
      CachedStmt s = c_.Prepare(
          "SELECT j.value,"
          " CASE WHEN ?3 THEN EXISTS (SELECT 1 FROM stars WHERE user = ?1 AND file_id = j.value) ELSE 0 END,"
          " CASE WHEN ?4 THEN EXISTS (SELECT 1 FROM shares WHERE file_id = j.value) OR"
          " EXISTS (SELECT 1 FROM links WHERE file_id = j.value) ELSE 0 END FROM json_each(?2) j");
      s.Bind(1, user).Bind(2, json).Bind(3, int64_t{any_star}).Bind(4, int64_t{any_share});
      while (s.Step(&st)) {
        if (s.Int(1)) out->starred.insert(s.Text(0));
        if (s.Int(2)) out->shared.insert(s.Text(0));
      }
      ORVEL_RETURN_IF_ERROR(st);
    }
    if (!any_label) return Status::OK();
    CachedStmt s = c_.Prepare(
        "SELECT i.file_id, l.label_id, l.name, l.color FROM json_each(?2) j CROSS JOIN item_labels i"
        " ON i.file_id = j.value AND i.user = ?1 JOIN labels l ON l.label_id = i.label_id"
        " ORDER BY l.name COLLATE NOCASE");
    s.Bind(1, user).Bind(2, json);
    while (s.Step(&st)) out->labels.emplace(s.Text(0), Label{s.Text(1), user, s.Text(2), s.Text(3)});
    return st;
  }

  Status ListMarked(const MarkQuery& q, std::vector<Node>* items, uint64_t* total) override {
    items->clear();
    std::string from = MarkedFrom(q);
    std::string second = q.kind == MarkQuery::Kind::kSharedWithMe ? JsonArray(q.groups) : q.label_id;
    std::string exts = JsonArray(q.extensions);
    Status st;
    {
      CachedStmt s = c_.Prepare("SELECT " + NodeColumns("n") + from + " ORDER BY " +
                                SortSql(q.sort, q.descending) + " LIMIT ?5 OFFSET ?6");
      BindMarked(s, q, second, exts);
      s.Bind(5, static_cast<int64_t>(q.limit)).Bind(6, static_cast<int64_t>(q.offset));
      while (s.Step(&st)) {
        items->emplace_back();
        s.ReadNode(0, &items->back());
      }
      ORVEL_RETURN_IF_ERROR(st);
    }
    CachedStmt s = c_.Prepare("SELECT COUNT(*)" + from);
    BindMarked(s, q, second, exts);
    *total = s.Step(&st) ? static_cast<uint64_t>(s.Int(0)) : 0;
    return st;
  }

  Status AddShare(const Share& sh) override {
    CachedStmt s = c_.Prepare(
        "INSERT INTO shares (file_id, owner, kind, name, role, created) VALUES (?1, ?2, ?3, ?4, ?5, ?6)"
        " ON CONFLICT (file_id, kind, name) DO UPDATE SET role = excluded.role");
    s.Bind(1, sh.file_id).Bind(2, sh.owner).Bind(3, sh.kind).Bind(4, sh.name).Bind(5, sh.role);
    return s.Bind(6, static_cast<int64_t>(time(nullptr))).Run();
  }
  Status RemoveShare(const std::string& file_id, const std::string& kind, const std::string& name) override {
    CachedStmt s = c_.Prepare("DELETE FROM shares WHERE file_id = ?1 AND kind = ?2 AND name = ?3");
    ORVEL_RETURN_IF_ERROR(s.Bind(1, file_id).Bind(2, kind).Bind(3, name).Run());
    if (sqlite3_changes(c_.db()) == 0)
      return Status(kErrNotFound, "no share of " + kind + " " + name + " on id:" + file_id);
    return Status::OK();
  }
  Status SharesOf(const std::string& file_id, std::vector<Share>* out) override {
    out->clear();
    CachedStmt s = c_.Prepare("SELECT id, file_id, owner, kind, name, role FROM shares WHERE file_id = ?1 ORDER BY id");
    s.Bind(1, file_id);
    Status st;
    while (s.Step(&st))
      out->push_back(Share{s.Int(0), s.Text(1), s.Text(2), s.Text(3), s.Text(4), s.Text(5)});
    return st;
  }
  Status SharedRootsByName(const std::string& user, const std::vector<std::string>& groups,
                           const std::string& item_name, std::vector<Node>* out) override {
    out->clear();
    MarkQuery q;
    q.kind = MarkQuery::Kind::kSharedWithMe;
    CachedStmt s = c_.Prepare("SELECT " + NodeColumns("n") + MarkedFrom(q) + " AND n.name = ?5 ORDER BY n.id");
    s.Bind(1, user).Bind(2, JsonArray(groups)).Bind(5, item_name);
    Status st;
    while (s.Step(&st)) {
      out->emplace_back();
      s.ReadNode(0, &out->back());
    }
    return st;
  }
  Status SharedRootIds(const std::string& user, const std::vector<std::string>& groups,
                       std::vector<std::string>* out) override {
    out->clear();
    MarkQuery q;
    q.kind = MarkQuery::Kind::kSharedWithMe;
    CachedStmt s = c_.Prepare("SELECT n.file_id" + MarkedFrom(q));
    s.Bind(1, user).Bind(2, JsonArray(groups));
    Status st;
    while (s.Step(&st)) out->push_back(s.Text(0));
    return st;
  }

  Status CreateLink(const SharingLink& l) override {
    CachedStmt s = c_.Prepare(
        "INSERT INTO links (token, file_id, owner, role, created, expires, password_hash)"
        " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    s.Bind(1, l.token).Bind(2, l.file_id).Bind(3, l.owner).Bind(4, l.role);
    return s.Bind(5, l.created).Bind(6, l.expires).Bind(7, l.password_hash).Run();
  }
  Status GetLink(const std::string& token, SharingLink* out) override {
    CachedStmt s = c_.Prepare(std::string(kLinkColumns) + " WHERE token = ?1");
    s.Bind(1, token);
    Status st;
    if (!s.Step(&st)) {
      ORVEL_RETURN_IF_ERROR(st);
      return Status(kErrSharingToken, "sharing token invalid or expired");
    }
    *out = ReadLink(s);
    return Status::OK();
  }
  Status RemoveLink(const std::string& token) override {
    CachedStmt s = c_.Prepare("DELETE FROM links WHERE token = ?1");
    ORVEL_RETURN_IF_ERROR(s.Bind(1, token).Run());
    if (sqlite3_changes(c_.db()) == 0) return Status(kErrNotFound, "no such sharing link");
    return RemoveLinkGrants(token);
  }
  Status LinksOf(const std::string& file_id, std::vector<SharingLink>* out) override {
    out->clear();
    CachedStmt s = c_.Prepare(std::string(kLinkColumns) + " WHERE file_id = ?1 ORDER BY created, token");
    s.Bind(1, file_id);
    Status st;
    while (s.Step(&st)) out->push_back(ReadLink(s));
    return st;
  }
  Status UpdateLink(const SharingLink& l) override {
    CachedStmt s = c_.Prepare("UPDATE links SET role = ?2, expires = ?3, password_hash = ?4 WHERE token = ?1");
    ORVEL_RETURN_IF_ERROR(s.Bind(1, l.token).Bind(2, l.role).Bind(3, l.expires).Bind(4, l.password_hash).Run());
    if (sqlite3_changes(c_.db()) == 0) return Status(kErrNotFound, "no such sharing link");
    return Status::OK();
  }
  Status EnsurePermanentLink(const std::string& file_id, const std::string& candidate,
                             std::string* out) override {
    CachedStmt set = c_.Prepare("UPDATE nodes SET permanent_link = ?2 WHERE file_id = ?1 AND permanent_link = ''");
    ORVEL_RETURN_IF_ERROR(set.Bind(1, file_id).Bind(2, candidate).Run());
    CachedStmt get = c_.Prepare("SELECT permanent_link FROM nodes WHERE file_id = ?1");
    get.Bind(1, file_id);
    Status st;
    if (!get.Step(&st)) {
      ORVEL_RETURN_IF_ERROR(st);
      return Status(kErrNotFound, "item not found: id:" + file_id);
    }
    *out = get.Text(0);
    return Status::OK();
  }
  Status AddLinkGrant(const std::string& digest, const std::string& token, int64_t now,
                      int64_t expires) override {
    CachedStmt prune = c_.Prepare("DELETE FROM link_grants WHERE expires <= ?1");
    ORVEL_RETURN_IF_ERROR(prune.Bind(1, now).Run());
    CachedStmt s = c_.Prepare("INSERT INTO link_grants (digest, token, expires) VALUES (?1, ?2, ?3)");
    return s.Bind(1, digest).Bind(2, token).Bind(3, expires).Run();
  }
  Status HasLinkGrant(const std::string& digest, const std::string& token, int64_t now,
                      bool* found) override {
    CachedStmt s = c_.Prepare("SELECT 1 FROM link_grants WHERE digest = ?1 AND token = ?2 AND expires > ?3");
    s.Bind(1, digest).Bind(2, token).Bind(3, now);
    Status st;
    *found = s.Step(&st);
    return st;
  }
  Status RemoveLinkGrants(const std::string& token) override {
    CachedStmt s = c_.Prepare("DELETE FROM link_grants WHERE token = ?1");
    return s.Bind(1, token).Run();
  }

  // Every "get" of a file marks it recent. The mark is not worth a disk flush
  // per opened file: it commits without one (the WAL stays consistent; a
  // power cut may lose the last marks, never the database), and the next
  // durable commit flushes it along.
  Status TouchRecent(const std::string& user, const std::string& file_id, int64_t at) override {
    c_.Prepare("PRAGMA synchronous = NORMAL").Run();
    CachedStmt s = c_.Prepare("INSERT OR REPLACE INTO recent (user, file_id, at) VALUES (?1, ?2, ?3)");
    Status st = s.Bind(1, user).Bind(2, file_id).Bind(3, at).Run();
    Status restored = c_.Prepare("PRAGMA synchronous = FULL").Run();
    return st.ok() ? restored : st;
  }
  Status ListRecent(const std::string& user, uint64_t limit, std::vector<Node>* out) override {
    out->clear();
    CachedStmt s = c_.Prepare("SELECT " + NodeColumns("n") +
                              " FROM recent r JOIN nodes n ON n.file_id = r.file_id WHERE r.user = ?1"
                              " AND n.removed = 0 AND n.vanished = 0 ORDER BY r.id DESC LIMIT ?2");
    s.Bind(1, user).Bind(2, static_cast<int64_t>(limit));
    Status st;
    while (s.Step(&st)) {
      out->emplace_back();
      s.ReadNode(0, &out->back());
    }
    return st;
  }

  Status AddBackup(const BackupTask& t) override {
    CachedStmt s = c_.Prepare("INSERT INTO backups (task_id, user, name, target, created) VALUES (?1, ?2, ?3, ?4, ?5)");
    s.Bind(1, t.task_id).Bind(2, t.user).Bind(3, t.name).Bind(4, t.target);
    return s.Bind(5, static_cast<int64_t>(time(nullptr))).Run();
  }
  Status RemoveBackup(const std::string& user, const std::string& task_id) override {
    CachedStmt s = c_.Prepare("DELETE FROM backups WHERE user = ?1 AND task_id = ?2");
    ORVEL_RETURN_IF_ERROR(s.Bind(1, user).Bind(2, task_id).Run());
    if (sqlite3_changes(c_.db()) == 0) return Status(kErrTaskNotFound, "task not found: " + task_id);
    return Status::OK();
  }
  Status ListBackups(const std::string& user, std::vector<BackupTask>* out) override {
    out->clear();
    CachedStmt s = c_.Prepare("SELECT task_id, user, name, target FROM backups WHERE user = ?1 ORDER BY created, task_id");
    s.Bind(1, user);
    Status st;
    while (s.Step(&st)) out->push_back(BackupTask{s.Text(0), s.Text(1), s.Text(2), s.Text(3)});
    return st;
  }

  Status AddAccessRequest(const AccessRequest& r) override {
    CachedStmt s = c_.Prepare("INSERT INTO access_requests (file_id, requester, owner, at) VALUES (?1, ?2, ?3, ?4)");
    s.Bind(1, r.file_id).Bind(2, r.requester).Bind(3, r.owner).Bind(4, r.at);
    Status st;
    s.Step(&st);
    if (!st.ok() && (s.last_rc() & 0xff) == SQLITE_CONSTRAINT)
      return Status(kErrAlreadyRequested, "access already requested: id:" + r.file_id);
    return st;
  }
  Status ListAccessRequests(const std::string& owner, std::vector<AccessRequest>* out) override {
    out->clear();
    CachedStmt s = c_.Prepare("SELECT file_id, requester, owner, at FROM access_requests WHERE owner = ?1 ORDER BY at, requester");
    s.Bind(1, owner);
    Status st;
    while (s.Step(&st)) out->push_back(AccessRequest{s.Text(0), s.Text(1), s.Text(2), s.Int(3)});
    return st;
  }

  Status PendingForIndex(size_t max, std::vector<PendingIndex>* out) override {
    return search_->Pending(max, out);
  }
  Status NodeByRow(int64_t row_id, Node* out) override { return search_->NodeByRow(row_id, out); }
  Status IndexRow(const PendingIndex& p, bool live, const std::string& name, const std::string& body) override {
    return search_->IndexRow(p, live, name, body);
  }
  Status Search(const SearchQuery& q, std::vector<SearchHit>* hits, uint64_t* total) override {
    return search_->Search(q, hits, total);
  }
  Status SubtreeFolders(const std::string& folder_id, std::vector<std::string>* out) override {
    return search_->SubtreeFolders(folder_id, out);
  }

 private:
  Status OneLabel(const char* sql, const std::string& user, const std::string& key, Label* out) {
    CachedStmt s = c_.Prepare(sql);
    s.Bind(1, user).Bind(2, key);
    Status st;
    if (!s.Step(&st)) {
      ORVEL_RETURN_IF_ERROR(st);
      return Status(kErrLabelNotFound, "label not found: " + key);
    }
    *out = Label{s.Text(0), s.Text(1), s.Text(2), s.Text(3)};
    return Status::OK();
  }
  static void BindMarked(CachedStmt& s, const MarkQuery& q, const std::string& second,
                         const std::string& exts) {
    s.Bind(1, q.user).Bind(2, second);
    if (!q.parent_id.empty()) s.Bind(3, q.parent_id);
    if (!q.extensions.empty()) s.Bind(4, exts);
  }

  StmtCache c_;
  std::unique_ptr<SqliteSearch> search_;
};

}  // namespace

std::unique_ptr<BrowseStore> NewSqliteBrowseStore(sqlite3* db) {
  return std::make_unique<SqliteBrowseStore>(db);
}

}  // namespace orvel::syncd
