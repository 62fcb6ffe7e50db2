// A FastCGI connection of the worker; see connection.h. Single-threaded.
#include "fcgi/connection.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace zemo::fcgi {

namespace {
constexpr char kWhat[] = "FastCGI connection";

// Writes everything whatever the stop flag says (the end of a stopped
// request must still reach the peer).
orvel::Status WriteEvenWhenStopping(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return io::LastError("write", kWhat);
    done += static_cast<size_t>(n);
  }
  return orvel::Status::OK();
}

// Shrinks the socket's send buffer for one file or pipe stream and gives the
// connection its own size back afterwards (the kernel reports the doubled
// value it keeps, and doubles what it is given). Best effort both ways: a
// larger buffer only costs lighttpd temp files.
class StreamPacing {
 public:
  explicit StreamPacing(int fd) : fd_(fd) {
    socklen_t len = sizeof(saved_);
    if (::getsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &saved_, &len) != 0) saved_ = 0;
    if (saved_ > 0) Set(Connection::kStreamSendBuffer);
  }
  ~StreamPacing() {
    if (saved_ > 0) Set(saved_ / 2);
  }
  StreamPacing(const StreamPacing&) = delete;
  StreamPacing& operator=(const StreamPacing&) = delete;

 private:
  void Set(int size) { ::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size)); }
  int fd_;
  int saved_ = 0;
};
}  // namespace

Connection::Connection(int fd) : fd_(fd), content_(kMaxContent + 255), ahead_(kAheadCapacity) {}

orvel::Status Connection::Fail(orvel::Status st) {
  broken_ = true;
  io::RequestStop();
  return st;
}

ssize_t Connection::ReadSome(void* buf, size_t len) {
  if (ahead_len_ == 0) {
    if (len >= ahead_.size()) return io::ReadSome(fd_.get(), buf, len);
    const ssize_t got = io::ReadSome(fd_.get(), ahead_.data(), ahead_.size());
    if (got <= 0) return got;
    ahead_pos_ = 0;
    ahead_len_ = static_cast<size_t>(got);
  }
  const size_t n = std::min(len, ahead_len_);
  std::memcpy(buf, ahead_.data() + ahead_pos_, n);
  ahead_pos_ += n;
  ahead_len_ -= n;
  return static_cast<ssize_t>(n);
}

// The rest of a STDIN record's content into buf, with its padding and the
// next record's header (read ahead into ahead_) in the same call when buf
// has room: one read per body record instead of two.
ssize_t Connection::ReadBodyContent(char* buf, size_t cap) {
  if (cap < body_left_ || ahead_len_ != 0) return ReadSome(buf, std::min(cap, body_left_));
  struct iovec iov[2] = {{buf, body_left_}, {ahead_.data(), padding_left_ + kHeaderLen}};
  ssize_t n;
  do {
    n = ::readv(fd_.get(), iov, 2);
  } while (n < 0 && errno == EINTR && !io::StopRequested());
  if (n > static_cast<ssize_t>(body_left_)) {
    ahead_pos_ = 0;
    ahead_len_ = static_cast<size_t>(n) - body_left_;
    n = static_cast<ssize_t>(body_left_);
  }
  return n;
}

orvel::Status Connection::ReadExact(void* buf, size_t len) {
  char* p = static_cast<char*>(buf);
  while (len > 0) {
    ssize_t n = ReadSome(p, len);
    if (n < 0) return Fail(io::LastError("read", kWhat));
    if (n == 0) return Fail(io::Error("read", kWhat, ECONNRESET));
    p += n;
    len -= static_cast<size_t>(n);
  }
  return orvel::Status::OK();
}

orvel::Status Connection::Skip(size_t len) {
  uint8_t scratch[256];
  while (len > 0) {
    size_t step = std::min(len, sizeof(scratch));
    ORVEL_RETURN_IF_ERROR(ReadExact(scratch, step));
    len -= step;
  }
  return orvel::Status::OK();
}

orvel::Status Connection::ReadHeader(Header* h) {
  uint8_t raw[kHeaderLen];
  ORVEL_RETURN_IF_ERROR(ReadExact(raw, sizeof(raw)));
  orvel::Status st = ParseHeader(raw, h);
  return st.ok() ? st : Fail(st);
}

