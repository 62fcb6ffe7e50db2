// TLIBCPopen / TLIBCPclose: run a program with an argument vector, no shell
// in between, and read its stdout ("r") or feed its stdin ("w") through a
// pipe. The program path is resolved under ZEMO_ROOT like every fixed path.
// The child is started with posix_spawn (safe in a threaded process); the
// open pipes and their children are kept in a small table guarded by a mutex.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <mutex>

#include "internal/io.h"
#include "internal/log.h"
#include "orvelcommon/zemo_root.h"
#include "zemo/nas.h"

extern char** environ;

namespace {

static constexpr char kLogSource[] = "popen";

std::mutex g_mu;
std::map<FILE*, pid_t>& Children() {
  static std::map<FILE*, pid_t> children;
  return children;
}

// posix_spawn file actions as a scoped object.
class SpawnActions {
 public:
  SpawnActions() { error_ = posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() {
    if (error_ == 0) posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  int error() const { return error_; }
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
  int error_ = 0;
};

// Starts argv with child_end as its stdout (reading) or stdin (writing).
// A reading child gets /dev/null as stdin: the CGI's stdin is the request
// body, which is not the child's to consume. Returns the child's pid or -1
// with errno set.
pid_t Spawn(const std::vector<std::string>& argv, bool reading, int child_end) {
  SpawnActions actions;
  // The posix_spawn family returns its error instead of setting errno.
  int rc = actions.error();
  int target = reading ? STDOUT_FILENO : STDIN_FILENO;
  if (rc == 0) rc = posix_spawn_file_actions_adddup2(actions.get(), child_end, target);
  if (rc == 0 && reading) {
    rc = posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  std::string program = orvel::ZemoPath(argv[0]);
  std::vector<char*> args;
  args.push_back(const_cast<char*>(program.c_str()));
  for (size_t i = 1; i < argv.size(); ++i) args.push_back(const_cast<char*>(argv[i].c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  rc = posix_spawn(&pid, program.c_str(), actions.get(), nullptr, args.data(), environ);
  if (rc != 0) {
    WEBAPI_LOG(Logger::kError, "cannot run %s: %s", program.c_str(), std::strerror(rc));
    errno = rc;
    return -1;
  }
  return pid;
}

}  // namespace

FILE* TLIBCPopen(const std::vector<std::string>& argv, const char* mode) {
  if (argv.empty() || argv[0].empty() || mode == nullptr ||
      (std::strcmp(mode, "r") != 0 && std::strcmp(mode, "w") != 0)) {
    errno = EINVAL;
    return nullptr;
  }
  bool reading = mode[0] == 'r';
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return nullptr;
  zemo::io::ScopedFd read_end(fds[0]), write_end(fds[1]);
  pid_t pid = Spawn(argv, reading, reading ? write_end.get() : read_end.get());
  if (pid < 0) return nullptr;
  zemo::io::ScopedFd& ours = reading ? read_end : write_end;
  FILE* pipe = ::fdopen(ours.get(), mode);
  if (pipe == nullptr) {
    int err = errno;
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    errno = err;
    return nullptr;
  }
  ours.release();
  std::lock_guard<std::mutex> lock(g_mu);
  Children()[pipe] = pid;
  return pipe;
}

int TLIBCPclose(FILE* pipe) {
  pid_t pid = -1;
  {
    std::lock_guard<std::mutex> lock(g_mu);
    auto it = Children().find(pipe);
    if (it == Children().end()) {
      errno = ECHILD;
      return -1;
    }
    pid = it->second;
    Children().erase(it);
  }
  std::fclose(pipe);
  int status = 0;
  pid_t rc;
  do {
    rc = ::waitpid(pid, &status, 0);
  } while (rc < 0 && errno == EINTR);
  if (rc < 0 || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}
