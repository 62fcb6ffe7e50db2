// The decoders of orvel-decode (see src/decode_protocol.h). Each reads the
// file from standard input and writes its result to standard output; each
// returns an exit code of decode_protocol.h after writing the reason for a
// failure to standard error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvel::syncd::decode {

struct ThumbArgs {
  std::string ext;           // the item's extension, lower case
  int box = 0;               // the bounding box in pixels
  std::string format;        // jpg, png or webp
  bool animate = false;      // keep every frame (gif, webp)
  uint64_t max_pixels = 0;   // refused above this, before any pixel is decoded
};

int RenderThumbnail(const ThumbArgs& args);

// The text of a PDF, page after page (separated by a newline), at most
// max_bytes bytes.
int ExtractPdfText(size_t max_bytes);

// Writes "orvel-decode: <message>" to standard error and returns code.
int Fail(int code, const std::string& message);

}  // namespace orvel::syncd::decode
