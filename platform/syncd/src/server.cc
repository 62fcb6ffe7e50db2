// See server.h.
#include "server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "dispatch.h"
#include "log.h"
#include "orvelcommon/wire.h"

namespace orvel::syncd {

Server::~Server() {
  if (listen_fd_ >= 0) close(listen_fd_);
  for (int fd : stop_pipe_) {
    if (fd >= 0) close(fd);
  }
}

Status Server::Listen(const std::string& socket_path) {
  if (pipe2(stop_pipe_, O_CLOEXEC | O_NONBLOCK) != 0) return FsError("pipe", "stop pipe", errno);
  struct sockaddr_un addr;
  memset(&addr, 0, sizeof(addr));
  addr.sun_family = AF_UNIX;
  if (socket_path.size() >= sizeof(addr.sun_path))
    return Status(kErrInvalidArgument, "socket path too long: " + socket_path);
  memcpy(addr.sun_path, socket_path.c_str(), socket_path.size() + 1);
  listen_fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listen_fd_ < 0) return FsError("socket", socket_path, errno);
  // The pid-file lock guarantees no other daemon uses this root: a socket
  // file that exists now is a leftover.
  if (unlink(socket_path.c_str()) != 0 && errno != ENOENT) return FsError("unlink", socket_path, errno);
  if (bind(listen_fd_, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0)
    return FsError("bind", socket_path, errno);
  socket_path_ = socket_path;
  if (chmod(socket_path.c_str(), 0666) != 0) return FsError("chmod", socket_path, errno);
  if (listen(listen_fd_, 128) != 0) return FsError("listen", socket_path, errno);
  return Status::OK();
}

void Server::RequestStop() {
  char c = 1;
  if (stop_pipe_[1] >= 0) {
    ssize_t r = write(stop_pipe_[1], &c, 1);
    (void)r;
  }
}

bool Server::PeerAllowed(uid_t uid) const {
  return uid == 0 || uid == d_->self_uid || uid == d_->web_uid;
}

bool Server::WaitReadable(int fd) {
  struct pollfd fds[2] = {{fd, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
  for (;;) {
    int r = poll(fds, 2, kIdleTimeoutSeconds * 1000);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) return false;  // error or idle time-out
    if (fds[1].revents) return false;  // stopping: do not start a new request
    return fds[0].revents != 0;
  }
}

void Server::Serve(int fd, uint64_t id) {
  struct ucred cred;
  socklen_t len = sizeof(cred);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || !PeerAllowed(cred.uid)) {
    uid_t uid = len == sizeof(cred) ? cred.uid : static_cast<uid_t>(-1);
    SLOG_WARN("refused peer uid %d pid %d", static_cast<int>(uid), static_cast<int>(cred.pid));
    wire::WriteFrame(fd, wire::ErrorAnswer(Status(kErrPermission, "peer uid " + std::to_string(uid) +
                                                                      " may not use the service")));
  } else {
    struct timeval tv = {kIdleTimeoutSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    while (WaitReadable(fd)) {
      PObject request;
      bool eof = false;
      Status st = wire::ReadFrame(fd, &request, &eof);
      if (eof) break;
      if (!st.ok()) {
        // Oversized or malformed: answer, then close (the stream position
        // is unknown). Time-outs and I/O errors just close.
        if (st.code() == kErrInvalidArgument) {
          SLOG_WARN("bad frame from pid %d: %s", static_cast<int>(cred.pid), st.ToString().c_str());
          wire::WriteFrame(fd, wire::ErrorAnswer(st));
        }
        break;
      }
      PObject answer = Dispatch(d_, cred.uid, request, fd);
      if (!wire::WriteFrame(fd, answer).ok()) break;
    }
  }
  close(fd);
  std::lock_guard<std::mutex> lock(mu_);
  finished_.push_back(id);
}

void Server::ReapFinished() {
  std::vector<std::thread> done;
  {
    std::lock_guard<std::mutex> lock(mu_);
    for (uint64_t id : finished_) {
      auto it = threads_.find(id);
      if (it != threads_.end()) {
        done.push_back(std::move(it->second));
        threads_.erase(it);
      }
    }
    finished_.clear();
  }
  for (auto& t : done) t.join();
}

void Server::Run() {
  SLOG_INFO("listening on %s", socket_path_.c_str());
  struct pollfd fds[2] = {{listen_fd_, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
  for (;;) {
    int r = poll(fds, 2, 1000);
    ReapFinished();
    if (r < 0 && errno != EINTR) {
      SLOG_ERROR("poll: %s", strerror(errno));
      break;
    }
    if (r <= 0) continue;
    if (fds[1].revents) break;
    if (!(fds[0].revents & POLLIN)) continue;
    int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno != EINTR && errno != EAGAIN && errno != ECONNABORTED)
        SLOG_ERROR("accept: %s", strerror(errno));
      if (errno == EMFILE || errno == ENFILE) usleep(100 * 1000);
      continue;
    }
    std::lock_guard<std::mutex> lock(mu_);
    if (threads_.size() >= kMaxConnections) {
      wire::WriteFrame(fd, wire::ErrorAnswer(Status(kErrBusy, "too many connections")));
      close(fd);
      continue;
    }
    uint64_t id = next_id_++;
    try {
      threads_.emplace(id, std::thread([this, fd, id] { Serve(fd, id); }));
    } catch (const std::system_error& e) {
      SLOG_ERROR("cannot start a connection thread: %s", e.what());
      close(fd);
    }
  }
  SLOG_INFO("stopping: no new connections; finishing requests in flight");
  close(listen_fd_);
  listen_fd_ = -1;
  if (!socket_path_.empty()) unlink(socket_path_.c_str());
  std::map<uint64_t, std::thread> all;
  {
    std::lock_guard<std::mutex> lock(mu_);
    all.swap(threads_);
  }
  for (auto& kv : all) kv.second.join();
  finished_.clear();
}

}  // namespace orvel::syncd
