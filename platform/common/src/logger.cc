// Process-wide logger: timestamped lines to stderr; DEBUG gated by a file.
#include "orvelcommon/logger.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "orvelcommon/request_stat.h"
#include "orvelcommon/zemo_root.h"

namespace {
std::mutex g_mu;
std::string g_debug_file;
}  // namespace

void Logger::Initialize(int /*type*/, const std::string& /*component*/, const std::string& debug_file,
                        int /*level*/, int /*safety_scope*/) {
  std::lock_guard<std::mutex> lock(g_mu);
  g_debug_file = orvel::ZemoPath(debug_file);
}

bool Logger::IsNeedToLog(int level, const std::string& /*component*/) {
  if (level <= kInfo) return true;
  std::string file;
  {
    std::lock_guard<std::mutex> lock(g_mu);
    file = g_debug_file;
  }
  struct stat st;
  return !file.empty() && orvel::RequestStat(file, &st) == 0;
}

void Logger::LogMsg(int level, const std::string& component, const char* fmt, ...) {
  if (!IsNeedToLog(level, component)) return;
  char buf[4096];
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(buf, sizeof(buf), fmt, ap);
  va_end(ap);
  if (n < 0) return;
  size_t len = static_cast<size_t>(n) < sizeof(buf) ? static_cast<size_t>(n) : sizeof(buf) - 1;
  std::string line(buf, len);
  if (line.empty() || line.back() != '\n') line.push_back('\n');
  std::lock_guard<std::mutex> lock(g_mu);
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}
