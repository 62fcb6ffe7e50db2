// ScopedFd: the one owner of a file descriptor for the daemon, the
// framework, the module, the archiver and the client library. It closes the
// descriptor when it goes out of scope. Movable, not copyable; one object is
// not thread-safe.
#pragma once

#include <unistd.h>

namespace orvel {

class ScopedFd {
 public:
  explicit ScopedFd(int fd = -1) : fd_(fd) {}
  ~ScopedFd() { Reset(); }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;
  ScopedFd(ScopedFd&& o) noexcept : fd_(o.release()) {}
  ScopedFd& operator=(ScopedFd&& o) noexcept {
    if (this != &o) Reset(o.release());
    return *this;
  }
  // Closes the descriptor held (close(2) is not retried on EINTR: on Linux
  // the descriptor is gone anyway) and takes fd.
  void Reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  int get() const { return fd_; }
  // Gives the descriptor up without closing it.
  int release() {
    int f = fd_;
    fd_ = -1;
    return f;
  }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_;
};

}  // namespace orvel
