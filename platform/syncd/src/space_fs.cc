// See space_fs.h.
#include "space_fs.h"

#include "fault.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemon.h"
#include "paths.h"
#include "space.h"

namespace orvel::syncd {
namespace {

// Names used with the *at calls: one entry of the folder, nothing else.
Status CheckEntryName(const std::string& name, const std::string& path) {
  if (ValidateName(name).ok()) return Status::OK();
  return Status(kErrInvalidName, "invalid name: " + path);
}

// The same resolution as openat2 without it (kernels or sandboxes that lack
// the call): one component at a time, each opened with O_NOFOLLOW.
int OpenByWalking(int dir, const std::string& rel, int flags, mode_t mode) {
  std::vector<std::string> parts = SplitPath(rel);
  parts.erase(std::remove(parts.begin(), parts.end(), "."), parts.end());
  if (parts.empty()) return openat(dir, ".", flags | O_CLOEXEC, mode);
  ScopedFd cur;
  int at = dir;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (parts[i] == "..") {
      errno = EXDEV;
      return -1;
    }
    bool last = i + 1 == parts.size();
    int f = last ? flags | O_NOFOLLOW | O_CLOEXEC : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int fd = openat(at, parts[i].c_str(), f, mode);
    if (fd < 0) {
      struct stat st;
      if (errno == ENOTDIR && fstatat(at, parts[i].c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
          S_ISLNK(st.st_mode))
        errno = ELOOP;
      return -1;
    }
    if (last) return fd;
    cur.Reset(fd);
    at = cur.get();
  }
  return -1;
}

}  // namespace

Status BeneathError(const char* op, const std::string& path, int err) {
  if (err == ELOOP) return Status(kErrPermission, "symbolic link not followed: " + path);
  if (err == EXDEV) return Status(kErrPermission, "path leads out of its folder: " + path);
  return FsError(op, path, err);
}

Status OpenBeneath(int dir, const std::string& rel, int flags, mode_t mode, const std::string& path,
                   ScopedFd* out) {
  struct open_how how;
  memset(&how, 0, sizeof(how));
  how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
  how.mode = (flags & O_CREAT) ? mode : 0;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  for (int attempt = 0;; ++attempt) {
    long fd = syscall(SYS_openat2, dir, rel.c_str(), &how, sizeof(how));
    if (fd < 0 && errno == ENOSYS) fd = OpenByWalking(dir, rel, flags, mode);
    if (fd >= 0) {
      out->Reset(static_cast<int>(fd));
      return Status::OK();
    }
    // EAGAIN: a rename raced with the resolution; resolving again is safe.
    if (errno == EINTR || (errno == EAGAIN && attempt < 16)) continue;
    return BeneathError("open", path, errno);
  }
}

Status DupFd(int fd, const std::string& path, ScopedFd* out) {
  int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return FsError("dup", path, errno);
  out->Reset(copy);
  return Status::OK();
}

Status DataDirs::Open(const Layout& layout) {
  ScopedFd data(open(layout.data.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!data.valid()) return FsError("open", layout.data, errno);
  const int flags = O_RDONLY | O_DIRECTORY;
  ORVEL_RETURN_IF_ERROR(OpenBeneath(data.get(), "homes", flags, 0, layout.homes, &homes_));
  ORVEL_RETURN_IF_ERROR(OpenBeneath(data.get(), "@tmp", flags, 0, layout.tmp, &tmp_));
  ORVEL_RETURN_IF_ERROR(OpenBeneath(data.get(), "@versions", flags, 0, layout.versions, &versions_));
  return OpenBeneath(data.get(), "@recycle", flags, 0, layout.recycle, &recycle_);
}

Status OpenItemAt(const Daemon& d, const std::string& owner, const std::vector<std::string>& components,
                  ItemAt* out) {
  out->path = DiskPath(d.layout, owner, components);
  ORVEL_RETURN_IF_ERROR(CheckEntryName(owner, out->path));
  if (components.empty()) {
    out->name = owner;
    return DupFd(d.dirs.homes(), d.layout.homes, &out->dir);
  }
  std::string rel = owner;
  for (size_t i = 0; i + 1 < components.size(); ++i) rel += "/" + components[i];
  out->name = components.back();
  ORVEL_RETURN_IF_ERROR(CheckEntryName(out->name, out->path));
  return OpenBeneath(d.dirs.homes(), rel, O_RDONLY | O_DIRECTORY, 0, out->path, &out->dir);
}

Status OpenSpaceFolder(const Daemon& d, const std::string& owner,
                       const std::vector<std::string>& components, ScopedFd* out) {
  const std::string path = DiskPath(d.layout, owner, components);
  ORVEL_RETURN_IF_ERROR(CheckEntryName(owner, path));
  std::string rel = owner;
  for (const std::string& c : components) rel += "/" + c;
  return OpenBeneath(d.dirs.homes(), rel, O_RDONLY | O_DIRECTORY, 0, path, out);
}

Status TmpRelative(const Layout& layout, const std::string& path, std::string* rel) {
  Status refused(kErrPermission, "path outside the temp folder: " + path);
  if (path.empty() || path[0] != '/') return refused;
  std::string norm;
  for (const std::string& c : SplitPath(path)) {
    if (c == "." || c == "..") return refused;
    norm += "/" + c;
  }
  if (norm.size() <= layout.tmp.size() + 1 || !PathIsInside(norm, layout.tmp)) return refused;
  *rel = norm.substr(layout.tmp.size() + 1);
  return Status::OK();
}

Status OpenTmpFolder(const Daemon& d, const std::string& path, ScopedFd* out) {
  std::string rel;
  ORVEL_RETURN_IF_ERROR(TmpRelative(d.layout, path, &rel));
  return OpenBeneath(d.dirs.tmp(), rel, O_RDONLY | O_DIRECTORY, 0, path, out);
}

Status RemoveTmpPath(const Daemon& d, const std::string& path) {
  std::string rel;
  ORVEL_RETURN_IF_ERROR(TmpRelative(d.layout, path, &rel));
  size_t slash = rel.find_last_of('/');
  ScopedFd parent;
  Status st = OpenBeneath(d.dirs.tmp(), slash == std::string::npos ? "." : rel.substr(0, slash),
                          O_RDONLY | O_DIRECTORY, 0, path, &parent);
  if (st.code() == kErrNotFound) return Status::OK();
  ORVEL_RETURN_IF_ERROR(st);
  return RemoveAt(parent.get(), rel.substr(slash + 1), path);
}

Status StatAt(int dir, const std::string& name, const std::string& path, struct stat* st, bool* exists) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  *exists = fstatat(dir, name.c_str(), st, AT_SYMLINK_NOFOLLOW) == 0;
  if (*exists || errno == ENOENT) return Status::OK();
  return FsError("lstat", path, errno);
}

Status OpenFileAt(int dir, const std::string& name, const std::string& path, ScopedFd* out,
                  struct stat* st_out) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  int fd;
  do {
    fd = openat(dir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return BeneathError("open", path, errno);
  out->Reset(fd);
  struct stat st;
  if (fstat(fd, &st) != 0) return FsError("fstat", path, errno);
  if (!S_ISREG(st.st_mode)) return Status(kErrInvalidArgument, "not a regular file: " + path);
  if (st_out) *st_out = st;
  return Status::OK();
}

Status OpenFolderAt(int dir, const std::string& name, const std::string& path, ScopedFd* out) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  int fd = openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    struct stat st;
    if (errno == ENOTDIR && fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode))
      errno = ELOOP;
    return BeneathError("open", path, errno);
  }
  out->Reset(fd);
  return Status::OK();
}

