// The daemon's wire format: each message is a 4-byte big-endian length
// followed by a msgpack body holding one PObject. Requests and answers are
// maps (docs/wire.md lists the operations and their arguments).
//
// Functions here are stateless and thread-safe. Reads and writes retry EINTR
// and honour the socket's own time-outs (SO_RCVTIMEO / SO_SNDTIMEO).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <vector>

#include "orvelcommon/item_record.h"
#include "orvelcommon/pobject.h"
#include "orvelcommon/status.h"

namespace orvel::wire {

constexpr int kProtocolVersion = 11061;
constexpr uint32_t kMaxFrameBytes = 64u << 20;  // larger frames are refused
constexpr uint64_t kMaxFrameValues = 4u << 20;  // values (keys included) in one message

// Serialises a PObject to msgpack.
std::string Encode(const PObject& value);
// The same, appended to *out.
void EncodeInto(const PObject& value, std::string* out);
// A msgpack_packer write callback appending to the std::string it is given
// as data (no intermediate buffer to copy from).
int AppendToString(void* data, const char* buf, size_t len);
// Parses one msgpack value; kErrInvalidArgument for malformed input, for a
// container or string that announces more than the bytes left, and for a
// message of more than kMaxFrameValues values.
Status Decode(const char* data, size_t len, PObject* out);

// Writes one frame. kErrStorage with the errno text on failure.
Status WriteFrame(int fd, const PObject& value);
// Reads one frame. Returns kErrInvalidArgument for an oversized or malformed
// frame, kErrBusy on time-out, kErrStorage for other I/O errors, and sets
// *eof (when given) if the peer closed before the first byte.
Status ReadFrame(int fd, PObject* out, bool* eof = nullptr);

// Decode and ReadFrame for an answer whose "result" holds "items", an array
// of item records: the records go straight into *items, in order, each as
// ItemRecordFromPObject would make it, and "items" is left out of *out. The
// rest of *out, and every error, is what Decode gives.
Status DecodeWithItems(const char* data, size_t len, PObject* out, std::vector<ItemRecord>* items);
Status ReadItemsFrame(int fd, PObject* out, std::vector<ItemRecord>* items);

// Answer helpers: {"ok": true, "result": r} and {"ok": false, "error": {...}}.
PObject OkAnswer(PObject result);
PObject ErrorAnswer(const Status& st);

}  // namespace orvel::wire
