// Low-level I/O helpers of the web API framework: the one place where errno
// becomes an orvel::Status (with the operation and the path attached), and read/write loops that retry EINTR and short
// transfers, and the stop-on-SIGTERM flag of the CGI process. Stateless
// apart from that flag and the descriptors callers own; thread-safe.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

#include "orvelcommon/scoped_fd.h"
#include "orvelcommon/status.h"

namespace zemo::io {

// The descriptors here are owned by orvel::ScopedFd (orvelcommon/scoped_fd.h).
using orvel::ScopedFd;

// errno (captured by the caller or read now) as a Status naming op and path.
orvel::Status Error(const std::string& op, const std::string& path, int err);
orvel::Status LastError(const std::string& op, const std::string& path);

// open(2) with EINTR retry.
orvel::Status Open(const std::string& path, int flags, mode_t mode, ScopedFd* out);
// read(2) with EINTR retry: bytes read (0 at end of file) or -1 with errno.
ssize_t ReadSome(int fd, void* buf, size_t len);
// Writes all len bytes, retrying EINTR and short writes. what names the
// destination in the error.
orvel::Status WriteAll(int fd, const void* data, size_t len, const std::string& what);
// Makes SIGTERM (what the web server sends a CGI whose client went away)
// end the request instead of the process: the handler only sets a flag,
// after which ReadSome and WriteAll stop retrying EINTR and fail, so that the
// request unwinds and its clean-up (temp files, download folders) runs.
void StopOnTerminate();
// True once SIGTERM arrived (after StopOnTerminate), or after RequestStop.
bool StopRequested();
// Sets the same flag for the current request only: the FastCGI worker's peer
// aborted the request or its connection failed.
void RequestStop();
// Clears the flag of the current request (the FastCGI worker, between
// requests). A SIGTERM that arrived is kept: see TerminateReceived.
void ClearStop();
// True once SIGTERM arrived: the FastCGI worker ends after its request.
bool TerminateReceived();
// Reads a whole (small) file into *out.
orvel::Status ReadFile(const std::string& path, std::string* out);
// Creates each missing folder of path (like mkdir -p) with the given mode.
orvel::Status MakeDirs(const std::string& path, mode_t mode);

// The identity and version of a file as stat(2) sees it.
struct FileStamp {
  bool exists = false;
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  struct timespec mtime = {0, 0}, ctime = {0, 0};

  static FileStamp Of(const std::string& path);
  bool Same(const FileStamp& o) const;
};

}  // namespace zemo::io
