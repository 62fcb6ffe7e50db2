// See child.h.
#include "child.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "tree.h"

namespace orvel::syncd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kErrKeep = 4096;
constexpr int kCancelTickMs = 100;
constexpr int kNoPidfdTickMs = 10;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kLimitAddressSpace = false;  // the sanitizer's shadow memory needs terabytes
#else
constexpr bool kLimitAddressSpace = true;
#endif

struct Ids {
  bool change = false;
  uid_t uid = 65534;
  gid_t gid = 65534;
};

Ids ChildIds(bool unprivileged) {
  Ids ids;
  if (!unprivileged || geteuid() != 0) return ids;
  ids.change = true;
  struct passwd pw, *res = nullptr;
  char buf[1024];
  if (getpwnam_r("nobody", &pw, buf, sizeof(buf), &res) == 0 && res) {
    ids.uid = pw.pw_uid;
    ids.gid = pw.pw_gid;
  }
  return ids;
}

Status PipeError(const char* what) { return Status(kErrInternal, std::string(what) + ": " + strerror(errno)); }

// A pipe whose ends close themselves.
struct Pipe {
  ScopedFd read, write;
  Status Open() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return PipeError("pipe");
    read.Reset(fds[0]);
    write.Reset(fds[1]);
    return Status::OK();
  }
};

// Everything the child needs, prepared before fork: between fork and exec
// the child only makes system calls.
struct Prepared {
  std::vector<char*> argv, envp;
  int in = -1, out = -1, err = -1, report = -1;
  int max_fd = 1024;
  pid_t parent = 0;
  Ids ids;
  ChildLimits limits;
};

void SetLimit(int resource, rlim_t soft, rlim_t hard) {
  struct rlimit rl = {soft, hard};
  setrlimit(resource, &rl);
}

// A copy of fd above the standard descriptors, so that moving the sources
// onto 0 to 3 cannot overwrite one with another.
int Above(int fd) { return fcntl(fd, F_DUPFD, 10); }

[[noreturn]] void Die(int report_fd, int err) {
  ssize_t w = write(report_fd, &err, sizeof(err));
  (void)w;
  _exit(127);
}

[[noreturn]] void ExecChild(const Prepared& p) {
  setpgid(0, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int sig : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGXCPU, SIGXFSZ}) signal(sig, SIG_DFL);
  int in = Above(p.in), out = Above(p.out), err = Above(p.err), report = Above(p.report);
  if (in < 0 || out < 0 || err < 0 || report < 0) Die(p.report, errno);
  if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || dup2(report, 3) < 0) Die(report, errno);
  fcntl(3, F_SETFD, FD_CLOEXEC);  // closed by a successful exec: the parent then reads nothing
  if (close_range(4, ~0U, 0) != 0) {
    for (int fd = 4; fd < p.max_fd; ++fd) close(fd);
  }
  SetLimit(RLIMIT_CORE, 0, 0);
  const ChildLimits& l = p.limits;
  if (l.memory_bytes && kLimitAddressSpace) SetLimit(RLIMIT_AS, l.memory_bytes, l.memory_bytes);
  if (l.seconds) SetLimit(RLIMIT_CPU, l.seconds + 1, l.seconds + 2);
  if (l.file_bytes) SetLimit(RLIMIT_FSIZE, l.file_bytes, l.file_bytes);
  if (p.ids.change) {
    if (setgroups(0, nullptr) != 0 || setresgid(p.ids.gid, p.ids.gid, p.ids.gid) != 0 ||
        setresuid(p.ids.uid, p.ids.uid, p.ids.uid) != 0)
      Die(3, errno);
  }
  // After the change of ids, which clears it.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != p.parent) _exit(127);  // the daemon died before the line above
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  execve(p.argv[0], p.argv.data(), p.envp.data());
  Die(3, errno);
}

std::vector<char*> Pointers(const std::vector<std::string>& strings) {
  std::vector<char*> out;
  for (const std::string& s : strings) out.push_back(const_cast<char*>(s.c_str()));
  out.push_back(nullptr);
  return out;
}

// Reads what fd has now into *to (keeping at most `keep` bytes, reading and
// dropping the rest); closes fd at end of file.
void Drain(ScopedFd* fd, std::string* to, size_t keep) {
  char buf[65536];
  while (fd->valid()) {
    ssize_t r = read(fd->get(), buf, sizeof(buf));
    if (r < 0 && errno == EINTR) continue;
    if (r < 0 && errno == EAGAIN) return;
    if (r <= 0) {
      fd->Reset();
      return;
    }
    size_t take = to->size() < keep ? std::min(keep - to->size(), static_cast<size_t>(r)) : 0;
    to->append(buf, take);
  }
}

