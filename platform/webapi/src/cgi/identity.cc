// Effective-identity switch of entry.cgi; see identity.h. Single-threaded.
#include "cgi/identity.h"

#include <errno.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "internal/io.h"
#include "internal/log.h"

namespace zemo::cgi {

namespace {

static constexpr char kLogSource[] = "identity";

orvel::Status IdError(const std::string& op, const std::string& account, int err) {
  return io::Error(op, "account " + account, err);
}

// The account's groups (primary first); on failure just the primary one.
std::vector<gid_t> AccountGroups(const WebAccount& account) {
  int count = 32;
  std::vector<gid_t> groups(static_cast<size_t>(count));
  if (::getgrouplist(account.name.c_str(), account.gid, groups.data(), &count) < 0) {
    groups.resize(static_cast<size_t>(count));
    if (::getgrouplist(account.name.c_str(), account.gid, groups.data(), &count) < 0) {
      return {account.gid};
    }
  }
  groups.resize(static_cast<size_t>(count));
  return groups;
}

std::vector<gid_t> CurrentGroups() {
  int count = ::getgroups(0, nullptr);
  if (count <= 0) return {};
  std::vector<gid_t> groups(static_cast<size_t>(count));
  count = ::getgroups(count, groups.data());
  groups.resize(count < 0 ? 0 : static_cast<size_t>(count));
  return groups;
}

bool g_restore_fault = false;

}  // namespace

ProcessIdentity ProcessIdentity::Current() {
  ProcessIdentity id;
  id.euid = ::geteuid();
  id.egid = ::getegid();
  id.groups = CurrentGroups();
  std::sort(id.groups.begin(), id.groups.end());
  return id;
}

bool ProcessIdentity::Same(const ProcessIdentity& o) const {
  return euid == o.euid && egid == o.egid && groups == o.groups;
}

std::string ProcessIdentity::ToString() const {
  std::string text = "euid " + std::to_string(euid) + ", egid " + std::to_string(egid) + ", groups";
  for (gid_t g : groups) text += " " + std::to_string(g);
  return text;
}

void SetIdentityRestoreFault(bool on) { g_restore_fault = on; }

orvel::Status LookupWebAccount(const std::string& name, WebAccount* out) {
  struct passwd pw;
  struct passwd* result = nullptr;
  std::vector<char> buf(16384);
  int rc;
  do {
    rc = ::getpwnam_r(name.c_str(), &pw, buf.data(), buf.size(), &result);
  } while (rc == EINTR);
  if (rc != 0) return IdError("getpwnam", name, rc);
  if (result == nullptr) return orvel::Status(orvel::kErrNotFound, "no such account: " + name);
  out->name = name;
  out->uid = pw.pw_uid;
  out->gid = pw.pw_gid;
  out->groups = AccountGroups(*out);
  return orvel::Status::OK();
}

bool ShouldLowerIdentity(const std::string& configured_account) {
  return ::geteuid() == 0 && !configured_account.empty();
}

orvel::Status LoweredIdentity::Lower(const WebAccount& account,
                                     std::unique_ptr<LoweredIdentity>* out) {
  gid_t old_gid = ::getegid();
  std::vector<gid_t> old_groups = CurrentGroups();
  std::vector<gid_t> groups = account.groups.empty() ? AccountGroups(account) : account.groups;
  // Inside a user namespace setgroups may be denied; the effective ids are
  // what matters for access, so go on without it.
  bool groups_changed = ::setgroups(groups.size(), groups.data()) == 0;
  if (!groups_changed) {
    WEBAPI_LOG(Logger::kDebug, "setgroups for %s refused: %s", account.name.c_str(),
               std::strerror(errno));
  }
  if (::setresgid(static_cast<gid_t>(-1), account.gid, static_cast<gid_t>(-1)) != 0) {
    orvel::Status st = IdError("setresgid", account.name, errno);
    if (groups_changed) ::setgroups(old_groups.size(), old_groups.data());
    return st;
  }
  if (::setresuid(static_cast<uid_t>(-1), account.uid, static_cast<uid_t>(-1)) != 0) {
    orvel::Status st = IdError("setresuid", account.name, errno);
    ::setresgid(static_cast<gid_t>(-1), old_gid, static_cast<gid_t>(-1));
    if (groups_changed) ::setgroups(old_groups.size(), old_groups.data());
    return st;
  }
  out->reset(new LoweredIdentity(old_gid, std::move(old_groups), groups_changed));
  return orvel::Status::OK();
}

LoweredIdentity::~LoweredIdentity() {
  if (g_restore_fault) {
    WEBAPI_LOG(Logger::kCrit, "fault point identity_restore: effective ids left lowered");
    return;
  }
  if (::setresuid(static_cast<uid_t>(-1), 0, static_cast<uid_t>(-1)) != 0) {
    WEBAPI_LOG(Logger::kCrit, "cannot restore effective uid 0: %s", std::strerror(errno));
    return;
  }
  if (::setresgid(static_cast<gid_t>(-1), saved_gid_, static_cast<gid_t>(-1)) != 0) {
    WEBAPI_LOG(Logger::kCrit, "cannot restore effective gid %u: %s", saved_gid_,
               std::strerror(errno));
  }
  if (groups_changed_ && ::setgroups(saved_groups_.size(), saved_groups_.data()) != 0) {
    WEBAPI_LOG(Logger::kCrit, "cannot restore groups: %s", std::strerror(errno));
  }
}

}  // namespace zemo::cgi
