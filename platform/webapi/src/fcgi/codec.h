// The FastCGI wire format as entry.cgi speaks it in its persistent mode: the
// 8-byte record header, the bodies of BEGIN_REQUEST, END_REQUEST and
// UNKNOWN_TYPE, and the name-value pairs of PARAMS and GET_VALUES. Pure
// functions over byte buffers: no I/O, no allocation beyond the outputs the
// caller passes. Thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "orvelcommon/status.h"

namespace zemo::fcgi {

constexpr uint8_t kVersion = 1;
constexpr size_t kHeaderLen = 8;
constexpr size_t kMaxContent = 65535;  // content bytes one record can carry

enum RecordType : uint8_t {
  kBeginRequest = 1,
  kAbortRequest = 2,
  kEndRequest = 3,
  kParams = 4,
  kStdin = 5,
  kStdout = 6,
  kStderr = 7,
  kData = 8,
  kGetValues = 9,
  kGetValuesResult = 10,
  kUnknownType = 11,
};

constexpr uint16_t kRoleResponder = 1;
constexpr uint8_t kKeepConn = 1;  // BEGIN_REQUEST flag

enum ProtocolStatus : uint8_t {
  kRequestComplete = 0,
  kCantMpxConn = 1,
  kOverloaded = 2,
  kUnknownRole = 3,
};

struct Header {
  uint8_t type = 0;
  uint16_t request_id = 0;
  uint16_t content_length = 0;
  uint8_t padding_length = 0;
};

// Decodes a header; kErrInvalidArgument unless the version is 1.
orvel::Status ParseHeader(const uint8_t* p, Header* out);
// Writes a header (version 1) into out[0..7].
void EncodeHeader(uint8_t type, uint16_t request_id, uint16_t content_length,
                  uint8_t padding_length, uint8_t* out);

struct BeginBody {
  uint16_t role = 0;
  uint8_t flags = 0;
};
// The 8-byte body of BEGIN_REQUEST; kErrInvalidArgument when shorter.
orvel::Status ParseBeginBody(const uint8_t* p, size_t len, BeginBody* out);

// A whole END_REQUEST record (header and body, 16 bytes).
std::string EndRequestRecord(uint16_t request_id, uint32_t app_status, uint8_t protocol_status);
// A whole UNKNOWN_TYPE record answering a management record of that type.
std::string UnknownTypeRecord(uint8_t type);

// Limits of a name-value decoder: total bytes, one name, one value, pairs.
struct PairLimits {
  size_t total_max = 256 * 1024;
  size_t name_max = 1024;
  size_t value_max = 128 * 1024;
  size_t pairs_max = 512;
};

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Decodes the name-value pairs of a complete stream (PARAMS or GET_VALUES
// content). kErrInvalidArgument for a truncated pair or a length over a limit
// (the message says which); *out is then left with the pairs before it.
orvel::Status ParsePairs(const uint8_t* p, size_t len, const PairLimits& limits, Pairs* out);
// Appends one encoded name-value pair to *out.
void AppendPair(const std::string& name, const std::string& value, std::string* out);
// Appends a whole record of that type (header, content, no padding); content
// must be at most kMaxContent bytes.
void AppendRecord(uint8_t type, uint16_t request_id, const std::string& content, std::string* out);

// The GET_VALUES_RESULT record for a GET_VALUES query: FCGI_MAX_CONNS and
// FCGI_MAX_REQS are 1, FCGI_MPXS_CONNS is 0; names we do not know are left
// out, as the protocol asks.
std::string GetValuesResult(const Pairs& query);

}  // namespace zemo::fcgi
