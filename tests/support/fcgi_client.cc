// The tests' FastCGI client; see fcgi_client.h.
#include "fcgi_client.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "fcgi/codec.h"

namespace orvel::test {

namespace fcgi = zemo::fcgi;

namespace {

int Connect(const std::string& path) {
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

void AppendStream(uint8_t type, uint16_t id, const std::string& data, std::string* out) {
  for (size_t pos = 0; pos < data.size(); pos += fcgi::kMaxContent) {
    fcgi::AppendRecord(type, id, data.substr(pos, fcgi::kMaxContent), out);
  }
  fcgi::AppendRecord(type, id, "", out);
}

size_t CountEnds(const std::string& bytes) {
  size_t n = 0;
  for (const FcgiRecord& r : FcgiRecords(bytes)) n += r.type == fcgi::kEndRequest;
  return n;
}

}  // namespace

std::string FcgiRequestBytes(const std::vector<std::string>& vars, const std::string& body,
                             uint16_t request_id, bool keep_conn) {
  std::string out;
  std::string begin(8, '\0');
  begin[1] = static_cast<char>(fcgi::kRoleResponder);
  begin[2] = static_cast<char>(keep_conn ? fcgi::kKeepConn : 0);
  fcgi::AppendRecord(fcgi::kBeginRequest, request_id, begin, &out);
  std::string params;
  for (const std::string& v : vars) {
    size_t eq = v.find('=');
    fcgi::AppendPair(v.substr(0, eq), eq == std::string::npos ? "" : v.substr(eq + 1), &params);
  }
  AppendStream(fcgi::kParams, request_id, params, &out);
  AppendStream(fcgi::kStdin, request_id, body, &out);
  return out;
}

std::vector<FcgiRecord> FcgiRecords(const std::string& bytes) {
  std::vector<FcgiRecord> records;
  size_t pos = 0;
  while (bytes.size() - pos >= fcgi::kHeaderLen) {
    fcgi::Header h;
    if (!fcgi::ParseHeader(reinterpret_cast<const uint8_t*>(bytes.data() + pos), &h).ok()) break;
    size_t whole = fcgi::kHeaderLen + h.content_length + h.padding_length;
    if (bytes.size() - pos < whole) break;
    records.push_back({h.type, h.request_id, bytes.substr(pos + fcgi::kHeaderLen, h.content_length)});
    pos += whole;
  }
  return records;
}

std::string FcgiExchange(const std::string& socket_path, const std::string& bytes,
                         int stop_after_end) {
  int fd = Connect(socket_path);
  if (fd < 0) return "";
  ::fcntl(fd, F_SETFL, O_NONBLOCK);
  std::string in;
  size_t written = 0;
  bool writing = !bytes.empty();
  char buf[65536];
  for (;;) {
    pollfd p = {fd, static_cast<short>(POLLIN | (writing ? POLLOUT : 0)), 0};
    if (::poll(&p, 1, 60000) <= 0) break;
    if (writing && (p.revents & POLLOUT)) {
      ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
      if (n > 0) written += static_cast<size_t>(n);
      if ((n < 0 && errno != EAGAIN) || written == bytes.size()) writing = false;
    }
    if (p.revents & (POLLIN | POLLHUP | POLLERR)) {
      ssize_t n = ::read(fd, buf, sizeof(buf));
      if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
      if (n <= 0) break;
      in.append(buf, static_cast<size_t>(n));
      if (stop_after_end > 0 && CountEnds(in) >= static_cast<size_t>(stop_after_end)) break;
    }
  }
  ::close(fd);
  return in;
}

FcgiReply FcgiCall(const std::string& socket_path, const std::vector<std::string>& vars,
                   const std::string& body, uint16_t request_id) {
  FcgiReply reply;
  std::string in = FcgiExchange(socket_path, FcgiRequestBytes(vars, body, request_id, false));
  for (const FcgiRecord& r : FcgiRecords(in)) {
    if (r.request_id != request_id) continue;
    if (r.type == fcgi::kStdout) reply.out += r.content;
    if (r.type == fcgi::kStderr) reply.err += r.content;
    if (r.type == fcgi::kEndRequest && r.content.size() >= 4) {
      reply.complete = true;
      const auto* c = reinterpret_cast<const uint8_t*>(r.content.data());
      reply.app_status = (uint32_t{c[0]} << 24) | (uint32_t{c[1]} << 16) | (uint32_t{c[2]} << 8) | c[3];
    }
  }
  if (!reply.complete) reply.error = in.empty() ? "no answer from the worker" : "no END_REQUEST";
  return reply;
}

}  // namespace orvel::test
