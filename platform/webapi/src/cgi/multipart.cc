// Streaming multipart/form-data parser; see multipart.h. The body is read as
// if it began with CRLF, so that the first boundary (which has no CRLF before
// it) matches the same delimiter as every other one. The bulk of a file part
// goes to the handler straight from the caller's buffer. Not thread-safe.
#include "cgi/multipart.h"

#include <string.h>

#include <cctype>

namespace zemo::cgi {

namespace {

constexpr size_t kMaxPaddingBytes = 1024;

orvel::Status BadBody(const std::string& what) {
  return orvel::Status(kErrBadBody, "malformed multipart body: " + what);
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t");
  return s.substr(b, e - b + 1);
}

// Parameters of a Content-Disposition value after its type. Quoted values
// are taken literally up to the closing quote, as browsers send them (they
// escape a quote as %22 and never use backslash escapes).
void ParseDisposition(const std::string& value, PartHeaders* out) {
  size_t pos = value.find(';');
  while (pos != std::string::npos && pos < value.size()) {
    ++pos;
    size_t eq = value.find('=', pos);
    if (eq == std::string::npos) return;
    std::string key = Lower(Trim(value.substr(pos, eq - pos)));
    size_t v = value.find_first_not_of(" \t", eq + 1);
    std::string param;
    if (v != std::string::npos && value[v] == '"') {
      size_t close = value.find('"', v + 1);
      if (close == std::string::npos) close = value.size();
      param = value.substr(v + 1, close - v - 1);
      pos = value.find(';', close);
    } else {
      size_t end = value.find(';', eq + 1);
      param = Trim(value.substr(eq + 1, end == std::string::npos ? std::string::npos : end - eq - 1));
      pos = end;
    }
    if (key == "name") {
      out->name = param;
    } else if (key == "filename") {
      out->filename = param;
      out->has_filename = true;
    }
  }
}

}  // namespace

PartHeaders ParsePartHeaders(const std::string& block) {
  PartHeaders headers;
  size_t pos = 0;
  while (pos < block.size()) {
    size_t end = block.find("\r\n", pos);
    if (end == std::string::npos) end = block.size();
    std::string line = block.substr(pos, end - pos);
    pos = end + 2;
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string name = Lower(Trim(line.substr(0, colon)));
    std::string value = Trim(line.substr(colon + 1));
    if (name == "content-disposition") {
      ParseDisposition(value, &headers);
    } else if (name == "content-type") {
      headers.content_type = value;
    }
  }
  return headers;
}

MultipartParser::MultipartParser(const std::string& boundary, MultipartHandler* handler)
    : delimiter_("\r\n--" + boundary), handler_(handler), buf_("\r\n") {}

bool MultipartParser::ValidBoundary(const std::string& boundary) {
  return !boundary.empty() && boundary.size() <= kMaxBoundaryBytes &&
         boundary.find_first_of("\r\n") == std::string::npos;
}

orvel::Status MultipartParser::Feed(const char* data, size_t len) {
  if (state_ == State::kDone) return orvel::Status::OK();  // epilogue: ignored
  bool consumed = false;
  ORVEL_RETURN_IF_ERROR(FeedBodyInPlace(data, len, &consumed));
  if (consumed) return orvel::Status::OK();
  buf_.append(data, len);
  bool progressed = true;
  while (progressed && state_ != State::kDone) {
    progressed = false;
    ORVEL_RETURN_IF_ERROR(Step(&progressed));
  }
  if (state_ == State::kDone) buf_.clear();
  return orvel::Status::OK();
}

// The bulk of a file part, without copying it into buf_: when no delimiter
// starts in what is buffered or in data, everything but the last
// delimiter-length-minus-one bytes is content as it is. (A delimiter that
// starts in buf_, which is shorter than one, ends within the first bytes
// of data.) Anything else is left to the buffered steps.
orvel::Status MultipartParser::FeedBodyInPlace(const char* data, size_t len, bool* consumed) {
  const size_t keep = delimiter_.size() - 1;
  *consumed = false;
  if (state_ != State::kBody || buf_.size() > keep || len <= 2 * delimiter_.size()) {
    return orvel::Status::OK();
  }
  const std::string seam = buf_ + std::string(data, keep);
  if (seam.find(delimiter_) != std::string::npos ||
      ::memmem(data, len, delimiter_.data(), delimiter_.size()) != nullptr) {
    return orvel::Status::OK();
  }
  if (!buf_.empty()) ORVEL_RETURN_IF_ERROR(handler_->OnPartData(buf_.data(), buf_.size()));
  ORVEL_RETURN_IF_ERROR(handler_->OnPartData(data, len - keep));
  buf_.assign(data + len - keep, keep);
  *consumed = true;
  return orvel::Status::OK();
}

orvel::Status MultipartParser::Finish() {
  if (state_ != State::kDone) return BadBody("missing final boundary");
  return orvel::Status::OK();
}

orvel::Status MultipartParser::Step(bool* progressed) {
  switch (state_) {
    case State::kPreamble: return StepPreamble(progressed);
    case State::kAfterDelimiter: return StepAfterDelimiter(progressed);
    case State::kHeaders: return StepHeaders(progressed);
    case State::kBody: return StepBody(progressed);
    case State::kDone: break;
  }
  return orvel::Status::OK();
}

orvel::Status MultipartParser::StepPreamble(bool* progressed) {
  size_t pos = buf_.find(delimiter_);
  if (pos == std::string::npos) {
    // Keep only what could still be the start of the first delimiter.
    size_t keep = delimiter_.size() - 1;
    if (buf_.size() > keep) buf_.erase(0, buf_.size() - keep);
    return orvel::Status::OK();
  }
  buf_.erase(0, pos + delimiter_.size());
  state_ = State::kAfterDelimiter;
  *progressed = true;
  return orvel::Status::OK();
}

orvel::Status MultipartParser::StepAfterDelimiter(bool* progressed) {
  if (buf_.size() >= 2 && buf_.compare(0, 2, "--") == 0) {
    state_ = State::kDone;
    *progressed = true;
    return orvel::Status::OK();
  }
  // Transport padding (spaces, tabs) may sit between the boundary and CRLF,
  // at most kMaxPaddingBytes of it however the body was cut into chunks.
  size_t pos = buf_.find_first_not_of(" \t");
  size_t padding = pos == std::string::npos ? buf_.size() : pos;
  if (padding > kMaxPaddingBytes) return BadBody("bad boundary line");
  if (pos == std::string::npos || pos + 1 >= buf_.size()) return orvel::Status::OK();
  if (buf_[pos] != '\r' || buf_[pos + 1] != '\n') return BadBody("bad boundary line");
  buf_.erase(0, pos + 2);
  state_ = State::kHeaders;
  *progressed = true;
  return orvel::Status::OK();
}

orvel::Status MultipartParser::StepHeaders(bool* progressed) {
  std::string block;
  size_t consumed;
  if (buf_.size() >= 2 && buf_.compare(0, 2, "\r\n") == 0) {
    consumed = 2;  // a part without headers
  } else {
    // Resume where the last search stopped, so a block that arrives a byte
    // at a time is not searched again from its start each time.
    size_t end = buf_.find("\r\n\r\n", header_scan_);
    if (end == std::string::npos) {
      // A block of up to kMaxHeaderBytes may still end in the next bytes
      // until its blank line could no longer fit.
      if (buf_.size() >= kMaxHeaderBytes + 4) return BadBody("part headers too long");
      header_scan_ = buf_.size() < 3 ? 0 : buf_.size() - 3;
      return orvel::Status::OK();
    }
    if (end > kMaxHeaderBytes) return BadBody("part headers too long");
    block = buf_.substr(0, end);
    consumed = end + 4;
  }
  buf_.erase(0, consumed);
  header_scan_ = 0;
  ORVEL_RETURN_IF_ERROR(handler_->OnPartBegin(ParsePartHeaders(block)));
  state_ = State::kBody;
  *progressed = true;
  return orvel::Status::OK();
}

orvel::Status MultipartParser::StepBody(bool* progressed) {
  size_t pos = buf_.find(delimiter_);
  if (pos == std::string::npos) {
    // Everything but a possible partial delimiter at the end is content.
    size_t keep = delimiter_.size() - 1;
    if (buf_.size() > keep) {
      size_t emit = buf_.size() - keep;
      ORVEL_RETURN_IF_ERROR(handler_->OnPartData(buf_.data(), emit));
      buf_.erase(0, emit);
    }
    return orvel::Status::OK();
  }
  if (pos > 0) ORVEL_RETURN_IF_ERROR(handler_->OnPartData(buf_.data(), pos));
  ORVEL_RETURN_IF_ERROR(handler_->OnPartEnd());
  buf_.erase(0, pos + delimiter_.size());
  state_ = State::kAfterDelimiter;
  *progressed = true;
  return orvel::Status::OK();
}

}  // namespace zemo::cgi
