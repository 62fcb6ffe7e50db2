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

struct Answer {
  std::string path;
  int result;  // 0, or -1 with err
  int err;
  struct stat st;
  bool kept;  // its folder is watched: may outlive the request
};

struct Watch {
  std::string folder;
  int wd;
};

// A handful of paths: vectors searched in order beat maps.
struct Memo {
  std::mutex mu;
  int open = 0;  // scopes open (nested ones share the memo)
  std::vector<Answer> answers;
  int inotify = -1;  // >= 0 while answers are kept between requests
  std::vector<Watch> watches;
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

// Watches path's folder (before its stat, so no change can fall between
// the two); false when it cannot be watched. m.mu held.
bool WatchFolderOf(Memo& m, const std::string& path) {
  const std::string folder = FolderOf(path);
  for (const Watch& w : m.watches) {
    if (w.folder == folder) return true;
  }
  int wd = ::inotify_add_watch(m.inotify, folder.c_str(), kWatchMask);
  if (wd < 0) return false;
  m.watches.push_back(Watch{folder, wd});
  return true;
}

// Empties the event queue; true when anything had happened. A folder whose
// watch ended (removed, or its file system unmounted) is watched anew when
// next needed. m.mu held.
bool DrainEvents(Memo& m) {
  bool changed = false;
  alignas(struct inotify_event) char buf[4096];
  for (;;) {
    ssize_t n = ::read(m.inotify, buf, sizeof(buf));
    if (n <= 0) {
      if (n < 0 && errno == EINTR) continue;
      return changed;
    }
    changed = true;
    for (ssize_t off = 0; off < n;) {
      const auto* e = reinterpret_cast<const struct inotify_event*>(buf + off);
      if (e->mask & IN_IGNORED) {
        for (size_t i = 0; i < m.watches.size(); ++i) {
          if (m.watches[i].wd != e->wd) continue;
          m.watches.erase(m.watches.begin() + static_cast<long>(i));
          break;
        }
      }
      off += static_cast<ssize_t>(sizeof(struct inotify_event) + e->len);
    }
  }
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
    m.watches.clear();
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
