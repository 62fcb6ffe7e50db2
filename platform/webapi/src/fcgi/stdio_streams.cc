// Record-framing stdio streams; see stdio_streams.h. Single-threaded.
#include "fcgi/stdio_streams.h"

#include <errno.h>

namespace zemo::fcgi {

namespace {

template <uint8_t kType>
ssize_t WriteRecords(void* cookie, const char* buf, size_t size) {
  auto* conn = static_cast<Connection*>(cookie);
  if (!conn->WriteStream(kType, buf, size).ok()) {
    errno = EPIPE;
    return -1;
  }
  return static_cast<ssize_t>(size);
}

constexpr size_t kErrBuffer = 4096;

FILE* Open(Connection* conn, cookie_write_function_t* write, int mode, char* buffer, size_t size) {
  cookie_io_functions_t io = {nullptr, write, nullptr, nullptr};
  FILE* f = ::fopencookie(conn, "w", io);
  if (f != nullptr) std::setvbuf(f, buffer, mode, size);
  return f;
}

}  // namespace

StdioStreams::StdioStreams(Connection* conn)
    : conn_(conn), out_buffer_(new char[kMaxContent]),
      err_buffer_(new char[kErrBuffer]), saved_out_(stdout), saved_err_(stderr) {
  std::fflush(stdout);
  std::fflush(stderr);
  // A full record's worth of output per write; log lines go out one by one.
  out_ = Open(conn_, &WriteRecords<kStdout>, _IOFBF, out_buffer_.get(), kMaxContent);
  err_ = Open(conn_, &WriteRecords<kStderr>, _IOLBF, err_buffer_.get(), kErrBuffer);
  if (ok()) {
    stdout = out_;
    stderr = err_;
  }
}

StdioStreams::~StdioStreams() {
  stdout = saved_out_;
  stderr = saved_err_;
  if (out_ != nullptr) std::fclose(out_);
  if (err_ != nullptr) std::fclose(err_);
}

}  // namespace zemo::fcgi
