// msgpack encoding of PObject values and length-prefixed framing on a socket.
#include "orvelcommon/wire.h"

#include <errno.h>
#include <msgpack.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "item_record_msgpack.h"

namespace orvel::wire {

int AppendToString(void* data, const char* buf, size_t len) {
  static_cast<std::string*>(data)->append(buf, len);
  return 0;
}

namespace {

void Pack(msgpack_packer* pk, const PObject& v) {
  switch (v.type()) {
    case PObject::Type::kNull: msgpack_pack_nil(pk); break;
    case PObject::Type::kBool:
      if (v.asBool()) msgpack_pack_true(pk); else msgpack_pack_false(pk);
      break;
    case PObject::Type::kInt: msgpack_pack_int64(pk, v.asInt64()); break;
    case PObject::Type::kUInt: msgpack_pack_uint64(pk, v.asUInt64()); break;
    case PObject::Type::kDouble: msgpack_pack_double(pk, v.asDouble()); break;
    case PObject::Type::kString: {
      const std::string& s = v.asString();
      msgpack_pack_str(pk, s.size());
      msgpack_pack_str_body(pk, s.data(), s.size());
      break;
    }
    case PObject::Type::kArray:
      msgpack_pack_array(pk, v.asArray().size());
      for (const auto& e : v.asArray()) Pack(pk, e);
      break;
    case PObject::Type::kMap:
      msgpack_pack_map(pk, v.asMap().size());
      for (const auto& [k, e] : v.asMap()) {
        msgpack_pack_str(pk, k.size());
        msgpack_pack_str_body(pk, k.data(), k.size());
        Pack(pk, e);
      }
      break;
    case PObject::Type::kPacked:
      pk->callback(pk->data, v.packedBytes().data(), v.packedBytes().size());
      break;
  }
}

bool Unpack(const msgpack_object& o, PObject* out) {
  switch (o.type) {
    case MSGPACK_OBJECT_NIL: *out = PObject(); return true;
    case MSGPACK_OBJECT_BOOLEAN: *out = PObject(o.via.boolean); return true;
    case MSGPACK_OBJECT_POSITIVE_INTEGER:
      *out = PObject(static_cast<unsigned long long>(o.via.u64));
      return true;
    case MSGPACK_OBJECT_NEGATIVE_INTEGER:
      *out = PObject(static_cast<long long>(o.via.i64));
      return true;
    case MSGPACK_OBJECT_FLOAT32:
    case MSGPACK_OBJECT_FLOAT64: *out = PObject(o.via.f64); return true;
    case MSGPACK_OBJECT_STR: *out = PObject(std::string(o.via.str.ptr, o.via.str.size)); return true;
    case MSGPACK_OBJECT_BIN: *out = PObject(std::string(o.via.bin.ptr, o.via.bin.size)); return true;
    case MSGPACK_OBJECT_ARRAY: {
      PObject::Array a;
      a.reserve(o.via.array.size);
      for (uint32_t i = 0; i < o.via.array.size; ++i) {
        a.emplace_back();
        if (!Unpack(o.via.array.ptr[i], &a.back())) return false;
      }
      *out = PObject(std::move(a));
      return true;
    }
    case MSGPACK_OBJECT_MAP: {
      PObject::Map m;
      for (uint32_t i = 0; i < o.via.map.size; ++i) {
        const msgpack_object& k = o.via.map.ptr[i].key;
        if (k.type != MSGPACK_OBJECT_STR) return false;
        if (!Unpack(o.via.map.ptr[i].val, &m[std::string(k.via.str.ptr, k.via.str.size)])) {
          return false;
        }
      }
      *out = PObject(std::move(m));
      return true;
    }
    default: return false;
  }
}

// Big-endian unsigned integer of n bytes at p.
uint64_t ReadBE(const unsigned char* p, size_t n) {
  uint64_t v = 0;
  for (size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
  return v;
}

// Walks the one msgpack value at data[*at] without building anything and
// moves *at past it; false when the value's arrays, maps, strings or
// binaries announce more than the bytes that remain, or it holds more than
// kMaxFrameValues values.
bool WalkValue(const char* data, size_t len, size_t* at) {
  const auto* p = reinterpret_cast<const unsigned char*>(data);
  size_t off = *at;
  uint64_t pending = 1;  // objects still to read; each needs at least a byte
  uint64_t total = 1;    // objects announced so far
  while (pending > 0) {
    if (off >= len || pending > len - off || total > kMaxFrameValues) return false;
    --pending;
    const unsigned b = p[off++];
    uint64_t skip = 0, count = 0;
    size_t size_bytes = 0;  // bytes of a length or count field
    bool is_map = false, is_container = false;
    if (b <= 0x7f || b >= 0xe0 || b == 0xc0 || b == 0xc2 || b == 0xc3) {
      // fixint, nil, booleans: the byte itself
    } else if (b <= 0x8f) {
      count = b & 0x0f, is_map = is_container = true;
    } else if (b <= 0x9f) {
      count = b & 0x0f, is_container = true;
    } else if (b <= 0xbf) {
      skip = b & 0x1f;
    } else if (b == 0xc4 || b == 0xd9) {
      size_bytes = 1;
    } else if (b == 0xc5 || b == 0xda) {
      size_bytes = 2;
    } else if (b == 0xc6 || b == 0xdb) {
      size_bytes = 4;
    } else if (b >= 0xc7 && b <= 0xc9) {  // ext 8/16/32: length, then a type byte
      size_bytes = size_t{1} << (b - 0xc7), skip = 1;
    } else if (b == 0xca || b == 0xcb) {
      skip = b == 0xca ? 4 : 8;
    } else if (b >= 0xcc && b <= 0xd3) {  // uint and int 8..64
      skip = size_t{1} << ((b - 0xcc) & 3);
    } else if (b >= 0xd4 && b <= 0xd8) {  // fixext: type byte and 1..16 bytes
      skip = 1 + (size_t{1} << (b - 0xd4));
    } else if (b == 0xdc || b == 0xdd) {
      size_bytes = b == 0xdc ? 2 : 4, is_container = true;
    } else if (b == 0xde || b == 0xdf) {
      size_bytes = b == 0xde ? 2 : 4, is_map = is_container = true;
    } else {
      return false;  // 0xc1 is never used
    }
    if (size_bytes > 0) {
      if (len - off < size_bytes) return false;
      const uint64_t n = ReadBE(p + off, size_bytes);
      off += size_bytes;
      if (is_container) count = n; else skip += n;
    }
    if (skip > len - off) return false;
    off += static_cast<size_t>(skip);
    if (is_container) {
      pending += is_map ? 2 * count : count;
      total += is_map ? 2 * count : count;
    }
  }
  *at = off;
  return true;
}

// Refuses a message that WalkValue refuses. The unpacker allocates a
// container's slots from its count before it reads the elements, so a few
// bytes could otherwise ask for gigabytes; with this check its memory stays
// proportional to the message, and the number of values (each a PObject of
// about a hundred bytes) is bounded.
bool ShapeFits(const char* data, size_t len) {
  size_t off = 0;
  return WalkValue(data, len, &off);
}

// Reads exactly len bytes; 0 on success, else errno (0 read at start = EOF).
int ReadFull(int fd, char* buf, size_t len, size_t* got) {
  *got = 0;
  while (*got < len) {
    ssize_t n = ::read(fd, buf + *got, len - *got);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (n == 0) return ECONNRESET;
    *got += static_cast<size_t>(n);
  }
  return 0;
}

Status IoError(const char* op, int err) {
  if (err == EAGAIN || err == EWOULDBLOCK) {
    return Status(kErrBusy, std::string(op) + ": sync service timed out");
  }
  return Status(kErrBusy, std::string(op) + ": " + std::strerror(err));
}

}  // namespace

namespace {

// Fills *out from the answer map o, the items of its result into *items.
bool UnpackWithItems(const msgpack_object& o, PObject* out, std::vector<ItemRecord>* items) {
  items->clear();
  if (o.type != MSGPACK_OBJECT_MAP) return Unpack(o, out);
  *out = PObject::MakeMap();
  for (uint32_t i = 0; i < o.via.map.size; ++i) {
    const msgpack_object_kv& kv = o.via.map.ptr[i];
    if (kv.key.type != MSGPACK_OBJECT_STR) return false;
    const std::string key(kv.key.via.str.ptr, kv.key.via.str.size);
    if (key != "result" || kv.val.type != MSGPACK_OBJECT_MAP) {
      if (key == "result") items->clear();
      if (!Unpack(kv.val, &(*out)[key])) return false;
      continue;
    }
    PObject& result = (*out)[key] = PObject::MakeMap();
    items->clear();
    for (uint32_t j = 0; j < kv.val.via.map.size; ++j) {
      const msgpack_object_kv& member = kv.val.via.map.ptr[j];
      if (member.key.type != MSGPACK_OBJECT_STR) return false;
      const std::string name(member.key.via.str.ptr, member.key.via.str.size);
      if (name != "items") {
        if (!Unpack(member.val, &result[name])) return false;
        continue;
      }
      result.remove(name);
      items->clear();
      if (!wire_internal::Decodable(member.val)) return false;
      if (member.val.type != MSGPACK_OBJECT_ARRAY) continue;
      items->resize(member.val.via.array.size);
      for (uint32_t k = 0; k < member.val.via.array.size; ++k) {
        wire_internal::ItemRecordFromMsgpack(member.val.via.array.ptr[k], &(*items)[k]);
      }
    }
  }
  return true;
}

// Unpacks one whole message with fn(object); false when malformed.
template <typename Fn>
bool UnpackMessage(const char* data, size_t len, Fn fn) {
  if (!ShapeFits(data, len)) return false;
  msgpack_unpacked result;
  msgpack_unpacked_init(&result);
  size_t off = 0;
  msgpack_unpack_return ret = msgpack_unpack_next(&result, data, len, &off);
  const bool ok = ret == MSGPACK_UNPACK_SUCCESS && off == len && fn(result.data);
  msgpack_unpacked_destroy(&result);
  return ok;
}

// A length or count of n big-endian bytes at data[*off].
bool LengthAt(const char* data, size_t len, size_t* off, size_t n, uint64_t* v) {
  if (len - *off < n) return false;
  *v = ReadBE(reinterpret_cast<const unsigned char*>(data) + *off, n);
  *off += n;
  return true;
}

// The map header at *off, in any of its encodings: its count in *n.
bool MapAt(const char* data, size_t len, size_t* off, uint64_t* n) {
  if (*off >= len) return false;
  const unsigned b = static_cast<unsigned char>(data[(*off)++]);
  if (b >= 0x80 && b <= 0x8f) return *n = b & 0x0f, true;
  if (b == 0xde) return LengthAt(data, len, off, 2, n);
  if (b == 0xdf) return LengthAt(data, len, off, 4, n);
  return false;
}

// The string at *off, in any of its encodings (not a binary).
bool StrAt(const char* data, size_t len, size_t* off, std::string* s) {
  if (*off >= len) return false;
  const unsigned b = static_cast<unsigned char>(data[(*off)++]);
  uint64_t n = 0;
  if (b >= 0xa0 && b <= 0xbf) n = b & 0x1f;
  else if (!((b == 0xd9 && LengthAt(data, len, off, 1, &n)) || (b == 0xda && LengthAt(data, len, off, 2, &n)) ||
             (b == 0xdb && LengthAt(data, len, off, 4, &n))))
    return false;
  if (len - *off < n) return false;
  s->assign(data + *off, static_cast<size_t>(n));
  *off += static_cast<size_t>(n);
  return true;
}

// The value at *off decoded the general way (Decode) into *out.
bool ValueAt(const char* data, size_t len, size_t* off, PObject* out) {
  const size_t start = *off;
  return WalkValue(data, len, off) && Decode(data + start, *off - start, out).ok();
}

// A listing's answer, {"ok": ..., "result": {"items": [...], ...}}, whose
// items are exactly as PackedItemRecords writes them: the records are read
// straight from the bytes, every other value the general way. It gives what
// UnpackWithItems gives. False, with *out untouched, for any other shape (no
// "items", a repeated key, a record in another form): the caller then
// decodes the general way.
bool DecodeCanonicalAnswer(const char* data, size_t len, PObject* out, std::vector<ItemRecord>* items) {
  size_t off = 0;
  uint64_t members = 0;
  if (!MapAt(data, len, &off, &members)) return false;
  PObject answer = PObject::MakeMap();
  bool got_items = false;
  std::string key;
  for (uint64_t i = 0; i < members; ++i) {
    if (!StrAt(data, len, &off, &key) || answer.hasMember(key)) return false;
    if (key != "result") {
      if (!ValueAt(data, len, &off, &answer[key])) return false;
      continue;
    }
    uint64_t result_members = 0;
    if (!MapAt(data, len, &off, &result_members)) return false;
    PObject& result = answer[key] = PObject::MakeMap();
    for (uint64_t j = 0; j < result_members; ++j) {
      if (!StrAt(data, len, &off, &key)) return false;
      if (key == "items") {
        if (got_items || !wire_internal::CanonicalItemsFrom(data, len, &off, items)) return false;
        got_items = true;
      } else if (result.hasMember(key) || !ValueAt(data, len, &off, &result[key])) {
        return false;
      }
    }
  }
  if (!got_items || off != len) return false;
  *out = std::move(answer);
  return true;
}

// Each thread's buffers for frames on their way in and on their way out.
// They keep their size between frames: a listing's frames are about 80 KB,
// and a fresh string for each meant a zero-filled allocation on the way in
// and five reallocations on the way out. One far larger than usual is let go
// after use.
constexpr size_t kKeptFrameBuffer = 1u << 20;
std::string& ThreadFrameBuffer() {  // frames read
  thread_local std::string buffer;
  return buffer;
}
std::string& ThreadOutBuffer() {  // frames written
  thread_local std::string buffer;
  return buffer;
}
void TrimFrameBuffer(std::string* buffer) {
  if (buffer->capacity() > kKeptFrameBuffer) std::string().swap(*buffer);
}

// Reads one frame's body into the thread's buffer: its first *len bytes.
Status ReadFrameBody(int fd, const char** body, size_t* len, bool* eof) {
  if (eof) *eof = false;
  unsigned char hdr[4];
  size_t got = 0;
  int err = ReadFull(fd, reinterpret_cast<char*>(hdr), 4, &got);
  if (err != 0) {
    if (got == 0 && err == ECONNRESET && eof) *eof = true;
    return IoError("read", err);
  }
  uint32_t n = (uint32_t{hdr[0]} << 24) | (uint32_t{hdr[1]} << 16) | (uint32_t{hdr[2]} << 8) | hdr[3];
  if (n > kMaxFrameBytes) return Status(kErrInvalidArgument, "frame too large");
  std::string& buffer = ThreadFrameBuffer();
  if (buffer.size() < n) buffer.resize(n);  // grows only; what it held is overwritten
  err = ReadFull(fd, buffer.data(), n, &got);
  if (err != 0) return IoError("read", err);
  *body = buffer.data();
  *len = n;
  return Status::OK();
}

}  // namespace

std::string Encode(const PObject& value) {
  std::string out;
  EncodeInto(value, &out);
  return out;
}

void EncodeInto(const PObject& value, std::string* out) {
  msgpack_packer pk;
  msgpack_packer_init(&pk, out, AppendToString);
  Pack(&pk, value);
}

Status Decode(const char* data, size_t len, PObject* out) {
  if (!UnpackMessage(data, len, [&](const msgpack_object& o) { return Unpack(o, out); })) {
    return Status(kErrInvalidArgument, "malformed message");
  }
  return Status::OK();
}

Status DecodeWithItems(const char* data, size_t len, PObject* out, std::vector<ItemRecord>* items) {
  if (DecodeCanonicalAnswer(data, len, out, items)) return Status::OK();
  if (!UnpackMessage(data, len, [&](const msgpack_object& o) { return UnpackWithItems(o, out, items); })) {
    return Status(kErrInvalidArgument, "malformed message");
  }
  return Status::OK();
}

Status ReadItemsFrame(int fd, PObject* out, std::vector<ItemRecord>* items) {
  const char* body = nullptr;
  size_t len = 0;
  ORVEL_RETURN_IF_ERROR(ReadFrameBody(fd, &body, &len, nullptr));
  Status st = DecodeWithItems(body, len, out, items);
  TrimFrameBuffer(&ThreadFrameBuffer());
  return st;
}

Status WriteFrame(int fd, const PObject& value) {
  std::string& frame = ThreadOutBuffer();
  frame.assign(4, '\0');  // the length, filled in below
  EncodeInto(value, &frame);
  struct Trim {
    std::string* frame;
    ~Trim() { TrimFrameBuffer(frame); }
  } trim{&frame};
  if (frame.size() - 4 > kMaxFrameBytes) return Status(kErrTooLargeToAnswer, "message too large");
  const uint32_t n = static_cast<uint32_t>(frame.size() - 4);
  frame[0] = static_cast<char>(n >> 24);
  frame[1] = static_cast<char>(n >> 16);
  frame[2] = static_cast<char>(n >> 8);
  frame[3] = static_cast<char>(n);
  size_t done = 0;
  while (done < frame.size()) {
    ssize_t w = ::send(fd, frame.data() + done, frame.size() - done, MSG_NOSIGNAL);
    if (w < 0) {
      if (errno == EINTR) continue;
      return IoError("write", errno);
    }
    done += static_cast<size_t>(w);
  }
  return Status::OK();
}

Status ReadFrame(int fd, PObject* out, bool* eof) {
  const char* body = nullptr;
  size_t len = 0;
  ORVEL_RETURN_IF_ERROR(ReadFrameBody(fd, &body, &len, eof));
  Status st = Decode(body, len, out);
  TrimFrameBuffer(&ThreadFrameBuffer());
  return st;
}

PObject OkAnswer(PObject result) {
  PObject a = PObject::MakeMap();
  a["ok"] = true;
  a["result"] = std::move(result);
  return a;
}

PObject ErrorAnswer(const Status& st) {
  PObject a = PObject::MakeMap();
  a["ok"] = false;
  a["error"]["code"] = st.code();
  a["error"]["message"] = st.message();
  return a;
}

}  // namespace orvel::wire
