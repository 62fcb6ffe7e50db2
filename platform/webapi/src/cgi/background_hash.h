// BackgroundHash: the SHA-256 of a file that is being written, computed in a
// thread of its own right behind the writer, so that receiving an upload and
// hashing it use both cores instead of taking turns on one. The writer says
// how far the file is written (Advance); the thread reads those bytes back
// from the page cache (pread on the writer's descriptor, woken for 1 MiB at
// a time) and hashes them. Finish waits for the rest and gives the digest.
//
// The file must only grow, by this writer, while it is hashed: a temp file
// the process created itself (mode 0600). Memory: one 1 MiB buffer.
// Advance and Finish are for the writer's thread only.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "orvelcommon/sha256.h"

namespace zemo::cgi {

class BackgroundHash {
 public:
  // fd is not owned and must stay open until Finish or destruction.
  explicit BackgroundHash(int fd);
  // Stops the thread (what was not hashed yet is left) and joins it.
  ~BackgroundHash();
  BackgroundHash(const BackgroundHash&) = delete;
  BackgroundHash& operator=(const BackgroundHash&) = delete;

  // The first `written` bytes of the file are on it (non-decreasing).
  void Advance(uint64_t written);
  // Waits until every advanced byte is hashed: the lower-case hex digest,
  // or "" when the file could not be read back (the caller then records
  // none and the content is hashed again where it is needed). Call once.
  std::string Finish();

  static constexpr size_t kBuffer = 1 << 20;

 private:
  void Run();
  void Stop(bool finish);

  const int fd_;
  std::mutex mu_;
  std::condition_variable cv_;
  uint64_t written_ = 0;  // guarded by mu_
  bool finishing_ = false;
  bool stopping_ = false;
  bool waiting_ = false;  // the thread sleeps for more bytes
  uint64_t wake_at_ = 0;  // until written_ reaches this
  bool failed_ = false;   // set by the thread before it ends
  orvel::Sha256 sha_;     // the thread's until it is joined
  std::vector<char> buf_;
  std::thread thread_;    // started once everything above exists
};

}  // namespace zemo::cgi
