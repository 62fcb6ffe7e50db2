// See access_http.h.
#include "http_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "zemo/nas.h"

namespace orvel::test {
namespace {

constexpr char kBoundary[] = "orvel-test-boundary-7Hq2";

// Closes the socket when the request ends, however it ends.
class SocketGuard {
 public:
  explicit SocketGuard(int fd) : fd_(fd) {}
  ~SocketGuard() {
    if (fd_ >= 0) ::close(fd_);
  }
  SocketGuard(const SocketGuard&) = delete;
  SocketGuard& operator=(const SocketGuard&) = delete;
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_;
};

std::string UrlEncodedBody(const FormFields& fields) {
  std::string body;
  for (const auto& [name, value] : fields) {
    if (!body.empty()) body += "&";
    body += UrlEncode(name) + "=" + UrlEncode(value);
  }
  return body;
}

std::string MultipartBody(const FormFields& fields, const std::string& file_name, const std::string& content) {
  std::string body;
  for (const auto& [name, value] : fields) {
    body += std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" +
            value + "\r\n";
  }
  body += std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" +
          file_name + "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + content + "\r\n";
  return body + "--" + kBoundary + "--\r\n";
}

bool SendAll(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    ssize_t n = ::send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

namespace {

// Sends request and reads the whole answer; "" when the server cannot be reached.
std::string Exchange(int port, const std::string& request, uint8_t source) {
  SocketGuard fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return "";
  timeval limit{120, 0};  // a hung server fails the test instead of blocking it
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  if (source > 1) {  // another loopback address: the server sees another client
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_addr.s_addr = htonl((127u << 24) | source);
    if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&from), sizeof(from)) != 0) return "";
  }
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) return "";
  if (!SendAll(fd.get(), request)) return "";
  std::string answer;
  char buf[65536];
  for (;;) {
    ssize_t n = ::recv(fd.get(), buf, sizeof(buf), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    answer.append(buf, static_cast<size_t>(n));
  }
  return answer;
}

std::string JsonText(const Json::Value& value) {
  if (value.isString()) return value.asString();
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

}  // namespace

std::string HttpPostForm(int port, const FormFields& fields, const std::string& upload_name,
                         const std::string& upload_content, uint8_t source) {
  const bool multipart = !upload_name.empty();
  const std::string body = multipart ? MultipartBody(fields, upload_name, upload_content) : UrlEncodedBody(fields);
  const std::string type =
      multipart ? std::string("multipart/form-data; boundary=") + kBoundary : "application/x-www-form-urlencoded";
  const std::string request = "POST /webapi/entry.cgi HTTP/1.0\r\nHost: 127.0.0.1\r\nContent-Type: " + type +
                              "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  return Exchange(port, request, source);
}

int HttpStatus(const std::string& answer) {
  // "HTTP/1.0 200 OK"
  if (answer.compare(0, 5, "HTTP/") != 0 || answer.size() < 12) return 0;
  return std::atoi(answer.c_str() + 9);
}

HttpAnswer HttpRequest(int port, const std::string& method, const std::string& target,
                       const std::vector<std::string>& extra_headers, const std::string& body,
                       uint8_t source) {
  std::string request = method + " " + target + " HTTP/1.0\r\nHost: 127.0.0.1\r\n";
  for (const std::string& header : extra_headers) request += header + "\r\n";
  if (method == "POST") request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  request += "\r\n" + body;
  const std::string raw = Exchange(port, request, source);
  HttpAnswer answer;
  answer.status = HttpStatus(raw);
  const size_t head_end = raw.find("\r\n\r\n");
  const size_t line_end = raw.find("\r\n");
  if (answer.status == 0 || head_end == std::string::npos) return answer;
  answer.headers = raw.substr(line_end + 2, head_end - line_end - 2);
  answer.body = raw.substr(head_end + 4);
  return answer;
}

Json::Value HttpAnswer::Json() const {
  Json::Value value;
  Json::CharReaderBuilder builder;
  std::string errors;
  std::istringstream in(body);
  if (!Json::parseFromStream(builder, in, &value, &errors)) return Json::Value();
  return value;
}

std::string HttpAnswer::Header(const std::string& name) const {
  std::istringstream in(headers);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t colon = line.find(':');
    if (colon == std::string::npos || strcasecmp(line.substr(0, colon).c_str(), name.c_str()) != 0) {
      continue;
    }
    const size_t value = line.find_first_not_of(' ', colon + 1);
    return value == std::string::npos ? "" : line.substr(value);
  }
  return "";
}