Status CreateFileAt(int dir, const std::string& name, mode_t mode, const std::string& path, ScopedFd* out) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  int fd = openat(dir, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
  if (fd < 0) return FsError("create", path, errno);
  out->Reset(fd);
  return Status::OK();
}

Status MakeDirAt(int dir, const std::string& name, mode_t mode, const std::string& path) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  if (int e = fault::Check("fs.mkdir")) return FsError("mkdir", path, e);
  if (mkdirat(dir, name.c_str(), mode) != 0) {
    if (errno == EEXIST) return Status(kErrNameExists, "exists: " + path);
    return FsError("mkdir", path, errno);
  }
  ScopedFd made;
  if (OpenFolderAt(dir, name, path, &made).ok()) fchmod(made.get(), mode);  // umask-independent mode
  Status st = FsyncFd(dir, path);
  if (!st.ok()) unlinkat(dir, name.c_str(), AT_REMOVEDIR);  // not durable: not made
  return st;
}

Status RenameAt(int from_dir, const std::string& from, int to_dir, const std::string& to, unsigned flags,
                const std::string& path) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(from, path));
  ORVEL_RETURN_IF_ERROR(CheckEntryName(to, path));
  if (int e = fault::Check("fs.rename")) return FsError("rename", path, e);
  if (renameat2(from_dir, from.c_str(), to_dir, to.c_str(), flags) != 0) {
    if (errno == EEXIST && (flags & RENAME_NOREPLACE)) return Status(kErrNameExists, "name already exists: " + path);
    return FsError("rename", path, errno);
  }
  ORVEL_RETURN_IF_ERROR(FsyncFd(to_dir, path));
  return from_dir == to_dir ? Status::OK() : FsyncFd(from_dir, path);
}

