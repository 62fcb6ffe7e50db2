// pdf_text: the text of a PDF file for the search index. The PDF is parsed
// by orvel-decode (poppler's C++ interface) in a child process under the
// decoder limits (decode.h), never inside the daemon.
//
// Threading: safe to call from any thread; each call runs its own child.
#pragma once

#include <cstddef>
#include <string>

#include "decode.h"

namespace orvel::syncd {

// The text of the PDF open as fd, page after page (pages separated by a
// newline), at most `max` bytes, as valid UTF-8 without control characters.
// Empty when the file is not a readable PDF, is password-protected, is not a
// regular file, is over the input size limit or runs over the memory or time
// limit (logged), and for fd -1. Never fails.
std::string ReadPdfText(const Decoder& decoder, int fd, size_t max);

}  // namespace orvel::syncd