orvel::Status Connection::ReadRecord(const Header& h, Decoder::Outcome* out) {
  ORVEL_RETURN_IF_ERROR(ReadExact(content_.data(), h.content_length + h.padding_length));
  orvel::Status st = decoder_.OnRecord(h, content_.data(), out);
  if (!st.ok()) return Fail(st);
  if (out->event == Decoder::Event::kReply) {
    ORVEL_RETURN_IF_ERROR(WriteAllRaw(out->reply.data(), out->reply.size()));
  }
  return orvel::Status::OK();
}

orvel::Status Connection::NextRequest(bool* got) {
  *got = false;
  for (;;) {
    uint8_t raw[kHeaderLen];
    ssize_t n = ReadSome(raw, 1);
    if (n == 0 && !decoder_.in_request()) return orvel::Status::OK();
    if (n < 0) return Fail(io::LastError("read", kWhat));
    if (n == 0) return Fail(io::Error("read", kWhat, ECONNRESET));
    ORVEL_RETURN_IF_ERROR(ReadExact(raw + 1, kHeaderLen - 1));
    Header h;
    orvel::Status st = ParseHeader(raw, &h);
    if (!st.ok()) return Fail(st);
    Decoder::Outcome out;
    ORVEL_RETURN_IF_ERROR(ReadRecord(h, &out));
    if (out.event == Decoder::Event::kRequestReady) {
      *got = true;
      return orvel::Status::OK();
    }
  }
}

ssize_t Connection::ReadBody(char* buf, size_t cap) {
  while (body_left_ == 0) {
    if (broken_ || io::StopRequested()) {
      errno = EPIPE;
      return -1;
    }
    if (!Skip(padding_left_).ok()) return -1;
    padding_left_ = 0;
    if (decoder_.body_ended()) return 0;
    Header h;
    if (!ReadHeader(&h).ok()) return -1;
    if (decoder_.IsBodyRecord(h)) {
      if (decoder_.OnStdinHeader(h) == Decoder::Event::kStdinEnd) {
        padding_left_ = h.padding_length;
        continue;
      }
      body_left_ = h.content_length;
      padding_left_ = h.padding_length;
      break;
    }
    Decoder::Outcome out;
    if (!ReadRecord(h, &out).ok()) return -1;
    if (out.event == Decoder::Event::kAbort) {
      io::RequestStop();
      errno = ECONNABORTED;
      return -1;
    }
  }
  ssize_t n = ReadBodyContent(buf, cap);
  if (n <= 0) {
    if (n == 0) errno = ECONNRESET;
    Fail(orvel::Status::OK());
    return -1;
  }
  body_left_ -= static_cast<size_t>(n);
  return n;
}

orvel::Status Connection::DrainBody() {
  char buf[4096];
  for (;;) {
    ssize_t n = ReadBody(buf, sizeof(buf));
    if (n == 0) return orvel::Status::OK();
    if (n < 0) return io::LastError("read", kWhat);
  }
}

orvel::Status Connection::WriteAllRaw(const void* data, size_t len) {
  if (broken_) return io::Error("write", kWhat, EPIPE);
  orvel::Status st = io::WriteAll(fd_.get(), data, len, kWhat);
  return st.ok() ? st : Fail(st);
}

orvel::Status Connection::WriteHeader(uint8_t type, size_t len) {
  uint8_t h[kHeaderLen];
  EncodeHeader(type, decoder_.request_id(), static_cast<uint16_t>(len), 0, h);
  return WriteAllRaw(h, sizeof(h));
}

