// Where the framework moves the bytes of a raw answer (headers printed by a
// module, a file, a pipe): fd 1 in CGI mode, where nothing is installed; the
// FastCGI worker installs, for each request, an output that frames them as
// records on its connection without copying file and pipe contents through
// user space. Process-wide; used from the single request thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "orvelcommon/status.h"

namespace zemo::io {

class RawOutput {
 public:
  virtual ~RawOutput() = default;
  // Writes len bytes (headers, buffered output).
  virtual orvel::Status Write(const void* data, size_t len) = 0;
  // Sends len bytes of a regular file from its current offset; *done says
  // how many went out (fewer when the file shrank).
  virtual orvel::Status SendFile(int fd, uint64_t len, uint64_t* done) = 0;
  // Moves what a pipe delivers until its writer closes it.
  virtual orvel::Status SplicePipe(int fd) = 0;
};

// The installed output; null in CGI mode (write to fd 1).
RawOutput* CurrentRawOutput();
// Installs an output (null: back to fd 1). Not owned.
void SetRawOutput(RawOutput* output);

}  // namespace zemo::io
