// What the FastCGI worker keeps from one request to the next: the
// configuration (read again only when orvel.conf's dev, inode, size, mtime or
// ctime changed), the web account looked up for it, the user database
// handle (opened again when users.db changed the same way) and the loaded
// modules (once). Nothing here belongs to one request. In CGI mode there is
// no cache and every request reads everything. Single-threaded.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <set>
#include <string>

#include "cgi/api_registry.h"
#include "cgi/identity.h"
#include "cgi/session.h"
#include "internal/io.h"
#include "orvelcommon/status.h"
#include "orvelcommon/sync_config.h"

namespace zemo::cgi {

using io::FileStamp;

class WorkerCache {
 public:
  WorkerCache() = default;
  WorkerCache(const WorkerCache&) = delete;
  WorkerCache& operator=(const WorkerCache&) = delete;

  // Copies the configuration into *conf, reading the file first when it
  // changed. -1 as SyncConfigMgr::Init (tried again on the next call).
  int Config(SyncConfigMgr* conf);
  // The system account `name` and its groups, looked up once per
  // configuration and again when /etc/passwd or /etc/group changes.
  orvel::Status Account(const std::string& name, WebAccount* out);
  // The user database at path, kept open while the file stays the same.
  UserDbHandle* Users(const std::string& path);
  // Makes the modules of dir the base of registry (ApiRegistry::SetBase),
  // loading them the first time.
  void AddModules(const std::string& dir, const std::set<std::string>& reserved,
                  ApiRegistry* registry);

  // How often each was (re)read; tests and logs.
  int config_reads() const { return config_reads_; }
  int users_opens() const { return users_opens_; }

 private:
  SyncConfigMgr conf_;
  FileStamp conf_stamp_;
  bool conf_valid_ = false;
  int config_reads_ = 0;
  std::string account_name_;
  WebAccount account_;
  FileStamp passwd_stamp_, group_stamp_;
  bool account_valid_ = false;
  std::string users_path_;
  FileStamp users_stamp_;
  std::unique_ptr<UserDbHandle> users_;
  int users_opens_ = 0;
  ApiRegistry modules_;
  bool modules_loaded_ = false;
};

}  // namespace zemo::cgi
