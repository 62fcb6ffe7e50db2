// See decode.h.
#include "decode.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "child.h"
#include "decode_protocol.h"

namespace orvel::syncd {
namespace {

// The folder of the running program ("" when unknown).
std::string OwnFolder() {
  char buf[4096];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
  if (n <= 0) return "";
  std::string path(buf, static_cast<size_t>(n));
  return path.substr(0, path.find_last_of('/'));
}

// The decoder's one-line reason (its last line that starts with its name),
// without that name.
std::string Reason(const std::string& err) {
  const std::string prefix = std::string(decode::kProgram) + ": ";
  size_t at = err.rfind("\n" + prefix);
  at = at != std::string::npos ? at + 1 : err.compare(0, prefix.size(), prefix) == 0 ? 0 : std::string::npos;
  if (at == std::string::npos) return "no reason given";
  std::string line = err.substr(at + prefix.size());
  return line.substr(0, line.find('\n'));
}

std::string SignalReason(int sig, const Decoder& decoder, const DecodeRun& run) {
  if (sig == SIGXCPU || sig == SIGKILL)
    return "stopped at the CPU time limit of " + std::to_string(decoder.seconds) + " s";
  if (sig == SIGXFSZ) return "stopped: output larger than " + std::to_string(run.output_bytes) + " bytes";
  const char* name = sigabbrev_np(sig);
  return "the decoder ended with signal SIG" + std::string(name ? name : std::to_string(sig).c_str()) +
         " (memory limit " + std::to_string(decoder.memory_bytes >> 20) + " MiB)";
}

// How many decoders run at once: one per processor, at least two. The rest
// wait for a slot, and give up when their client hangs up or when the time
// limit has passed; so a burst of requests cannot multiply the memory limit
// by the number of connections.
class Slots {
 public:
  static Slots& Get() {
    static Slots slots;
    return slots;
  }
  bool Acquire(int hangup_fd, unsigned seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::unique_lock<std::mutex> lock(mu_);
    while (busy_ >= max_) {
      if (std::chrono::steady_clock::now() >= deadline || HungUp(hangup_fd)) return false;
      cv_.wait_for(lock, std::chrono::milliseconds(100));
    }
    ++busy_;
    return true;
  }
  void Release() {
    std::lock_guard<std::mutex> lock(mu_);
    --busy_;
    cv_.notify_one();
  }

 private:
  static bool HungUp(int fd) {
    struct pollfd p = {fd, POLLRDHUP, 0};
    return fd >= 0 && poll(&p, 1, 0) > 0 && p.revents != 0;
  }
  std::mutex mu_;
  std::condition_variable cv_;
  unsigned busy_ = 0;
  const unsigned max_ = std::max(2u, std::thread::hardware_concurrency());
};

// A decoder slot, released when the guard ends.
class SlotGuard {
 public:
  SlotGuard(int hangup_fd, unsigned seconds) : held_(Slots::Get().Acquire(hangup_fd, seconds)) {}
  ~SlotGuard() {
    if (held_) Slots::Get().Release();
  }
  SlotGuard(const SlotGuard&) = delete;
  SlotGuard& operator=(const SlotGuard&) = delete;
  bool held() const { return held_; }

 private:
  bool held_;
};

}  // namespace

Decoder Decoder::FromConfig(const SyncConfigMgr& config) {
  static const std::string program = OwnFolder() + "/" + decode::kProgram;
  Decoder d;
  d.program = program;
  d.max_input_bytes = config.GetDecodeMaxInputBytes();
  d.max_pixels = config.GetDecodeMaxPixels();
  d.memory_bytes = config.GetRenderMemoryBytes();
  d.seconds = config.GetRenderSeconds();
  return d;
}

Status OpenDecoderInput(const std::string& path, ScopedFd* fd) {
  // O_NONBLOCK: a FIFO in a space must not hang the daemon in open().
  fd->Reset(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd->valid()) return FsError("open", path, errno);
  return Status::OK();
}

Status CheckDecoderInput(int fd, uint64_t max_bytes) {
  struct stat st;
  if (fstat(fd, &st) != 0) return FsError("fstat", "decoder input", errno);
  if (!S_ISREG(st.st_mode)) return Status(kErrNotFound, "not a regular file");
  if (static_cast<uint64_t>(st.st_size) > max_bytes)
    return Status(kErrTooLarge, "file too large to decode (" + std::to_string(st.st_size) +
                                    " bytes, limit " + std::to_string(max_bytes) + ")");
  return Status::OK();
}

Status RunDecoder(const Decoder& decoder, const DecodeRun& run, int failure_code, std::string* captured) {
  if (lseek(run.in_fd, 0, SEEK_SET) != 0) return FsError("lseek", "decoder input", errno);
  ChildSpec job;
  job.argv.push_back(decoder.program);
  job.argv.insert(job.argv.end(), run.args.begin(), run.args.end());
  job.env = InheritedChildEnv();
  job.env.push_back("LANG=C.UTF-8");
  job.env.push_back("MALLOC_ARENA_MAX=2");  // keeps the address space of a render small
  job.stdin_fd = run.in_fd;
  job.stdout_fd = run.out_fd;
  job.capture_stdout = run.out_fd < 0 ? run.capture : 0;
  job.hangup_fd = run.hangup_fd;
  job.limits.memory_bytes = decoder.memory_bytes;
  job.limits.seconds = decoder.seconds;
  job.limits.file_bytes = run.output_bytes;
  job.limits.unprivileged = true;
  SlotGuard slot(run.hangup_fd, decoder.seconds);
  if (!slot.held()) return Status(failure_code, "given up: too many files being decoded");
  ChildResult r;
  Status st = RunChild(job, &r);
  if (!st.ok()) return Status(kErrInternal, "decoder not started: " + st.message());
  switch (r.end) {
    case ChildEnd::kTimedOut:
      return Status(failure_code, "stopped after " + std::to_string(decoder.seconds) + " s");
    case ChildEnd::kHungUp:
      return Status(failure_code, "given up: the client went away");
    case ChildEnd::kCancelled:
      return Status(failure_code, "given up");
    case ChildEnd::kSignalled:
      return Status(failure_code, SignalReason(r.code, decoder, run));
    case ChildEnd::kExited:
      break;
  }
  if (r.code == decode::kOk) {
    if (captured) *captured = std::move(r.out);
    return Status::OK();
  }
  if (r.code == decode::kUndecodable || r.code == decode::kTooLarge) return Status(failure_code, Reason(r.err));
  if (r.code == decode::kWriteFailed) return Status(kErrStorage, Reason(r.err));
  return Status(kErrInternal, "decoder failed (exit " + std::to_string(r.code) + "): " + Reason(r.err));
}

}  // namespace orvel::syncd
