// See zip_output.h.
#include "zip_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace orvel::archiver {

void ZipOutput::Expect(const void* data, size_t len, int file_fd, off_t offset) {
  expected_ = data;
  expected_len_ = len;
  file_fd_ = file_fd;
  offset_ = offset;
}

bool ZipOutput::Write(const void* data, size_t len, std::string* error) {
  const bool announced = data == expected_ && len == expected_len_ && file_fd_ >= 0;
  expected_ = nullptr;
  if (announced && splice_ok_) {
    int rc = SpliceAll(len, error);
    if (rc != 0) return rc > 0;
    splice_ok_ = false;  // not a pipe: write from now on
  }
  return WriteAll(static_cast<const char*>(data), len, error);
}

int ZipOutput::SpliceAll(size_t len, std::string* error) {
  off_t at = offset_;
  size_t done = 0;
  while (done < len) {
    ssize_t n = splice(file_fd_, &at, out_fd_, nullptr, len - done, SPLICE_F_MOVE);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && done == 0 && errno == EINVAL) return 0;
    if (n <= 0) {
      *error = std::string("output: ") + (n == 0 ? "file shrank while archived" : strerror(errno));
      return -1;
    }
    done += static_cast<size_t>(n);
  }
  return 1;
}

bool ZipOutput::WriteAll(const char* data, size_t len, std::string* error) {
  while (len > 0) {
    ssize_t n = write(out_fd_, data, len);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      *error = std::string("output: ") + strerror(n == 0 ? EIO : errno);
      return false;
    }
    data += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace orvel::archiver
