// See http_load.h.
#include "http_load.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <thread>

namespace orvel::bench {

std::string HttpAnswer::Header(const std::string& name) const {
  std::istringstream s(headers);
  std::string line;
  while (std::getline(s, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t colon = line.find(':');
    if (colon == std::string::npos || strcasecmp(line.substr(0, colon).c_str(), name.c_str()) != 0) continue;
    const size_t v = line.find_first_not_of(' ', colon + 1);
    return v == std::string::npos ? "" : line.substr(v);
  }
  return "";
}

KeepAliveConnection::~KeepAliveConnection() { Close(); }

void KeepAliveConnection::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  in_.clear();
}

bool KeepAliveConnection::Connect() {
  fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return false;
  int one = 1;
  ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port_));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
    Close();
    return false;
  }
  return true;
}

bool KeepAliveConnection::ReadMore() {
  // Straight into the buffer's free end, not through a copy.
  const size_t used = in_.size();
  in_.resize(used + 65536);
  for (;;) {
    const ssize_t n = ::read(fd_, in_.data() + used, 65536);
    if (n < 0 && errno == EINTR) continue;
    in_.resize(used + static_cast<size_t>(std::max<ssize_t>(n, 0)));
    return n > 0;
  }
}

bool KeepAliveConnection::ReadChunked(HttpAnswer* answer) {
  for (;;) {
    size_t eol;
    while ((eol = in_.find("\r\n")) == std::string::npos) {
      if (!ReadMore()) return false;
    }
    const size_t size = std::strtoul(in_.c_str(), nullptr, 16);
    while (in_.size() < eol + 2 + size + 2) {
      if (!ReadMore()) return false;
    }
    answer->body.append(in_, eol + 2, size);
    in_.erase(0, eol + 2 + size + 2);  // a last chunk has no trailers here
    if (size == 0) return true;
  }
}

bool KeepAliveConnection::ReadBody(HttpAnswer* answer) {
  if (strcasecmp(answer->Header("Transfer-Encoding").c_str(), "chunked") == 0) return ReadChunked(answer);
  const std::string length = answer->Header("Content-Length");
  if (length.empty()) {
    while (ReadMore()) {
    }
    answer->body.swap(in_);
    answer->close = true;
    return true;
  }
  const size_t size = std::strtoul(length.c_str(), nullptr, 10);
  while (in_.size() < size) {
    if (!ReadMore()) return false;
  }
  if (in_.size() == size) {
    answer->body.swap(in_);  // the usual case: nothing after the answer
    in_.clear();
  } else {
    answer->body = in_.substr(0, size);
    in_.erase(0, size);
  }
  return true;
}

HttpAnswer KeepAliveConnection::Send(const std::string& request) {
  HttpAnswer answer;
  if (fd_ < 0 && !Connect()) return answer;
  for (size_t done = 0; done < request.size();) {
    const ssize_t n = ::send(fd_, request.data() + done, request.size() - done, MSG_NOSIGNAL);
    if (n <= 0) {
      Close();
      return answer;
    }
    done += static_cast<size_t>(n);
  }
  size_t end;
  while ((end = in_.find("\r\n\r\n")) == std::string::npos) {
    if (!ReadMore()) {
      Close();
      return answer;
    }
  }
  const size_t line_end = in_.find("\r\n");
  answer.headers = in_.substr(line_end + 2, end - line_end);
  const int status = std::atoi(in_.c_str() + in_.find(' ') + 1);
  in_.erase(0, end + 4);
  if (!ReadBody(&answer)) {
    Close();
    return answer;
  }
  answer.status = status;
  if (strcasecmp(answer.Header("Connection").c_str(), "close") == 0) answer.close = true;
  if (answer.close) Close();
  return answer;
}

std::string GetRequest(const std::string& target) {
  return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
}

std::string PostFormRequest(const std::string& target, const std::string& form_body) {
  return "POST " + target +
         " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
         "Content-Length: " +
         std::to_string(form_body.size()) + "\r\n\r\n" + form_body;
}

LoadFigures RunLoad(int port, const std::string& request, int concurrency, double warmup_s, double seconds,
                    const std::function<bool(const HttpAnswer&)>& check) {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  const auto measure_from = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(warmup_s));
  const auto until = measure_from + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  LoadFigures figures;
  std::mutex mu;
  std::vector<std::thread> threads;
  for (int i = 0; i < concurrency; ++i) {
    threads.emplace_back([&] {
      KeepAliveConnection conn(port);
      std::vector<double> ms;
      int errors = 0;
      long sent = 0;
      std::string first_error;
      for (auto t0 = Clock::now(); t0 < until; t0 = Clock::now()) {
        HttpAnswer a = conn.Send(request);
        ++sent;
        const auto t1 = Clock::now();
        const bool ok = a.status != 0 && check(a);
        if (!ok && first_error.empty()) first_error = std::to_string(a.status) + " " + a.headers + a.body.substr(0, 300);
        if (t0 < measure_from || t1 > until) continue;
        if (ok) {
          ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
        } else {
          ++errors;
        }
      }
      std::lock_guard<std::mutex> lock(mu);
      figures.ms.insert(figures.ms.end(), ms.begin(), ms.end());
      figures.errors += errors;
      figures.sent += sent;
      if (figures.first_error.empty()) figures.first_error = first_error;
    });
  }
  for (auto& t : threads) t.join();
  figures.seconds = seconds;
  return figures;
}

}  // namespace orvel::bench
