// TempFile; see temp_file.h. Not thread-safe.
#include "cgi/temp_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/uio.h>
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
  if (pending_.size() + len <= kSmallPiece) {
    pending_.append(data, len);
    size_ += len;
    return orvel::Status::OK();
  }
  ORVEL_RETURN_IF_ERROR(WritePendingAnd(data, len));
  size_ += len;
  if (hash_) hash_->Advance(size_);
  if (size_ - written_back_ >= kWritebackBytes) StartWriteback();
  return orvel::Status::OK();
}

// What waits in pending_, then data, in as few writes as the kernel takes.
orvel::Status TempFile::WritePendingAnd(const char* data, size_t len) {
  struct iovec iov[2] = {{&pending_[0], pending_.size()}, {const_cast<char*>(data), len}};
  struct iovec* v = iov;
  int count = 2;
  while (count > 0) {
    if (v->iov_len == 0) {
      ++v;
      --count;
      continue;
    }
    ssize_t n = ::writev(fd_.get(), v, count);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return io::LastError("write", path_);
    if (n == 0) return io::Error("write", path_, EIO);
    size_t done = static_cast<size_t>(n);
    while (count > 0 && done >= v->iov_len) {
      done -= v->iov_len;
      ++v;
      --count;
    }
    if (count > 0) {
      v->iov_base = static_cast<char*>(v->iov_base) + done;
      v->iov_len -= done;
    }
  }
  pending_.clear();
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

orvel::Status TempFile::Close() {
  if (fd_.get() < 0) return orvel::Status::OK();
  ORVEL_RETURN_IF_ERROR(WritePendingAnd(nullptr, 0));
  if (hash_) hash_->Advance(size_);
  const std::string hex = hash_ ? hash_->Finish() : "";
  hash_.reset();
  if (!hex.empty()) orvel::StoreDigest(fd_.get(), hex);
  fd_.Reset();
  return orvel::Status::OK();
}

orvel::Status TempFile::Chown(uid_t uid, gid_t gid) {
  if (::fchown(fd_.get(), uid, gid) != 0) return io::LastError("fchown", path_);
  return orvel::Status::OK();
}

}  // namespace zemo::cgi
