// The responder state machine; see decoder.h. Not thread-safe.
#include "fcgi/decoder.h"

namespace zemo::fcgi {

namespace {

orvel::Status Bad(const std::string& what) {
  return orvel::Status(orvel::kErrInvalidArgument, "FastCGI: " + what);
}

}  // namespace

orvel::Status Decoder::OnRecord(const Header& h, const uint8_t* content, Outcome* out) {
  *out = Outcome();
  if (h.request_id == 0) return OnManagement(h, content, out);
  if (h.type == kBeginRequest) return OnBegin(h, content, out);
  if (state_ == State::kIdle || h.request_id != id_) return OnStray(h);
  switch (h.type) {
    case kAbortRequest:
      out->event = Event::kAbort;
      return orvel::Status::OK();
    case kParams:
      return OnParams(h, content, out);
    case kStdin:
      if (!IsBodyRecord(h)) return Bad("body record before the parameters ended or after the body");
      out->event = OnStdinHeader(h);
      out->data = content;
      out->len = h.content_length;
      return orvel::Status::OK();
    default:
      return OnStray(h);
  }
}

bool Decoder::IsBodyRecord(const Header& h) const {
  return h.type == kStdin && state_ == State::kBody && h.request_id == id_;
}

Decoder::Event Decoder::OnStdinHeader(const Header& h) {
  if (h.content_length != 0) return Event::kStdin;
  state_ = State::kDone;
  return Event::kStdinEnd;
}

void Decoder::Reset() {
  state_ = State::kIdle;
  id_ = 0;
  keep_conn_ = false;
  params_text_.clear();
  params_text_.shrink_to_fit();
  params_.clear();
  params_records_ = 0;
  stray_ = 0;
}

orvel::Status Decoder::OnManagement(const Header& h, const uint8_t* content, Outcome* out) {
  if (++management_ > limits_.management_max) {
    return Bad("more than " + std::to_string(limits_.management_max) + " management records");
  }
  out->event = Event::kReply;
  if (h.type != kGetValues) {
    out->reply = UnknownTypeRecord(h.type);
    return orvel::Status::OK();
  }
  Pairs query;
  ORVEL_RETURN_IF_ERROR(ParsePairs(content, h.content_length, limits_.pairs, &query));
  out->reply = GetValuesResult(query);
  return orvel::Status::OK();
}

orvel::Status Decoder::OnBegin(const Header& h, const uint8_t* content, Outcome* out) {
  if (state_ != State::kIdle) {
    if (h.request_id == id_) return Bad("request " + std::to_string(id_) + " begun twice");
    // One request per connection at a time: refuse the other one.
    ORVEL_RETURN_IF_ERROR(OnStray(h));
    out->event = Event::kReply;
    out->reply = EndRequestRecord(h.request_id, 0, kCantMpxConn);
    return orvel::Status::OK();
  }
  BeginBody body;
  ORVEL_RETURN_IF_ERROR(ParseBeginBody(content, h.content_length, &body));
  if (body.role != kRoleResponder) {
    out->event = Event::kReply;
    out->reply = EndRequestRecord(h.request_id, 0, kUnknownRole);
    return orvel::Status::OK();
  }
  state_ = State::kParams;
  id_ = h.request_id;
  keep_conn_ = (body.flags & kKeepConn) != 0;
  return orvel::Status::OK();
}

orvel::Status Decoder::OnParams(const Header& h, const uint8_t* content, Outcome* out) {
  if (state_ != State::kParams) return Bad("parameters after their end");
  if (++params_records_ > limits_.params_records_max) {
    return Bad("more than " + std::to_string(limits_.params_records_max) + " parameter records");
  }
  if (h.content_length != 0) {
    if (params_text_.size() + h.content_length > limits_.pairs.total_max) {
      return Bad("parameters over " + std::to_string(limits_.pairs.total_max) + " bytes");
    }
    params_text_.append(reinterpret_cast<const char*>(content), h.content_length);
    return orvel::Status::OK();
  }
  ORVEL_RETURN_IF_ERROR(ParsePairs(reinterpret_cast<const uint8_t*>(params_text_.data()),
                                   params_text_.size(), limits_.pairs, &params_));
  params_text_.clear();
  state_ = State::kBody;
  out->event = Event::kRequestReady;
  return orvel::Status::OK();
}

// A record for a request that is not open (the protocol says to ignore it),
// or of a type a responder does not take.
orvel::Status Decoder::OnStray(const Header& /*h*/) {
  if (++stray_ > limits_.stray_max) {
    return Bad("more than " + std::to_string(limits_.stray_max) + " records for no open request");
  }
  return orvel::Status::OK();
}

}  // namespace zemo::fcgi
