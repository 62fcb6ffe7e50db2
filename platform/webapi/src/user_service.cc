// The NAS user library over the package's user database: SDK::UserService
// (look-ups by uid and name), SDK::UserAppPrivilege (may a user use the
// package's application) and ZEMOUserGet/ZEMOUserFree. Each call opens the
// database at SyncConfigMgr::GetUserDbPath() for its own use, so the objects
// hold no state; one call at a time per thread.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "internal/log.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/user_db.h"
#include "zemo/nas.h"

namespace {

static constexpr char kLogSource[] = "user-service";

// Members of the NAS's "users" group: every package user has it as primary
// group (the user database keeps no per-user gid).
constexpr uint32_t kUsersGid = 100;

orvel::Status OpenUserDb(std::unique_ptr<orvel::UserDb>* db) {
  SyncConfigMgr conf;
  if (conf.Init() != 0) return orvel::Status(orvel::kErrInvalidArgument, "bad configuration file");
  return orvel::UserDb::Open(conf.GetUserDbPath(), db);
}

// 0 and *out filled; 1 unknown user; -1 the database cannot be read.
int LookupByName(const std::string& name, orvel::UserRecord* out) {
  std::unique_ptr<orvel::UserDb> db;
  orvel::Status st = OpenUserDb(&db);
  if (st.ok()) st = db->GetUser(name, out);
  if (st.ok()) return 0;
  if (st.code() == orvel::kErrNotFound) return 1;
  WEBAPI_LOG(Logger::kError, "user look-up '%s' failed: %s", name.c_str(), st.ToString().c_str());
  return -1;
}

}  // namespace

namespace SDK {

int UserService::GetUserByUid(uint32_t uid, User* user) {
  std::unique_ptr<orvel::UserDb> db;
  orvel::UserRecord rec;
  orvel::Status st = OpenUserDb(&db);
  if (st.ok()) st = db->GetUserByUid(uid, &rec);
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
