// TempFile; see temp_file.h. Not thread-safe.
#include "cgi/temp_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>

#include "internal/log.h"

namespace zemo::cgi {

namespace {
static constexpr char kLogSource[] = "temp-file";
}  // namespace

orvel::Status TempFile::Create(const std::string& dir, const std::string& prefix,
                               std::unique_ptr<TempFile>* out) {
  ORVEL_RETURN_IF_ERROR(io::MakeDirs(dir, 0711));
  std::string tmpl = dir + "/" + prefix + "XXXXXX";
  int fd = ::mkostemp(&tmpl[0], O_CLOEXEC);
  if (fd < 0) return io::LastError("mkstemp", tmpl);
  out->reset(new TempFile(tmpl, fd));
  return orvel::Status::OK();
}

TempFile::~TempFile() {
  hash_.reset();
  fd_.Reset();
  if (::unlink(path_.c_str()) != 0 && errno != ENOENT) {
    WEBAPI_LOG(Logger::kError, "cannot remove %s: %s", path_.c_str(), std::strerror(errno));
  }
}

orvel::Status TempFile::Append(const char* data, size_t len) {
  ORVEL_RETURN_IF_ERROR(io::WriteAll(fd_.get(), data, len, path_));
  size_ += len;
  if (hash_) hash_->Advance(size_);
  if (size_ - written_back_ >= kWritebackBytes) StartWriteback();
  return orvel::Status::OK();
}

// Best effort: a file system that cannot do it simply writes at the fsync.
void TempFile::StartWriteback() {
  const uint64_t start = written_back_;
  ::sync_file_range(fd_.get(), static_cast<off64_t>(start), static_cast<off64_t>(size_ - start),
                    SYNC_FILE_RANGE_WRITE);
  if (start > waited_) {
    ::sync_file_range(fd_.get(), static_cast<off64_t>(waited_), static_cast<off64_t>(start - waited_),
                      SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
    waited_ = start;
  }
  written_back_ = size_;
}

void TempFile::Close() {
  if (fd_.get() < 0) return;
  const std::string hex = hash_ ? hash_->Finish() : "";
  hash_.reset();
  if (!hex.empty()) orvel::StoreDigest(fd_.get(), hex);
  fd_.Reset();
}

orvel::Status TempFile::Chown(uid_t uid, gid_t gid) {
  if (::fchown(fd_.get(), uid, gid) != 0) return io::LastError("fchown", path_);
  return orvel::Status::OK();
}

}  // namespace zemo::cgi
