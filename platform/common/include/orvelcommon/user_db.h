// UserDb: the NAS user database (users, groups, sessions), SQLite in WAL mode
// at SyncConfigMgr::GetUserDbPath(). Shared by the web framework (login,
// sessions), the module (UserManager), the daemon (owners, groups) and
// orvelctl. Passwords are argon2id hashes (libsodium). It also keeps the
// login throttle's records (orvelcommon/throttle.h). An account that stops being
// usable (disabled, expired, deleted) or whose password changes loses its
// sessions in the same transaction. One object per thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orvelcommon/status.h"
#include "orvelcommon/throttle.h"

struct sqlite3;

namespace orvel {

struct UserRecord {
  uint32_t uid = 0;
  std::string name;
  std::string display_name;
  bool admin = false;
  bool enabled = true;         // enabled in the package
  bool system_enabled = true;  // enabled on the NAS operating system
  bool expired = false;
  bool app_privilege = true;   // may use the package's application
  std::vector<std::string> groups;
};

struct SessionRecord {
  std::string sid;
  std::string token;
  std::string user;
  int64_t created = 0;
  int64_t last_seen = 0;
  bool timed_out = false;  // idle or absolute time-out passed
};

class UserDb {
 public:
  // Opens (creating schema as needed) the database at path.
  static Status Open(const std::string& path, std::unique_ptr<UserDb>* out);
  ~UserDb();
  UserDb(const UserDb&) = delete;
  struct Statements;  // the connection's prepared statements (user_db.cc)
  UserDb& operator=(const UserDb&) = delete;

  Status AddUser(const std::string& name, const std::string& password, bool admin,
                 UserRecord* out);  // kErrNameExists if taken; uids from 1026
  // Sets the password and ends every session of the account except
  // keep_session (the caller's own, when a user changes their password).
  Status SetPassword(const std::string& name, const std::string& password,
                     const std::string& keep_session = "");
  // field: "admin", "enabled", "system_enabled", "expired", "app_privilege".
  // Disabling (enabled or system_enabled false) or expiring the account also
  // ends its sessions.
  Status SetFlag(const std::string& name, const std::string& field, bool value);
  // Removes the account, its group memberships and its sessions. kErrNotFound.
  Status DeleteUser(const std::string& name);
  Status SetDisplayName(const std::string& name, const std::string& display);
  Status GetUser(const std::string& name, UserRecord* out);  // kErrNotFound
  Status GetUserByUid(uint32_t uid, UserRecord* out);
  Status ListUsers(std::vector<UserRecord>* out);
  // kErrPermission when the name is unknown or the password does not match.
  Status CheckPassword(const std::string& name, const std::string& password, UserRecord* out);

  Status AddGroup(const std::string& group);
  Status AddGroupMember(const std::string& group, const std::string& user);
  // Whether a group of that name exists.
  Status HasGroup(const std::string& group, bool* found);

  // Sessions: random 32-byte ids and tokens (hex).
  Status CreateSession(const std::string& user, SessionRecord* out);
  // Finds a session; marks timed_out (and does not refresh) when the idle or
  // absolute limit passed, else refreshes last_seen when it is a minute old or
  // more. kErrNotFound if unknown.
  Status LookupSession(const std::string& sid, unsigned idle_seconds, unsigned max_seconds,
                       SessionRecord* out);
  Status DeleteSession(const std::string& sid);
  Status DeleteUserSessions(const std::string& user);

  // The login throttle's record of a key ("account:<name>", "address:<ip>");
  // an unknown key reads as a fresh record.
  Status GetThrottle(const std::string& key, ThrottleRecord* out);
  Status PutThrottle(const std::string& key, const ThrottleRecord& rec);
  Status ClearThrottle(const std::string& key);
  // Drops the records that say nothing any more at now.
  Status PruneThrottle(const ThrottlePolicy& policy, int64_t now);

 private:
  explicit UserDb(sqlite3* db);
  sqlite3* db_;
  std::unique_ptr<Statements> statements_;
};

}  // namespace orvel

// UserManager: the module-side facade over the process's user database.
class UserManager {
 public:
  // backend "sqlite": conn is the database folder (users.db inside it).
  static int Initialize(const std::string& conn, const std::string& backend);
  static void Destroy();
  static bool IsInitialized();
  // 0 and *out filled, or -1 when unknown or not initialised.
  static int GetUser(const std::string& name, orvel::UserRecord* out);
};
