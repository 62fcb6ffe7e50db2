// UTF-8 checks for text that comes from outside the service's control: names
// found on disk (any byte string but '/' and NUL) reach answers, archives and
// logs, which must hold valid UTF-8. Well-formed means RFC 3629: no overlong
// forms, no surrogates, nothing above U+10FFFF. Pure functions, thread-safe.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

// Length of the well-formed UTF-8 sequence at the start of s (1 to 4), or 0
// when s is empty or does not start with one.
size_t Utf8SequenceLength(std::string_view s);

// True when every byte of s belongs to a well-formed sequence.
bool IsValidUtf8(std::string_view s);

// Appends s to *out with each byte that starts no well-formed sequence
// replaced by `replacement` (U+FFFD by default), so that the result is
// valid UTF-8 whatever s holds; valid text is copied unchanged.
void AppendValidUtf8(std::string_view s, std::string* out,
                     std::string_view replacement = "\xEF\xBF\xBD");

// The same, returned.
std::string ValidUtf8(std::string_view s, std::string_view replacement = "\xEF\xBF\xBD");

}  // namespace orvel
