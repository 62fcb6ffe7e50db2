// The NAS user library over the package's user database: SDK::UserService
// (look-ups by uid and name), SDK::UserAppPrivilege (may a user use the
// package's application) and ZEMOUserGet/ZEMOUserFree. Each call opens the
// database at SyncConfigMgr::GetUserDbPath() for its own use, so the objects
// hold no state; one call at a time per thread.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "internal/io.h"
#include "internal/log.h"
#include "internal/request_user.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/user_db.h"
#include "zemo/nas.h"

namespace {

static constexpr char kLogSource[] = "user-service";

// Members of the NAS's "users" group: every package user has it as primary
// group (the user database keeps no per-user gid).
constexpr uint32_t kUsersGid = 100;

// The process's handle on the user database and what it was opened from.
struct SharedUserDb {
  std::mutex mu;
  zemo::io::FileStamp conf_stamp, db_stamp;
  std::string conf_path;  // the configuration file read (it moves with ZEMO_ROOT)
  std::string path;
  std::unique_ptr<orvel::UserDb> db;
};

SharedUserDb& Shared() {
  static SharedUserDb* shared = new SharedUserDb;  // never destroyed: used until exit
  return *shared;
}

// Runs fn on the open database (opening it first when the configuration or
// the file changed) under the handle's lock.
template <typename Fn>
orvel::Status WithUserDb(Fn fn) {
  SharedUserDb& s = Shared();
  std::lock_guard<std::mutex> lock(s.mu);
  // A stamp alone could match a new file at another path (inode numbers are
  // reused), so the path counts too.
  const std::string conf_path = SyncConfigMgr().GetConfigPath();
  zemo::io::FileStamp conf_now = zemo::io::FileStamp::Of(conf_path);
  if (!s.db || conf_path != s.conf_path || !conf_now.Same(s.conf_stamp)) {
    SyncConfigMgr conf;
    if (conf.Init() != 0) return orvel::Status(orvel::kErrInvalidArgument, "bad configuration file");
    s.path = conf.GetUserDbPath();
    s.conf_path = conf_path;
    s.conf_stamp = conf_now;
    s.db.reset();
  }
  zemo::io::FileStamp db_now = zemo::io::FileStamp::Of(s.path);
  if (!s.db || !db_now.Same(s.db_stamp)) {
    s.db.reset();
    ORVEL_RETURN_IF_ERROR(orvel::UserDb::Open(s.path, &s.db));
    s.db_stamp = zemo::io::FileStamp::Of(s.path);
  }
  return fn(s.db.get());
}

// The caller of the request being served, while RequestUserScope holds it.
struct CallerOfRequest {
  std::mutex mu;
  bool held = false;
  orvel::UserRecord user;
};

CallerOfRequest& Caller() {
  static CallerOfRequest* caller = new CallerOfRequest;  // never destroyed: used until exit
  return *caller;
}

// 0 and *out filled; 1 unknown user; -1 the database cannot be read.
int LookupByName(const std::string& name, orvel::UserRecord* out) {
  if (zemo::RequestUser(name, out)) return 0;
  orvel::Status st = WithUserDb([&](orvel::UserDb* db) { return db->GetUser(name, out); });
  if (st.ok()) return 0;
  if (st.code() == orvel::kErrNotFound) return 1;
  WEBAPI_LOG(Logger::kError, "user look-up '%s' failed: %s", name.c_str(), st.ToString().c_str());
  return -1;
}

}  // namespace

namespace zemo {

RequestUserScope::RequestUserScope(const orvel::UserRecord& caller) {
  CallerOfRequest& c = Caller();
  std::lock_guard<std::mutex> lock(c.mu);
  c.user = caller;
  c.held = true;
}

RequestUserScope::~RequestUserScope() {
  CallerOfRequest& c = Caller();
  std::lock_guard<std::mutex> lock(c.mu);
  c.held = false;
  c.user = orvel::UserRecord();
}

bool RequestUser(const std::string& name, orvel::UserRecord* out) {
  CallerOfRequest& c = Caller();
  std::lock_guard<std::mutex> lock(c.mu);
  if (!c.held || c.user.name != name) return false;
  *out = c.user;
  return true;
}

}  // namespace zemo

namespace SDK {

int UserService::GetUserByUid(uint32_t uid, User* user) {
  orvel::UserRecord rec;
  orvel::Status st = WithUserDb([&](orvel::UserDb* db) { return db->GetUserByUid(uid, &rec); });
  if (!st.ok()) return -1;
  *user = User(rec.name, rec.uid);
  return 0;
}

int UserService::GetUserByName(const std::string& name, User* user) {
  orvel::UserRecord rec;
  if (LookupByName(name, &rec) != 0) return -1;
  *user = User(rec.name, rec.uid);
  return 0;
}

int UserAppPrivilege::Check(const std::string& user, const std::string& /*remote_ip*/) {
  orvel::UserRecord rec;
  int found = LookupByName(user, &rec);
  if (found < 0) return -1;
  if (found > 0) return 2;
  return rec.app_privilege ? 0 : 1;
}

}  // namespace SDK

int ZEMOUserGet(const char* name, ZEMOUSER** out) {
  if (name == nullptr || out == nullptr) return -1;
  orvel::UserRecord rec;
  if (LookupByName(name, &rec) != 0) return -1;
  auto* user = static_cast<ZEMOUSER*>(std::calloc(1, sizeof(ZEMOUSER)));
  if (user == nullptr) return -1;
  user->name = ::strdup(rec.name.c_str());
  if (user->name == nullptr) {
    std::free(user);
    return -1;
  }
  user->uid = rec.uid;
  user->gid = kUsersGid;
  user->admin = rec.admin ? 1 : 0;
  *out = user;
  return 0;
}

void ZEMOUserFree(ZEMOUSER* user) {
  if (user == nullptr) return;
  std::free(user->name);
  std::free(user);
}
