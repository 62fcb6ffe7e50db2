// Item records straight to and from msgpack; see item_record_msgpack.h. The
// encoding is byte for byte that of ItemRecordToPObject's map (keys sorted as
// the map orders them, the same integer kinds), and the decoding gives what
// ItemRecordFromPObject gives for the same bytes, so either side may use
// either path.
#include "item_record_msgpack.h"

#include "orvelcommon/wire.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace orvel {
namespace {

// A value as PObject's accessors read it.
PObject Scalar(const msgpack_object& o) {
  switch (o.type) {
    case MSGPACK_OBJECT_BOOLEAN: return PObject(o.via.boolean);
    case MSGPACK_OBJECT_POSITIVE_INTEGER: return PObject(static_cast<unsigned long long>(o.via.u64));
    case MSGPACK_OBJECT_NEGATIVE_INTEGER: return PObject(static_cast<long long>(o.via.i64));
    case MSGPACK_OBJECT_FLOAT32:
    case MSGPACK_OBJECT_FLOAT64: return PObject(o.via.f64);
    default: return PObject();
  }
}

uint64_t U64(const msgpack_object& o) {
  if (o.type == MSGPACK_OBJECT_POSITIVE_INTEGER) return o.via.u64;  // the common case, no PObject
  return Scalar(o).asUInt64();
}
uint32_t U32(const msgpack_object& o) { return static_cast<uint32_t>(U64(o)); }
bool Bool(const msgpack_object& o) {
  if (o.type == MSGPACK_OBJECT_BOOLEAN) return o.via.boolean;
  return Scalar(o).asBool();
}
std::string Str(const msgpack_object& o) {
  if (o.type == MSGPACK_OBJECT_STR) return std::string(o.via.str.ptr, o.via.str.size);
  if (o.type == MSGPACK_OBJECT_BIN) return std::string(o.via.bin.ptr, o.via.bin.size);
  return std::string();
}
std::string_view Key(const msgpack_object_kv& kv) {
  return std::string_view(kv.key.via.str.ptr, kv.key.via.str.size);
}

// Calls fn(key, value) for each member of o when it is a map (a later
// duplicate key overrides an earlier one, as in a PObject map).
template <typename Fn>
void ForEachMember(const msgpack_object& o, Fn fn) {
  if (o.type != MSGPACK_OBJECT_MAP) return;
  for (uint32_t i = 0; i < o.via.map.size; ++i) fn(Key(o.via.map.ptr[i]), o.via.map.ptr[i].val);
}

PermissionInfo PermissionFrom(const msgpack_object& o) {
  PermissionInfo p;
  ForEachMember(o, [&](std::string_view k, const msgpack_object& v) {
    if (k == "permission_id") p.permission_id = Str(v);
    else if (k == "type") p.type = Str(v);
    else if (k == "name") p.name = Str(v);
    else if (k == "role") p.role = Str(v);
    else if (k == "inherited") p.inherited = Bool(v);
  });
  return p;
}

LabelInfo LabelFrom(const msgpack_object& o) {
  LabelInfo l;
  ForEachMember(o, [&](std::string_view k, const msgpack_object& v) {
    if (k == "label_id") l.label_id = Str(v);
    else if (k == "name") l.name = Str(v);
    else if (k == "color") l.color = Str(v);
  });
  return l;
}

template <typename T, typename From>
std::vector<T> ListFrom(const msgpack_object& o, From from) {
  std::vector<T> out;
  if (o.type != MSGPACK_OBJECT_ARRAY) return out;
  out.reserve(o.via.array.size);
  for (uint32_t i = 0; i < o.via.array.size; ++i) out.push_back(from(o.via.array.ptr[i]));
  return out;
}

void CapabilitiesFrom(const msgpack_object& o, Capabilities* c) {
  *c = Capabilities();
  ForEachMember(o, [&](std::string_view k, const msgpack_object& v) {
    if (k == "can_preview") c->can_preview = Bool(v);
    else if (k == "can_read") c->can_read = Bool(v);
    else if (k == "can_write") c->can_write = Bool(v);
    else if (k == "can_delete") c->can_delete = Bool(v);
    else if (k == "can_rename") c->can_rename = Bool(v);
    else if (k == "can_comment") c->can_comment = Bool(v);
    else if (k == "can_share") c->can_share = Bool(v);
    else if (k == "can_encrypt") c->can_encrypt = Bool(v);
    else if (k == "can_organize") c->can_organize = Bool(v);
  });
}

void OwnerFrom(const msgpack_object& o, ItemRecord* f) {
  f->owner_name.clear();
  f->owner_display_name.clear();
  f->owner_uid = 0;
  ForEachMember(o, [&](std::string_view k, const msgpack_object& v) {
    if (k == "name") f->owner_name = Str(v);
    else if (k == "display_name") f->owner_display_name = Str(v);
    else if (k == "uid") f->owner_uid = U32(v);
  });
}

// The item map's members and how each is read, in the sorted key order in
// which the daemon writes them.
struct Member {
  std::string_view key;
  void (*read)(const msgpack_object& v, ItemRecord* f);
};
constexpr Member kMembers[] = {
    {"access_time", [](const msgpack_object& v, ItemRecord* f) { f->access_time = U32(v); }},
    {"adv_shared", [](const msgpack_object& v, ItemRecord* f) { f->adv_shared = Bool(v); }},
    {"app_properties", [](const msgpack_object& v, ItemRecord* f) { f->app_properties = Str(v); }},
    {"capabilities", [](const msgpack_object& v, ItemRecord* f) { CapabilitiesFrom(v, &f->capabilities); }},
    {"change_time", [](const msgpack_object& v, ItemRecord* f) { f->change_time = U32(v); }},
    {"content_snippet", [](const msgpack_object& v, ItemRecord* f) { f->content_snippet = Str(v); }},
    {"content_type", [](const msgpack_object& v, ItemRecord* f) { f->content_type = Str(v); }},
    {"created_time", [](const msgpack_object& v, ItemRecord* f) { f->created_time = U32(v); }},
    {"display_path", [](const msgpack_object& v, ItemRecord* f) { f->display_path = Str(v); }},
    {"encrypted", [](const msgpack_object& v, ItemRecord* f) { f->encrypted = Bool(v); }},
    {"file_id", [](const msgpack_object& v, ItemRecord* f) { f->file_id = Str(v); }},
    {"hash", [](const msgpack_object& v, ItemRecord* f) { f->hash = Str(v); }},
    {"labels", [](const msgpack_object& v, ItemRecord* f) { f->labels = ListFrom<LabelInfo>(v, LabelFrom); }},
    {"max_id", [](const msgpack_object& v, ItemRecord* f) { f->max_id = U64(v); }},
    {"modified_time", [](const msgpack_object& v, ItemRecord* f) { f->modified_time = U32(v); }},
    {"name", [](const msgpack_object& v, ItemRecord* f) { f->name = Str(v); }},
    {"original_path", [](const msgpack_object& v, ItemRecord* f) { f->original_path = Str(v); }},
    {"owner", [](const msgpack_object& v, ItemRecord* f) { OwnerFrom(v, f); }},
    {"parent_id", [](const msgpack_object& v, ItemRecord* f) { f->parent_id = Str(v); }},
    {"path", [](const msgpack_object& v, ItemRecord* f) { f->path = Str(v); }},
    {"permanent_link", [](const msgpack_object& v, ItemRecord* f) { f->permanent_link = Str(v); }},
    {"permissions",
     [](const msgpack_object& v, ItemRecord* f) { f->permissions = ListFrom<PermissionInfo>(v, PermissionFrom); }},
    {"properties", [](const msgpack_object& v, ItemRecord* f) { f->properties = Str(v); }},
    {"removed", [](const msgpack_object& v, ItemRecord* f) { f->removed = Bool(v); }},
    {"revisions", [](const msgpack_object& v, ItemRecord* f) { f->revisions = U32(v); }},
    {"shared", [](const msgpack_object& v, ItemRecord* f) { f->shared = Bool(v); }},
    {"size", [](const msgpack_object& v, ItemRecord* f) { f->size = U64(v); }},
    {"starred", [](const msgpack_object& v, ItemRecord* f) { f->starred = Bool(v); }},
    {"sync_id", [](const msgpack_object& v, ItemRecord* f) { f->sync_id = U64(v); }},
    {"sync_to_device", [](const msgpack_object& v, ItemRecord* f) { f->sync_to_device = Bool(v); }},
    {"tpx_path", [](const msgpack_object& v, ItemRecord* f) { f->tpx_path = Str(v); }},
    {"type", [](const msgpack_object& v, ItemRecord* f) { f->type = static_cast<int>(Scalar(v).asInt64()); }},
};
constexpr size_t kMemberCount = sizeof(kMembers) / sizeof(kMembers[0]);

// The member named k, or nullptr. *next is where the search starts, the
// member after the last one found: in the daemon's order every key is
// found with one comparison; in any other order, by a binary search.
const Member* FindMember(std::string_view k, size_t* next) {
  if (*next < kMemberCount && kMembers[*next].key == k) return &kMembers[(*next)++];
  const Member* end = kMembers + kMemberCount;
  const Member* m = std::lower_bound(static_cast<const Member*>(kMembers), end, k, [](const Member& a, std::string_view b) { return a.key < b; });
  if (m == end || m->key != k) return nullptr;
  *next = static_cast<size_t>(m - kMembers) + 1;
  return m;
}

// Writes msgpack after what a string holds: for each kind used here, the
// bytes msgpack-c's packer writes (the smallest encoding of each value). The
// string is grown ahead and written through a cursor, so a value costs a
// bounds check and a copy rather than a call into std::string (a page of 100
// items is some 7,000 values); Finish() trims the string to what was written.
class PackBuffer {
 public:
  // Room for `expected` bytes is made at once.
  PackBuffer(std::string* out, size_t expected) : out_(out), used_(out->size()) {
    out_->resize(used_ + expected);
  }
  void Finish() { out_->resize(used_); }

