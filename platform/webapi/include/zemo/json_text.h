// Compact JSON text of a Json::Value for the answers entry.cgi prints. The
// text is byte for byte what jsoncpp's StreamWriter produces with an empty
// indentation and UTF-8 kept as is (keys in the value's order, doubles with 17
// significant digits, control characters as \u00XX), written straight into
// one string instead of through an ostream and a temporary per value, with
// one difference: the text is always valid UTF-8, each byte of a string that
// starts no well-formed UTF-8 sequence being written as U+FFFD.
// Thread-safe (pure functions).
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace zemo {

// Appends the text of value to *out. Returns false, with *out partly written,
// when the value holds comments (only jsoncpp's writer places those).
bool AppendCompactJson(const Json::Value& value, std::string* out);

// The text of value; values with comments go through jsoncpp's writer.
std::string CompactJson(const Json::Value& value);

// Pieces of the same text, for answers written straight from records
// without building a tree first: a quoted string (escaped, invalid UTF-8 as
// U+FFFD) and integers, each exactly as AppendCompactJson writes them.
void AppendJsonString(std::string_view text, std::string* out);
void AppendJsonInteger(uint64_t value, std::string* out);
void AppendJsonInteger(int64_t value, std::string* out);

}  // namespace zemo
