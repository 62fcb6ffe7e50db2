// The process identity entry.cgi gives a module: started as root, it lowers
// its effective user, group and supplementary groups to the configured web
// account while keeping the real and saved uid 0, so a module can switch to
// root for a privileged step and back. A scope guard restores root at its
// end. Process-wide credentials: use from the single request thread only.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "orvelcommon/status.h"

namespace zemo::cgi {

struct WebAccount {
  std::string name;
  uid_t uid = 0;
  gid_t gid = 0;
  // Supplementary groups (primary first), looked up with the account: the
  // group database is read through NSS once, not on every switch.
  std::vector<gid_t> groups;
};

// Looks the system account and its groups up (passwd, group). kErrNotFound
// when it does not exist.
orvel::Status LookupWebAccount(const std::string& name, WebAccount* out);

// Whether entry.cgi should switch at all: running as root and an account
// configured.
bool ShouldLowerIdentity(const std::string& configured_account);

// The effective ids and groups of the process at one moment; the FastCGI
// worker takes one at start and checks after every request that it has
// them again.
struct ProcessIdentity {
  uid_t euid = 0;
  gid_t egid = 0;
  std::vector<gid_t> groups;  // sorted

  static ProcessIdentity Current();
  bool Same(const ProcessIdentity& o) const;
  std::string ToString() const;
};

// Fault point for tests (the worker turns it on when its environment has
// ORVEL_FAULT=identity_restore): LoweredIdentity's destructor then leaves
// the lowered ids in place, as if the kernel had refused to restore them.
void SetIdentityRestoreFault(bool on);

class LoweredIdentity {
 public:
  // Switches effective gid, groups and uid to the account; on failure
  // nothing is changed and the status says which step failed.
  static orvel::Status Lower(const WebAccount& account, std::unique_ptr<LoweredIdentity>* out);
  // Restores effective uid 0, gid 0 and the former groups.
  ~LoweredIdentity();
  LoweredIdentity(const LoweredIdentity&) = delete;
  LoweredIdentity& operator=(const LoweredIdentity&) = delete;

 private:
  LoweredIdentity(gid_t gid, std::vector<gid_t> groups, bool groups_changed)
      : saved_gid_(gid), saved_groups_(std::move(groups)), groups_changed_(groups_changed) {}
  gid_t saved_gid_;
  std::vector<gid_t> saved_groups_;
  bool groups_changed_;
};

}  // namespace zemo::cgi
