// Logger: the process-wide logger of the client library. Lines go to stderr
// (lighttpd keeps a CGI's stderr in its error log; the daemon's stderr is its
// log file). DEBUG lines are written only while the debug switch file given
// to Initialize exists. Thread-safe.
#pragma once

#include <string>

class Logger {
 public:
  enum Level { kCrit = 2, kError = 3, kWarning = 4, kInfo = 6, kDebug = 7 };

  // type and safety_scope are accepted for compatibility; level is the
  // highest level written when the debug file is absent is ERROR..INFO
  // (levels above kInfo need the debug file). The debug file path is
  // resolved under ZEMO_ROOT.
  static void Initialize(int type, const std::string& component, const std::string& debug_file,
                         int level, int safety_scope);
  static bool IsNeedToLog(int level, const std::string& component);
  static void LogMsg(int level, const std::string& component, const char* fmt, ...)
      __attribute__((format(printf, 3, 4)));
};
