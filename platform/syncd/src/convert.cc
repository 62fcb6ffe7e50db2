// See convert.h.
#include "convert.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "tasks.h"
#include "tree.h"

extern char** environ;

namespace orvel::syncd {
namespace {

constexpr int kTimeoutSeconds = 600;

bool IsExecutable(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

// posix_spawn file actions as a scope guard.
class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&a_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&a_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t* get() { return &a_; }

 private:
  posix_spawn_file_actions_t a_;
};

// Waits for pid; kills it on cancel or time-out. *status is its wait status.
Status WaitChild(TaskContext& ctx, pid_t pid, int* status) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kTimeoutSeconds);
  for (;;) {
    pid_t r = waitpid(pid, status, WNOHANG);
    if (r == pid) return Status::OK();
    if (r < 0 && errno != EINTR) return FsError("waitpid", "soffice", errno);
    bool cancelled = ctx.Cancelled();
    if (cancelled || std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      while (waitpid(pid, status, 0) < 0 && errno == EINTR) {
      }
      return cancelled ? Status(kErrTaskCancelled, "task cancelled")
                       : Status(kErrTaskFailed, "conversion timed out");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

}  // namespace

std::string OfficeTargetFormat(const std::string& name) {
  const std::string ext = ExtensionOf(name);
  for (const char* e : {"doc", "docx", "docm", "dot", "dotx", "rtf", "wpd"})
    if (ext == e) return "odt";
  for (const char* e : {"xls", "xlsx", "xlsm", "xlt", "xltx", "csv"})
    if (ext == e) return "ods";
  for (const char* e : {"ppt", "pptx", "pptm", "pps", "ppsx", "pot", "potx"})
    if (ext == e) return "odp";
  return "";
}

std::string FindSoffice(const std::string& program) {
  if (program.find('/') != std::string::npos) return IsExecutable(program) ? program : "";
  const char* path = getenv("PATH");
  std::string dirs = path && *path ? path : "/usr/local/bin:/usr/bin:/bin";
  size_t start = 0;
  while (start <= dirs.size()) {
    size_t end = dirs.find(':', start);
    if (end == std::string::npos) end = dirs.size();
    std::string dir = dirs.substr(start, end - start);
    if (!dir.empty() && IsExecutable(dir + "/" + program)) return dir + "/" + program;
    start = end + 1;
  }
  return "";
}

Status RunSoffice(TaskContext& ctx, const std::string& soffice, const std::string& src,
                  const std::string& format, const std::string& out_dir, const std::string& profile,
                  std::string* output) {
  std::vector<std::string> args = {soffice, "--headless", "--norestore", "--nolockcheck",
                                   "-env:UserInstallation=file://" + profile, "--convert-to",
                                   format, "--outdir", out_dir, src};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  std::vector<std::string> env_store = {"HOME=" + profile, "LANG=C.UTF-8"};
  if (const char* p = getenv("PATH")) env_store.push_back(std::string("PATH=") + p);
  std::vector<char*> envp;
  for (std::string& e : env_store) envp.push_back(&e[0]);
  envp.push_back(nullptr);
  const std::string log = out_dir + ".log";
  SpawnActions actions;
  posix_spawn_file_actions_addopen(actions.get(), 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(actions.get(), 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(actions.get(), 1, 2);
  pid_t pid = -1;
  int rc = posix_spawn(&pid, soffice.c_str(), actions.get(), nullptr, argv.data(), envp.data());
  if (rc != 0) return Status(kErrNoConverter, "converter not available: " + soffice + ": " + strerror(rc));
  int status = 0;
  ORVEL_RETURN_IF_ERROR(WaitChild(ctx, pid, &status));
  std::string base = src.substr(src.find_last_of('/') + 1);
  size_t dot = base.find_last_of('.');
  *output = out_dir + "/" + (dot == std::string::npos ? base : base.substr(0, dot)) + "." + format;
  struct stat st;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || stat(output->c_str(), &st) != 0)
    return Status(kErrTaskFailed, "conversion of " + base + " failed (soffice status " +
                                      std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + ")");
  return Status::OK();
}

}  // namespace orvel::syncd