orvel::Status Connection::WriteStream(uint8_t type, const void* data, size_t len) {
  const char* p = static_cast<const char*>(data);
  while (len > 0) {
    if (broken_ || io::StopRequested()) return io::Error("write", kWhat, EPIPE);
    size_t step = std::min(len, kMaxContent);
    uint8_t h[kHeaderLen];
    EncodeHeader(type, decoder_.request_id(), static_cast<uint16_t>(step), 0, h);
    struct iovec iov[2] = {{h, sizeof(h)}, {const_cast<char*>(p), step}};
    // One writev for header and content; a short write finishes plainly.
    ssize_t n;
    do {
      n = ::writev(fd_.get(), iov, 2);
    } while (n < 0 && errno == EINTR && !io::StopRequested());
    if (n < 0) return Fail(io::LastError("write", kWhat));
    size_t sent = static_cast<size_t>(n);
    if (sent < sizeof(h)) {
      ORVEL_RETURN_IF_ERROR(WriteAllRaw(h + sent, sizeof(h) - sent));
      sent = sizeof(h);
    }
    size_t body_sent = sent - sizeof(h);
    if (body_sent < step) ORVEL_RETURN_IF_ERROR(WriteAllRaw(p + body_sent, step - body_sent));
    p += step;
    len -= step;
  }
  return orvel::Status::OK();
}

orvel::Status Connection::Write(const void* data, size_t len) {
  return WriteStream(kStdout, data, len);
}

orvel::Status Connection::SendFile(int fd, uint64_t len, uint64_t* done) {
  *done = 0;
  StreamPacing pacing(fd_.get());
  while (*done < len) {
    size_t step = static_cast<size_t>(std::min<uint64_t>(len - *done, kStreamRecord));
    ORVEL_RETURN_IF_ERROR(WriteHeader(kStdout, step));
    size_t sent = 0;
    while (sent < step) {
      if (io::StopRequested()) return Fail(io::Error("sendfile", kWhat, EPIPE));
      ssize_t n = ::sendfile(fd_.get(), fd, nullptr, step - sent);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return Fail(io::LastError("sendfile", kWhat));
      // The file shrank: the record's length is already out, the
      // connection cannot carry on.
      if (n == 0) return Fail(io::Error("sendfile", kWhat, EIO));
      sent += static_cast<size_t>(n);
    }
    *done += step;
  }
  return orvel::Status::OK();
}

orvel::Status Connection::SplicePipe(int in) {
  StreamPacing pacing(fd_.get());
  // Bytes the pipe is known to hold: nobody else reads it, so what it held
  // is still there until this loop takes it, and a record's length is known
  // before its bytes go. Asked again only when what was known has gone.
  size_t known = 0;
  for (;;) {
    if (broken_ || io::StopRequested()) return io::Error("splice", kWhat, EPIPE);
    if (known == 0) {
      struct pollfd p = {in, POLLIN, 0};
      int r = ::poll(&p, 1, -1);
      if (r < 0 && errno == EINTR) continue;
      if (r < 0) return io::LastError("poll", "pipe");
      int avail = 0;
      if (::ioctl(in, FIONREAD, &avail) != 0) return io::LastError("ioctl", "pipe");
      if (avail <= 0) {
        if (p.revents & (POLLHUP | POLLERR)) return orvel::Status::OK();  // writer done
        continue;
      }
      known = static_cast<size_t>(avail);
    }
    size_t step = std::min<size_t>(known, kStreamRecord);
    known -= step;
    ORVEL_RETURN_IF_ERROR(WriteHeader(kStdout, step));
    size_t sent = 0;
    while (sent < step) {
      ssize_t n = ::splice(in, nullptr, fd_.get(), nullptr, step - sent, SPLICE_F_MOVE);
      if (n < 0 && errno == EINTR && !io::StopRequested()) continue;
      if (n <= 0) return Fail(io::Error("splice", kWhat, n == 0 ? EIO : errno));
      sent += static_cast<size_t>(n);
    }
  }
}

orvel::Status Connection::EndRequest(uint32_t app_status) {
  if (broken_) return io::Error("write", kWhat, EPIPE);
  std::string tail;
  AppendRecord(kStdout, decoder_.request_id(), "", &tail);
  AppendRecord(kStderr, decoder_.request_id(), "", &tail);
  tail += EndRequestRecord(decoder_.request_id(), app_status, kRequestComplete);
  // The end goes out even when the request was stopped: the flag is for
  // the request's own loops.
  orvel::Status st = WriteEvenWhenStopping(fd_.get(), tail);
  decoder_.Reset();
  body_left_ = padding_left_ = 0;
  return st.ok() ? st : Fail(st);
}

}  // namespace zemo::fcgi
