// Daemon: the process-wide context every operation sees: configuration, the
// data folder layout, the database pool, the user directory, the job runner
// and the write lock. Created once by main (or a test) before the server
// starts; its members are thread-safe or immutable after start-up.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "db/pool.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/user_db.h"
#include "service_state.h"
#include "space_fs.h"
#include "token_throttle.h"
#include "tree.h"

namespace orvel::syncd {

class JobRunner;
class TaskRunner;

// Looks users up in the NAS user database (a small pool of connections).
class UserDirectory {
 public:
  explicit UserDirectory(std::string path) : path_(std::move(path)) {}
  // kErrPermission when the name is unknown (the wire's "unknown user"),
  // kErrStorage when the database cannot be read.
  Status Lookup(const std::string& name, UserRecord* out);
  // OK when the group exists; kErrNotFound "unknown group: <name>" otherwise.
  Status FindGroup(const std::string& name);
  void CloseIdle();

 private:
  // Runs fn on a pooled connection.
  Status WithDb(const std::function<Status(UserDb*)>& fn);

  std::string path_;
  std::mutex mu_;
  std::vector<std::unique_ptr<UserDb>> idle_;
};

// Owners whose home row is known to exist. Homes are never removed, so the
// set only grows; with it, making a caller's home is one look-up per daemon
// life, and everything after may read in a snapshot (space.h).
class KnownHomes {
 public:
  bool Contains(const std::string& owner) const {
    std::lock_guard<std::mutex> lock(mu_);
    return owners_.count(owner) != 0;
  }
  void Add(const std::string& owner) {
    std::lock_guard<std::mutex> lock(mu_);
    owners_.insert(owner);
  }

 private:
  mutable std::mutex mu_;
  std::unordered_set<std::string> owners_;
};

struct Daemon {
  SyncConfigMgr config;
  Layout layout;
  DataDirs dirs;  // opened by main once the layout exists
  std::unique_ptr<StorePool> pool;
  std::unique_ptr<UserDirectory> users;
  JobRunner* jobs = nullptr;  // owned by main; may be null in tests
  TaskRunner* tasks = nullptr;  // owned by main; may be null in tests

  uid_t self_uid = 0;
  uid_t web_uid = static_cast<uid_t>(-1);  // -1 when the web account is unknown
  int64_t started = 0;
  // The service state and view 0's freeze flag, read by every request.
  ServiceState service;
  KnownHomes homes;

  // Requests dispatched since start (admin_stats "requests"): lets a test
  // count the round trips a web request makes.
  std::atomic<uint64_t> requests{0};

  // Serialises the steps of a write that must see a stable tree (name
  // checks, rename into place, database commit). Content is hashed and
  // staged before it is taken.
  std::mutex write_mu;

  // Failed sharing-token look-ups per client address (access.cc).
  TokenThrottle link_throttle;

  // Builds the context from the configuration (does not touch the disk).
  static Status FromConfig(const SyncConfigMgr& config, std::unique_ptr<Daemon>* out);
};

}  // namespace orvel::syncd
