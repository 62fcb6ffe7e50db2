// The FastCGI worker loop; see worker.h. Single-threaded.
#include "fcgi/worker.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "cgi/identity.h"
#include "cgi/serve.h"
#include "fcgi/connection.h"
#include "fcgi/stdio_streams.h"
#include "internal/log.h"
#include "nimbard/platform.h"
#include "orvelcommon/heap.h"
#include "orvelcommon/request_stat.h"

namespace zemo::fcgi {

namespace {

static constexpr char kLogSource[] = "fcgi";

// The request body: the STDIN records of the connection.
class StdinInput : public cgi::BodyInput {
 public:
  explicit StdinInput(Connection* conn) : conn_(conn) {}
  ssize_t Read(char* buf, size_t cap) override { return conn_->ReadBody(buf, cap); }

 private:
  Connection* conn_;
};

// What the worker starts with and puts back after every request: its umask
// and its folder (taken once, so a request costs no look-up of them).
struct WorkerBase {
  WorkerBase() : mask(::umask(022)), folder(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    ::umask(mask);
  }
  mode_t mask;
  io::ScopedFd folder;
};

// Everything a request may change in the process, put back when it ends.
class RequestScope {
 public:
  RequestScope(Connection* conn, const WorkerBase& base) : base_(base), stdio_(conn) {
    io::ClearStop();
    SetRequestLinkGrant("");
    io::SetRawOutput(conn);
  }
  ~RequestScope() {
    std::fflush(stdout);
    std::fflush(stderr);
    io::SetRawOutput(nullptr);
    SetRequestLinkGrant("");
    ::umask(base_.mask);
    if (base_.folder.valid() && ::fchdir(base_.folder.get()) != 0) {
      WEBAPI_LOG(Logger::kError, "cannot return to the worker's folder: %s", std::strerror(errno));
    }
    io::ClearStop();
  }
  RequestScope(const RequestScope&) = delete;
  RequestScope& operator=(const RequestScope&) = delete;
  bool ok() const { return stdio_.ok(); }

 private:
  const WorkerBase& base_;
  StdioStreams stdio_;  // last: the request's streams go first
};

cgi::CgiEnv EnvFromParams(const Pairs& params) {
  return cgi::ReadCgiEnv([&params](const char* name) -> const char* {
    for (const auto& [k, v] : params) {
      if (k == name) return v.c_str();
    }
    return nullptr;
  });
}

// The sockets of the last few finished connections, closed only when newer
// ones push them out. lighttpd reads an answer 16 KiB at a time while it
// sends to the client, holding at most 64 KiB; but once the worker has hung
// up it drains what the socket still holds in one go, and whatever passes
// 64 KiB goes through a temp file on disk (a 100-item listing: a file
// created, written, sent and unlinked per request). lighttpd ends the
// request at END_REQUEST and closes its side itself, so by the time kSlots
// more connections have ended, closing ours only frees the descriptor.
class DeferredCloses {
 public:
  void Add(io::ScopedFd fd) {
    slots_[next_] = std::move(fd);  // closes the oldest
    next_ = (next_ + 1) % kSlots;
  }

 private:
  static constexpr size_t kSlots = 8;
  io::ScopedFd slots_[kSlots];
  size_t next_ = 0;
};

// Serves one request whose parameters are in; false when the connection
// cannot be used further.
void ServeOne(Connection* conn, const WorkerBase& base, cgi::WorkerCache* cache) {
  {
    RequestScope scope(conn, base);
    if (!scope.ok()) {
      WEBAPI_LOG(Logger::kError, "cannot make the request's output streams: %s", std::strerror(errno));
    } else {
      cgi::CgiEnv env = EnvFromParams(conn->params());
      StdinInput body(conn);
      cgi::ServeRequest(env, &body, cache);
    }
  }
  if (conn->keep_conn() && conn->usable()) {
    orvel::Status st = conn->DrainBody();
    if (!st.ok()) WEBAPI_LOG(Logger::kInfo, "request body not drained: %s", st.ToString().c_str());
  }
  orvel::Status st = conn->EndRequest(0);
  if (!st.ok()) WEBAPI_LOG(Logger::kInfo, "end of request not sent: %s", st.ToString().c_str());
}

}  // namespace

bool StartedAsFastCgi() {
  int listening = 0;
  socklen_t len = sizeof(listening);
  return ::getsockopt(0, SOL_SOCKET, SO_ACCEPTCONN, &listening, &len) == 0 && listening != 0;
}

int RunWorker() {
  const char* fault = std::getenv("ORVEL_FAULT");
  if (fault != nullptr && std::strcmp(fault, "identity_restore") == 0) cgi::SetIdentityRestoreFault(true);
  const cgi::ProcessIdentity start = cgi::ProcessIdentity::Current();
  orvel::KeepFreedHeapForReuse();
  orvel::KeepStatsBetweenRequests(true);  // the files every request checks, watched instead
  cgi::WorkerCache cache;
  const WorkerBase base;
  WEBAPI_LOG(Logger::kInfo, "FastCGI worker ready (%s)", start.ToString().c_str());
  DeferredCloses finished;
  while (!io::TerminateReceived()) {
    int fd = ::accept4(0, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      WEBAPI_LOG(Logger::kCrit, "accept on the FastCGI socket: %s", std::strerror(errno));
      return 1;
    }
    Connection conn(fd);
    for (;;) {
      bool got = false;
      orvel::Status st = conn.NextRequest(&got);
      if (!st.ok()) WEBAPI_LOG(Logger::kError, "FastCGI connection closed: %s", st.ToString().c_str());
      if (!st.ok() || !got) break;
      ServeOne(&conn, base, &cache);
      // Never serve a request with what another one left behind.
      cgi::ProcessIdentity now = cgi::ProcessIdentity::Current();
      if (!now.Same(start)) {
        WEBAPI_LOG(Logger::kCrit, "identity not restored after a request (%s, expected %s): the worker ends",
                   now.ToString().c_str(), start.ToString().c_str());
        return 1;
      }
      if (!conn.keep_conn() || !conn.usable() || io::TerminateReceived()) break;
    }
    finished.Add(conn.TakeSocket());
  }
  return 0;
}

}  // namespace zemo::fcgi
