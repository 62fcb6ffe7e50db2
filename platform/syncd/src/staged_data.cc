// OpenStagedData; see staged_data.h.
#include "staged_data.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "hooks.h"
#include "orvelcommon/sha256.h"

namespace orvel::syncd {

namespace {

Status Refuse(const std::string& data_path, const std::string& why) {
  return Status(kErrInvalidArgument, "file_data_path refused (" + why + "): " + data_path);
}

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

Status OpenStagedData(const Layout& layout, uid_t peer_uid, const std::string& data_path,
                      StagedData* out) {
  const size_t slash = data_path.find_last_of('/');
  if (data_path.empty() || data_path[0] != '/' || slash == std::string::npos)
    return Refuse(data_path, "not an absolute path");
  const std::string name = data_path.substr(slash + 1);
  const std::string dir = slash == 0 ? "/" : data_path.substr(0, slash);
  if (name.empty() || name == "." || name == "..") return Refuse(data_path, "no file name");

  ScopedFd tmp(open(layout.tmp.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!tmp.valid()) return FsError("open", layout.tmp, errno);
  struct stat tmp_st, dir_st;
  if (fstat(tmp.get(), &tmp_st) != 0) return FsError("fstat", layout.tmp, errno);
  if (stat(dir.c_str(), &dir_st) != 0 || !SameFile(tmp_st, dir_st))
    return Refuse(data_path, "not directly in the temp folder");

  out->fd = ScopedFd(openat(tmp.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!out->fd.valid()) {
    if (errno == ENOENT) return Status(kErrDataMissing, "data file missing: " + data_path);
    if (errno == ELOOP) return Refuse(data_path, "a symbolic link");
    return FsError("open", data_path, errno);
  }
  if (fstat(out->fd.get(), &out->st) != 0) return FsError("fstat", data_path, errno);
  if (!S_ISREG(out->st.st_mode)) return Refuse(data_path, "not a regular file");
  if (peer_uid != 0 && out->st.st_uid != peer_uid) return Refuse(data_path, "not the caller's file");
  // Reads block again from here on (O_NONBLOCK only kept a FIFO from hanging the open).
  int flags = fcntl(out->fd.get(), F_GETFL);
  if (flags < 0 || fcntl(out->fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0)
    return FsError("fcntl", data_path, errno);
  out->path = layout.tmp + "/" + name;
  return Status::OK();
}

Status HashStagedData(const StagedData& data, std::string* hex, uint64_t* size) {
  if (data.st.st_nlink == 1 && LoadDigest(data.fd.get(), hex, size)) return Status::OK();
  RunHook("staged-data-hash");
  return HashFd(data.fd.get(), hex, size);
}

}  // namespace orvel::syncd
