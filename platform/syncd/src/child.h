// child: runs a helper program (the image and PDF decoder, the office
// converter) as a child process under limits and waits for it.
//
// Between fork and exec the child gets its own process group, the resource
// limits asked for (address space, CPU seconds, file size; never a core
// file), the default signal mask and dispositions, only descriptors 0 to 2,
// no way to gain privileges, and, when the daemon runs as root and the
// caller asks, the ids of the "nobody" account. It is killed when the daemon
// dies.
//
// The parent waits with a wall-clock watchdog. It also gives up when a
// watched socket hangs up (the client that asked has gone) or a cancel check
// says so. However the wait ends, the whole process group is killed and the
// child reaped before RunChild returns, so nothing keeps running.
//
// Threading: RunChild may be called from any thread, concurrently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "orvelcommon/status.h"

namespace orvel::syncd {

struct ChildLimits {
  uint64_t memory_bytes = 0;  // RLIMIT_AS; 0 = none (not applied in sanitizer builds)
  unsigned seconds = 0;       // wall clock and CPU time; 0 = none
  uint64_t file_bytes = 0;    // RLIMIT_FSIZE; 0 = none
  bool unprivileged = false;  // run as "nobody" when the daemon is root
};

struct ChildSpec {
  std::vector<std::string> argv;  // argv[0]: the program's absolute path
  std::vector<std::string> env;
  int stdin_fd = -1;              // -1: /dev/null
  int stdout_fd = -1;             // -1: /dev/null, or a pipe when capture_stdout > 0
  size_t capture_stdout = 0;      // > 0: stdout is read into ChildResult::out, up to this
  int hangup_fd = -1;             // a socket whose peer hanging up abandons the child
  std::function<bool()> cancelled;  // asked about ten times a second; true abandons
  ChildLimits limits;
};

enum class ChildEnd { kExited, kSignalled, kTimedOut, kHungUp, kCancelled };

struct ChildResult {
  ChildEnd end = ChildEnd::kExited;
  int code = 0;      // the exit code (kExited) or the signal (kSignalled)
  std::string out;   // captured stdout, at most ChildSpec::capture_stdout bytes
  std::string err;   // the start of stderr, at most 4 KiB
};

// Runs the child to its end and describes that end in *result. Fails only
// when the child cannot be started (kErrStorage with the errno text for a
// program that cannot be executed, kErrInternal for fork and pipe failures).
Status RunChild(const ChildSpec& job, ChildResult* result);

// The environment variables of this process that a child should keep
// (sanitizer options), as "NAME=value" strings.
std::vector<std::string> InheritedChildEnv();

}  // namespace orvel::syncd
