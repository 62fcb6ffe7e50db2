// PObject value semantics and JSON text output.
#include "orvelcommon/pobject.h"

#include <json/json.h>

#include <cmath>
#include <limits>

namespace {
const std::string kEmptyString;
const PObject kNullObject;
const PObject::Array kEmptyArray;
const PObject::Map kEmptyMap;

// A double read as an integer saturates at the type's range and NaN reads as
// def: casting a value outside the range is undefined behaviour, and a peer
// may send any double.
template <typename Int>
Int DoubleTo(double d, Int def) {
  if (std::isnan(d)) return def;
  // 2^63 (2^64 unsigned), the first value above the range, is an exact double.
  const double top = std::ldexp(1.0, std::numeric_limits<Int>::digits);
  if (d >= top) return std::numeric_limits<Int>::max();
  if (d <= static_cast<double>(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::min();
  return static_cast<Int>(d);
}
}  // namespace

PObject::PObject(Array v) : type_(Type::kArray), a_(std::make_shared<Array>(std::move(v))) {}
PObject::PObject(Map v) : type_(Type::kMap), m_(std::make_shared<Map>(std::move(v))) {}

PObject::PObject(const PObject& o)
    : type_(o.type_), b_(o.b_), i_(o.i_), u_(o.u_), d_(o.d_), s_(o.s_) {
  if (o.a_) a_ = std::make_shared<Array>(*o.a_);
  if (o.m_) m_ = std::make_shared<Map>(*o.m_);
}

PObject& PObject::operator=(const PObject& o) {
  if (this != &o) {
    PObject copy(o);
    *this = std::move(copy);
  }
  return *this;
}

bool PObject::asBool(bool def) const {
  if (type_ == Type::kBool) return b_;
  if (type_ == Type::kInt) return i_ != 0;
  if (type_ == Type::kUInt) return u_ != 0;
  return def;
}

int64_t PObject::asInt64(int64_t def) const {
  switch (type_) {
    case Type::kInt: return i_;
    case Type::kUInt: return static_cast<int64_t>(u_);
    case Type::kDouble: return DoubleTo<int64_t>(d_, def);
    case Type::kBool: return b_ ? 1 : 0;
    default: return def;
  }
}

uint64_t PObject::asUInt64(uint64_t def) const {
  switch (type_) {
    case Type::kInt: return static_cast<uint64_t>(i_);
    case Type::kUInt: return u_;
    case Type::kDouble: return DoubleTo<uint64_t>(d_, def);
    case Type::kBool: return b_ ? 1 : 0;
    default: return def;
  }
}

double PObject::asDouble(double def) const {
  switch (type_) {
    case Type::kInt: return static_cast<double>(i_);
    case Type::kUInt: return static_cast<double>(u_);
    case Type::kDouble: return d_;
    default: return def;
  }
}

const std::string& PObject::asString() const {
  return type_ == Type::kString ? s_ : kEmptyString;
}

std::string PObject::asString(const std::string& def) const {
  return type_ == Type::kString ? s_ : def;
}

size_t PObject::size() const {
  if (type_ == Type::kArray) return a_->size();
  if (type_ == Type::kMap) return m_->size();
  return 0;
}

PObject::Array& PObject::array() {
  if (type_ == Type::kNull) *this = PObject(Array{});
  static thread_local Array scratch;
  if (type_ != Type::kArray) {
    scratch.clear();
    return scratch;
  }
  return *a_;
}

PObject::Map& PObject::map() {
  if (type_ == Type::kNull) *this = PObject(Map{});
  static thread_local Map scratch;
  if (type_ != Type::kMap) {
    scratch.clear();
    return scratch;
  }
  return *m_;
}

void PObject::push_back(PObject v) { array().push_back(std::move(v)); }

PObject& PObject::operator[](const std::string& key) { return map()[key]; }

const PObject& PObject::operator[](const std::string& key) const {
  if (type_ != Type::kMap) return kNullObject;
  auto it = m_->find(key);
  return it == m_->end() ? kNullObject : it->second;
}

PObject& PObject::operator[](size_t index) {
  Array& a = array();
  if (index >= a.size()) a.resize(index + 1);
  return a[index];
}

const PObject& PObject::operator[](size_t index) const {
  if (type_ != Type::kArray || index >= a_->size()) return kNullObject;
  return (*a_)[index];
}

bool PObject::hasMember(const std::string& key) const {
  return type_ == Type::kMap && m_->count(key) > 0;
}

bool PObject::remove(const std::string& key) {
  return type_ == Type::kMap && m_->erase(key) > 0;
}

PObject PObject::Packed(std::string msgpack_bytes) {
  PObject p;
  p.type_ = Type::kPacked;
  p.s_ = std::move(msgpack_bytes);
  return p;
}

const std::string& PObject::packedBytes() const {
  return type_ == Type::kPacked ? s_ : kEmptyString;
}

const PObject::Array& PObject::asArray() const {
  return type_ == Type::kArray ? *a_ : kEmptyArray;
}

const PObject::Map& PObject::asMap() const {
  return type_ == Type::kMap ? *m_ : kEmptyMap;
}

namespace {
Json::Value ToJson(const PObject& v) {
  switch (v.type()) {
    case PObject::Type::kNull: return Json::Value();
    case PObject::Type::kBool: return Json::Value(v.asBool());
    case PObject::Type::kInt: return Json::Value(static_cast<Json::Int64>(v.asInt64()));
    case PObject::Type::kUInt: return Json::Value(static_cast<Json::UInt64>(v.asUInt64()));
    case PObject::Type::kDouble: return Json::Value(v.asDouble());
    case PObject::Type::kString: return Json::Value(v.asString());
    case PObject::Type::kArray: {
      Json::Value out(Json::arrayValue);
      for (const auto& e : v.asArray()) out.append(ToJson(e));
      return out;
    }
    case PObject::Type::kMap: {
      Json::Value out(Json::objectValue);
      for (const auto& [k, e] : v.asMap()) out[k] = ToJson(e);
      return out;
    }
    case PObject::Type::kPacked: return Json::Value();
  }
  return Json::Value();
}
}  // namespace

Json::Value PObject::toJson() const { return ToJson(*this); }

std::string PObject::toJsonString() const {
  Json::StreamWriterBuilder b;
  b["indentation"] = "";
  return Json::writeString(b, ToJson(*this));
}

bool PObject::operator==(const PObject& o) const {
  if (isInteger() && o.isInteger()) {
    if (type_ == o.type_) return type_ == Type::kInt ? i_ == o.i_ : u_ == o.u_;
    const int64_t s = type_ == Type::kInt ? i_ : o.i_;
    const uint64_t u = type_ == Type::kUInt ? u_ : o.u_;
    return s >= 0 && static_cast<uint64_t>(s) == u;
  }
  if (type_ != o.type_) return false;
  switch (type_) {
    case Type::kNull: return true;
    case Type::kBool: return b_ == o.b_;
    case Type::kDouble: return d_ == o.d_;
    case Type::kString: return s_ == o.s_;
    case Type::kArray: return *a_ == *o.a_;
    case Type::kMap: return *m_ == *o.m_;
    default: return false;
  }
}
