// TempFile: a uniquely named file in a temp folder that is removed when the
// object goes away, if it still exists then (a module may have moved it into
// place already). Not copyable; one owner. Not thread-safe.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "cgi/background_hash.h"
#include "internal/io.h"
#include "orvelcommon/status.h"

namespace zemo::cgi {

class TempFile {
 public:
  // Creates dir (mode 0711) if needed and a new empty file "<prefix>XXXXXX"
  // in it, mode 0600, open for writing.
  static orvel::Status Create(const std::string& dir, const std::string& prefix,
                              std::unique_ptr<TempFile>* out);
  ~TempFile();
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  const std::string& path() const { return path_; }
  int fd() const { return fd_.get(); }
  uint64_t size() const { return size_; }

  // Appends data; a thread hashes it right behind (background_hash.h).
  // Pieces that together stay within kSmallPiece (the tail a multipart
  // scan keeps between reads) wait and go with the next write.
  // Every kWritebackBytes written are handed to the disk at once
  // (sync_file_range), and the window before them is waited for, so the
  // daemon's fsync before it renames the file into place finds at most two
  // windows still to write, and the page cache holds no more than that of
  // the upload's dirty pages.
  orvel::Status Append(const char* data, size_t len);
  static constexpr uint64_t kWritebackBytes = 8 << 20;
  // Hands the file to another owner (the web account) so that a module
  // running with that identity can read it.
  orvel::Status Chown(uid_t uid, gid_t gid);
  // Writes what waits, waits for the hash, records the content's digest on
  // the file (none when it could not be read back) and closes the
  // descriptor, keeping the file (until destruction).
  orvel::Status Close();

 private:
  TempFile(std::string path, int fd) : path_(std::move(path)), fd_(fd), hash_(new BackgroundHash(fd)) {}
  std::string path_;
  io::ScopedFd fd_;
  void StartWriteback();
  orvel::Status WritePendingAnd(const char* data, size_t len);
  static constexpr size_t kSmallPiece = 4096;

  uint64_t size_ = 0;
  uint64_t written_back_ = 0;  // bytes handed to the disk so far
  uint64_t waited_ = 0;        // bytes known to be on the disk
  std::string pending_;        // appended, not written yet (< kSmallPiece)
  std::unique_ptr<BackgroundHash> hash_;  // reads fd_: stopped before it closes
};

}  // namespace zemo::cgi
