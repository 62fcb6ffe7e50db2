// HTTPFileOutputer::Output: streams a file or a pipe to stdout as the body of
// a CGI answer, after its own headers. Files go with sendfile(2) (a fixed
// buffer where the kernel refuses), pipes with splice(2) (likewise); memory
// use is constant whatever the size. Anything a caller printed with stdio
// before is flushed first so the headers stay in order. One request per
// process; not thread-safe. In the FastCGI worker the bytes go to the
// request's RawOutput instead of fd 1 (internal/raw_output.h).
#include <errno.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "internal/io.h"
#include "internal/raw_output.h"
#include "zemo/nas.h"

namespace {

constexpr size_t kChunk = 1 << 16;

// Flushes stdio and writes a header block straight to fd 1.
bool WriteHeaders(const std::string& headers) {
  if (std::fflush(stdout) != 0) return false;
  if (zemo::io::RawOutput* out = zemo::io::CurrentRawOutput()) {
    return out->Write(headers.data(), headers.size()).ok();
  }
  return zemo::io::WriteAll(STDOUT_FILENO, headers.data(), headers.size(), "stdout").ok();
}

// Copies up to `limit` bytes (all of it when unlimited) from in to stdout
// with a fixed buffer. Returns bytes copied or -1 with errno set.
int64_t CopyWithBuffer(int in, uint64_t limit, bool unlimited) {
  char buf[kChunk];
  uint64_t done = 0;
  while (unlimited || done < limit) {
    size_t want = unlimited ? kChunk : static_cast<size_t>(std::min<uint64_t>(kChunk, limit - done));
    ssize_t n = zemo::io::ReadSome(in, buf, want);
    if (n < 0) return -1;
    if (n == 0) break;
    if (!zemo::io::WriteAll(STDOUT_FILENO, buf, static_cast<size_t>(n), "stdout").ok()) return -1;
    done += static_cast<uint64_t>(n);
  }
  return static_cast<int64_t>(done);
}

// Sends `size` bytes of a regular file. -1 with errno on failure, EIO when
// the file shrank under us (the Content-Length is already out).
int SendFileBody(int fd, uint64_t size) {
  uint64_t done = 0;
  if (zemo::io::RawOutput* out = zemo::io::CurrentRawOutput()) {
    orvel::Status st = out->SendFile(fd, size, &done);
    if (!st.ok() || done < size) {
      errno = st.ok() ? EIO : EPIPE;
      return -1;
    }
    return 0;
  }
  while (done < size) {
    if (zemo::io::StopRequested()) break;
    size_t want = static_cast<size_t>(std::min<uint64_t>(size - done, 1u << 30));
    ssize_t n = ::sendfile(STDOUT_FILENO, fd, nullptr, want);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EINVAL || errno == ENOSYS) && done == 0) {
      int64_t copied = CopyWithBuffer(fd, size, false);
      if (copied < 0) return -1;
      done = static_cast<uint64_t>(copied);
      break;
    }
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<uint64_t>(n);
  }
  if (done < size) {
    errno = EIO;
    return -1;
  }
  return 0;
}

// Moves a pipe's whole output to stdout.
int SplicePipe(int in) {
  if (zemo::io::RawOutput* out = zemo::io::CurrentRawOutput()) {
    if (out->SplicePipe(in).ok()) return 0;
    errno = EPIPE;
    return -1;
  }
  for (;;) {
    if (zemo::io::StopRequested()) {
      errno = EPIPE;
      return -1;
    }
    ssize_t n = ::splice(in, nullptr, STDOUT_FILENO, nullptr, kChunk, SPLICE_F_MOVE);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == EINVAL) return CopyWithBuffer(in, 0, true) < 0 ? -1 : 0;
    if (n < 0) return -1;
    if (n == 0) return 0;
  }
}

std::string TypeOrDefault(const std::string& type) {
  return type.empty() ? "application/octet-stream" : type;
}

}  // namespace

int HTTPFileOutputer::Output(const std::string& path, const std::string& content_type) {
  zemo::io::ScopedFd fd;
  orvel::Status st = zemo::io::Open(path, O_RDONLY, 0, &fd);
  if (!st.ok()) return -1;  // errno is still that of open(2)
  struct stat sb;
  if (::fstat(fd.get(), &sb) != 0) return -1;
  if (!S_ISREG(sb.st_mode)) {
    errno = S_ISDIR(sb.st_mode) ? EISDIR : EINVAL;
    return -1;
  }
  char length[64];
  std::snprintf(length, sizeof(length), "%" PRIu64, static_cast<uint64_t>(sb.st_size));
  std::string headers = "Content-Type: " + TypeOrDefault(content_type) + "\r\n" +
                        "Content-Length: " + length + "\r\n" + "Status: 200 OK\r\n\r\n";
  if (!WriteHeaders(headers)) return -1;
  return SendFileBody(fd.get(), static_cast<uint64_t>(sb.st_size));
}

int HTTPFileOutputer::Output(FILE* pipe, const std::string& /*name*/,
                             const std::string& content_type) {
  if (pipe == nullptr) {
    errno = EINVAL;
    return -1;
  }
  std::string headers =
      "Content-Type: " + TypeOrDefault(content_type) + "\r\n" + "Status: 200 OK\r\n\r\n";
  if (!WriteHeaders(headers)) return -1;
  return SplicePipe(::fileno(pipe));
}
