// The user database (users, groups, sessions) on SQLite, and the module-side
// UserManager facade. Each UserDb owns one connection; use one per thread.
#include "orvelcommon/user_db.h"

#include <sodium.h>
#include <sqlite3.h>

#include <ctime>
#include <mutex>
#include <unordered_map>

#include "orvelcommon/sync_config.h"

namespace orvel {
namespace {

constexpr uint32_t kFirstUid = 1026;
constexpr int64_t kSessionRefreshSeconds = 60;

const char* kSchema =
    "CREATE TABLE IF NOT EXISTS users ("
    " uid INTEGER PRIMARY KEY, name TEXT UNIQUE NOT NULL, display_name TEXT NOT NULL DEFAULT '',"
    " pw_hash TEXT NOT NULL, admin INTEGER NOT NULL DEFAULT 0, enabled INTEGER NOT NULL DEFAULT 1,"
    " system_enabled INTEGER NOT NULL DEFAULT 1, expired INTEGER NOT NULL DEFAULT 0,"
    " app_privilege INTEGER NOT NULL DEFAULT 1);"
    "CREATE TABLE IF NOT EXISTS groups (name TEXT PRIMARY KEY);"
    "CREATE TABLE IF NOT EXISTS group_members (grp TEXT NOT NULL, user TEXT NOT NULL,"
    " PRIMARY KEY (grp, user));"
    "CREATE TABLE IF NOT EXISTS sessions (sid TEXT PRIMARY KEY, token TEXT NOT NULL,"
    " user TEXT NOT NULL, created INTEGER NOT NULL, last_seen INTEGER NOT NULL);"
    "CREATE INDEX IF NOT EXISTS sessions_user ON sessions(user);"
    "CREATE TABLE IF NOT EXISTS login_throttle (key TEXT PRIMARY KEY, failures INTEGER NOT NULL,"
    " lockouts INTEGER NOT NULL, blocked_until INTEGER NOT NULL, last_failure INTEGER NOT NULL);";

// A prepared statement that is finalised on every way out.
}  // namespace

// The prepared statements of one connection, kept for its life: preparing
// (parsing and planning) costs more than the look-ups the web API makes on
// every request. A statement is lent to one Stmt at a time; a second use of
// the same text while it is lent gets a statement of its own.
struct UserDb::Statements {
  struct Entry {
    sqlite3_stmt* st = nullptr;
    bool lent = false;
  };
  explicit Statements(sqlite3* d) : db(d) {}
  ~Statements() {
    for (auto& [sql, e] : cache) sqlite3_finalize(e.st);
  }
  sqlite3* db;
  std::unordered_map<std::string, Entry> cache;
};

namespace {

class Stmt {
 public:
  Stmt(UserDb::Statements* statements, const char* sql) {
    auto it = statements->cache.find(sql);
    if (it != statements->cache.end() && !it->second.lent) {
      entry_ = &it->second;
    } else {
      rc_ = sqlite3_prepare_v2(statements->db, sql, -1, &st_, nullptr);
      if (rc_ != SQLITE_OK || it != statements->cache.end()) return;  // used uncached
      entry_ = &statements->cache[sql];
      entry_->st = st_;
    }
    entry_->lent = true;
    st_ = entry_->st;
  }
  ~Stmt() {
    if (entry_ == nullptr) {
      sqlite3_finalize(st_);
      return;
    }
    sqlite3_reset(st_);
    sqlite3_clear_bindings(st_);
    entry_->lent = false;
  }
  Stmt(const Stmt&) = delete;
  Stmt& operator=(const Stmt&) = delete;
  bool ok() const { return rc_ == SQLITE_OK; }
  Stmt& Bind(int i, const std::string& v) {
    sqlite3_bind_text(st_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Stmt& Bind(int i, int64_t v) {
    sqlite3_bind_int64(st_, i, v);
    return *this;
  }
  int Step() { return sqlite3_step(st_); }
  std::string Text(int i) const {
    const unsigned char* t = sqlite3_column_text(st_, i);
    return t ? reinterpret_cast<const char*>(t) : "";
  }
  int64_t Int(int i) const { return sqlite3_column_int64(st_, i); }

 private:
  sqlite3_stmt* st_ = nullptr;
  UserDb::Statements::Entry* entry_ = nullptr;  // null: owned, finalized here
  int rc_ = SQLITE_OK;
};

Status DbError(sqlite3* db, const std::string& what) {
  return Status(kErrStorage, what + ": " + sqlite3_errmsg(db));
}

// A write transaction that rolls back unless committed.
class WriteTx {
 public:
  explicit WriteTx(sqlite3* db) : db_(db) {
    ok_ = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  ~WriteTx() {
    if (ok_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  WriteTx(const WriteTx&) = delete;
  WriteTx& operator=(const WriteTx&) = delete;
  Status status() const { return ok_ ? Status::OK() : DbError(db_, "begin"); }
  Status Commit() {
    if (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) return DbError(db_, "commit");
    ok_ = false;
    return Status::OK();
  }

 private:
  sqlite3* db_;
  bool ok_ = false;
};

// Runs one statement that must change a row of user `name`.
Status ChangeUserRow(sqlite3* db, Stmt& s, const std::string& name, const std::string& what) {
  if (s.Step() != SQLITE_DONE) return DbError(db, what);
  if (sqlite3_changes(db) == 0) return Status(kErrNotFound, "no user '" + name + "'");
  return Status::OK();
}

// Deletes the sessions of user except `keep` ("" keeps none).
Status EndSessions(UserDb::Statements* statements, const std::string& user, const std::string& keep) {
  Stmt s(statements, "DELETE FROM sessions WHERE user = ?1 AND sid != ?2");
  s.Bind(1, user).Bind(2, keep);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(statements->db, "end sessions");
}

// Whether setting field to value takes the account out of use.
bool EndsUse(const std::string& field, bool value) {
  return ((field == "enabled" || field == "system_enabled") && !value) || (field == "expired" && value);
}

std::string RandomHex(size_t bytes) {
  std::string raw(bytes, '\0');
  randombytes_buf(raw.data(), raw.size());
  std::string hex(bytes * 2 + 1, '\0');
  sodium_bin2hex(hex.data(), hex.size(), reinterpret_cast<const unsigned char*>(raw.data()),
                 raw.size());
  hex.pop_back();
  return hex;
}

Status HashPassword(const std::string& password, std::string* out) {
  char hash[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
    return Status(kErrInternal, "password hashing failed (out of memory)");
  }
  *out = hash;
  return Status::OK();
}

const char* kUserColumns =
    "SELECT uid, name, display_name, admin, enabled, system_enabled, expired, app_privilege, pw_hash"
    " FROM users ";

void ReadUser(const Stmt& s, UserRecord* u) {
  u->uid = static_cast<uint32_t>(s.Int(0));
  u->name = s.Text(1);
  u->display_name = s.Text(2);
  u->admin = s.Int(3) != 0;
  u->enabled = s.Int(4) != 0;
  u->system_enabled = s.Int(5) != 0;
  u->expired = s.Int(6) != 0;
  u->app_privilege = s.Int(7) != 0;
}

}  // namespace

Status UserDb::Open(const std::string& path, std::unique_ptr<UserDb>* out) {
  if (sodium_init() < 0) return Status(kErrInternal, "libsodium initialisation failed");
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
      SQLITE_OK) {
    Status st(kErrStorage, "open user database " + path + ": " + (db ? sqlite3_errmsg(db) : "?"));
    sqlite3_close(db);
    return st;
  }
  std::unique_ptr<UserDb> udb(new UserDb(db));
  sqlite3_busy_timeout(db, 10000);
  char* err = nullptr;
  if (sqlite3_exec(db, "PRAGMA journal_mode=WAL;", nullptr, nullptr, &err) != SQLITE_OK ||
      sqlite3_exec(db, kSchema, nullptr, nullptr, &err) != SQLITE_OK) {
    Status st(kErrStorage, "user database " + path + ": " + (err ? err : "?"));
    sqlite3_free(err);
    return st;
  }
  *out = std::move(udb);
  return Status::OK();
}

UserDb::UserDb(sqlite3* db) : db_(db), statements_(new Statements(db)) {}

UserDb::~UserDb() {
  statements_.reset();  // finalized before the connection closes
  sqlite3_close(db_);
}

Status UserDb::AddUser(const std::string& name, const std::string& password, bool admin,
                       UserRecord* out) {
  if (name.empty() || name == "anonymous" || name.find_first_of("/\\:\n") != std::string::npos ||
      name.size() > 64) {
    return Status(kErrInvalidName, "invalid user name '" + name + "'");
  }
  std::string hash;
  ORVEL_RETURN_IF_ERROR(HashPassword(password, &hash));
  Stmt s(statements_.get(),
         "INSERT INTO users (uid, name, display_name, pw_hash, admin) VALUES ("
         " (SELECT MAX(COALESCE((SELECT MAX(uid) + 1 FROM users), ?1), ?1)), ?2, ?2, ?3, ?4)");
  if (!s.ok()) return DbError(db_, "add user");
  s.Bind(1, int64_t{kFirstUid}).Bind(2, name).Bind(3, hash).Bind(4, int64_t{admin ? 1 : 0});
  int rc = s.Step();
  if (rc == SQLITE_CONSTRAINT) return Status(kErrNameExists, "user '" + name + "' already exists");
  if (rc != SQLITE_DONE) return DbError(db_, "add user");
  return out ? GetUser(name, out) : Status::OK();
}

Status UserDb::SetPassword(const std::string& name, const std::string& password,
                          const std::string& keep_session) {
  std::string hash;
  ORVEL_RETURN_IF_ERROR(HashPassword(password, &hash));
  WriteTx tx(db_);
  ORVEL_RETURN_IF_ERROR(tx.status());
  Stmt s(statements_.get(), "UPDATE users SET pw_hash = ?1 WHERE name = ?2");
  s.Bind(1, hash).Bind(2, name);
  ORVEL_RETURN_IF_ERROR(ChangeUserRow(db_, s, name, "set password"));
  ORVEL_RETURN_IF_ERROR(EndSessions(statements_.get(), name, keep_session));
  return tx.Commit();
}

Status UserDb::SetFlag(const std::string& name, const std::string& field, bool value) {
  static const char* kFields[] = {"admin", "enabled", "system_enabled", "expired", "app_privilege"};
  bool known = false;
  for (const char* f : kFields) known = known || field == f;
  if (!known) return Status(kErrInvalidArgument, "unknown user flag '" + field + "'");
  WriteTx tx(db_);
  ORVEL_RETURN_IF_ERROR(tx.status());
  std::string sql = "UPDATE users SET " + field + " = ?1 WHERE name = ?2";
  Stmt s(statements_.get(), sql.c_str());
  s.Bind(1, int64_t{value ? 1 : 0}).Bind(2, name);
  ORVEL_RETURN_IF_ERROR(ChangeUserRow(db_, s, name, "set " + field));
  if (EndsUse(field, value)) ORVEL_RETURN_IF_ERROR(EndSessions(statements_.get(), name, ""));
  return tx.Commit();
}

Status UserDb::DeleteUser(const std::string& name) {
  WriteTx tx(db_);
  ORVEL_RETURN_IF_ERROR(tx.status());
  Stmt s(statements_.get(), "DELETE FROM users WHERE name = ?1");
  s.Bind(1, name);
  ORVEL_RETURN_IF_ERROR(ChangeUserRow(db_, s, name, "delete user"));
  Stmt g(statements_.get(), "DELETE FROM group_members WHERE user = ?1");
  g.Bind(1, name);
  if (g.Step() != SQLITE_DONE) return DbError(db_, "delete group memberships");
  ORVEL_RETURN_IF_ERROR(EndSessions(statements_.get(), name, ""));
  return tx.Commit();
}

Status UserDb::SetDisplayName(const std::string& name, const std::string& display) {
  Stmt s(statements_.get(), "UPDATE users SET display_name = ?1 WHERE name = ?2");
  s.Bind(1, display).Bind(2, name);
  if (s.Step() != SQLITE_DONE) return DbError(db_, "set display name");
  if (sqlite3_changes(db_) == 0) return Status(kErrNotFound, "no user '" + name + "'");
  return Status::OK();
}

Status UserDb::GetUser(const std::string& name, UserRecord* out) {
  Stmt s(statements_.get(), (std::string(kUserColumns) + "WHERE name = ?1").c_str());
  s.Bind(1, name);
  int rc = s.Step();
  if (rc == SQLITE_DONE) return Status(kErrNotFound, "no user '" + name + "'");
  if (rc != SQLITE_ROW) return DbError(db_, "get user");
  ReadUser(s, out);
  out->groups.clear();
  Stmt g(statements_.get(), "SELECT grp FROM group_members WHERE user = ?1 ORDER BY grp");
  g.Bind(1, name);
  while (g.Step() == SQLITE_ROW) out->groups.push_back(g.Text(0));
  return Status::OK();
}

Status UserDb::GetUserByUid(uint32_t uid, UserRecord* out) {
  Stmt s(statements_.get(), "SELECT name FROM users WHERE uid = ?1");
  s.Bind(1, int64_t{uid});
  int rc = s.Step();
  if (rc == SQLITE_DONE) return Status(kErrNotFound, "no user with uid " + std::to_string(uid));
  if (rc != SQLITE_ROW) return DbError(db_, "get user");
  return GetUser(s.Text(0), out);
}

Status UserDb::ListUsers(std::vector<UserRecord>* out) {
  out->clear();
  Stmt s(statements_.get(), (std::string(kUserColumns) + "ORDER BY uid").c_str());
  int rc;
  while ((rc = s.Step()) == SQLITE_ROW) {
    out->emplace_back();
    ReadUser(s, &out->back());
  }
  return rc == SQLITE_DONE ? Status::OK() : DbError(db_, "list users");
}

Status UserDb::CheckPassword(const std::string& name, const std::string& password,
                             UserRecord* out) {
  Stmt s(statements_.get(), (std::string(kUserColumns) + "WHERE name = ?1").c_str());
  s.Bind(1, name);
  const Status denied(kErrPermission, "wrong account or password");
  if (s.Step() != SQLITE_ROW) {
    // Spend the same effort as a real check so that timing does not reveal names.
    std::string ignored;
    (void)HashPassword(password, &ignored);
    return denied;
  }
  std::string hash = s.Text(8);
  if (crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) != 0) return denied;
  return GetUser(name, out);
}

Status UserDb::AddGroup(const std::string& group) {
  Stmt s(statements_.get(), "INSERT OR IGNORE INTO groups (name) VALUES (?1)");
  s.Bind(1, group);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "add group");
}

Status UserDb::HasGroup(const std::string& group, bool* found) {
  Stmt s(statements_.get(), "SELECT 1 FROM groups WHERE name = ?1");
  if (!s.ok()) return DbError(db_, "find group");
  s.Bind(1, group);
  int rc = s.Step();
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) return DbError(db_, "find group");
  *found = rc == SQLITE_ROW;
  return Status::OK();
}

Status UserDb::AddGroupMember(const std::string& group, const std::string& user) {
  ORVEL_RETURN_IF_ERROR(AddGroup(group));
  Stmt s(statements_.get(), "INSERT OR IGNORE INTO group_members (grp, user) VALUES (?1, ?2)");
  s.Bind(1, group).Bind(2, user);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "add group member");
}

Status UserDb::CreateSession(const std::string& user, SessionRecord* out) {
  out->sid = RandomHex(32);
  out->token = RandomHex(32);
  out->user = user;
  out->created = out->last_seen = static_cast<int64_t>(std::time(nullptr));
  out->timed_out = false;
  Stmt s(statements_.get(), "INSERT INTO sessions (sid, token, user, created, last_seen) VALUES (?1,?2,?3,?4,?4)");
  s.Bind(1, out->sid).Bind(2, out->token).Bind(3, user).Bind(4, out->created);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "create session");
}

