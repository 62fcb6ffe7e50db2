// See tree.h.
#include "tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "fault.h"
#include "orvelcommon/sha256.h"

namespace orvel::syncd {
namespace {

std::string DirOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

Status EnsureDir(const std::string& path, mode_t mode, bool force_mode) {
  if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) return FsError("mkdir", path, errno);
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return FsError("stat", path, errno);
  if (!S_ISDIR(st.st_mode)) return Status(kErrStorage, "not a folder: " + path);
  if (force_mode && (st.st_mode & 07777) != mode && chmod(path.c_str(), mode) != 0)
    return FsError("chmod", path, errno);
  return Status::OK();
}

// Splits name into stem and extension (with its dot) the way autorename does.
void SplitExt(const std::string& name, bool is_dir, std::string* stem, std::string* ext) {
  size_t dot = is_dir ? std::string::npos : name.find_last_of('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) {
    *stem = name;
    ext->clear();
  } else {
    *stem = name.substr(0, dot);
    *ext = name.substr(dot);
  }
}

}  // namespace

Layout Layout::ForDataDir(const std::string& data_dir) {
  Layout l;
  l.data = data_dir;
  while (l.data.size() > 1 && l.data.back() == '/') l.data.pop_back();
  l.homes = l.data + "/homes";
  l.db = l.data + "/@db";
  l.versions = l.data + "/@versions";
  l.recycle = l.data + "/@recycle";
  l.thumbs = l.data + "/@thumbs";
  l.tmp = l.data + "/@tmp";
  return l;
}

Status Layout::Create() const {
  // mkdir -p of the data folder itself.
  for (size_t pos = 1; pos <= data.size(); ++pos) {
    if (pos == data.size() || data[pos] == '/') {
      std::string part = data.substr(0, pos);
      if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return FsError("mkdir", part, errno);
    }
  }
  ORVEL_RETURN_IF_ERROR(EnsureDir(homes, 0755, false));
  ORVEL_RETURN_IF_ERROR(EnsureDir(db, 0755, false));
  ORVEL_RETURN_IF_ERROR(EnsureDir(versions, 0700, false));
  ORVEL_RETURN_IF_ERROR(EnsureDir(recycle, 0700, false));
  ORVEL_RETURN_IF_ERROR(EnsureDir(thumbs, 0700, false));
  ORVEL_RETURN_IF_ERROR(EnsureDir(tmp, 01777, true));
  return Status::OK();
}

Status ValidateName(const std::string& name) {
  if (name.empty() || name == "." || name == "..")
    return Status(kErrInvalidName, "invalid name: \"" + name + "\"");
  if (name.size() > 255) return Status(kErrInvalidName, "name longer than 255 bytes");
  if (name.find('/') != std::string::npos || name.find('\0') != std::string::npos)
    return Status(kErrInvalidName, "name holds '/' or NUL: \"" + name.substr(0, name.find('\0')) + "\"");
  return Status::OK();
}

std::string AutoRenameName(const std::string& name, bool is_dir, unsigned n) {
  std::string stem, ext;
  SplitExt(name, is_dir, &stem, &ext);
  std::string suffix = " (" + std::to_string(n) + ")";
  size_t room = 255 > suffix.size() + ext.size() ? 255 - suffix.size() - ext.size() : 0;
  if (stem.size() > room) {
    size_t cut = room;
    // Back up to the start of a UTF-8 character.
    while (cut > 0 && (static_cast<unsigned char>(stem[cut]) & 0xC0) == 0x80) --cut;
    stem.resize(cut);
  }
  return stem + suffix + ext;
}

std::string ExtensionOf(const std::string& name) {
  std::string stem, ext;
  SplitExt(name, false, &stem, &ext);
  if (ext.empty()) return "";
  std::string out = ext.substr(1);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

Status FsError(const char* op, const std::string& path, int err) {
  return ErrnoStatus(op, path, err);
}

TempPathGuard::~TempPathGuard() {
  if (!path_.empty()) RemoveTree(path_);
}

Status FsyncFd(int fd, const std::string& path_for_errors) {
  if (int e = fault::Check("fs.fsync")) return FsError("fsync", path_for_errors, e);
  while (fsync(fd) != 0) {
    if (errno != EINTR) return FsError("fsync", path_for_errors, errno);
  }
  return Status::OK();
}

Status FsyncDir(const std::string& dir) {
  ScopedFd fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.valid()) return FsError("open", dir, errno);
  return FsyncFd(fd.get(), dir);
}

Status MakeDirDurable(const std::string& path, mode_t mode) {
  int e = fault::Check("fs.mkdir");
  if (e != 0 || mkdir(path.c_str(), mode) != 0) {
    if (e == 0 && errno == EEXIST) return Status(kErrNameExists, "exists: " + path);
    return FsError("mkdir", path, e ? e : errno);
  }
  chmod(path.c_str(), mode);  // umask-independent mode
  Status st = FsyncDir(DirOf(path));
  if (!st.ok()) rmdir(path.c_str());  // not durable: not made
  return st;
}

