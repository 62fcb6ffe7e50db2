// Low-level I/O helpers; see io.h. Thread-safe.
#include "internal/io.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "internal/raw_output.h"
#include "orvelcommon/request_stat.h"

namespace zemo::io {

orvel::Status Error(const std::string& op, const std::string& path, int err) {
  return orvel::ErrnoStatus(op, path, err);
}

orvel::Status LastError(const std::string& op, const std::string& path) {
  return Error(op, path, errno);
}

orvel::Status Open(const std::string& path, int flags, mode_t mode, ScopedFd* out) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return LastError("open", path);
  out->Reset(fd);
  return orvel::Status::OK();
}

namespace {
volatile sig_atomic_t g_stop = 0;
volatile sig_atomic_t g_terminate = 0;
void OnTerminate(int) {
  g_stop = 1;
  g_terminate = 1;
}
}  // namespace

void StopOnTerminate() {
  struct sigaction sa = {};
  sa.sa_handler = OnTerminate;  // no SA_RESTART: blocked calls return EINTR
  sigemptyset(&sa.sa_mask);
  ::sigaction(SIGTERM, &sa, nullptr);
}

bool StopRequested() { return g_stop != 0; }
void RequestStop() { g_stop = 1; }
void ClearStop() { g_stop = g_terminate; }
bool TerminateReceived() { return g_terminate != 0; }

ssize_t ReadSome(int fd, void* buf, size_t len) {
  ssize_t n;
  do {
    n = ::read(fd, buf, len);
  } while (n < 0 && errno == EINTR && !g_stop);
  return n;
}

orvel::Status WriteAll(int fd, const void* data, size_t len, const std::string& what) {
  const char* p = static_cast<const char*>(data);
  while (len > 0) {
    if (g_stop) return Error("write", what, EPIPE);
    ssize_t n = ::write(fd, p, len);
    if (n < 0) {
      if (errno == EINTR) continue;
      return LastError("write", what);
    }
    p += n;
    len -= static_cast<size_t>(n);
  }
  return orvel::Status::OK();
}

orvel::Status ReadFile(const std::string& path, std::string* out) {
  ScopedFd fd;
  ORVEL_RETURN_IF_ERROR(Open(path, O_RDONLY, 0, &fd));
  out->clear();
  char buf[8192];
  for (;;) {
    ssize_t n = ReadSome(fd.get(), buf, sizeof(buf));
    if (n < 0) return LastError("read", path);
    if (n == 0) return orvel::Status::OK();
    out->append(buf, static_cast<size_t>(n));
  }
}

orvel::Status MakeDirs(const std::string& path, mode_t mode) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos != path.size() && path[pos] != '/') continue;
    std::string prefix = path.substr(0, pos);
    if (::mkdir(prefix.c_str(), mode) != 0 && errno != EEXIST) return LastError("mkdir", prefix);
  }
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return LastError("stat", path);
  if (!S_ISDIR(st.st_mode)) return Error("mkdir", path, ENOTDIR);
  return orvel::Status::OK();
}

FileStamp FileStamp::Of(const std::string& path) {
  FileStamp s;
  struct stat st;
  if (orvel::RequestStat(path, &st) != 0) return s;
  s.exists = true;
  s.dev = st.st_dev;
  s.ino = st.st_ino;
  s.size = st.st_size;
  s.mtime = st.st_mtim;
  s.ctime = st.st_ctim;
  return s;
}

bool FileStamp::Same(const FileStamp& o) const {
  return exists == o.exists && dev == o.dev && ino == o.ino && size == o.size &&
         mtime.tv_sec == o.mtime.tv_sec && mtime.tv_nsec == o.mtime.tv_nsec &&
         ctime.tv_sec == o.ctime.tv_sec && ctime.tv_nsec == o.ctime.tv_nsec;
}

}  // namespace zemo::io

namespace zemo::io {
namespace {
RawOutput* g_raw_output = nullptr;
}  // namespace

RawOutput* CurrentRawOutput() { return g_raw_output; }
void SetRawOutput(RawOutput* output) { g_raw_output = output; }

}  // namespace zemo::io
