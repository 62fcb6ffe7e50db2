// BackgroundHash; see background_hash.h.
#include "cgi/background_hash.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>

namespace zemo::cgi {

BackgroundHash::BackgroundHash(int fd) : fd_(fd), buf_(kBuffer) {
  try {
    thread_ = std::thread(&BackgroundHash::Run, this);
  } catch (const std::system_error&) {
    failed_ = true;  // no thread: no digest, the content is hashed where needed
  }
}

BackgroundHash::~BackgroundHash() { Stop(false); }

void BackgroundHash::Advance(uint64_t written) {
  bool wake;
  {
    std::lock_guard<std::mutex> lock(mu_);
    written_ = written;
    wake = waiting_ && written_ >= wake_at_;
  }
  if (wake) cv_.notify_one();
}

std::string BackgroundHash::Finish() {
  Stop(true);
  if (failed_) return "";
  return sha_.HexDigest();
}

// finish: hash what is left first; else leave it. Joins the thread.
void BackgroundHash::Stop(bool finish) {
  if (!thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mu_);
    (finish ? finishing_ : stopping_) = true;
  }
  cv_.notify_one();
  thread_.join();
}

void BackgroundHash::Run() {
  uint64_t hashed = 0;
  for (;;) {
    uint64_t target;
    {
      std::unique_lock<std::mutex> lock(mu_);
      // Woken for a whole buffer's worth, or for the end.
      waiting_ = true;
      wake_at_ = hashed + buf_.size();
      cv_.wait(lock, [&] { return stopping_ || finishing_ || written_ >= wake_at_; });
      waiting_ = false;
      if (stopping_ || (finishing_ && written_ == hashed)) return;
      target = written_;
    }
    while (hashed < target) {
      const size_t step = static_cast<size_t>(std::min<uint64_t>(target - hashed, buf_.size()));
      ssize_t n = ::pread(fd_, buf_.data(), step, static_cast<off_t>(hashed));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        std::lock_guard<std::mutex> lock(mu_);
        failed_ = true;
        return;
      }
      sha_.Update(buf_.data(), static_cast<size_t>(n));
      hashed += static_cast<uint64_t>(n);
    }
  }
}

}  // namespace zemo::cgi
