// Points the process's stdout and stderr, for one request, at streams that
// frame what is written into FCGI_STDOUT and FCGI_STDERR records on the
// connection: what modules print with printf (headers, bodies), the JSON
// answer and the log lines of Logger all reach the web server the same way
// as in CGI mode. The originals come back, flushed, when the object goes
// away. Single-threaded.
#pragma once

#include <cstdio>

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
  FILE* saved_out_;
  FILE* saved_err_;
  FILE* out_ = nullptr;
  FILE* err_ = nullptr;
};

}  // namespace zemo::fcgi
