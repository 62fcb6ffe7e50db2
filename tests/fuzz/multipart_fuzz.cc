// libFuzzer target: the streaming multipart/form-data parser and the request
// body reader around it. The first input byte picks how the body is cut into
// chunks (the parser must give the same parts wherever the transport splits
// the body) and which content type the body reader is told; the rest is the
// body, with the boundary "b0undary".
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "cgi/body_reader.h"
#include "cgi/multipart.h"

namespace {

using zemo::cgi::MultipartHandler;
using zemo::cgi::MultipartParser;
using zemo::cgi::PartHeaders;

constexpr char kBoundary[] = "b0undary";

// Records what the parser hands out and checks the order of the calls.
class Recorder : public MultipartHandler {
 public:
  orvel::Status OnPartBegin(const PartHeaders& h) override {
    if (in_part_) std::abort();
    in_part_ = true;
    parts_.push_back(h.name + "\n" + h.filename + "\n" + h.content_type + "\n");
    return orvel::Status::OK();
  }
  orvel::Status OnPartData(const char* data, size_t len) override {
    if (!in_part_ || len == 0) std::abort();
    parts_.back().append(data, len);
    return orvel::Status::OK();
  }
  orvel::Status OnPartEnd() override {
    if (!in_part_) std::abort();
    in_part_ = false;
    return orvel::Status::OK();
  }
  const std::vector<std::string>& parts() const { return parts_; }

 private:
  bool in_part_ = false;
  std::vector<std::string> parts_;
};

// Feeds body in chunks of `chunk` bytes (0: at once); *parts gets what was seen.
orvel::Status Parse(const std::string& body, size_t chunk, std::vector<std::string>* parts) {
  Recorder rec;
  MultipartParser parser(kBoundary, &rec);
  orvel::Status st;
  size_t step = chunk == 0 ? body.size() : chunk;
  for (size_t off = 0; st.ok() && off < body.size(); off += step) {
    st = parser.Feed(body.data() + off, std::min(step, body.size() - off));
  }
  if (st.ok()) st = parser.Finish();
  *parts = rec.parts();
  return st;
}

// The whole body through ReadRequestBody, as entry.cgi reads it from stdin.
void ReadBody(const std::string& body, bool urlencoded) {
  int fd = ::memfd_create("body", MFD_CLOEXEC);
  if (fd < 0 || ::write(fd, body.data(), body.size()) != static_cast<ssize_t>(body.size()) ||
      ::lseek(fd, 0, SEEK_SET) != 0) {
    std::abort();
  }
  zemo::cgi::CgiEnv env;
  env.method = "POST";
  env.content_type = urlencoded ? "application/x-www-form-urlencoded"
                                : std::string("multipart/form-data; boundary=\"") + kBoundary + "\"";
  env.has_length = true;
  env.content_length = body.size() + (body.size() % 7 == 3 ? 1 : 0);  // sometimes truncated
  zemo::cgi::BodyLimits limits;
  // The reader makes the folder for an upload; it is removed again below.
  limits.tmp_dir = "/tmp/orvel-fuzz-" + std::to_string(::getpid());
  limits.upload_max = 4096;
  limits.form_max = 4096;
  zemo::cgi::RequestBody out;
  orvel::Status st = zemo::cgi::ReadRequestBody(env, fd, limits, &out);
  if (out.upload && out.upload->size() > limits.upload_max) std::abort();
  out.upload.reset();
  ::rmdir(limits.tmp_dir.c_str());
  ::close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t mode = data[0];
  const std::string body(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::vector<std::string> whole, cut;
  orvel::Status a = Parse(body, 0, &whole);
  orvel::Status b = Parse(body, 1 + (mode & 0x3f), &cut);
  // Where the body is split must not change the outcome of a well-formed body.
  if (a.ok() != b.ok() || (a.ok() && whole != cut)) std::abort();
  ReadBody(body, (mode & 0x40) != 0);
  return 0;
}
