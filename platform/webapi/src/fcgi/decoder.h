// The responder side of a FastCGI connection as a state machine over whole
// records: BEGIN_REQUEST, PARAMS until the empty record, then the request
// body as STDIN records until the empty one. Management records (request id
// 0) are answered at once: GET_VALUES with our limits, anything else with
// UNKNOWN_TYPE. One request at a time: a BEGIN_REQUEST for a second id while
// one is open is refused with END_REQUEST(CANT_MPX_CONN). Every count and
// size has a limit, so a peer cannot make the decoder grow without bound.
// Pure (no I/O): the caller reads records and writes the replies. One per
// connection; not thread-safe.
#pragma once

#include <cstdint>
#include <string>

#include "fcgi/codec.h"

namespace zemo::fcgi {

struct DecoderLimits {
  PairLimits pairs;
  size_t params_records_max = 1024;  // PARAMS records of one request
  size_t management_max = 64;        // management records of one connection
  size_t stray_max = 64;             // records for ids not open, per request
};

class Decoder {
 public:
  enum class Event {
    kNone,          // nothing for the caller (an ignored record, more PARAMS)
    kReply,         // send `reply` (a management answer or a refusal)
    kRequestReady,  // BEGIN and every PARAMS are in: params() is complete
    kStdin,         // body bytes: `data`, `len` (the record's content)
    kStdinEnd,      // the body ended
    kAbort,         // the peer aborted the open request
  };
  struct Outcome {
    Event event = Event::kNone;
    std::string reply;
    const uint8_t* data = nullptr;
    size_t len = 0;
  };

  explicit Decoder(const DecoderLimits& limits = DecoderLimits()) : limits_(limits) {}

  // Takes one whole record. kErrInvalidArgument for a record that breaks
  // the protocol or a limit (the message says which): the connection must
  // be closed then.
  orvel::Status OnRecord(const Header& h, const uint8_t* content, Outcome* out);
  // Whether h is a body record of the open request whose content the caller
  // may move straight to the body's consumer instead of passing it to
  // OnRecord; it then calls OnStdinHeader(h) and handles the bytes itself.
  bool IsBodyRecord(const Header& h) const;
  // Accounts for a body record taken by the caller (see IsBodyRecord).
  // Event kStdin, or kStdinEnd for the empty record.
  Event OnStdinHeader(const Header& h);

  // Ready for the next request on the same connection (management counts
  // are kept: they are per connection).
  void Reset();

  uint16_t request_id() const { return id_; }
  bool keep_conn() const { return keep_conn_; }
  bool body_ended() const { return state_ == State::kDone; }
  bool in_request() const { return state_ != State::kIdle; }
  const Pairs& params() const { return params_; }

 private:
  enum class State { kIdle, kParams, kBody, kDone };

  orvel::Status OnManagement(const Header& h, const uint8_t* content, Outcome* out);
  orvel::Status OnBegin(const Header& h, const uint8_t* content, Outcome* out);
  orvel::Status OnParams(const Header& h, const uint8_t* content, Outcome* out);
  orvel::Status OnStray(const Header& h);

  DecoderLimits limits_;
  State state_ = State::kIdle;
  uint16_t id_ = 0;
  bool keep_conn_ = false;
  std::string params_text_;
  Pairs params_;
  size_t params_records_ = 0;
  size_t management_ = 0;
  size_t stray_ = 0;
};

}  // namespace zemo::fcgi
