// Which calls a GET or HEAD request may make. GET and HEAD are for reading:
// a browser follows links, prefetches and loads images with them, and their
// URLs (session ids and tokens included) end up in histories and logs, so a
// method that changes data must be called with POST. The framework keeps the
// list of the methods that only read; every other method of every API needs
// POST. Thread-safe (constant data).
#pragma once

#include <string>

namespace zemo::cgi {

// True when api/method only reads and may therefore be called with GET.
bool ReadsOnly(const std::string& api, const std::string& method);

}  // namespace zemo::cgi
