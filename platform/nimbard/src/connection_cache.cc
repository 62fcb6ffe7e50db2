// Daemon connection cache; see connection_cache.h. Thread-safe (one mutex).
#include "connection_cache.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace orvel::client {

namespace {

// The daemon drops connections idle for minutes; well before that, a cached
// one is not trusted any more.
constexpr std::chrono::seconds kMaxIdle(10);
constexpr size_t kMaxCached = 4;

struct Entry {
  std::string key;
  int fd;
  pid_t pid;
  std::chrono::steady_clock::time_point idle_since;
};

struct Cache {
  std::mutex mu;
  std::vector<Entry> entries;
};

Cache& TheCache() {
  static Cache* cache = new Cache;  // never destroyed: clients may outlive statics
  return *cache;
}

// True while the peer has neither closed the connection nor sent anything
// unasked (either would leave the stream unusable).
bool StillOpen(int fd) {
  struct pollfd p = {fd, POLLIN, 0};
  int r;
  do {
    r = ::poll(&p, 1, 0);
  } while (r < 0 && errno == EINTR);
  return r == 0;
}

// The process's pid, asked of the kernel once and again in a forked child
// (glibc does not cache it; every take and return of a connection asked).
std::atomic<pid_t> g_pid{0};

void RefreshPidInChild() { g_pid.store(::getpid(), std::memory_order_relaxed); }

pid_t CurrentPid() {
  static std::once_flag registered;
  std::call_once(registered, [] { ::pthread_atfork(nullptr, nullptr, RefreshPidInChild); });
  pid_t pid = g_pid.load(std::memory_order_relaxed);
  if (pid == 0) {
    pid = ::getpid();
    g_pid.store(pid, std::memory_order_relaxed);
  }
  return pid;
}

}  // namespace

std::string ConnectionKey(const std::string& path, unsigned timeout_seconds) {
  std::string key = path;
  key.push_back('\0');
  key += std::to_string(::geteuid());
  key.push_back('\0');
  key += std::to_string(timeout_seconds);
  return key;
}

int TakeConnection(const std::string& key) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> lock(cache.mu);
  const pid_t pid = CurrentPid();
  const auto now = std::chrono::steady_clock::now();
  int found = -1;
  std::vector<Entry> kept;
  for (Entry& e : cache.entries) {
    if (e.pid != pid) {
      ::close(e.fd);  // our copy of a parent's connection; the parent keeps its own
    } else if (found < 0 && e.key == key) {
      if (now - e.idle_since < kMaxIdle && StillOpen(e.fd)) {
        found = e.fd;
      } else {
        ::close(e.fd);
      }
    } else {
      kept.push_back(e);
    }
  }
  cache.entries.swap(kept);
  return found;
}

void ReturnConnection(const std::string& key, int fd) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> lock(cache.mu);
  if (cache.entries.size() >= kMaxCached) {
    // The connection idle longest (entries are in the order they came back)
    // makes room: the one just used is the likeliest to be used again.
    ::close(cache.entries.front().fd);
    cache.entries.erase(cache.entries.begin());
  }
  cache.entries.push_back(Entry{key, fd, CurrentPid(), std::chrono::steady_clock::now()});
}

bool LiveDaemon(const std::string& path, pid_t* pid, uid_t* uid) {
  Cache& cache = TheCache();
  std::lock_guard<std::mutex> lock(cache.mu);
  const pid_t self = CurrentPid();
  for (const Entry& e : cache.entries) {
    if (e.pid != self || e.key.compare(0, path.size() + 1, path.c_str(), path.size() + 1) != 0) continue;
    if (!StillOpen(e.fd)) continue;  // the next take drops it
    struct ucred cred;
    socklen_t len = sizeof(cred);
    if (::getsockopt(e.fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) continue;
    *pid = cred.pid;
    *uid = cred.uid;
    return true;
  }
  return false;
}

}  // namespace orvel::client
