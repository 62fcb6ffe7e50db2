// Effective-id switching for RunAsRoot (see run-as-root.h).
#include "run-as-root.h"

#include <syslog.h>
#include <unistd.h>

namespace orvel::module {
namespace {

constexpr const char kTag[] = "IF_RUN_AS";
const uid_t kKeep = static_cast<uid_t>(-1);
const gid_t kKeepGid = static_cast<gid_t>(-1);

bool SetEuid(uid_t uid) { return setresuid(kKeep, uid, kKeep) == 0; }
bool SetEgid(gid_t gid) { return setresgid(kKeepGid, gid, kKeepGid) == 0; }

// Only root may change the group, so the user goes to 0 first. The ids are
// the ones just read by the constructor.
bool SwitchToRoot(uid_t uid, gid_t gid) {
  if (uid != 0 && !SetEuid(0)) return false;
  if (gid != 0 && !SetEgid(0)) return false;
  return true;
}

// The body may have switched too, so the current ids are read again.
bool SwitchBack(uid_t uid, gid_t gid) {
  uid_t now_uid = geteuid();
  gid_t now_gid = getegid();
  if (now_uid == uid && now_gid == gid) return true;
  if (now_uid != 0 && now_uid != uid) {
    if (!SetEuid(0)) return false;
    now_uid = 0;
  }
  if (now_gid != gid && !SetEgid(gid)) return false;
  if (now_uid != uid && !SetEuid(uid)) return false;
  return true;
}

}  // namespace

RunAsRoot::RunAsRoot(const char* source, int line)
    : source_(source), line_(line), saved_uid_(geteuid()), saved_gid_(getegid()) {
  ok_ = SwitchToRoot(saved_uid_, saved_gid_);
  if (!ok_) {
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: %s(%d, %d)", source_, line_, kTag, 0, 0);
  }
}

RunAsRoot::~RunAsRoot() { Restore(); }

void RunAsRoot::Restore() {
  if (!SwitchBack(saved_uid_, saved_gid_)) {
    syslog(LOG_AUTH | LOG_CRIT, "%s:%d ERROR: ~%s(%d, %d)", source_, line_, kTag,
           static_cast<int>(saved_uid_), static_cast<int>(saved_gid_));
  }
}

}  // namespace orvel::module
