// Log lines of the web API framework, in the platform's common form
// "(pid:tid) [LEVEL] source(line): text", written through Logger (stderr,
// which lighttpd keeps in its error log). Each source file that logs defines
//   static constexpr char kLogSource[] = "name";
// before using WEBAPI_LOG. Thread-safe (Logger is).
#pragma once

#include <pthread.h>
#include <unistd.h>

#include "orvelcommon/logger.h"

namespace zemo::log {

constexpr const char kComponent[] = "webapi";

inline const char* LevelName(int level) {
  switch (level) {
    case Logger::kCrit: return "CRIT";
    case Logger::kError: return "ERROR";
    case Logger::kWarning: return "WARNING";
    case Logger::kInfo: return "INFO";
    default: return "DEBUG";
  }
}

inline int Pid() { return static_cast<int>(::getpid() % 100000); }
inline int Tid() { return static_cast<int>(static_cast<unsigned long>(::pthread_self()) % 100000); }

}  // namespace zemo::log

#define WEBAPI_LOG(level, fmt, ...)                                                        \
  do {                                                                                     \
    if (Logger::IsNeedToLog(level, ::zemo::log::kComponent)) {                             \
      Logger::LogMsg(level, ::zemo::log::kComponent, "(%5d:%5d) [%s] %s(%d): " fmt "\n",   \
                     ::zemo::log::Pid(), ::zemo::log::Tid(), ::zemo::log::LevelName(level), \
                     kLogSource, __LINE__, ##__VA_ARGS__);                                 \
    }                                                                                      \
  } while (0)