  // A key known when compiled: always a fixstr.
  template <size_t N>
  void Key(const char (&k)[N]) {
    static_assert(N - 1 < 32, "a key is a fixstr");
    char* p = Room(N);
    p[0] = static_cast<char>(0xa0 | (N - 1));
    std::memcpy(p + 1, k, N - 1);
    used_ += N;
  }
  void Str(std::string_view s) {
    Length(s.size(), 0xa0, 32, 0xd9, 0xda, 0xdb);
    std::memcpy(Room(s.size()), s.data(), s.size());
    used_ += s.size();
  }
  void Map(size_t n) { Length(n, 0x80, 16, 0, 0xde, 0xdf); }
  void Array(size_t n) { Length(n, 0x90, 16, 0, 0xdc, 0xdd); }
  void Bool(bool b) { Put(static_cast<char>(b ? 0xc3 : 0xc2)); }
  void UInt(uint64_t v) {
    if (v < 128) Put(static_cast<char>(v));
    else if (v < (1u << 8)) Big(0xcc, v, 1);
    else if (v < (1u << 16)) Big(0xcd, v, 2);
    else if (v < (1ull << 32)) Big(0xce, v, 4);
    else Big(0xcf, v, 8);
  }
  void Int(int64_t v) {
    if (v >= 0) return UInt(static_cast<uint64_t>(v));
    const uint64_t bits = static_cast<uint64_t>(v);
    if (v >= -32) Put(static_cast<char>(bits));
    else if (v >= -(1 << 7)) Big(0xd0, bits, 1);
    else if (v >= -(1 << 15)) Big(0xd1, bits, 2);
    else if (v >= -(1ll << 31)) Big(0xd2, bits, 4);
    else Big(0xd3, bits, 8);
  }

