// WorkerCache; see worker_cache.h. Single-threaded.
#include "cgi/worker_cache.h"

#include "cgi/module_loader.h"

namespace zemo::cgi {

int WorkerCache::Config(SyncConfigMgr* conf) {
  // The stamp is taken before reading: a change during the read shows as a
  // different stamp on the next request, which reads again.
  FileStamp now = FileStamp::Of(SyncConfigMgr().GetConfigPath());
  if (!conf_valid_ || !now.Same(conf_stamp_)) {
    SyncConfigMgr fresh;
    ++config_reads_;
    if (fresh.Init() != 0) {
      conf_valid_ = false;
      return -1;
    }
    conf_ = fresh;
    conf_stamp_ = now;
    conf_valid_ = true;
    account_valid_ = false;
  }
  *conf = conf_;
  return 0;
}

orvel::Status WorkerCache::Account(const std::string& name, WebAccount* out) {
  // The account and its groups are looked up again when the system's passwd
  // or group file changes (a group added to the web account, say).
  FileStamp passwd = FileStamp::Of("/etc/passwd");
  FileStamp group = FileStamp::Of("/etc/group");
  if (!account_valid_ || account_name_ != name || !passwd.Same(passwd_stamp_) ||
      !group.Same(group_stamp_)) {
    ORVEL_RETURN_IF_ERROR(LookupWebAccount(name, &account_));
    account_name_ = name;
    account_valid_ = true;
    passwd_stamp_ = passwd;
    group_stamp_ = group;
  }
  *out = account_;
  return orvel::Status::OK();
}

UserDbHandle* WorkerCache::Users(const std::string& path) {
  FileStamp now = FileStamp::Of(path);
  if (!users_ || users_path_ != path || !now.Same(users_stamp_)) {
    users_.reset(new UserDbHandle(path));
    users_path_ = path;
    users_stamp_ = now;
    ++users_opens_;
  }
  return users_.get();
}

void WorkerCache::AddModules(const std::string& dir, const std::set<std::string>& reserved,
                             ApiRegistry* registry) {
  if (!modules_loaded_) {
    LoadModuleDir(dir, reserved, &modules_);
    modules_loaded_ = true;
  }
  registry->SetBase(&modules_);
}

}  // namespace zemo::cgi
