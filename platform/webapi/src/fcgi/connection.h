// One accepted FastCGI connection of the worker: reads records through the
// Decoder (answering management records and refusals at once), hands the
// request's parameters over, streams the request body straight from the
// socket into the reader's buffer, and writes STDOUT/STDERR/END_REQUEST
// records. Files go out with sendfile(2) and pipes with splice(2), a record
// header before each run of at most kStreamRecord bytes, so their contents
// never pass through user space; while they go, the socket's send buffer is
// kept small (StreamPacing) so that lighttpd never holds more than 64 KiB
// of the answer in its queue, past which it copies the rest through temp
// files on disk. A failed write, an ABORT_REQUEST or a hang-up
// while the body is read sets the request's stop flag (io::RequestStop),
// which unwinds the request as SIGTERM does in CGI mode. Owns the socket.
// Single-threaded.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "fcgi/decoder.h"
#include "internal/io.h"
#include "internal/raw_output.h"

namespace zemo::fcgi {

class Connection : public io::RawOutput {
 public:
  explicit Connection(int fd);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Reads until a request's parameters are all in: *got true. *got false
  // when the peer closed the connection between requests. An error status
  // for a protocol error or a failed read (close the connection then).
  orvel::Status NextRequest(bool* got);
  const Pairs& params() const { return decoder_.params(); }
  bool keep_conn() const { return decoder_.keep_conn(); }
  // Whether the connection may still be used (no failed read or write).
  bool usable() const { return !broken_; }
  // Hands the socket over (for a close deferred by the caller); the
  // connection is unusable afterwards.
  io::ScopedFd TakeSocket() {
    broken_ = true;
    return std::move(fd_);
  }

  // Body bytes of the open request into buf: how many, 0 at its end, -1
  // with errno (ECONNABORTED when the peer aborted, ECONNRESET when it
  // hung up, EPIPE when the request is stopping).
  ssize_t ReadBody(char* buf, size_t cap);
  // Reads and drops what is left of the body (before the next request on a
  // kept connection).
  orvel::Status DrainBody();

  // A stream's bytes as records of that type (kStdout or kStderr).
  orvel::Status WriteStream(uint8_t type, const void* data, size_t len);
  // The end of the request: the empty STDOUT and STDERR records and
  // END_REQUEST with app_status. Then the decoder is ready for the next one.
  orvel::Status EndRequest(uint32_t app_status);

  // io::RawOutput: the request's STDOUT.
  orvel::Status Write(const void* data, size_t len) override;
  orvel::Status SendFile(int fd, uint64_t len, uint64_t* done) override;
  orvel::Status SplicePipe(int fd) override;

  // Content bytes per record of a file or pipe stream, and the socket send
  // buffer asked for meanwhile. lighttpd reads the backend only while less
  // than 64 KiB wait for the client, reads what the socket holds, and
  // appends each whole record: with at most two 32 KiB records in the
  // socket, the queue stays within 64 KiB and in memory.
  static constexpr size_t kStreamRecord = 32768 - kHeaderLen;
  static constexpr int kStreamSendBuffer = 32768;

 private:
  // Up to len bytes: what was read ahead first, else from the socket.
  ssize_t ReadSome(void* buf, size_t len);
  ssize_t ReadBodyContent(char* buf, size_t cap);
  orvel::Status ReadExact(void* buf, size_t len);
  orvel::Status Skip(size_t len);
  // Reads one record whole into content_ and passes it to the decoder.
  orvel::Status ReadRecord(const Header& h, Decoder::Outcome* out);
  orvel::Status ReadHeader(Header* h);
  orvel::Status WriteAllRaw(const void* data, size_t len);
  orvel::Status WriteHeader(uint8_t type, size_t len);
  orvel::Status Fail(orvel::Status st);

  io::ScopedFd fd_;
  Decoder decoder_;
  std::vector<uint8_t> content_;
  size_t body_left_ = 0;     // content bytes of the current STDIN record not read yet
  size_t padding_left_ = 0;  // its padding
  // Bytes read from the socket before they were asked for, consumed before
  // the socket is read again: a small read (a record header, parameters, a
  // short record) fills it with one read of whatever the socket holds, so a
  // request's opening records cost one read instead of two per record; and
  // a STDIN record's content is read together with its padding and the next
  // header. Reads of kAheadCapacity or more go straight to the caller.
  static constexpr size_t kAheadCapacity = 16384;
  std::vector<uint8_t> ahead_;
  size_t ahead_pos_ = 0;
  size_t ahead_len_ = 0;
  bool broken_ = false;
};

}  // namespace zemo::fcgi
