// Points the process's stdout and stderr, for one request, at streams that
// frame what is written into FCGI_STDOUT and FCGI_STDERR records on the
// connection: what modules print with printf (headers, bodies), the JSON
// answer and the log lines of Logger all reach the web server the same way
// as in CGI mode. The originals come back, flushed, when the object goes
// away. Single-threaded.
#pragma once

#include <cstdio>
#include <memory>

#include "fcgi/connection.h"

namespace zemo::fcgi {

class StdioStreams {
 public:
  explicit StdioStreams(Connection* conn);
  ~StdioStreams();
  StdioStreams(const StdioStreams&) = delete;
  StdioStreams& operator=(const StdioStreams&) = delete;

  // False when the streams could not be made (stdout and stderr are then
  // the originals and the request must not be served).
  bool ok() const { return out_ != nullptr && err_ != nullptr; }

 private:
  Connection* conn_;
  // The streams' buffers. glibc keeps the size given to setvbuf only with a
  // buffer of the caller's; without one it allocates BUFSIZ (8 KiB) and
  // every answer over 8 KiB went out in one more record and write.
  std::unique_ptr<char[]> out_buffer_;
  std::unique_ptr<char[]> err_buffer_;
  FILE* saved_out_;
  FILE* saved_err_;
  FILE* out_ = nullptr;
  FILE* err_ = nullptr;
};

}  // namespace zemo::fcgi