 private:
  // Where the next n bytes go; the string grows (at least doubling) when
  // it has less room than that.
  char* Room(size_t n) {
    if (out_->size() - used_ < n) out_->resize(std::max(out_->size() * 2, used_ + n));
    return &(*out_)[used_];
  }
  void Put(char c) {
    *Room(1) = c;
    ++used_;
  }
  // A length: in the first byte under `fix_limit`, else after the 8-bit
  // (when the kind has one), 16-bit or 32-bit marker.
  void Length(size_t n, uint8_t fix, size_t fix_limit, uint8_t m8, uint8_t m16, uint8_t m32) {
    if (n < fix_limit) Put(static_cast<char>(fix | n));
    else if (m8 != 0 && n < (1u << 8)) Big(m8, n, 1);
    else if (n < (1u << 16)) Big(m16, n, 2);
    else Big(m32, n, 4);
  }
  // A marker, then the low `bytes` bytes of v, most significant first.
  void Big(uint8_t marker, uint64_t v, int bytes) {
    char* p = Room(9);
    p[0] = static_cast<char>(marker);
    for (int i = 0; i < bytes; ++i) p[1 + i] = static_cast<char>(v >> (8 * (bytes - 1 - i)));
    used_ += static_cast<size_t>(bytes) + 1;
  }
  std::string* out_;
  size_t used_;
};

// Writers of a map member: the key, then the value in the kind the PObject
// form holds (unsigned for the unsigned fields, signed for "type").
struct MapWriter {
  PackBuffer* pk;
  template <size_t N>
  void Str(const char (&k)[N], const std::string& v) const { pk->Key(k), pk->Str(v); }
  template <size_t N>
  void UInt(const char (&k)[N], uint64_t v) const { pk->Key(k), pk->UInt(v); }
  template <size_t N>
  void Int(const char (&k)[N], int64_t v) const { pk->Key(k), pk->Int(v); }
  template <size_t N>
  void Bool(const char (&k)[N], bool v) const { pk->Key(k), pk->Bool(v); }
  template <size_t N>
  void Map(const char (&k)[N], size_t n) const { pk->Key(k), pk->Map(n); }
  template <size_t N>
  void Array(const char (&k)[N], size_t n) const { pk->Key(k), pk->Array(n); }
};

// The item map; members in sorted key order, as a PObject map packs them.
void PackItemRecord(PackBuffer* pk, const ItemRecord& f) {
  const MapWriter w{pk};
  pk->Map(32);
  w.UInt("access_time", f.access_time);
  w.Bool("adv_shared", f.adv_shared);
  w.Str("app_properties", f.app_properties);
  const Capabilities& c = f.capabilities;
  w.Map("capabilities", 9);
  w.Bool("can_comment", c.can_comment);
  w.Bool("can_delete", c.can_delete);
  w.Bool("can_encrypt", c.can_encrypt);
  w.Bool("can_organize", c.can_organize);
  w.Bool("can_preview", c.can_preview);
  w.Bool("can_read", c.can_read);
  w.Bool("can_rename", c.can_rename);
  w.Bool("can_share", c.can_share);
  w.Bool("can_write", c.can_write);
  w.UInt("change_time", f.change_time);
  w.Str("content_snippet", f.content_snippet);
  w.Str("content_type", f.content_type);
  w.UInt("created_time", f.created_time);
  w.Str("display_path", f.display_path);
  w.Bool("encrypted", f.encrypted);
  w.Str("file_id", f.file_id);
  w.Str("hash", f.hash);
  w.Array("labels", f.labels.size());
  for (const LabelInfo& l : f.labels) {
    pk->Map(3);
    w.Str("color", l.color);
    w.Str("label_id", l.label_id);
    w.Str("name", l.name);
  }
  w.UInt("max_id", f.max_id);
  w.UInt("modified_time", f.modified_time);
  w.Str("name", f.name);
  w.Str("original_path", f.original_path);
  w.Map("owner", 3);
  w.Str("display_name", f.owner_display_name);
  w.Str("name", f.owner_name);
  w.UInt("uid", f.owner_uid);
  w.Str("parent_id", f.parent_id);
  w.Str("path", f.path);
  w.Str("permanent_link", f.permanent_link);
  w.Array("permissions", f.permissions.size());
  for (const PermissionInfo& p : f.permissions) {
    pk->Map(5);
    w.Bool("inherited", p.inherited);
    w.Str("name", p.name);
    w.Str("permission_id", p.permission_id);
    w.Str("role", p.role);
    w.Str("type", p.type);
  }
  w.Str("properties", f.properties);
  w.Bool("removed", f.removed);
  w.UInt("revisions", f.revisions);
  w.Bool("shared", f.shared);
  w.UInt("size", f.size);
  w.Bool("starred", f.starred);
  w.UInt("sync_id", f.sync_id);
  w.Bool("sync_to_device", f.sync_to_device);
  w.Str("tpx_path", f.tpx_path);
  w.Int("type", f.type);
}

// Reads back exactly what PackItemRecord writes and nothing else: the same
// members in the same order, each in the kind the packer gives it. Anything
// else (another order, a missing or extra member, a binary string, a float)
// makes it fail, and the caller decodes the whole message the general way;
// so for every input it accepts, it gives what ItemRecordFromMsgpack gives,
// without building msgpack-c's object tree first.
class CanonicalReader {
 public:
  CanonicalReader(const char* data, size_t len, size_t off)
      : p_(reinterpret_cast<const unsigned char*>(data)), len_(len), off_(off) {}
  size_t off() const { return off_; }

