// Request parameters as sent (name -> text) and their JSON view: every value
// is parsed as JSON when it is valid JSON and kept as a string otherwise, so
// `path=/a` and `path="/a"` are the same string and `limit=100` a number.
// Thread-safe (pure functions).
#pragma once

#include <json/json.h>

#include <map>
#include <string>
#include <vector>

namespace zemo::cgi {

using RawParams = std::map<std::string, std::string>;

// Adds the pairs of an application/x-www-form-urlencoded text (a query string
// or a body) to *out: '+' is a space, %XX an escaped byte, a name without '='
// has the empty value, empty names are skipped, a later pair replaces an
// earlier one of the same name.
void ParseUrlEncoded(const std::string& text, RawParams* out);

// The JSON value of one parameter text.
Json::Value ParamValue(const std::string& text);
// Every parameter as its JSON value, in one object.
Json::Value ToJsonParams(const RawParams& raw);

// A parameter that must be read as a string whatever it looks like
// (passwords, session ids): the JSON string when the text is a quoted JSON
// string, else the text itself. *found tells whether it was sent.
std::string StringParam(const RawParams& raw, const std::string& name, bool* found);

// Removes the parameters that only the framework may fill in ("file_tmp",
// the received upload's path) from what a client sent, and returns the names
// that were dropped (for the log).
std::vector<std::string> DropFrameworkParams(RawParams* raw);

}  // namespace zemo::cgi
