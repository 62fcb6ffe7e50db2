// See tmp_sweep.h.
#include "tmp_sweep.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tree.h"

namespace orvel::syncd {
namespace {

// Calls fn(dirfd, name, stat) for every entry below the open folder fd
// (which it closes), depth first, without following links.
template <typename Fn>
void Walk(int fd, const Fn& fn) {
  DIR* dir = fdopendir(fd);
  if (!dir) {
    close(fd);
    return;
  }
  while (const dirent* e = readdir(dir)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    struct stat st;
    if (fstatat(dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      int child = openat(dirfd(dir), e->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (child >= 0) Walk(child, fn);
    } else {
      fn(dirfd(dir), e->d_name, st);
    }
  }
  closedir(dir);
}

}  // namespace

Status CollectLinkedInodes(const std::string& path, InodeSet* out) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return errno == ENOENT ? Status::OK() : FsError("lstat", path, errno);
  auto note = [out](int, const char*, const struct stat& s) {
    if (S_ISREG(s.st_mode) && s.st_nlink > 1) out->insert({s.st_dev, s.st_ino});
  };
  if (!S_ISDIR(st.st_mode)) {
    note(-1, nullptr, st);
    return Status::OK();
  }
  int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return FsError("open", path, errno);
  Walk(fd, note);
  return Status::OK();
}

Status UnlinkLinksBelow(const std::string& tmp, const InodeSet& inodes, uint64_t* removed) {
  *removed = 0;
  if (inodes.empty()) return Status::OK();
  int fd = open(tmp.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return FsError("open", tmp, errno);
  Walk(fd, [&](int dfd, const char* name, const struct stat& s) {
    if (S_ISREG(s.st_mode) && inodes.count({s.st_dev, s.st_ino}) && unlinkat(dfd, name, 0) == 0) ++*removed;
  });
  return Status::OK();
}

}  // namespace orvel::syncd