Status UserDb::LookupSession(const std::string& sid, unsigned idle_seconds, unsigned max_seconds,
                             SessionRecord* out) {
  Stmt s(statements_.get(), "SELECT sid, token, user, created, last_seen FROM sessions WHERE sid = ?1");
  s.Bind(1, sid);
  int rc = s.Step();
  if (rc == SQLITE_DONE) return Status(kErrNotFound, "no such session");
  if (rc != SQLITE_ROW) return DbError(db_, "look up session");
  out->sid = s.Text(0);
  out->token = s.Text(1);
  out->user = s.Text(2);
  out->created = s.Int(3);
  out->last_seen = s.Int(4);
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  out->timed_out = now - out->last_seen > static_cast<int64_t>(idle_seconds) ||
                   now - out->created > static_cast<int64_t>(max_seconds);
  // last_seen is refreshed at most once a minute: a write (and its WAL sync)
  // on every request would cost more than the rest of a listing, and the idle
  // time-out does not need finer steps.
  if (!out->timed_out && now - out->last_seen >= kSessionRefreshSeconds) {
    Stmt u(statements_.get(), "UPDATE sessions SET last_seen = ?1 WHERE sid = ?2");
    u.Bind(1, now).Bind(2, sid);
    if (u.Step() != SQLITE_DONE) return DbError(db_, "refresh session");
    out->last_seen = now;
  }
  return Status::OK();
}

