// pdf_text: the text of a PDF file for the search index, through poppler's
// C++ interface. Poppler's own diagnostics are routed to the daemon's debug
// log instead of stderr.
//
// Threading: safe to call from any thread; each call opens its own document.
#pragma once

#include <cstddef>
#include <string>

namespace orvel::syncd {

// The text of the PDF open as fd, page after page (pages separated by a
// newline), at most `max` bytes, as valid UTF-8 without control characters.
// Empty when the file is not a readable PDF or is password-protected, and
// for fd -1. Never fails.
std::string ReadPdfText(int fd, size_t max);

}  // namespace orvel::syncd
