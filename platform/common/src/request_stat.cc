// See request_stat.h.
#include "orvelcommon/request_stat.h"

#include <errno.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <mutex>
#include <vector>

namespace orvel {
namespace {

// What changes a file or its name, or the folder itself.
constexpr uint32_t kWatchMask = IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_DELETE_SELF |
                                IN_MODIFY | IN_MOVE_SELF | IN_MOVED_FROM | IN_MOVED_TO;
// What moves a path's meaning from above: a folder on the way (or a link on
// the way, not followed) renamed, removed, or replaced by a rename over it
// (which reaches the replaced inode as a change of its link count). Added to
// whatever else the inode is watched for.
constexpr uint32_t kPathMask = IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_DONT_FOLLOW | IN_MASK_ADD;

struct Answer {
  std::string path;
  int result;  // 0, or -1 with err
  int err;
  struct stat st;
  bool kept;  // its folder is watched: may outlive the request
};

// A handful of paths: vectors searched in order beat maps.
struct Memo {
  std::mutex mu;
  int open = 0;  // scopes open (nested ones share the memo)
  std::vector<Answer> answers;
  int inotify = -1;  // >= 0 while answers are kept between requests
  std::vector<std::string> watched;  // folders watched, with the names above them
  uint64_t looks = 0;
};

Memo& TheMemo() {
  static Memo* memo = new Memo;  // never destroyed: a log line may stat at exit
  return *memo;
}

std::string FolderOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Watches path's folder for changes in it, and the folder and every folder
// above it (as named, links not followed) for being moved, removed or
// replaced. Done before the stat, so no change can fall between the two;
// false when some part cannot be watched. m.mu held.
bool WatchFolderOf(Memo& m, const std::string& path) {
  const std::string folder = FolderOf(path);
  for (const std::string& w : m.watched) {
    if (w == folder) return true;
  }
  // The names on the way first. Every mask is added to what the inode is
  // already watched for (IN_MASK_ADD), so a name shared with another
  // folder's way, or the folder itself, keeps all it was watched for.
  for (std::string up = folder;; up = FolderOf(up)) {
    if (::inotify_add_watch(m.inotify, up.c_str(), kPathMask) < 0) return false;
    if (up == "/" || up == ".") break;
  }
  if (::inotify_add_watch(m.inotify, folder.c_str(), kWatchMask | IN_MASK_ADD) < 0) return false;
  m.watched.push_back(folder);
  return true;
}

// Empties the event queue; true when anything had happened. An event about
// a watched inode itself rather than a name in it (moved, removed, replaced,
// its watch ended, or the queue overflowed) may leave watches on inodes that
// no longer lie on the paths: then every watch is dropped, to be set anew
// when next needed. m.mu held.
bool DrainEvents(Memo& m) {
  bool changed = false;
  bool reset = false;
  alignas(struct inotify_event) char buf[4096];
  for (;;) {
    ssize_t n = ::read(m.inotify, buf, sizeof(buf));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    changed = true;
    for (ssize_t off = 0; off < n;) {
      const auto* e = reinterpret_cast<const struct inotify_event*>(buf + off);
      if (e->len == 0) reset = true;
      off += static_cast<ssize_t>(sizeof(struct inotify_event) + e->len);
    }
  }
  if (reset) {
    ::close(m.inotify);
    m.inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);  // -1: every request looks again
    m.watched.clear();
  }
  return changed;
}

}  // namespace

int RequestStat(const std::string& path, struct stat* st) {
  Memo& m = TheMemo();
  std::lock_guard<std::mutex> lock(m.mu);
  if (m.open) {
    for (const Answer& a : m.answers) {
      if (a.path != path) continue;
      if (a.result != 0) {
        errno = a.err;
        return -1;
      }
      *st = a.st;
      return 0;
    }
  }
  const bool kept = m.open && m.inotify >= 0 && WatchFolderOf(m, path);
  ++m.looks;
  int result = ::stat(path.c_str(), st);
  int err = result == 0 ? 0 : errno;
  if (m.open) {
    m.answers.push_back(Answer{path, result, err, {}, kept});
    if (result == 0) m.answers.back().st = *st;
  }
  if (result != 0) errno = err;  // the memo's allocation may have set it
  return result;
}

RequestStatScope::RequestStatScope() {
  Memo& m = TheMemo();
  std::lock_guard<std::mutex> lock(m.mu);
  if (m.open++ != 0) return;
  if (m.inotify < 0 || DrainEvents(m)) m.answers.clear();
}

RequestStatScope::~RequestStatScope() {
  Memo& m = TheMemo();
  std::lock_guard<std::mutex> lock(m.mu);
  if (--m.open != 0) return;
  std::vector<Answer> kept;
  for (Answer& a : m.answers) {
    if (a.kept) kept.push_back(std::move(a));
  }
  m.answers.swap(kept);
}

void KeepStatsBetweenRequests(bool on) {
  Memo& m = TheMemo();
  std::lock_guard<std::mutex> lock(m.mu);
  if (on == (m.inotify >= 0)) return;
  if (on) {
    m.inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  } else {
    ::close(m.inotify);
    m.inotify = -1;
    m.watched.clear();
  }
  if (m.open == 0) m.answers.clear();
  else for (Answer& a : m.answers) a.kept = false;
}

uint64_t RequestStatLooks() {
  Memo& m = TheMemo();
  std::lock_guard<std::mutex> lock(m.mu);
  return m.looks;
}

}  // namespace orvel