  // A map of exactly n members, in the header the packer writes for n.
  bool Map(size_t n) {
    if (n < 16) return Byte(static_cast<unsigned char>(0x80 | n));
    uint64_t got = 0;
    return Byte(0xde) && BigEndian(2, &got) && got == n;
  }
  bool Array(size_t* n) {
    if (off_ >= len_) return false;
    const unsigned b = p_[off_];
    uint64_t got = 0;
    if (b >= 0x90 && b <= 0x9f) got = b & 0x0f, ++off_;
    else if (!((b == 0xdc && (++off_, BigEndian(2, &got))) || (b == 0xdd && (++off_, BigEndian(4, &got))))) return false;
    *n = static_cast<size_t>(got);
    return true;
  }
  // The key k, as the packer writes keys (all under 32 bytes: fixstr).
  bool Key(std::string_view k) {
    if (!Byte(static_cast<unsigned char>(0xa0 | k.size())) || len_ - off_ < k.size()) return false;
    if (std::memcmp(p_ + off_, k.data(), k.size()) != 0) return false;
    off_ += k.size();
    return true;
  }
  bool Str(std::string* out) {
    if (off_ >= len_) return false;
    const unsigned b = p_[off_++];
    uint64_t n = 0;
    if (b >= 0xa0 && b <= 0xbf) n = b & 0x1f;
    else if (!((b == 0xd9 && BigEndian(1, &n)) || (b == 0xda && BigEndian(2, &n)) || (b == 0xdb && BigEndian(4, &n))))
      return false;
    if (len_ - off_ < n) return false;
    out->assign(reinterpret_cast<const char*>(p_ + off_), static_cast<size_t>(n));
    off_ += static_cast<size_t>(n);
    return true;
  }
  bool UInt(uint64_t* v) {
    if (off_ >= len_) return false;
    const unsigned b = p_[off_++];
    if (b <= 0x7f) return *v = b, true;
    if (b < 0xcc || b > 0xcf) return false;
    return BigEndian(size_t{1} << (b - 0xcc), v);
  }
  bool UInt32(uint32_t* v) {  // as U32 reads it: the low 32 bits
    uint64_t w = 0;
    if (!UInt(&w)) return false;
    *v = static_cast<uint32_t>(w);
    return true;
  }
  bool Bool(bool* v) {
    if (off_ >= len_ || (p_[off_] != 0xc2 && p_[off_] != 0xc3)) return false;
    *v = p_[off_++] == 0xc3;
    return true;
  }
  // A fixint (-32 to 127), the only kind "type" comes in.
  bool SmallInt(int* v) {
    if (off_ >= len_) return false;
    const unsigned b = p_[off_];
    if (b > 0x7f && b < 0xe0) return false;
    *v = static_cast<int>(static_cast<signed char>(b));
    ++off_;
    return true;
  }

