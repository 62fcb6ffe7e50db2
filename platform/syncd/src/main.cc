// orvel-syncd: the sync service daemon. Reads the package configuration
// (under ZEMO_ROOT), creates the data folder layout, takes the pid-file
// lock, migrates the database, takes back writes that died before their
// commit, cleans old temp files and unfinished thumbnails, reconciles tree
// and database, deletes for good what the recycle bin kept too long, then serves the unix socket until SIGTERM or SIGINT.
//
// Threads: main (accept loop), one per connection, the job runner, and a
// signal thread that turns SIGTERM/SIGINT into Server::RequestStop().
#include <fcntl.h>
#include <sqlite3.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "daemon.h"
#include "fault.h"
#include "intent.h"
#include "recycle.h"
#include "jobs.h"
#include "log.h"
#include "orvelcommon/heap.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/zemo_root.h"
#include "reconcile.h"
#include "server.h"
#include "tasks.h"
#include "thumbnail.h"

namespace orvel::syncd {
namespace {

Status MakeDirs(const std::string& path, mode_t mode) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos == path.size() || path[pos] == '/') {
      std::string part = path.substr(0, pos);
      if (mkdir(part.c_str(), mode) != 0 && errno != EEXIST) return FsError("mkdir", part, errno);
    }
  }
  return Status::OK();
}

std::string DirOf(const std::string& p) { return p.substr(0, p.find_last_of('/')); }

// The pid file, locked for the daemon's lifetime: a second daemon on the same
// root fails here instead of stealing the socket.
class PidFile {
 public:
  ~PidFile() {
    if (fd_ >= 0) {
      unlink(path_.c_str());
      close(fd_);
    }
  }
  Status Acquire(const std::string& path) {
    path_ = path;
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ < 0) return FsError("open", path, errno);
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
      char buf[32] = {0};
      ssize_t r = pread(fd_, buf, sizeof(buf) - 1, 0);
      (void)r;
      close(fd_);
      fd_ = -1;
      return Status(kErrBusy, "another orvel-syncd is running (pid " + std::string(buf, strcspn(buf, "\n")) +
                                  ", " + path + ")");
    }
    std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd_, 0) != 0 || pwrite(fd_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size()))
      return FsError("write", path, errno);
    return Status::OK();
  }

 private:
  std::string path_;
  int fd_ = -1;
};

int Usage(FILE* out) {
  fprintf(out,
          "usage: orvel-syncd [--foreground]\n"
          "  The sync service daemon. Runs in the foreground and logs to stderr.\n"
          "  ZEMO_ROOT (environment) is the root of every fixed path.\n");
  return out == stdout ? 0 : 2;
}