Status UserDb::DeleteSession(const std::string& sid) {
  Stmt s(statements_.get(), "DELETE FROM sessions WHERE sid = ?1");
  s.Bind(1, sid);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "delete session");
}

Status UserDb::DeleteUserSessions(const std::string& user) {
  Stmt s(statements_.get(), "DELETE FROM sessions WHERE user = ?1");
  s.Bind(1, user);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "delete sessions");
}

Status UserDb::GetThrottle(const std::string& key, ThrottleRecord* out) {
  *out = ThrottleRecord();
  Stmt s(statements_.get(),
         "SELECT failures, lockouts, blocked_until, last_failure FROM login_throttle WHERE key = ?1");
  s.Bind(1, key);
  int rc = s.Step();
  if (rc == SQLITE_DONE) return Status::OK();
  if (rc != SQLITE_ROW) return DbError(db_, "read throttle");
  out->failures = s.Int(0);
  out->lockouts = s.Int(1);
  out->blocked_until = s.Int(2);
  out->last_failure = s.Int(3);
  return Status::OK();
}

Status UserDb::PutThrottle(const std::string& key, const ThrottleRecord& rec) {
  Stmt s(statements_.get(),
         "INSERT OR REPLACE INTO login_throttle (key, failures, lockouts, blocked_until, last_failure)"
         " VALUES (?1, ?2, ?3, ?4, ?5)");
  s.Bind(1, key).Bind(2, rec.failures).Bind(3, rec.lockouts).Bind(4, rec.blocked_until);
  s.Bind(5, rec.last_failure);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "write throttle");
}

