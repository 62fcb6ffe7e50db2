// The FastCGI wire format; see codec.h. Thread-safe.
#include "fcgi/codec.h"

namespace zemo::fcgi {

namespace {

orvel::Status Bad(const std::string& what) {
  return orvel::Status(orvel::kErrInvalidArgument, "FastCGI: " + what);
}

// A pair length: one byte below 128, else four bytes with the top bit set.
bool ReadLength(const uint8_t* p, size_t len, size_t* pos, size_t* out) {
  if (*pos >= len) return false;
  if ((p[*pos] & 0x80) == 0) {
    *out = p[(*pos)++];
    return true;
  }
  if (len - *pos < 4) return false;
  *out = (static_cast<size_t>(p[*pos] & 0x7f) << 24) | (static_cast<size_t>(p[*pos + 1]) << 16) |
         (static_cast<size_t>(p[*pos + 2]) << 8) | p[*pos + 3];
  *pos += 4;
  return true;
}

void AppendLength(size_t n, std::string* out) {
  if (n < 128) {
    out->push_back(static_cast<char>(n));
    return;
  }
  out->push_back(static_cast<char>(0x80 | ((n >> 24) & 0x7f)));
  out->push_back(static_cast<char>((n >> 16) & 0xff));
  out->push_back(static_cast<char>((n >> 8) & 0xff));
  out->push_back(static_cast<char>(n & 0xff));
}

}  // namespace

orvel::Status ParseHeader(const uint8_t* p, Header* out) {
  if (p[0] != kVersion) return Bad("unsupported version " + std::to_string(p[0]));
  out->type = p[1];
  out->request_id = static_cast<uint16_t>((p[2] << 8) | p[3]);
  out->content_length = static_cast<uint16_t>((p[4] << 8) | p[5]);
  out->padding_length = p[6];
  return orvel::Status::OK();
}

void EncodeHeader(uint8_t type, uint16_t request_id, uint16_t content_length,
                  uint8_t padding_length, uint8_t* out) {
  out[0] = kVersion;
  out[1] = type;
  out[2] = static_cast<uint8_t>(request_id >> 8);
  out[3] = static_cast<uint8_t>(request_id & 0xff);
  out[4] = static_cast<uint8_t>(content_length >> 8);
  out[5] = static_cast<uint8_t>(content_length & 0xff);
  out[6] = padding_length;
  out[7] = 0;
}

orvel::Status ParseBeginBody(const uint8_t* p, size_t len, BeginBody* out) {
  if (len < 8) return Bad("BEGIN_REQUEST body of " + std::to_string(len) + " bytes");
  out->role = static_cast<uint16_t>((p[0] << 8) | p[1]);
  out->flags = p[2];
  return orvel::Status::OK();
}

std::string EndRequestRecord(uint16_t request_id, uint32_t app_status, uint8_t protocol_status) {
  std::string body(8, '\0');
  body[0] = static_cast<char>(app_status >> 24);
  body[1] = static_cast<char>((app_status >> 16) & 0xff);
  body[2] = static_cast<char>((app_status >> 8) & 0xff);
  body[3] = static_cast<char>(app_status & 0xff);
  body[4] = static_cast<char>(protocol_status);
  std::string out;
  AppendRecord(kEndRequest, request_id, body, &out);
  return out;
}

std::string UnknownTypeRecord(uint8_t type) {
  std::string body(8, '\0');
  body[0] = static_cast<char>(type);
  std::string out;
  AppendRecord(kUnknownType, 0, body, &out);
  return out;
}

orvel::Status ParsePairs(const uint8_t* p, size_t len, const PairLimits& limits, Pairs* out) {
  if (len > limits.total_max) return Bad("parameters over " + std::to_string(limits.total_max) + " bytes");
  size_t pos = 0;
  while (pos < len) {
    size_t name_len = 0, value_len = 0;
    if (!ReadLength(p, len, &pos, &name_len) || !ReadLength(p, len, &pos, &value_len)) {
      return Bad("truncated parameter length");
    }
    if (name_len > limits.name_max) return Bad("parameter name over " + std::to_string(limits.name_max) + " bytes");
    if (value_len > limits.value_max) return Bad("parameter value over " + std::to_string(limits.value_max) + " bytes");
    if (len - pos < name_len + value_len) return Bad("truncated parameter");
    if (out->size() >= limits.pairs_max) return Bad("more than " + std::to_string(limits.pairs_max) + " parameters");
    const char* base = reinterpret_cast<const char*>(p + pos);
    out->emplace_back(std::string(base, name_len), std::string(base + name_len, value_len));
    pos += name_len + value_len;
  }
  return orvel::Status::OK();
}

void AppendPair(const std::string& name, const std::string& value, std::string* out) {
  AppendLength(name.size(), out);
  AppendLength(value.size(), out);
  out->append(name);
  out->append(value);
}

void AppendRecord(uint8_t type, uint16_t request_id, const std::string& content, std::string* out) {
  uint8_t header[kHeaderLen];
  EncodeHeader(type, request_id, static_cast<uint16_t>(content.size()), 0, header);
  out->append(reinterpret_cast<const char*>(header), kHeaderLen);
  out->append(content);
}

std::string GetValuesResult(const Pairs& query) {
  std::string content;
  for (const auto& [name, value] : query) {
    (void)value;
    if (name == "FCGI_MAX_CONNS" || name == "FCGI_MAX_REQS") AppendPair(name, "1", &content);
    if (name == "FCGI_MPXS_CONNS") AppendPair(name, "0", &content);
  }
  std::string out;
  AppendRecord(kGetValuesResult, 0, content, &out);
  return out;
}

}  // namespace zemo::fcgi
