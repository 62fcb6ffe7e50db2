// A small load generator for the bench: a fixed number of keep-alive
// HTTP/1.1 connections to 127.0.0.1, one thread each, sending the same
// request back to back for a while and timing every answer.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace orvel::bench {

struct HttpAnswer {
  int status = 0;  // 0: no (complete) answer
  std::string headers;
  std::string body;
  bool close = false;  // the server closes the connection after it
  // Value of the first header with that name (case-insensitive), "" if none.
  std::string Header(const std::string& name) const;
};

// One keep-alive connection; reconnects when the server has closed it.
class KeepAliveConnection {
 public:
  explicit KeepAliveConnection(int port) : port_(port) {}
  ~KeepAliveConnection();
  KeepAliveConnection(const KeepAliveConnection&) = delete;
  KeepAliveConnection& operator=(const KeepAliveConnection&) = delete;

  // Sends a complete request and reads its whole answer (Content-Length,
  // chunked, or until close).
  HttpAnswer Send(const std::string& request);

 private:
  bool Connect();
  void Close();
  bool ReadMore();
  bool ReadBody(HttpAnswer* answer);
  bool ReadChunked(HttpAnswer* answer);

  int port_;
  int fd_ = -1;
  std::string in_;  // bytes received and not yet consumed
};

// "GET target" and "POST target" with a form body, as raw HTTP/1.1.
std::string GetRequest(const std::string& target);
std::string PostFormRequest(const std::string& target, const std::string& form_body);

struct LoadFigures {
  std::vector<double> ms;  // latency of each answered request
  double seconds = 0;      // length of the measured window
  int errors = 0;          // answers that failed `check`, or none
  std::string first_error;
  long sent = 0;           // every request sent, warm-up included
  double Rps() const { return seconds > 0 ? static_cast<double>(ms.size()) / seconds : 0; }
};

// Runs `concurrency` connections sending `request` for warmup_s (not
// counted), then for seconds; each answer must pass check.
LoadFigures RunLoad(int port, const std::string& request, int concurrency, double warmup_s, double seconds,
                    const std::function<bool(const HttpAnswer&)>& check);

}  // namespace orvel::bench
