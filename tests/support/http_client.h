// A small HTTP/1.0 client for the tests that go through lighttpd on
// 127.0.0.1: one request per connection, the whole answer read until the
// server closes. Spawning curl for each of the many requests a suite sends
// would cost more than the requests themselves. Thread-safe (no shared
// state), except that one ApiClient must not be used by two threads at once.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

using FormFields = std::vector<std::pair<std::string, std::string>>;

// POSTs fields as application/x-www-form-urlencoded, or as multipart/form-data
// when upload_name is not empty (the file part "file" with that file name and
// upload_content). Returns the raw answer; "" when the server could not be
// reached (the test fails then). source > 1 sends from 127.0.0.<source>.
std::string HttpPostForm(int port, const FormFields& fields, const std::string& upload_name = "",
                         const std::string& upload_content = "", uint8_t source = 1);

// The status code of a raw answer (0 when it has no status line).
int HttpStatus(const std::string& answer);

// One parsed answer.
struct HttpAnswer {
  int status = 0;        // 0: no answer
  std::string headers;   // the header block, status line excluded
  std::string body;
  Json::Value Json() const;  // null when the body is not JSON
  // Value of the first header with that name (case-insensitive), "" if none.
  std::string Header(const std::string& name) const;
};

// Sends one request (extra_headers "Name: value" lines without CRLF).
HttpAnswer HttpRequest(int port, const std::string& method, const std::string& target,
                       const std::vector<std::string>& extra_headers, const std::string& body,
                       uint8_t source = 1);

// A client of the web APIs at /webapi/entry.cgi as a browser would be one:
// it keeps the cookies the server sets and, once logged in, sends the
// session's token in "X-ZEMO-Token" with every call.
class ApiClient {
 public:
  explicit ApiClient(int port, uint8_t source = 1) : port_(port), source_(source) {}

  // ZEMO.API.Auth login; false (with the answer in *answer) when refused.
  bool Login(const std::string& account, const std::string& password,
             Json::Value* answer = nullptr);
  // Calls api.method with params; every value is sent as its JSON text
  // (strings as they are), as a POST form unless http_method is "GET"
  // (then in the query string).
  HttpAnswer CallRaw(const std::string& api, const std::string& method, const Json::Value& params,
                     unsigned version = 1, const std::string& http_method = "POST");
  // The same, parsed (a failed test assertion when the body is not JSON).
  Json::Value Call(const std::string& api, const std::string& method,
                   const Json::Value& params = Json::Value(Json::objectValue),
                   unsigned version = 1);

  const std::string& sid() const { return sid_; }
  const std::string& token() const { return token_; }
  // The cookie the server set under that name ("" when none).
  std::string Cookie(const std::string& name) const;

 private:
  std::string CookieHeader() const;
  void KeepCookies(const HttpAnswer& answer);

  int port_;
  uint8_t source_;
  std::string sid_, token_;
  std::map<std::string, std::string> cookies_;
};

// Expects r to be a refusal with exactly this code and message (gtest).
void ExpectError(const Json::Value& r, int code, const std::string& message);

}  // namespace orvel::test