Status UserDb::ClearThrottle(const std::string& key) {
  Stmt s(statements_.get(), "DELETE FROM login_throttle WHERE key = ?1");
  s.Bind(1, key);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "clear throttle");
}

Status UserDb::PruneThrottle(const ThrottlePolicy& policy, int64_t now) {
  Stmt s(statements_.get(), "DELETE FROM login_throttle WHERE MAX(last_failure, blocked_until) < ?1");
  s.Bind(1, now - policy.forget_lockouts);
  return s.Step() == SQLITE_DONE ? Status::OK() : DbError(db_, "prune throttle");
}

}  // namespace orvel

namespace {
std::mutex g_user_mu;
std::unique_ptr<orvel::UserDb> g_user_db;
}  // namespace

int UserManager::Initialize(const std::string& conn, const std::string& backend) {
  if (backend != "sqlite") return -1;
  std::lock_guard<std::mutex> lock(g_user_mu);
  std::unique_ptr<orvel::UserDb> db;
  if (!orvel::UserDb::Open(conn + "/users.db", &db).ok()) return -1;
  g_user_db = std::move(db);
  return 0;
}

void UserManager::Destroy() {
  std::lock_guard<std::mutex> lock(g_user_mu);
  g_user_db.reset();
}

bool UserManager::IsInitialized() {
  std::lock_guard<std::mutex> lock(g_user_mu);
  return g_user_db != nullptr;
}

int UserManager::GetUser(const std::string& name, orvel::UserRecord* out) {
  std::lock_guard<std::mutex> lock(g_user_mu);
  if (!g_user_db) return -1;
  return g_user_db->GetUser(name, out).ok() ? 0 : -1;
}
