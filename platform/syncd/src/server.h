// Server: the daemon's unix socket. One accept loop, one thread per
// connection (at most kMaxConnections; more are answered -1103 and closed).
//
// Each connection checks its peer with SO_PEERCRED (root, the daemon's own
// uid and the configured web account are admitted; anyone else gets one
// -402 answer and is closed), then serves request/answer pairs in order.
// A frame that cannot be read (over 64 MiB, malformed msgpack, a time-out
// in the middle) gets an error answer where possible and closes the
// connection; a valid frame always gets an answer.
//
// Shutdown: RequestStop() (async-signal-safe) writes to a pipe that every
// poll() in the server watches. The accept loop stops accepting, idle
// connections close, a request being handled finishes and is answered, then
// Run() returns after joining every connection thread and removing the
// socket file.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "daemon.h"

namespace orvel::syncd {

class Server {
 public:
  static constexpr size_t kMaxConnections = 256;
  static constexpr int kIdleTimeoutSeconds = 300;

  explicit Server(Daemon* d) : d_(d) {}
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Binds the socket (a stale file is replaced) with mode 0666.
  Status Listen(const std::string& socket_path);
  // Serves until RequestStop(); then drains and returns.
  void Run();
  // Async-signal-safe.
  void RequestStop();

 private:
  void Serve(int fd, uint64_t id);
  bool WaitReadable(int fd);  // false on stop, idle time-out or error
  bool PeerAllowed(uid_t uid) const;
  void ReapFinished();

  Daemon* d_;
  std::string socket_path_;
  int listen_fd_ = -1;
  int stop_pipe_[2] = {-1, -1};

  std::mutex mu_;
  std::map<uint64_t, std::thread> threads_;
  std::vector<uint64_t> finished_;
  uint64_t next_id_ = 0;
};

}  // namespace orvel::syncd
