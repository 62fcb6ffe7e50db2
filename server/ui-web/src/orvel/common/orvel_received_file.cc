// RemoveReceivedFile; see orvel_received_file.h.
#include "orvel/common/orvel_received_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "bridge/module-log.h"
#include "orvelcommon/scoped_fd.h"

namespace orvel::module {

namespace {

constexpr const char kLogSource[] = "received-file";

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

bool RemoveReceivedFile(const std::string& tmp_dir, const std::string& path, uid_t owner) {
  const size_t slash = path.find_last_of('/');
  const std::string name = slash == std::string::npos ? "" : path.substr(slash + 1);
  const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash);
  ScopedFd tmp(::open(tmp_dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat tmp_st, dir_st, st;
  if (name.empty() || name == "." || name == ".." || tmp.get() < 0 ||
      ::fstat(tmp.get(), &tmp_st) != 0 || ::stat(dir.c_str(), &dir_st) != 0 ||
      !SameFile(tmp_st, dir_st)) {
    ORVEL_LOG_ERROR("'%s' is not in the temp folder '%s': not removed\n", path.c_str(),
                    tmp_dir.c_str());
    return false;
  }
  if (::fstatat(tmp.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (!S_ISREG(st.st_mode) || st.st_uid != owner) {
    ORVEL_LOG_ERROR("'%s' is not a received file (mode %o, owner %u): not removed\n",
                    path.c_str(), static_cast<unsigned>(st.st_mode), static_cast<unsigned>(st.st_uid));
    return false;
  }
  if (::unlinkat(tmp.get(), name.c_str(), 0) != 0) {
    if (errno != ENOENT) ORVEL_LOG_ERROR("cannot remove '%s': %m\n", path.c_str());
    return false;
  }
  return true;
}

}  // namespace orvel::module
