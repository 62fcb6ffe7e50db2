// See daemon.h.
#include "daemon.h"

#include <pwd.h>
#include <unistd.h>

#include <ctime>

namespace orvel::syncd {

Status UserDirectory::WithDb(const std::function<Status(UserDb*)>& fn) {
  std::unique_ptr<UserDb> db;
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (!idle_.empty()) {
      db = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  if (!db) {
    Status st = UserDb::Open(path_, &db);
    if (!st.ok()) return Status(kErrStorage, "user database: " + st.message());
  }
  Status st = fn(db.get());
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (idle_.size() < 8) idle_.push_back(std::move(db));
  }
  return st;
}

Status UserDirectory::Lookup(const std::string& name, UserRecord* out) {
  Status st = WithDb([&](UserDb* db) { return db->GetUser(name, out); });
  if (st.code() == kErrNotFound) return Status(kErrPermission, "unknown user: " + name);
  if (!st.ok() && st.code() != kErrStorage) return Status(kErrStorage, "user database: " + st.message());
  return st;
}

Status UserDirectory::FindGroup(const std::string& name) {
  bool found = false;
  Status st = WithDb([&](UserDb* db) { return db->HasGroup(name, &found); });
  if (!st.ok()) return Status(kErrStorage, "user database: " + st.message());
  return found ? Status::OK() : Status(kErrNotFound, "unknown group: " + name);
}

void UserDirectory::CloseIdle() {
  std::lock_guard<std::mutex> lock(mu_);
  idle_.clear();
}

Status Daemon::FromConfig(const SyncConfigMgr& config, std::unique_ptr<Daemon>* out) {
  auto d = std::make_unique<Daemon>();
  d->config = config;
  d->layout = Layout::ForDataDir(config.GetDataDirPath());
  if (config.GetDBBackendString() != "sqlite")
    return Status(kErrInvalidArgument,
                  "database back-end not supported yet: " + config.GetDBBackendString());
  d->pool = std::make_unique<StorePool>("sqlite", config.GetSyncDbPath());
  d->users = std::make_unique<UserDirectory>(config.GetUserDbPath());
  d->self_uid = geteuid();
  std::string web = config.GetWebAccount();
  if (!web.empty()) {
    struct passwd pw, *res = nullptr;
    char buf[4096];
    if (getpwnam_r(web.c_str(), &pw, buf, sizeof(buf), &res) == 0 && res) d->web_uid = pw.pw_uid;
  }
  d->started = time(nullptr);
  *out = std::move(d);
  return Status::OK();
}

}  // namespace orvel::syncd