Status RenameDurable(const std::string& from, const std::string& to, bool* cross_device) {
  if (cross_device) *cross_device = false;
  if (int e = fault::Check("fs.rename")) return FsError("rename", from + " -> " + to, e);
  if (rename(from.c_str(), to.c_str()) != 0) {
    if (errno == EXDEV && cross_device) *cross_device = true;
    return FsError("rename", from + " -> " + to, errno);
  }
  ORVEL_RETURN_IF_ERROR(FsyncDir(DirOf(to)));
  if (DirOf(from) != DirOf(to)) ORVEL_RETURN_IF_ERROR(FsyncDir(DirOf(from)));
  return Status::OK();
}

Status LinkDurable(const std::string& from, const std::string& to) {
  if (int e = fault::Check("fs.link")) return FsError("link", from + " -> " + to, e);
  if (link(from.c_str(), to.c_str()) != 0) {
    if (errno == EEXIST) return Status::OK();
    return FsError("link", from + " -> " + to, errno);
  }
  return FsyncDir(DirOf(to));
}

Status CopyToTemp(int src_fd, const std::string& dir, std::string* out) {
  std::string tmpl = dir + "/.syncd-copy-XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  ScopedFd dst(mkostemp(buf.data(), O_CLOEXEC));
  if (!dst.valid()) return FsError("mkstemp", tmpl, errno);
  std::string path(buf.data());
  TempPathGuard guard(path);
  fchmod(dst.get(), 0640);
  if (lseek(src_fd, 0, SEEK_SET) < 0) return FsError("lseek", path, errno);
  std::vector<char> block(1 << 20);
  for (;;) {
    ssize_t r = read(src_fd, block.data(), block.size());
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return FsError("read", "upload source", errno);
    if (r == 0) break;
    if (int e = fault::Check("fs.write")) return FsError("write", path, e);
    for (ssize_t off = 0; off < r;) {
      ssize_t w = write(dst.get(), block.data() + off, r - off);
      if (w < 0 && errno == EINTR) continue;
      if (w < 0) return FsError("write", path, errno);
      off += w;
    }
  }
  ORVEL_RETURN_IF_ERROR(FsyncFd(dst.get(), path));
  guard.Cancel();
  *out = path;
  return Status::OK();
}

Status HashFd(int fd, std::string* hex, uint64_t* size) {
  if (lseek(fd, 0, SEEK_SET) < 0) return FsError("lseek", "hash source", errno);
  int64_t total = HashFileDescriptor(fd, hex);
  if (total < 0) return FsError("read", "hash source", errno);
  if (size) *size = static_cast<uint64_t>(total);
  return Status::OK();
}

Status HashPath(const std::string& path, std::string* hex, uint64_t* size) {
  ScopedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd.valid()) return FsError("open", path, errno);
  return HashFd(fd.get(), hex, size);
}

Status RemoveContents(int dfd, const std::string& path) {
  DIR* dir = fdopendir(dfd);
  if (!dir) {
    close(dfd);
    return FsError("opendir", path, errno);
  }
  Status result;
  while (struct dirent* e = readdir(dir)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    std::string child = path + "/" + e->d_name;
    if (unlinkat(dirfd(dir), e->d_name, 0) == 0) continue;
    if (errno != EISDIR && errno != EPERM) {
      if (errno != ENOENT) result = FsError("unlink", child, errno);
      continue;
    }
    int cfd = openat(dirfd(dir), e->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (cfd < 0) {
      result = FsError("open", child, errno);
      continue;
    }
    Status st = RemoveContents(cfd, child);
    if (!st.ok()) result = st;
    if (unlinkat(dirfd(dir), e->d_name, AT_REMOVEDIR) != 0 && errno != ENOENT)
      result = FsError("rmdir", child, errno);
  }
  closedir(dir);
  return result;
}

Status RemoveTree(const std::string& path) {
  if (int e = fault::Check("fs.remove")) return FsError("unlink", path, e);
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return Status::OK();
  if (errno != EISDIR && errno != EPERM) return FsError("unlink", path, errno);
  int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? Status::OK() : FsError("open", path, errno);
  ORVEL_RETURN_IF_ERROR(RemoveContents(fd, path));
  if (rmdir(path.c_str()) != 0 && errno != ENOENT) return FsError("rmdir", path, errno);
  return Status::OK();
}

Status SetTimes(int fd, int64_t atime, int64_t mtime, const std::string& path) {
  struct timespec ts[2];
  ts[0].tv_sec = atime;
  ts[0].tv_nsec = atime > 0 ? 0 : UTIME_OMIT;
  ts[1].tv_sec = mtime;
  ts[1].tv_nsec = mtime > 0 ? 0 : UTIME_OMIT;
  if (futimens(fd, ts) != 0) return FsError("futimens", path, errno);
  return Status::OK();
}

bool PathIsInside(const std::string& path, const std::string& dir) {
  if (path == dir) return true;
  return path.size() > dir.size() && path.compare(0, dir.size(), dir) == 0 &&
         (dir == "/" || path[dir.size()] == '/');
}

}  // namespace orvel::syncd
