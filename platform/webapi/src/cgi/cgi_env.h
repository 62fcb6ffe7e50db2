// The CGI environment of one request (what lighttpd passes entry.cgi in
// environment variables), read once at start-up into a plain value.
// Thread-safe (pure functions over the value).
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace zemo::cgi {

struct CgiEnv {
  std::string method;        // REQUEST_METHOD, upper case as sent
  std::string query;         // QUERY_STRING
  std::string content_type;  // CONTENT_TYPE
  bool has_length = false;   // CONTENT_LENGTH present and valid
  bool bad_length = false;   // CONTENT_LENGTH present but not a number
  uint64_t content_length = 0;
  std::string remote_addr;   // REMOTE_ADDR
  std::string cookie;        // HTTP_COOKIE
  std::string token_header;  // HTTP_X_ZEMO_TOKEN
  bool https = false;        // HTTPS is "on"
  std::string host;          // HTTP_HOST without its port, else SERVER_NAME
  int port = 0;              // SERVER_PORT
};

// Reads the environment through get (getenv in production; a map in tests).
CgiEnv ReadCgiEnv(const std::function<const char*(const char*)>& get);
// Reads the process environment.
CgiEnv ReadCgiEnv();

// The value of the first cookie called name in a Cookie header; *found tells
// whether there was one.
std::string CookieValue(const std::string& header, const std::string& name, bool* found);

// The media type of a Content-Type value, lower-cased, without parameters.
std::string MediaType(const std::string& content_type);
// A parameter of a Content-Type value (e.g. "boundary"), unquoted; "" if absent.
std::string ContentTypeParam(const std::string& content_type, const std::string& name);

}  // namespace zemo::cgi
