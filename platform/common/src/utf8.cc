// See utf8.h.
#include "orvelcommon/utf8.h"

namespace orvel {

size_t Utf8SequenceLength(std::string_view s) {
  if (s.empty()) return 0;
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const unsigned char c = p[0];
  if (c < 0x80) return 1;
  size_t len;
  unsigned char lo = 0x80, hi = 0xBF;  // range of the second byte
  if (c >= 0xC2 && c <= 0xDF) {
    len = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    len = 3;
    if (c == 0xE0) lo = 0xA0;  // overlong
    if (c == 0xED) hi = 0x9F;  // surrogates
  } else if (c >= 0xF0 && c <= 0xF4) {
    len = 4;
    if (c == 0xF0) lo = 0x90;  // overlong
    if (c == 0xF4) hi = 0x8F;  // above U+10FFFF
  } else {
    return 0;  // continuation byte, C0/C1 (overlong) or F5..FF
  }
  if (s.size() < len || p[1] < lo || p[1] > hi) return 0;
  for (size_t i = 2; i < len; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
  }
  return len;
}

bool IsValidUtf8(std::string_view s) {
  while (!s.empty()) {
    const size_t n = Utf8SequenceLength(s);
    if (n == 0) return false;
    s.remove_prefix(n);
  }
  return true;
}

void AppendValidUtf8(std::string_view s, std::string* out, std::string_view replacement) {
  size_t run = 0;  // start of the valid bytes not yet copied
  size_t i = 0;
  while (i < s.size()) {
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      ++i;
      continue;
    }
    const size_t n = Utf8SequenceLength(s.substr(i));
    if (n != 0) {
      i += n;
      continue;
    }
    out->append(s.data() + run, i - run);
    out->append(replacement);
    run = ++i;
  }
  out->append(s.data() + run, s.size() - run);
}

std::string ValidUtf8(std::string_view s, std::string_view replacement) {
  std::string out;
  out.reserve(s.size());
  AppendValidUtf8(s, &out, replacement);
  return out;
}

}  // namespace orvel
