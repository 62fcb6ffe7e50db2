// Formatting of module log lines (see module-log.h).
#include "module-log.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace orvel::module {
namespace {

const char* LevelTag(int level) {
  switch (level) {
    case Logger::kCrit:
      return "CRIT";
    case Logger::kError:
      return "ERROR";
    case Logger::kWarning:
      return "WARNING";
    case Logger::kInfo:
      return "INFO";
    default:
      return "DEBUG";
  }
}

std::string FormatV(const char* fmt, va_list args) {
  va_list copy;
  va_copy(copy, args);
  char small[512];
  int n = vsnprintf(small, sizeof(small), fmt, copy);
  va_end(copy);
  if (n < 0) return std::string();
  if (static_cast<size_t>(n) < sizeof(small)) return std::string(small, n);
  std::string big(static_cast<size_t>(n) + 1, '\0');
  vsnprintf(&big[0], big.size(), fmt, args);
  big.resize(static_cast<size_t>(n));
  return big;
}

}  // namespace

bool IsLogging(int level) { return Logger::IsNeedToLog(level, kLogComponent); }

void Log(int level, const char* source, int line, const char* fmt, ...) {
  const int saved_errno = errno;
  if (!Logger::IsNeedToLog(level, kLogComponent)) {
    errno = saved_errno;
    return;
  }
  errno = saved_errno;
  va_list args;
  va_start(args, fmt);
  std::string text = FormatV(fmt, args);
  va_end(args);
  const int pid = static_cast<int>(getpid() % 100000);
  const int tid = static_cast<int>(static_cast<unsigned long>(pthread_self()) % 100000);
  Logger::LogMsg(level, kLogComponent, "(%5d:%5d) [%s] %s(%d): %s", pid, tid, LevelTag(level),
                 source, line, text.c_str());
  errno = saved_errno;
}

}  // namespace orvel::module
