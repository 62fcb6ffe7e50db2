// Request body reading; see body_reader.h. The body is pulled through one
// fixed 64 KiB buffer: a urlencoded body is kept (it is bounded by
// form_max), a multipart body is pushed through the streaming parser, whose
// collector writes the file part to disk as it comes. Not thread-safe.
#include "cgi/body_reader.h"

#include <algorithm>
#include <vector>

#include "cgi/multipart.h"

namespace zemo::cgi {

namespace {

constexpr size_t kChunk = 1 << 16;

orvel::Status BadRequest(const std::string& what) { return orvel::Status(kErrBadBody, what); }

// The body bytes: up to Content-Length, or to end of input when none.
class BodySource {
 public:
  BodySource(const CgiEnv& env, BodyInput* input)
      : input_(input), bounded_(env.has_length), remaining_(env.content_length) {}

  // *n bytes into buf, 0 at the end. 400 when the input ends early.
  orvel::Status Next(char* buf, size_t cap, size_t* n) {
    *n = 0;
    if (bounded_ && remaining_ == 0) return orvel::Status::OK();
    size_t want = bounded_ ? static_cast<size_t>(std::min<uint64_t>(cap, remaining_)) : cap;
    ssize_t got = input_->Read(buf, want);
    if (got < 0) return io::LastError("read", "request body");
    if (got == 0 && bounded_) return BadRequest("request body truncated");
    *n = static_cast<size_t>(got);
    if (bounded_) remaining_ -= *n;
    return orvel::Status::OK();
  }

 private:
  BodyInput* input_;
  bool bounded_;
  uint64_t remaining_;
};

// Collects the fields of a multipart form and stores its first file part.
class FormCollector : public MultipartHandler {
 public:
  FormCollector(const BodyLimits& limits, RequestBody* out) : limits_(limits), out_(out) {}

  orvel::Status OnPartBegin(const PartHeaders& h) override {
    if (h.has_filename) return BeginFile(h);
    mode_ = h.name.empty() ? Mode::kDiscard : Mode::kField;
    field_name_ = h.name;
    field_value_.clear();
    return orvel::Status::OK();
  }

  orvel::Status OnPartData(const char* data, size_t len) override {
    if (mode_ == Mode::kFile) {
      if (limits_.upload_max != 0 && out_->upload->size() + len > limits_.upload_max) {
        return BadRequest("upload over the size limit");
      }
      return out_->upload->Append(data, len);
    }
    if (mode_ == Mode::kField) {
      form_bytes_ += len;
      if (form_bytes_ > limits_.form_max) return BadRequest("form fields too large");
      field_value_.append(data, len);
    }
    return orvel::Status::OK();
  }

  orvel::Status OnPartEnd() override {
    if (mode_ == Mode::kField) out_->fields[field_name_] = field_value_;
    const bool was_file = mode_ == Mode::kFile;
    mode_ = Mode::kDiscard;
    if (was_file) return out_->upload->Close();
    return orvel::Status::OK();
  }

 private:
  enum class Mode { kDiscard, kField, kFile };

  // Only the first file part is kept; an empty file input ("no file
  // chosen": an empty file name) and later files are skipped.
  orvel::Status BeginFile(const PartHeaders& h) {
    mode_ = Mode::kDiscard;
    if (out_->upload || h.filename.empty()) return orvel::Status::OK();
    ORVEL_RETURN_IF_ERROR(TempFile::Create(limits_.tmp_dir, "upload-", &out_->upload));
    if (limits_.chown_upload) {
      ORVEL_RETURN_IF_ERROR(out_->upload->Chown(limits_.owner_uid, limits_.owner_gid));
    }
    out_->upload_name = h.filename;
    out_->upload_field = h.name;
    mode_ = Mode::kFile;
    return orvel::Status::OK();
  }

  const BodyLimits& limits_;
  RequestBody* out_;
  Mode mode_ = Mode::kDiscard;
  std::string field_name_, field_value_;
  uint64_t form_bytes_ = 0;
};

orvel::Status ReadUrlEncoded(const CgiEnv& env, BodyInput* input, const BodyLimits& limits,
                             RequestBody* out) {
  if (env.has_length && env.content_length > limits.form_max) {
    return BadRequest("request body too large");
  }
  BodySource source(env, input);
  std::string text;
  std::vector<char> buf(kChunk);
  for (;;) {
    size_t n = 0;
    ORVEL_RETURN_IF_ERROR(source.Next(buf.data(), buf.size(), &n));
    if (n == 0) break;
    text.append(buf.data(), n);
    if (text.size() > limits.form_max) return BadRequest("request body too large");
  }
  ParseUrlEncoded(text, &out->fields);
  return orvel::Status::OK();
}

orvel::Status ReadMultipart(const CgiEnv& env, BodyInput* input, const BodyLimits& limits,
                            RequestBody* out) {
  std::string boundary = ContentTypeParam(env.content_type, "boundary");
  if (!MultipartParser::ValidBoundary(boundary)) return BadRequest("missing or bad boundary");
  FormCollector collector(limits, out);
  MultipartParser parser(boundary, &collector);
  BodySource source(env, input);
  std::vector<char> buf(kChunk);
  for (;;) {
    size_t n = 0;
    ORVEL_RETURN_IF_ERROR(source.Next(buf.data(), buf.size(), &n));
    if (n == 0) break;
    ORVEL_RETURN_IF_ERROR(parser.Feed(buf.data(), n));
  }
  return parser.Finish();
}

}  // namespace

ssize_t FdBodyInput::Read(char* buf, size_t cap) { return io::ReadSome(fd_, buf, cap); }

orvel::Status ReadRequestBody(const CgiEnv& env, int fd, const BodyLimits& limits,
                              RequestBody* out) {
  FdBodyInput input(fd);
  return ReadRequestBody(env, &input, limits, out);
}

orvel::Status ReadRequestBody(const CgiEnv& env, BodyInput* input, const BodyLimits& limits,
                              RequestBody* out) {
  if (env.method != "POST") return orvel::Status::OK();
  if (env.bad_length) return BadRequest("bad Content-Length");
  std::string type = MediaType(env.content_type);
  if (type == "application/x-www-form-urlencoded") return ReadUrlEncoded(env, input, limits, out);
  if (type == "multipart/form-data") return ReadMultipart(env, input, limits, out);
  return orvel::Status::OK();
}

}  // namespace zemo::cgi
