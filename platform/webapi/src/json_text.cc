// Compact JSON writer; see json_text.h. Thread-safe.
#include "zemo/json_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "orvelcommon/utf8.h"

namespace zemo {

namespace {

// Bytes not copied as they are: control characters, '"' and '\\' (written
// escaped) and bytes of 0x80 and above (checked as UTF-8).
struct SpecialTable {
  bool special[256] = {};
  constexpr SpecialTable() {
    for (int c = 0; c < 0x20; ++c) special[c] = true;
    for (int c = 0x80; c < 0x100; ++c) special[c] = true;
    special[static_cast<unsigned char>('"')] = true;
    special[static_cast<unsigned char>('\\')] = true;
  }
};
constexpr SpecialTable kSpecial;

bool IsSpecial(unsigned char c) { return kSpecial.special[c]; }

void AppendEscapedByte(unsigned char c, std::string* out) {
  switch (c) {
    case '"': out->append("\\\""); return;
    case '\\': out->append("\\\\"); return;
    case '\b': out->append("\\b"); return;
    case '\f': out->append("\\f"); return;
    case '\n': out->append("\\n"); return;
    case '\r': out->append("\\r"); return;
    case '\t': out->append("\\t"); return;
    default: break;
  }
  static const char kHex[] = "0123456789abcdef";
  const char esc[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xf]};
  out->append(esc, sizeof(esc));
}

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// Appends [run, p). As (pointer, length): the iterator-range append takes
// std::string's general replace path, about twice the instructions.
void AppendRun(const char* run, const char* p, std::string* out) { out->append(run, static_cast<size_t>(p - run)); }

// Well-formed UTF-8 is copied as it is; a byte that starts no well-formed
// sequence (a name made on disk in another encoding) becomes U+FFFD, so the
// answer is valid UTF-8 whatever the strings hold.
void AppendQuoted(const char* begin, const char* end, std::string* out) {
  out->push_back('"');
  const char* run = begin;
  for (const char* p = begin; p != end;) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (!IsSpecial(c)) {
      ++p;
      continue;
    }
    if (c < 0x80) {
      AppendRun(run, p, out);
      AppendEscapedByte(c, out);
      run = ++p;
      continue;
    }
    const size_t n = orvel::Utf8SequenceLength(std::string_view(p, static_cast<size_t>(end - p)));
    if (n != 0) {
      p += n;
      continue;
    }
    AppendRun(run, p, out);
    out->append(kReplacement);
    run = ++p;
  }
  AppendRun(run, end, out);
  out->push_back('"');
}

template <typename Int>
void AppendInteger(Int v, std::string* out) {
  char buf[24];
  const std::to_chars_result r = std::to_chars(buf, buf + sizeof(buf), v);
  AppendRun(buf, r.ptr, out);
}

// "%.17g", a '.' whatever the locale, ".0" when the text would read as an
// integer; non-finite values as jsoncpp writes them without special floats.
void AppendDouble(double v, std::string* out) {
  if (!std::isfinite(v)) {
    out->append(std::isnan(v) ? "null" : (v < 0 ? "-1e+9999" : "1e+9999"));
    return;
  }
  char buf[40];
  int len = std::snprintf(buf, sizeof(buf), "%.17g", v);
  if (len <= 0 || static_cast<size_t>(len) >= sizeof(buf)) len = 0;
  bool has_point_or_exp = false;
  for (int i = 0; i < len; ++i) {
    if (buf[i] == ',') buf[i] = '.';
    if (buf[i] == '.' || buf[i] == 'e') has_point_or_exp = true;
  }
  out->append(buf, static_cast<size_t>(len));
  if (!has_point_or_exp) out->append(".0");
}

bool HasComments(const Json::Value& v) {
  return v.hasComment(Json::commentBefore) || v.hasComment(Json::commentAfterOnSameLine) ||
         v.hasComment(Json::commentAfter);
}

bool AppendContainer(const Json::Value& value, std::string* out) {
  const bool is_object = value.type() == Json::objectValue;
  if (value.empty()) {
    out->append(is_object ? "{}" : "[]");
    return true;
  }
  out->push_back(is_object ? '{' : '[');
  Json::ArrayIndex next = 0;  // arrays may be sparse: holes are written as null
  for (auto it = value.begin(); it != value.end(); ++it) {
    if (is_object) {
      if (it != value.begin()) out->push_back(',');
      const char* name_end = nullptr;
      const char* name = it.memberName(&name_end);
      AppendQuoted(name, name_end, out);
      out->push_back(':');
    } else {
      for (; next < it.index(); ++next) out->append(next == 0 ? "null" : ",null");
      if (next++ != 0) out->push_back(',');
    }
    if (!AppendCompactJson(*it, out)) return false;
  }
  out->push_back(is_object ? '}' : ']');
  return true;
}

}  // namespace

bool AppendCompactJson(const Json::Value& value, std::string* out) {
  if (HasComments(value)) return false;
  switch (value.type()) {
    case Json::nullValue: out->append("null"); return true;
    case Json::intValue: AppendInteger(value.asLargestInt(), out); return true;
    case Json::uintValue: AppendInteger(value.asLargestUInt(), out); return true;
    case Json::realValue: AppendDouble(value.asDouble(), out); return true;
    case Json::booleanValue: out->append(value.asBool() ? "true" : "false"); return true;
    case Json::stringValue: {
      const char* begin = nullptr;
      const char* end = nullptr;
      if (value.getString(&begin, &end)) AppendQuoted(begin, end, out);
      return true;
    }
    case Json::arrayValue:
    case Json::objectValue: return AppendContainer(value, out);
  }
  return true;
}

void AppendJsonString(std::string_view text, std::string* out) {
  AppendQuoted(text.data(), text.data() + text.size(), out);
}

void AppendJsonInteger(uint64_t value, std::string* out) { AppendInteger(value, out); }
void AppendJsonInteger(int64_t value, std::string* out) { AppendInteger(value, out); }

std::string CompactJson(const Json::Value& value) {
  std::string out;
  out.reserve(256);
  if (AppendCompactJson(value, &out)) return out;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return orvel::ValidUtf8(Json::writeString(builder, value));
}

}  // namespace zemo
