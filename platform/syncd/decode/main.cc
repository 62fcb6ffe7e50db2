// orvel-decode: the daemon's decoder program. It decodes one untrusted file
// (an image, a PDF) per run, in a process of its own that the daemon starts
// with limits on memory, CPU time and output size, as an unprivileged user,
// and kills when it runs too long; a decoder that is fooled by a file can
// take nothing else down. The arguments and exit codes are in
// src/decode_protocol.h.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "decode_protocol.h"
#include "decoder.h"

namespace orvel::syncd::decode {
namespace {

bool ParseNumber(const char* text, uint64_t max, uint64_t* out) {
  if (!text || !*text || *text == '-') return false;
  char* end = nullptr;
  errno = 0;
  unsigned long long v = strtoull(text, &end, 10);
  if (errno != 0 || *end != '\0' || v > max) return false;
  *out = v;
  return true;
}

int Main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  uint64_t n = 0;
  if (command == "thumb" && argc == 7) {
    ThumbArgs a;
    a.ext = argv[2];
    a.format = argv[4];
    a.animate = std::string(argv[5]) == "1";
    if (!ParseNumber(argv[3], 10000, &n) || n == 0) return Fail(kUsage, "bad box size");
    a.box = static_cast<int>(n);
    if (!ParseNumber(argv[6], UINT64_MAX, &a.max_pixels)) return Fail(kUsage, "bad pixel limit");
    if (a.format != "jpg" && a.format != "png" && a.format != "webp") return Fail(kUsage, "bad format");
    return RenderThumbnail(a);
  }
  if (command == "pdf-text" && argc == 3) {
    if (!ParseNumber(argv[2], 1ull << 30, &n)) return Fail(kUsage, "bad text limit");
    return ExtractPdfText(static_cast<size_t>(n));
  }
  return Fail(kUsage, "usage: orvel-decode thumb <ext> <box> <format> <animate> <max pixels> | "
                      "pdf-text <max bytes>");
}

}  // namespace

int Fail(int code, const std::string& message) {
  std::string line = "orvel-decode: " + message + "\n";
  ssize_t w = write(2, line.data(), line.size());
  (void)w;
  return code;
}

}  // namespace orvel::syncd::decode

// Ends with _exit: nothing of a decoded file is worth tearing down cleanly.
int main(int argc, char** argv) { _exit(orvel::syncd::decode::Main(argc, argv)); }
