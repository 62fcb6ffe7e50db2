// See access_http.h.
#include "access_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "tree.h"
#include "zemo/nas.h"

namespace orvel::test {
namespace {

constexpr char kBoundary[] = "access-matrix-boundary-7Hq2";

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

std::string HttpPostForm(int port, const FormFields& fields, const std::string& upload_name,
                         const std::string& upload_content, uint8_t source) {
  const bool multipart = !upload_name.empty();
  const std::string body = multipart ? MultipartBody(fields, upload_name, upload_content) : UrlEncodedBody(fields);
  const std::string type =
      multipart ? std::string("multipart/form-data; boundary=") + kBoundary : "application/x-www-form-urlencoded";
  const std::string request = "POST /webapi/entry.cgi HTTP/1.0\r\nHost: 127.0.0.1\r\nContent-Type: " + type +
                              "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  syncd::ScopedFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
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

int HttpStatus(const std::string& answer) {
  // "HTTP/1.0 200 OK"
  if (answer.compare(0, 5, "HTTP/") != 0 || answer.size() < 12) return 0;
  return std::atoi(answer.c_str() + 9);
}

}  // namespace orvel::test
