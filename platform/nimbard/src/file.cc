// File, SimpleFileReader and content hashing (SHA-256).
#include "nimbard/file.h"

#include "orvelcommon/scoped_fd.h"
#include "orvelcommon/sha256.h"

#include <fcntl.h>
#include <ftw.h>
#include <unistd.h>

#include <cerrno>

namespace {

int RemoveEntry(const char* path, const struct stat*, int flag, struct FTW*) {
  return flag == FTW_DP ? ::rmdir(path) : ::unlink(path);
}

// Hashes a whole file; bytes read or -1 (errno set).
int64_t HashInto(const std::string& path, std::string* hex) {
  orvel::ScopedFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return -1;
  return orvel::HashFileDescriptor(fd.get(), hex);
}

}  // namespace

File::File(std::string path) : path_(std::move(path)) { Stat(); }

File File::CreateTempFile(const std::string& dir) {
  std::string tmpl = dir + "/orvel-XXXXXX";
  int fd = ::mkstemp(tmpl.data());
  if (fd < 0) return File();
  ::close(fd);
  return File(tmpl);
}

int File::Remove(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return -1;
  if (!S_ISDIR(st.st_mode)) return ::unlink(path.c_str());
  return ::nftw(path.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

bool File::Exists() const {
  struct stat st;
  return !path_.empty() && ::stat(path_.c_str(), &st) == 0;
}

int File::Stat() {
  struct stat st;
  if (path_.empty() || ::stat(path_.c_str(), &st) != 0) {
    size_ = 0;
    mtime_ = 0;
    return -1;
  }
  size_ = static_cast<uint64_t>(st.st_size);
  mtime_ = static_cast<uint64_t>(st.st_mtime);
  return 0;
}

int64_t SimpleFileReader::readFile() {
  orvel::ScopedFd fd(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return -1;
  std::string hex;
  uint64_t size = 0;
  int64_t n;
  if (orvel::LoadDigest(fd.get(), &hex, &size)) {
    n = static_cast<int64_t>(size);  // recorded by the writer, still current
  } else {
    n = orvel::HashFileDescriptor(fd.get(), &hex);
  }
  if (n >= 0 && hash_out_) *hash_out_ = hex;
  return n;
}

std::string HashFile(const std::string& path) {
  std::string hex;
  return HashInto(path, &hex) < 0 ? std::string() : hex;
}
