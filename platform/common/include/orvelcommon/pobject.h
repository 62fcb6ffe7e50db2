// PObject: the dynamic value that travels between the sync-service client and
// the daemon (null, bool, signed and unsigned 64-bit integers, double, string,
// array, map). Every request and answer on the daemon's wire is a PObject map.
//
// Integers keep their signedness so that a uint64 (sizes, sync ids) survives a
// round trip through msgpack. A "packed" value holds one value already
// encoded in msgpack (the daemon's listings pack their item records straight
// from the records); it is written to the wire as it is and is opaque to
// everything else (null to the accessors, to toJson and to ==). A PObject is a plain value: copyable, not
// thread-safe for concurrent mutation, cheap to move.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Json {
class Value;
}  // namespace Json

class PObject {
 public:
  enum class Type { kNull, kBool, kInt, kUInt, kDouble, kString, kArray, kMap, kPacked };
  using Array = std::vector<PObject>;
  using Map = std::map<std::string, PObject>;

  PObject() = default;
  PObject(bool v) : type_(Type::kBool), b_(v) {}                       // NOLINT
  PObject(int v) : type_(Type::kInt), i_(v) {}                         // NOLINT
  PObject(long v) : type_(Type::kInt), i_(v) {}                        // NOLINT
  PObject(long long v) : type_(Type::kInt), i_(v) {}                   // NOLINT
  PObject(unsigned v) : type_(Type::kUInt), u_(v) {}                   // NOLINT
  PObject(unsigned long v) : type_(Type::kUInt), u_(v) {}              // NOLINT
  PObject(unsigned long long v) : type_(Type::kUInt), u_(v) {}         // NOLINT
  PObject(double v) : type_(Type::kDouble), d_(v) {}                   // NOLINT
  PObject(const char* v) : type_(Type::kString), s_(v) {}              // NOLINT
  PObject(std::string v) : type_(Type::kString), s_(std::move(v)) {}   // NOLINT
  PObject(Array v);                                                    // NOLINT
  PObject(Map v);                                                      // NOLINT

  static PObject MakeArray() { return PObject(Array{}); }
  static PObject MakeMap() { return PObject(Map{}); }
  // A value given as its msgpack encoding (one complete value).
  static PObject Packed(std::string msgpack_bytes);
  bool isPacked() const { return type_ == Type::kPacked; }
  const std::string& packedBytes() const;  // empty for other kinds

  Type type() const { return type_; }
  bool isNull() const { return type_ == Type::kNull; }
  bool isBool() const { return type_ == Type::kBool; }
  bool isInteger() const { return type_ == Type::kInt || type_ == Type::kUInt; }
  bool isDouble() const { return type_ == Type::kDouble; }
  bool isString() const { return type_ == Type::kString; }
  bool isArray() const { return type_ == Type::kArray; }
  bool isMap() const { return type_ == Type::kMap; }

  // Conversions never throw: a value of another kind gives the default.
  bool asBool(bool def = false) const;
  int64_t asInt64(int64_t def = 0) const;
  uint64_t asUInt64(uint64_t def = 0) const;
  double asDouble(double def = 0) const;
  const std::string& asString() const;  // empty string for non-strings
  std::string asString(const std::string& def) const;

  // Arrays and maps. operator[] on a null value turns it into a map (or, for
  // the index form, an array); on a value of another kind it is a no-op that
  // returns a scratch null.
  size_t size() const;
  bool empty() const { return size() == 0; }
  void push_back(PObject v);
  PObject& operator[](const std::string& key);
  const PObject& operator[](const std::string& key) const;  // null if absent
  PObject& operator[](size_t index);
  const PObject& operator[](size_t index) const;
  bool hasMember(const std::string& key) const;
  bool remove(const std::string& key);
  const Array& asArray() const;  // empty for non-arrays
  const Map& asMap() const;      // empty for non-maps
  Array& array();                // turns a null into an array
  Map& map();                    // turns a null into a map

  // JSON text of the value (maps as objects, keys sorted).
  std::string toJsonString() const;
  // The same value as a jsoncpp tree (needs <json/json.h> to be used).
  Json::Value toJson() const;

  bool operator==(const PObject& o) const;
  bool operator!=(const PObject& o) const { return !(*this == o); }

 private:
  Type type_ = Type::kNull;
  bool b_ = false;
  int64_t i_ = 0;
  uint64_t u_ = 0;
  double d_ = 0;
  std::string s_;  // a string, or a packed value's bytes
  std::shared_ptr<Array> a_;  // copy-on-write not needed: copied on copy
  std::shared_ptr<Map> m_;

 public:
  PObject(const PObject& o);
  PObject& operator=(const PObject& o);
  PObject(PObject&&) noexcept = default;
  PObject& operator=(PObject&&) noexcept = default;
};
