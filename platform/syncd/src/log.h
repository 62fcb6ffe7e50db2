// The daemon's log: one line per event on stderr, "2024-05-01T12:00:00.123Z
// [ERROR] (pid:tid) text". DEBUG lines are written only while the package's
// debug switch file (etc/syncfolder.debug) exists; its presence is checked at
// most once every few seconds. Thread-safe: lines are written whole.
#pragma once

namespace orvel::syncd {

enum class LogLevel { kError, kWarning, kInfo, kDebug };

// Sets the debug switch file (absolute path). Call once at start-up.
void LogSetDebugFile(const char* path);
bool LogDebugEnabled();
void Log(LogLevel level, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

}  // namespace orvel::syncd

#define SLOG_ERROR(...) ::orvel::syncd::Log(::orvel::syncd::LogLevel::kError, __VA_ARGS__)
#define SLOG_WARN(...) ::orvel::syncd::Log(::orvel::syncd::LogLevel::kWarning, __VA_ARGS__)
#define SLOG_INFO(...) ::orvel::syncd::Log(::orvel::syncd::LogLevel::kInfo, __VA_ARGS__)
#define SLOG_DEBUG(...)                                                   \
  do {                                                                    \
    if (::orvel::syncd::LogDebugEnabled())                                \
      ::orvel::syncd::Log(::orvel::syncd::LogLevel::kDebug, __VA_ARGS__); \
  } while (0)
