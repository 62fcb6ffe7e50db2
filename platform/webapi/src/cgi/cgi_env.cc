// Reading the CGI environment and the small header grammars it carries
// (cookies, Content-Type parameters). Thread-safe.
#include "cgi/cgi_env.h"

#include <cctype>
#include <cstdlib>

namespace zemo::cgi {

namespace {

std::string Get(const std::function<const char*(const char*)>& get, const char* name) {
  const char* v = get(name);
  return v == nullptr ? "" : v;
}

std::string Trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t')) --e;
  return s.substr(b, e - b);
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool ParseUnsigned(const std::string& text, uint64_t* out) {
  if (text.empty() || text.size() > 19) return false;
  uint64_t v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + static_cast<uint64_t>(c - '0');
  }
  *out = v;
  return true;
}

// "host", "host:port", "[v6]" or "[v6]:port" -> the host part.
std::string HostWithoutPort(const std::string& host) {
  if (!host.empty() && host[0] == '[') {
    size_t close = host.find(']');
    return close == std::string::npos ? host : host.substr(0, close + 1);
  }
  size_t colon = host.find(':');
  return colon == std::string::npos ? host : host.substr(0, colon);
}

// Removes one level of double quotes and backslash escapes.
std::string Unquote(const std::string& v) {
  if (v.size() < 2 || v.front() != '"' || v.back() != '"') return v;
  std::string out;
  for (size_t i = 1; i + 1 < v.size(); ++i) {
    if (v[i] == '\\' && i + 2 < v.size()) ++i;
    out.push_back(v[i]);
  }
  return out;
}

}  // namespace

CgiEnv ReadCgiEnv(const std::function<const char*(const char*)>& get) {
  CgiEnv env;
  env.method = Get(get, "REQUEST_METHOD");
  env.query = Get(get, "QUERY_STRING");
  env.content_type = Get(get, "CONTENT_TYPE");
  std::string length = Get(get, "CONTENT_LENGTH");
  if (!length.empty()) {
    env.has_length = ParseUnsigned(Trim(length), &env.content_length);
    env.bad_length = !env.has_length;
  }
  env.remote_addr = Get(get, "REMOTE_ADDR");
  env.cookie = Get(get, "HTTP_COOKIE");
  env.token_header = Get(get, "HTTP_X_ZEMO_TOKEN");
  env.https = Lower(Get(get, "HTTPS")) == "on";
  env.host = HostWithoutPort(Get(get, "HTTP_HOST"));
  if (env.host.empty()) env.host = Get(get, "SERVER_NAME");
  uint64_t port = 0;
  if (ParseUnsigned(Get(get, "SERVER_PORT"), &port) && port <= 65535) env.port = static_cast<int>(port);
  return env;
}

CgiEnv ReadCgiEnv() {
  return ReadCgiEnv([](const char* name) { return static_cast<const char*>(std::getenv(name)); });
}

std::string CookieValue(const std::string& header, const std::string& name, bool* found) {
  size_t pos = 0;
  while (pos <= header.size()) {
    size_t end = header.find(';', pos);
    if (end == std::string::npos) end = header.size();
    std::string pair = header.substr(pos, end - pos);
    size_t eq = pair.find('=');
    if (eq != std::string::npos && Trim(pair.substr(0, eq)) == name) {
      *found = true;
      return Unquote(Trim(pair.substr(eq + 1)));
    }
    pos = end + 1;
  }
  *found = false;
  return "";
}

std::string MediaType(const std::string& content_type) {
  return Lower(Trim(content_type.substr(0, content_type.find(';'))));
}

std::string ContentTypeParam(const std::string& content_type, const std::string& name) {
  size_t pos = content_type.find(';');
  while (pos != std::string::npos) {
    size_t next = content_type.find(';', pos + 1);
    std::string item = content_type.substr(pos + 1, next == std::string::npos ? std::string::npos
                                                                              : next - pos - 1);
    size_t eq = item.find('=');
    if (eq != std::string::npos && Lower(Trim(item.substr(0, eq))) == name) {
      return Unquote(Trim(item.substr(eq + 1)));
    }
    pos = next;
  }
  return "";
}

}  // namespace zemo::cgi