bool ApiClient::Login(const std::string& account, const std::string& password, Json::Value* answer) {
  Json::Value params(Json::objectValue);
  params["account"] = account;
  params["passwd"] = password;
  const Json::Value reply = Call("ZEMO.API.Auth", "login", params, 1);
  if (answer != nullptr) *answer = reply;
  if (!reply["success"].asBool()) return false;
  sid_ = reply["data"]["sid"].asString();
  token_ = reply["data"]["token"].asString();
  return true;
}

HttpAnswer ApiClient::CallRaw(const std::string& api, const std::string& method,
                              const Json::Value& params, unsigned version,
                              const std::string& http_method) {
  FormFields fields = {{"api", api}, {"method", method}, {"version", std::to_string(version)}};
  for (const std::string& name : params.getMemberNames()) fields.emplace_back(name, JsonText(params[name]));
  std::vector<std::string> headers;
  const std::string cookie = CookieHeader();
  if (!cookie.empty()) headers.push_back("Cookie: " + cookie);
  if (!token_.empty()) headers.push_back("X-ZEMO-Token: " + token_);
  HttpAnswer answer;
  if (http_method == "GET") {
    answer = HttpRequest(port_, "GET", "/webapi/entry.cgi?" + UrlEncodedBody(fields), headers, "", source_);
  } else {
    headers.push_back("Content-Type: application/x-www-form-urlencoded");
    answer = HttpRequest(port_, "POST", "/webapi/entry.cgi", headers, UrlEncodedBody(fields), source_);
  }
  KeepCookies(answer);
  return answer;
}

Json::Value ApiClient::Call(const std::string& api, const std::string& method, const Json::Value& params,
                            unsigned version) {
  const HttpAnswer answer = CallRaw(api, method, params, version);
  const Json::Value value = answer.Json();
  if (!value.isObject()) ADD_FAILURE() << api << "." << method << ": not JSON: " << answer.status << "\n" << answer.body;
  return value;
}

std::string ApiClient::Cookie(const std::string& name) const {
  auto found = cookies_.find(name);
  return found == cookies_.end() ? "" : found->second;
}

std::string ApiClient::CookieHeader() const {
  std::string header;
  for (const auto& [name, value] : cookies_) {
    if (!header.empty()) header += "; ";
    header += name + "=" + value;
  }
  return header;
}

// Keeps "Set-Cookie: name=value; ..." lines; an empty value or Max-Age=0
// forgets the cookie.
void ApiClient::KeepCookies(const HttpAnswer& answer) {
  std::istringstream in(answer.headers);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (strncasecmp(line.c_str(), "Set-Cookie:", 11) != 0) continue;
    std::string pair = line.substr(11);
    pair.erase(0, pair.find_first_not_of(' '));
    const std::string attributes = pair.find(';') == std::string::npos ? "" : pair.substr(pair.find(';'));
    pair = pair.substr(0, pair.find(';'));
    const size_t eq = pair.find('=');
    if (eq == std::string::npos) continue;
    const std::string name = pair.substr(0, eq), value = pair.substr(eq + 1);
    if (value.empty() || attributes.find("Max-Age=0") != std::string::npos) {
      cookies_.erase(name);
    } else {
      cookies_[name] = value;
    }
  }
}

void ExpectError(const Json::Value& r, int code, const std::string& message) {
  EXPECT_FALSE(r["success"].asBool()) << r;
  EXPECT_EQ(r["error"]["code"].asInt(), code) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), message) << r;
}

}  // namespace orvel::test
