// File: a path with its stat data, and SimpleFileReader, which reads a file
// once while hashing it. The content hash is SHA-256 (orvelcommon/sha256.h),
// lower-case hex; the daemon checks it against the bytes it receives.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

class File {
 public:
  File() = default;
  explicit File(std::string path);

  // Creates an empty temp file (mode 0600) in dir; Exists() is false on
  // failure.
  static File CreateTempFile(const std::string& dir);
  // Removes a file or a whole tree; 0 or -1 (errno set).
  static int Remove(const std::string& path);

  bool Exists() const;
  int Stat();  // refreshes size and times; 0 or -1
  const std::string& GetPath() const { return path_; }
  uint64_t GetSize() const { return size_; }
  uint64_t GetLastModifiedTime() const { return mtime_; }

 private:
  std::string path_;
  uint64_t size_ = 0;
  uint64_t mtime_ = 0;
};

class SimpleFileReader {
 public:
  void setFile(const std::string& path) { path_ = path; }
  void setHashString(std::string& out) { hash_out_ = &out; }
  // Reads the whole file in 1 MiB blocks, hashing it, unless its writer
  // recorded a digest that is still current (orvelcommon/sha256.h). Returns the
  // file's size, or -1 with errno set.
  int64_t readFile();

 private:
  std::string path_;
  std::string* hash_out_ = nullptr;
};

// SHA-256 of a file as lower-case hex; "" and errno set on failure.
std::string HashFile(const std::string& path);
