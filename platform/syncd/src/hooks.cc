// See hooks.h.
#include "hooks.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "log.h"

namespace orvel::syncd {
namespace {

const std::string& HookDir() {
  static const std::string dir = [] {
    const char* v = getenv("ORVEL_SYNCD_HOOKS");
    return std::string(v ? v : "");
  }();
  return dir;
}

}  // namespace

void RunHook(const std::string& point) {
  const std::string& dir = HookDir();
  if (dir.empty()) return;
  std::string program = dir + "/" + point;
  if (access(program.c_str(), X_OK) != 0) return;
  char* argv[] = {program.data(), nullptr};
  char path_env[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
  char* envp[] = {path_env, nullptr};
  pid_t pid = -1;
  int rc = posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, envp);
  if (rc != 0) {
    SLOG_WARN("hook %s: %s", point.c_str(), strerror(rc));
    return;
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  SLOG_INFO("hook %s ran (status %d)", point.c_str(), WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

}  // namespace orvel::syncd
