// HTTPFileHandOver: hands a downloaded file to the web server with an
// "X-Sendfile" header instead of streaming its bytes through entry.cgi.
//
// Stage opens the file beneath the temp folder without following any link
// and hard-links that very inode (not the path) into the hand-over folder
// (orvelcommon/handover.h), whose links outlive the request so that the web
// server finds the file whenever it reads the headers. Output, right before
// the hand-over, resolves the link's path, checks that it lies in the
// hand-over folder and that opening it (no link followed) gives the staged
// device and inode, and only then writes the headers. One object per
// download; not thread-safe.
#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <ctime>

#include "internal/io.h"
#include "orvelcommon/handover.h"
#include "zemo/nas.h"

namespace {

constexpr char kFolderName[] = "handover";

bool SameInode(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// What path names below root ("" when it is not strictly below it or climbs).
std::string Below(const std::string& path, const std::string& root) {
  if (path.size() <= root.size() + 1 || path.compare(0, root.size(), root) != 0 ||
      path[root.size()] != '/') {
    return "";
  }
  return path.substr(root.size() + 1);
}

// Opens rel beneath dir_fd, refusing any symbolic link and any way out.
int OpenBeneath(int dir_fd, const std::string& rel) {
  struct open_how how = {};
  how.flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  int fd = static_cast<int>(::syscall(SYS_openat2, dir_fd, rel.c_str(), &how, sizeof(how)));
  if (fd < 0 && errno == EXDEV) errno = EPERM;  // it would leave the folder
  return fd;
}

// The hand-over folder, made when missing. @tmp is writable by every
// account: a folder that is not the effective user's own (and closed to
// others' writes) is refused, as someone else could change it under us.
int OpenFolder(int tmp_fd) {
  int fd = ::openat(tmp_fd, kFolderName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0 && errno == ENOENT) {
    if (::mkdirat(tmp_fd, kFolderName, 0711) != 0 && errno != EEXIST) return -1;
    fd = ::openat(tmp_fd, kFolderName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }
  if (fd < 0) return -1;
  struct stat st;
  if (::fstat(fd, &st) != 0 || st.st_uid != ::geteuid() || (st.st_mode & 022) != 0) {
    ::close(fd);
    errno = EPERM;
    return -1;
  }
  return fd;
}

// Links the open file as name in folder_fd: by descriptor where the
// process may (root), else through /proc.
int LinkOpenFile(int fd, int folder_fd, const std::string& name) {
  if (::linkat(fd, "", folder_fd, name.c_str(), AT_EMPTY_PATH) == 0) return 0;
  const std::string proc = "/proc/self/fd/" + std::to_string(fd);
  return ::linkat(AT_FDCWD, proc.c_str(), folder_fd, name.c_str(), AT_SYMLINK_FOLLOW);
}

std::string RealPath(const std::string& path) {
  char buf[PATH_MAX];
  return ::realpath(path.c_str(), buf) ? std::string(buf) : std::string();
}

}  // namespace

HTTPFileHandOver::HTTPFileHandOver(std::string tmp_dir) : tmp_dir_(std::move(tmp_dir)) {}

HTTPFileHandOver::~HTTPFileHandOver() {
  if (!link_path_.empty() && !handed_over_) ::unlink(link_path_.c_str());
}

int HTTPFileHandOver::Stage(const std::string& path) {
  const std::string rel = Below(path, tmp_dir_);
  if (rel.empty()) {
    errno = EPERM;
    return -1;
  }
  zemo::io::ScopedFd tmp(::open(tmp_dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (tmp.get() < 0) return -1;
  zemo::io::ScopedFd file(OpenBeneath(tmp.get(), rel));
  if (file.get() < 0) return -1;
  if (::fstat(file.get(), &staged_) != 0) return -1;
  if (!S_ISREG(staged_.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  zemo::io::ScopedFd folder(OpenFolder(tmp.get()));
  if (folder.get() < 0) return -1;
  const int64_t now = static_cast<int64_t>(::time(nullptr));
  orvel::SweepHandOver(tmp_dir_, now, orvel::kHandOverLinkSeconds);
  const std::string name = orvel::HandOverLinkName(now);
  if (LinkOpenFile(file.get(), folder.get(), name) != 0) return -1;
  link_path_ = orvel::HandOverFolder(tmp_dir_) + "/" + name;
  return 0;
}

int HTTPFileHandOver::Output(const std::string& content_type, FILE* out) {
  if (link_path_.empty() || handed_over_) {
    errno = EINVAL;
    return -1;
  }
  // The web server opens what the header names: that path, resolved, must
  // lie in the hand-over folder and be the staged file.
  const std::string resolved = RealPath(link_path_);
  const std::string folder = RealPath(orvel::HandOverFolder(tmp_dir_));
  const std::string name = link_path_.substr(link_path_.find_last_of('/') + 1);
  if (resolved.empty() || folder.empty() || Below(resolved, folder) != name) {
    errno = EPERM;
    return -1;
  }
  zemo::io::ScopedFd fd(::open(resolved.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  struct stat st;
  if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || !SameInode(st, staged_)) {
    errno = EPERM;
    return -1;
  }
  const std::string type = content_type.empty() ? "application/octet-stream" : content_type;
  const std::string headers =
      "Content-Type: " + type + "\r\nX-Sendfile: " + resolved + "\r\nStatus: 200 OK\r\n\r\n";
  if (std::fwrite(headers.data(), 1, headers.size(), out) != headers.size() || std::fflush(out) != 0) {
    return -1;
  }
  handed_over_ = true;
  return 0;
}
