// A streaming multipart/form-data parser. The body is fed in chunks of any
// size and split wherever the transport split it; part contents are handed
// to a handler as they arrive, so memory use is bounded by the chunk size,
// the boundary and the part-header limit, never by the size of a part.
// One parser per request; not thread-safe.
#pragma once

#include <cstddef>
#include <string>

#include "orvelcommon/status.h"

namespace zemo::cgi {

// The error code of every malformed-body error (the API's 400).
constexpr int kErrBadBody = 400;

struct PartHeaders {
  std::string name;          // the form field name ("" when none was given)
  std::string filename;      // the file name of a file part
  bool has_filename = false; // a filename parameter was present
  std::string content_type;  // the part's Content-Type ("" when none)
};

// Receives a part's headers, its bytes in order, then its end. A non-OK
// status from any call stops the parse and is returned by Feed.
class MultipartHandler {
 public:
  virtual ~MultipartHandler() = default;
  virtual orvel::Status OnPartBegin(const PartHeaders& headers) = 0;
  virtual orvel::Status OnPartData(const char* data, size_t len) = 0;
  virtual orvel::Status OnPartEnd() = 0;
};

class MultipartParser {
 public:
  static constexpr size_t kMaxHeaderBytes = 16 * 1024;
  static constexpr size_t kMaxBoundaryBytes = 70;

  // boundary: the Content-Type's boundary parameter (without the dashes).
  MultipartParser(const std::string& boundary, MultipartHandler* handler);
  MultipartParser(const MultipartParser&) = delete;
  MultipartParser& operator=(const MultipartParser&) = delete;

  // A boundary the parser accepts: 1 to 70 characters.
  static bool ValidBoundary(const std::string& boundary);

  // Parses the next bytes of the body. Errors: kErrBadBody for a malformed
  // body, or whatever the handler returned.
  orvel::Status Feed(const char* data, size_t len);
  // The body ended: kErrBadBody unless the final boundary was seen.
  orvel::Status Finish();
  bool done() const { return state_ == State::kDone; }

 private:
  enum class State { kPreamble, kAfterDelimiter, kHeaders, kBody, kDone };

  orvel::Status FeedBodyInPlace(const char* data, size_t len, bool* consumed);
  orvel::Status Step(bool* progressed);
  orvel::Status StepPreamble(bool* progressed);
  orvel::Status StepAfterDelimiter(bool* progressed);
  orvel::Status StepHeaders(bool* progressed);
  orvel::Status StepBody(bool* progressed);

  std::string delimiter_;  // CRLF "--" boundary
  MultipartHandler* handler_;
  std::string buf_;        // bytes received but not yet consumed
  size_t header_scan_ = 0; // where the search for the end of the part headers resumes
  State state_ = State::kPreamble;
};

// Parses a part's header block (lines separated by CRLF, without the blank
// line that ends it). Unknown headers are ignored.
PartHeaders ParsePartHeaders(const std::string& block);

}  // namespace zemo::cgi
