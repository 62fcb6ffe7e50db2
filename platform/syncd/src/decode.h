// decode: the daemon's side of its decoders. Images and PDFs from users'
// spaces are never decoded inside the daemon: each file goes to a child
// running orvel-decode (decode_protocol.h) as "nobody", with limits on the
// input's size, the image's pixel count, the child's memory (address space)
// and its CPU and wall-clock time. A child that runs over is killed, and so
// is one whose client hangs up before the answer. At most one decoder per
// processor (at least two) runs at a time; the others wait their turn.
//
// Threading: everything here may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "orvelcommon/status.h"
#include "orvelcommon/sync_config.h"
#include "tree.h"

namespace orvel::syncd {

struct Decoder {
  std::string program;                  // orvel-decode
  uint64_t max_input_bytes = 256ull << 20;
  uint64_t max_pixels = 1ull << 28;
  uint64_t memory_bytes = 1ull << 30;
  unsigned seconds = 30;

  // The configured limits, with the orvel-decode next to this program.
  static Decoder FromConfig(const SyncConfigMgr& config);
};

// Opens a file for a decoder, read-only, not through a symbolic link and
// without blocking on a FIFO. FsError when it cannot be opened.
Status OpenDecoderInput(const std::string& path, ScopedFd* fd);

// Checks an open input: a regular file (else kErrNotFound) of at most
// max_bytes (else kErrTooLarge, the message naming both sizes).
Status CheckDecoderInput(int fd, uint64_t max_bytes);

struct DecodeRun {
  std::vector<std::string> args;  // after the program's name
  int in_fd = -1;                 // the file to decode (read from its start)
  int out_fd = -1;                // the output file; -1: captured into *captured
  size_t capture = 0;             // bytes of output kept when captured
  int hangup_fd = -1;             // the client's socket, or -1
  uint64_t output_bytes = 0;      // largest output file; 0: no limit
};

// Runs the decoder to its end. OK when it succeeded (captured output in
// *captured when asked). Otherwise `failure_code` with a message saying why:
// the decoder's own reason, "stopped after N s" (time limit), "given up:
// the client went away", "given up: too many files being decoded" (no turn
// within the time limit), or the signal that ended it (memory, CPU or output
// limit, a crash). kErrInternal when it could not be started.
Status RunDecoder(const Decoder& decoder, const DecodeRun& run, int failure_code,
                  std::string* captured = nullptr);

}  // namespace orvel::syncd
