// ZipOutput: where the archive's bytes go. Headers and other bytes the zip
// writer produces are written to the output descriptor; a block of file
// content that was just read (and is announced with Expect) is spliced from
// the file itself when the output is a pipe, so the content's bytes are
// copied once (the read the CRC needs) instead of twice. The output falls
// back to plain writes for good when it is not a pipe.
//
// Why splicing the file after reading it is sound: the pipe then holds the
// file's page-cache pages, so a write into the file before the reader takes
// them would send bytes the CRC did not see. The files archived are the
// staging links of a download, and the daemon replaces a file's content by
// renaming a new file over it, never by writing into it; a file that shrank
// under the archiver is an error, as a short read is.
//
// Not thread-safe; one object per archive.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace orvel::archiver {

class ZipOutput {
 public:
  explicit ZipOutput(int out_fd) : out_fd_(out_fd) {}

  // The next write of exactly [data, data + len) holds the bytes of file_fd
  // at offset: Write may move them from the file instead.
  void Expect(const void* data, size_t len, int file_fd, off_t offset);
  // Writes all of [data, data + len). false with *error when the output or
  // the file failed.
  bool Write(const void* data, size_t len, std::string* error);
  // Whether blocks went by splice (false once the output refused it).
  bool splicing() const { return splice_ok_; }

 private:
  bool WriteAll(const char* data, size_t len, std::string* error);
  // 1 when all went by splice, 0 when the output is not a pipe (nothing
  // was moved), -1 with *error on failure.
  int SpliceAll(size_t len, std::string* error);

  int out_fd_;
  bool splice_ok_ = true;
  const void* expected_ = nullptr;
  size_t expected_len_ = 0;
  int file_fd_ = -1;
  off_t offset_ = 0;
};

}  // namespace orvel::archiver