bool Exited(pid_t pid) {
  siginfo_t info;
  info.si_pid = 0;
  return waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
}

// Waits until the child exits or the wait is given up; reads its output
// meanwhile. The child is not reaped here.
ChildEnd Wait(const ChildSpec& job, pid_t pid, ScopedFd* out, ScopedFd* err, ChildResult* result) {
  ScopedFd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  for (ScopedFd* fd : {out, err})
    if (fd->valid()) fcntl(fd->get(), F_SETFL, O_NONBLOCK);
  const bool timed = job.limits.seconds > 0;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(job.limits.seconds);
  for (;;) {
    struct pollfd fds[4];
    nfds_t n = 0;
    auto add = [&](int fd, short events) {
      fds[n] = {fd, events, 0};
      return fd >= 0 ? &fds[n++] : nullptr;
    };
    struct pollfd* exit_fd = add(pidfd.get(), POLLIN);
    add(out->get(), POLLIN);
    add(err->get(), POLLIN);
    struct pollfd* hangup = add(job.hangup_fd, POLLRDHUP);
    int wait_ms = -1;
    if (timed) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      wait_ms = static_cast<int>(std::max<int64_t>(0, left));
    }
    int tick = !pidfd.valid() ? kNoPidfdTickMs : job.cancelled ? kCancelTickMs : -1;
    if (tick >= 0 && (wait_ms < 0 || wait_ms > tick)) wait_ms = tick;
    if (poll(fds, n, wait_ms) < 0 && errno != EINTR) return ChildEnd::kCancelled;
    Drain(out, &result->out, job.capture_stdout);
    Drain(err, &result->err, kErrKeep);
    if (exit_fd ? (exit_fd->revents & POLLIN) != 0 : Exited(pid)) {
      Drain(out, &result->out, job.capture_stdout);
      Drain(err, &result->err, kErrKeep);
      return ChildEnd::kExited;
    }
    if (hangup && hangup->revents != 0) return ChildEnd::kHungUp;
    if (job.cancelled && job.cancelled()) return ChildEnd::kCancelled;
    if (timed && Clock::now() >= deadline) return ChildEnd::kTimedOut;
  }
}

}  // namespace

Status RunChild(const ChildSpec& job, ChildResult* result) {
  *result = ChildResult();
  if (job.argv.empty()) return Status(kErrInternal, "no program to run");
  Prepared p;
  p.argv = Pointers(job.argv);
  p.envp = Pointers(job.env);
  p.ids = ChildIds(job.limits.unprivileged);
  p.limits = job.limits;
  p.parent = getpid();
  long max_fd = sysconf(_SC_OPEN_MAX);
  if (max_fd > 0) p.max_fd = static_cast<int>(std::min<long>(max_fd, 1 << 20));
  ScopedFd devnull(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!devnull.valid()) return PipeError("open /dev/null");
  Pipe out, err, report;
  ORVEL_RETURN_IF_ERROR(err.Open());
  ORVEL_RETURN_IF_ERROR(report.Open());
  if (job.capture_stdout > 0) ORVEL_RETURN_IF_ERROR(out.Open());
  p.in = job.stdin_fd >= 0 ? job.stdin_fd : devnull.get();
  p.out = out.write.valid() ? out.write.get() : job.stdout_fd >= 0 ? job.stdout_fd : devnull.get();
  p.err = err.write.get();
  p.report = report.write.get();
  pid_t pid = fork();
  if (pid < 0) return PipeError("fork");
  if (pid == 0) ExecChild(p);
  setpgid(pid, pid);  // also here, so that the group exists before any kill below
  out.write.Reset();
  err.write.Reset();
  report.write.Reset();
  int exec_errno = 0;
  ssize_t got;
  do {
    got = read(report.read.get(), &exec_errno, sizeof(exec_errno));
  } while (got < 0 && errno == EINTR);
  ChildEnd end = got == static_cast<ssize_t>(sizeof(exec_errno))
                     ? ChildEnd::kExited
                     : Wait(job, pid, &out.read, &err.read, result);
  kill(-pid, SIGKILL);  // the child and anything it started; a no-op after a clean exit
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (got == static_cast<ssize_t>(sizeof(exec_errno))) return FsError("exec", job.argv[0], exec_errno);
  result->end = end;
  if (end == ChildEnd::kExited) {
    result->end = WIFEXITED(status) ? ChildEnd::kExited : ChildEnd::kSignalled;
    result->code = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
  }
  return Status::OK();
}

std::vector<std::string> InheritedChildEnv() {
  std::vector<std::string> env;
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* v = getenv(name)) env.push_back(std::string(name) + "=" + v);
  }
  return env;
}

}  // namespace orvel::syncd