Status LinkFdAt(int fd, int dir, const std::string& name, const std::string& path) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  if (int e = fault::Check("fs.link")) return FsError("link", path, e);
  // AT_EMPTY_PATH needs CAP_DAC_READ_SEARCH; /proc/self/fd names the same
  // open inode for everyone else.
  if (linkat(fd, "", dir, name.c_str(), AT_EMPTY_PATH) == 0) return Status::OK();
  if (errno == ENOENT || errno == EPERM) {
    const std::string by_fd = "/proc/self/fd/" + std::to_string(fd);
    if (linkat(AT_FDCWD, by_fd.c_str(), dir, name.c_str(), AT_SYMLINK_FOLLOW) == 0) return Status::OK();
  }
  if (errno == EEXIST) return Status(kErrNameExists, "name already exists: " + path);
  return FsError("link", path, errno);
}

Status LinkFdDurable(int fd, int dir, const std::string& name, const std::string& path) {
  ORVEL_RETURN_IF_ERROR(LinkFdAt(fd, dir, name, path));
  return FsyncFd(dir, path);
}

Status KeepVersionAt(const Daemon& d, int dir, const std::string& name, const std::string& path,
                     const std::string& hash) {
  ScopedFd fd;
  ORVEL_RETURN_IF_ERROR(OpenFileAt(dir, name, path, &fd));
  Status st = LinkFdDurable(fd.get(), d.dirs.versions(), hash, d.layout.versions + "/" + hash);
  return st.code() == kErrNameExists ? Status::OK() : st;  // content-addressed: already kept
}

Status CopyLinkAt(int from_dir, const std::string& from, int to_dir, const std::string& to,
                  const std::string& path) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(from, path));
  ORVEL_RETURN_IF_ERROR(CheckEntryName(to, path));
  std::string target(4096, '\0');
  ssize_t n = readlinkat(from_dir, from.c_str(), &target[0], target.size());
  if (n < 0) {
    if (errno == EINVAL) return Status(kErrInvalidArgument, "not a symbolic link: " + path);
    return FsError("readlink", path, errno);
  }
  if (static_cast<size_t>(n) >= target.size()) return Status(kErrInvalidArgument, "link target too long: " + path);
  target.resize(static_cast<size_t>(n));
  if (symlinkat(target.c_str(), to_dir, to.c_str()) != 0) return FsError("symlink", path, errno);
  return Status::OK();
}

Status RemoveAt(int dir, const std::string& name, const std::string& path) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  if (unlinkat(dir, name.c_str(), 0) == 0 || errno == ENOENT) return Status::OK();
  if (errno != EISDIR && errno != EPERM) return FsError("unlink", path, errno);
  int fd = openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? Status::OK() : FsError("open", path, errno);
  ORVEL_RETURN_IF_ERROR(RemoveContents(fd, path));
  if (unlinkat(dir, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) return FsError("rmdir", path, errno);
  return Status::OK();
}

Status SetTimesAt(int dir, const std::string& name, int64_t atime, int64_t mtime, const std::string& path) {
  ORVEL_RETURN_IF_ERROR(CheckEntryName(name, path));
  struct timespec ts[2];
  ts[0].tv_sec = atime;
  ts[0].tv_nsec = atime > 0 ? 0 : UTIME_OMIT;
  ts[1].tv_sec = mtime;
  ts[1].tv_nsec = mtime > 0 ? 0 : UTIME_OMIT;
  if (utimensat(dir, name.c_str(), ts, AT_SYMLINK_NOFOLLOW) != 0) return FsError("utimensat", path, errno);
  return Status::OK();
}

Status ReadDirAt(int dir, const std::string& path, std::vector<DirEntryAt>* out) {
  out->clear();
  int fd = openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);  // an offset of its own
  if (fd < 0) return FsError("open", path, errno);
  DIR* dp = fdopendir(fd);
  if (!dp) {
    close(fd);
    return FsError("opendir", path, errno);
  }
  while (struct dirent* e = readdir(dp)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    DirEntryAt entry;
    entry.name = e->d_name;
    if (fstatat(dirfd(dp), e->d_name, &entry.st, AT_SYMLINK_NOFOLLOW) != 0) continue;  // gone meanwhile
    out->push_back(std::move(entry));
  }
  closedir(dp);
  std::sort(out->begin(), out->end(), [](const DirEntryAt& a, const DirEntryAt& b) { return a.name < b.name; });
  return Status::OK();
}

TempEntryGuard::~TempEntryGuard() {
  if (!name_.empty()) RemoveAt(dir_, name_, name_);
}

}  // namespace orvel::syncd