int Main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--foreground" || a == "-f") continue;
    if (a == "--help" || a == "-h") return Usage(stdout);
    fprintf(stderr, "orvel-syncd: unknown argument '%s'\n", a.c_str());
    return Usage(stderr);
  }
  KeepFreedHeapForReuse();
  // No global count of SQLite's allocations: it takes a process-wide mutex
  // on every allocation of every connection thread, and nothing reads it.
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  LogSetDebugFile((orvel::PackageTarget() + "/etc/syncfolder.debug").c_str());

  Status fault_st = fault::Configure(getenv("ORVEL_FAULT"));
  if (!fault_st.ok()) {
    SLOG_ERROR("%s", fault_st.ToString().c_str());
    return 1;
  }
  SyncConfigMgr config;
  if (config.Init() != 0) {
    SLOG_ERROR("cannot read the configuration %s", config.GetConfigPath().c_str());
    return 1;
  }
  std::unique_ptr<Daemon> d;
  Status st = Daemon::FromConfig(config, &d);
  if (st.ok()) st = d->layout.Create();
  if (st.ok()) st = d->dirs.Open(d->layout);
  if (st.ok()) st = MakeDirs(config.GetWorkingDirPath(), 0755);
  if (st.ok()) st = MakeDirs(DirOf(config.GetSyncDbPath()), 0755);
  std::string socket_path = config.GetSocketPath();
  if (st.ok() && mkdir(DirOf(socket_path).c_str(), 01777) == 0) chmod(DirOf(socket_path).c_str(), 01777);
  if (st.ok()) st = MakeDirs(DirOf(socket_path), 0755);
  if (!st.ok()) {
    SLOG_ERROR("start-up: %s", st.ToString().c_str());
    return 1;
  }
  PidFile pid;
  st = pid.Acquire(config.GetWorkingDirPath() + "/orvel-syncd.pid");
  if (!st.ok()) {
    SLOG_ERROR("%s", st.ToString().c_str());
    return 1;
  }
  SLOG_INFO("starting: data %s, database %s, uid %d", d->layout.data.c_str(),
            config.GetSyncDbPath().c_str(), static_cast<int>(d->self_uid));
  {
    StoreLease store;  // opens and migrates
    st = d->pool->Acquire(&store);
    if (!st.ok()) {
      SLOG_ERROR("database: %s", st.ToString().c_str());
      return 1;
    }
    // Writes that died before their commit are taken back before anything
    // looks at the tree.
    st = RecoverIntents(d->layout, store.get());
    if (!st.ok()) SLOG_ERROR("recovering interrupted writes: %s", st.ToString().c_str());
  }
  // Unfinished thumbnails go before the socket opens: the cache is the
  // daemon's own and small, and nothing may find a half-written one.
  int unfinished = 0;
  RemoveStaleThumbTemps(d->layout.thumbs, &unfinished);
  if (unfinished) SLOG_INFO("removed %d unfinished thumbnails", unfinished);
  // The state page before the socket: a client connected to this daemon
  // only ever finds this daemon's page. Without it clients ask instead.
  {
    StoreLease store;
    st = d->pool->Acquire(&store);
    if (st.ok()) st = d->service.StartPage(store.get(), StatePagePath(socket_path));
    if (!st.ok()) SLOG_WARN("no service state page: %s", st.ToString().c_str());
  }
  // Listen first: clients that connect during reconciliation wait in the
  // backlog and are served once it is done.
  Server server(d.get());
  st = server.Listen(socket_path);
  if (!st.ok()) {
    SLOG_ERROR("socket: %s", st.ToString().c_str());
    return 1;
  }
  int removed = 0;
  CleanTmp(*d, 24 * 3600, &removed);
  if (removed) SLOG_INFO("removed %d temp entries older than a day", removed);
  ReconcileStats rs;
  st = ReconcileAll(*d, &rs);
  if (!st.ok()) SLOG_ERROR("reconcile: %s", st.ToString().c_str());
  SLOG_INFO("reconciled %llu folders: %llu added, %llu updated, %llu revived, %llu vanished, %llu skipped",
            (unsigned long long)rs.folders, (unsigned long long)rs.added, (unsigned long long)rs.updated,
            (unsigned long long)rs.revived, (unsigned long long)rs.vanished, (unsigned long long)rs.skipped);
  // Items kept in the recycle bin longer than recycle_keep_days go for good
  // before the first request is served (then hourly, in the job worker).
  PurgeExpired(*d);

  // Signals: blocked in every thread, taken by one waiter.
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);

  JobRunner jobs(d.get());
  d->jobs = &jobs;
  jobs.Start();
  // Tasks: interrupted ones are requeued or failed before the workers start.
  TaskRunner tasks(d.get(), config.GetWorkerThreads());
  st = tasks.Open();
  if (!st.ok()) {
    SLOG_ERROR("tasks: %s", st.ToString().c_str());
    return 1;
  }
  d->tasks = &tasks;
  tasks.Start();
  fault::Arm();
  std::atomic<bool> signalled{false};
  std::thread waiter([&server, &signalled, set] {
    for (;;) {
      int sig = 0;
      if (sigwait(&set, &sig) != 0) continue;
      if (sig == SIGHUP) {
        SLOG_INFO("SIGHUP ignored (nothing to reload)");
        continue;
      }
      if (sig == 0) return;  // never sent by the kernel
      SLOG_INFO("signal %d: shutting down", sig);
      signalled = true;
      server.RequestStop();
      return;
    }
  });
  server.Run();
  // Wake the waiter if the server stopped for another reason.
  if (!signalled) pthread_kill(waiter.native_handle(), SIGTERM);
  waiter.join();
  tasks.Stop();
  d->tasks = nullptr;
  jobs.Stop();
  d->jobs = nullptr;
  d->pool->CloseIdle();
  d->users->CloseIdle();
  SLOG_INFO("stopped");
  return 0;
}

}  // namespace
}  // namespace orvel::syncd

int main(int argc, char** argv) { return orvel::syncd::Main(argc, argv); }
