// A small FastCGI client for the tests: sends one request (BEGIN_REQUEST,
// the CGI variables as PARAMS, the body as STDIN) over a new connection to a
// worker's unix socket, as lighttpd does, and collects the STDOUT and STDERR
// streams and the END_REQUEST status. Built on the framework's own codec.
// Not thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

struct FcgiReply {
  bool complete = false;  // END_REQUEST arrived
  uint32_t app_status = 0;
  std::string out, err;
  std::string error;  // why it is not complete
};

// vars: "NAME=value" entries.
FcgiReply FcgiCall(const std::string& socket_path, const std::vector<std::string>& vars,
                   const std::string& body, uint16_t request_id = 1);

// The raw bytes of such a request (for tests that send them themselves).
std::string FcgiRequestBytes(const std::vector<std::string>& vars, const std::string& body,
                             uint16_t request_id, bool keep_conn);

// Sends bytes on a new connection and reads everything until the worker
// closes it or `stop_after_end` END_REQUEST records came.
std::string FcgiExchange(const std::string& socket_path, const std::string& bytes,
                         int stop_after_end = 1);

// Splits a byte stream into records: (type, request id, content).
struct FcgiRecord {
  uint8_t type = 0;
  uint16_t request_id = 0;
  std::string content;
};
std::vector<FcgiRecord> FcgiRecords(const std::string& bytes);

}  // namespace orvel::test
