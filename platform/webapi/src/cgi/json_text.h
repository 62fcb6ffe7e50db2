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

#include <string>

namespace zemo::cgi {

// Appends the text of value to *out. Returns false, with *out partly written,
// when the value holds comments (only jsoncpp's writer places those).
bool AppendCompactJson(const Json::Value& value, std::string* out);

// The text of value; values with comments go through jsoncpp's writer.
std::string CompactJson(const Json::Value& value);

}  // namespace zemo::cgi