 private:
  bool Byte(unsigned char b) {
    if (off_ >= len_ || p_[off_] != b) return false;
    ++off_;
    return true;
  }
  bool BigEndian(size_t n, uint64_t* v) {
    if (len_ - off_ < n) return false;
    uint64_t r = 0;
    for (size_t i = 0; i < n; ++i) r = (r << 8) | p_[off_ + i];
    off_ += n;
    *v = r;
    return true;
  }

  const unsigned char* p_;
  size_t len_;
  size_t off_;
};

bool ReadCanonicalLabel(CanonicalReader& r, LabelInfo* l) {
  return r.Map(3) && r.Key("color") && r.Str(&l->color) && r.Key("label_id") && r.Str(&l->label_id) &&
         r.Key("name") && r.Str(&l->name);
}

bool ReadCanonicalPermission(CanonicalReader& r, PermissionInfo* p) {
  return r.Map(5) && r.Key("inherited") && r.Bool(&p->inherited) && r.Key("name") && r.Str(&p->name) &&
         r.Key("permission_id") && r.Str(&p->permission_id) && r.Key("role") && r.Str(&p->role) &&
         r.Key("type") && r.Str(&p->type);
}

template <typename T>
bool ReadCanonicalList(CanonicalReader& r, std::string_view key, bool (*read)(CanonicalReader&, T*),
                       std::vector<T>* out) {
  size_t n = 0;
  if (!r.Key(key) || !r.Array(&n)) return false;
  out->clear();
  for (size_t i = 0; i < n; ++i) {  // grown as elements are read, never from the count alone
    out->emplace_back();
    if (!read(r, &out->back())) return false;
  }
  return true;
}

// The members in PackItemRecord's order.
bool ReadCanonicalRecord(CanonicalReader& r, ItemRecord* f) {
  Capabilities& c = f->capabilities;
  return r.Map(32) && r.Key("access_time") && r.UInt32(&f->access_time) && r.Key("adv_shared") &&
         r.Bool(&f->adv_shared) && r.Key("app_properties") && r.Str(&f->app_properties) &&
         r.Key("capabilities") && r.Map(9) && r.Key("can_comment") && r.Bool(&c.can_comment) &&
         r.Key("can_delete") && r.Bool(&c.can_delete) && r.Key("can_encrypt") && r.Bool(&c.can_encrypt) &&
         r.Key("can_organize") && r.Bool(&c.can_organize) && r.Key("can_preview") && r.Bool(&c.can_preview) &&
         r.Key("can_read") && r.Bool(&c.can_read) && r.Key("can_rename") && r.Bool(&c.can_rename) &&
         r.Key("can_share") && r.Bool(&c.can_share) && r.Key("can_write") && r.Bool(&c.can_write) &&
         r.Key("change_time") && r.UInt32(&f->change_time) && r.Key("content_snippet") &&
         r.Str(&f->content_snippet) && r.Key("content_type") && r.Str(&f->content_type) &&
         r.Key("created_time") && r.UInt32(&f->created_time) && r.Key("display_path") &&
         r.Str(&f->display_path) && r.Key("encrypted") && r.Bool(&f->encrypted) && r.Key("file_id") &&
         r.Str(&f->file_id) && r.Key("hash") && r.Str(&f->hash) &&
         ReadCanonicalList<LabelInfo>(r, "labels", ReadCanonicalLabel, &f->labels) && r.Key("max_id") &&
         r.UInt(&f->max_id) && r.Key("modified_time") && r.UInt32(&f->modified_time) && r.Key("name") &&
         r.Str(&f->name) && r.Key("original_path") && r.Str(&f->original_path) && r.Key("owner") &&
         r.Map(3) && r.Key("display_name") && r.Str(&f->owner_display_name) && r.Key("name") &&
         r.Str(&f->owner_name) && r.Key("uid") && r.UInt32(&f->owner_uid) && r.Key("parent_id") &&
         r.Str(&f->parent_id) && r.Key("path") && r.Str(&f->path) && r.Key("permanent_link") &&
         r.Str(&f->permanent_link) &&
         ReadCanonicalList<PermissionInfo>(r, "permissions", ReadCanonicalPermission, &f->permissions) &&
         r.Key("properties") && r.Str(&f->properties) && r.Key("removed") && r.Bool(&f->removed) &&
         r.Key("revisions") && r.UInt32(&f->revisions) && r.Key("shared") && r.Bool(&f->shared) &&
         r.Key("size") && r.UInt(&f->size) && r.Key("starred") && r.Bool(&f->starred) && r.Key("sync_id") &&
         r.UInt(&f->sync_id) && r.Key("sync_to_device") && r.Bool(&f->sync_to_device) && r.Key("tpx_path") &&
         r.Str(&f->tpx_path) && r.Key("type") && r.SmallInt(&f->type);
}

}  // namespace

