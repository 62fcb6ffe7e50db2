// See log.h.
#include "log.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

namespace orvel::syncd {
namespace {

std::mutex g_mu;
std::string g_debug_file;
std::atomic<time_t> g_checked{0};
std::atomic<bool> g_debug{false};

const char* LevelName(LogLevel l) {
  switch (l) {
    case LogLevel::kError: return "ERROR";
    case LogLevel::kWarning: return "WARN";
    case LogLevel::kInfo: return "INFO";
    case LogLevel::kDebug: return "DEBUG";
  }
  return "?";
}

}  // namespace

void LogSetDebugFile(const char* path) {
  std::lock_guard<std::mutex> lock(g_mu);
  g_debug_file = path ? path : "";
  g_checked = 0;
}

bool LogDebugEnabled() {
  time_t now = time(nullptr);
  if (now - g_checked.load() >= 5) {
    std::string file;
    {
      std::lock_guard<std::mutex> lock(g_mu);
      file = g_debug_file;
    }
    struct stat st;
    g_debug = !file.empty() && stat(file.c_str(), &st) == 0;
    g_checked = now;
  }
  return g_debug;
}

void Log(LogLevel level, const char* fmt, ...) {
  char text[2048];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(text, sizeof(text), fmt, ap);
  va_end(ap);

  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  gmtime_r(&ts.tv_sec, &tm);
  char stamp[40];
  strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%S", &tm);
  char line[2200];
  int n = snprintf(line, sizeof(line), "%s.%03ldZ [%s] (%d:%ld) %s\n", stamp, ts.tv_nsec / 1000000,
                   LevelName(level), static_cast<int>(getpid()),
                   static_cast<long>(syscall(SYS_gettid)), text);
  if (n < 0) return;
  if (static_cast<size_t>(n) >= sizeof(line)) n = sizeof(line) - 1, line[n - 1] = '\n';
  std::lock_guard<std::mutex> lock(g_mu);
  ssize_t off = 0;
  while (off < n) {
    ssize_t w = write(STDERR_FILENO, line + off, n - off);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) break;
    off += w;
  }
}

}  // namespace orvel::syncd
