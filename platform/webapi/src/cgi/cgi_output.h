// Writing the CGI answer of a JSON response: the content type, the headers
// the module set, a blank line and the envelope. Nothing at all when the
// module turned the framework's output off (it printed the answer itself).
// Not thread-safe.
#pragma once

#include <cstdio>
#include <string>

#include "zemo/webapi.h"

namespace zemo::cgi {

// The envelope as compact JSON text (UTF-8 kept as is), ending in "\n".
std::string EnvelopeText(const ZEMO::APIResponse& response);

// Writes the answer to out and flushes it.
void WriteAnswer(const ZEMO::APIResponse& response, FILE* out);

}  // namespace zemo::cgi