PObject PackedItemRecords(const std::vector<ItemRecord>& records) {
  std::string bytes;
  PackBuffer pk(&bytes, 64 + records.size() * 1024);  // a record is 600-900 bytes
  pk.Array(records.size());
  for (const ItemRecord& r : records) PackItemRecord(&pk, r);
  pk.Finish();
  return PObject::Packed(std::move(bytes));
}

namespace wire_internal {

bool Decodable(const msgpack_object& o) {
  switch (o.type) {
    case MSGPACK_OBJECT_ARRAY:
      for (uint32_t i = 0; i < o.via.array.size; ++i) {
        if (!Decodable(o.via.array.ptr[i])) return false;
      }
      return true;
    case MSGPACK_OBJECT_MAP:
      for (uint32_t i = 0; i < o.via.map.size; ++i) {
        if (o.via.map.ptr[i].key.type != MSGPACK_OBJECT_STR || !Decodable(o.via.map.ptr[i].val)) return false;
      }
      return true;
    case MSGPACK_OBJECT_EXT: return false;
    default: return true;
  }
}

bool CanonicalItemsFrom(const char* data, size_t len, size_t* off, std::vector<ItemRecord>* out) {
  CanonicalReader r(data, len, *off);
  size_t n = 0;
  if (!r.Array(&n)) return false;
  out->clear();
  // A canonical record takes over 300 bytes: the count cannot reserve more
  // than the message could hold.
  out->reserve(std::min(n, (len - *off) / 300));
  for (size_t i = 0; i < n; ++i) {
    out->emplace_back();
    if (!ReadCanonicalRecord(r, &out->back())) return false;
  }
  *off = r.off();
  return true;
}

bool ItemRecordFromMsgpack(const msgpack_object& o, ItemRecord* out) {
  *out = ItemRecord();
  if (o.type != MSGPACK_OBJECT_MAP) return false;
  size_t next = 0;
  ForEachMember(o, [&](std::string_view k, const msgpack_object& v) {
    if (const Member* m = FindMember(k, &next)) m->read(v, out);  // unknown keys are ignored
  });
  return true;
}

}  // namespace wire_internal
}  // namespace orvel
