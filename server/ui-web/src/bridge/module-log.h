// The module's log helper. Every line of the module goes through the client
// library's Logger under the component "default_component" in one shape:
//   (<pid>:<tid>) [LEVEL] <source-name>(<line>): <text>
// with the process id and the thread id modulo 100000 printed as "%5d".
// Each source file defines `kLogSource` (its short name, e.g. "list") in an
// anonymous namespace and logs through the ORVEL_LOG_* macros; code that
// logs on behalf of another source (shared builders) calls orvel::module::Log
// with the name explicitly. Stateless; safe from any thread.
#pragma once

#include "orvelcommon/logger.h"

namespace orvel::module {

// The logger component every module line is filed under.
inline constexpr const char kLogComponent[] = "default_component";

// Writes one line when Logger::IsNeedToLog(level, kLogComponent) says so.
// errno is preserved, so "%m" in fmt reports the caller's error.
void Log(int level, const char* source, int line, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

// True when a line of that level would be written.
bool IsLogging(int level);

}  // namespace orvel::module

#define ORVEL_LOG_DEBUG(...) ::orvel::module::Log(Logger::kDebug, kLogSource, __LINE__, __VA_ARGS__)
#define ORVEL_LOG_ERROR(...) ::orvel::module::Log(Logger::kError, kLogSource, __LINE__, __VA_ARGS__)
#define ORVEL_LOG_CRIT(...) ::orvel::module::Log(Logger::kCrit, kLogSource, __LINE__, __VA_ARGS__)
