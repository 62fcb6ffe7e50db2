// libFuzzer target: the daemon's msgpack wire decoder and the PObject values
// it builds. A message that decodes must encode to a message that decodes to
// the same encoding, and every accessor must be safe on every decoded value.
// The listings' decoder (records straight from the bytes when they are in
// the packer's form) must agree with it on every input.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "orvelcommon/item_record.h"
#include "orvelcommon/pobject.h"
#include "orvelcommon/wire.h"

namespace {

// Reads every value the way the daemon's argument readers and the module do.
void Touch(const PObject& v, int depth) {
  (void)v.asBool(false);
  (void)v.asInt64(0);
  (void)v.asUInt64(0);
  (void)v.asDouble(0);
  (void)v.asString("");
  (void)v[std::string("path")];
  (void)v[size_t{0}];
  if (depth > 64) std::abort();  // the decoder bounds nesting
  for (const PObject& e : v.asArray()) Touch(e, depth + 1);
  for (const auto& [key, e] : v.asMap()) Touch(e, depth + 1);
}

// DecodeWithItems gives value without result.items, and those items as
// records, as ItemRecordFromPObject makes them (a non-map element gives a
// default record).
void CheckListingDecoder(const char* data, size_t size, PObject value) {
  PObject rest;
  std::vector<orvel::ItemRecord> records;
  if (!orvel::wire::DecodeWithItems(data, size, &rest, &records).ok()) std::abort();
  std::vector<orvel::ItemRecord> expected;
  const PObject& read = value;  // [] on a const PObject adds no member
  if (read.isMap() && read["result"].isMap()) {
    for (const PObject& item : read["result"]["items"].asArray()) {
      expected.emplace_back();
      orvel::ItemRecordFromPObject(item, expected.back());
    }
    value["result"].remove("items");
  }
  // Compared as bytes: a NaN is unequal to itself.
  if (records.size() != expected.size() || orvel::wire::Encode(rest) != orvel::wire::Encode(value)) std::abort();
  for (size_t i = 0; i < records.size(); ++i) {
    if (orvel::wire::Encode(orvel::ItemRecordToPObject(records[i])) !=
        orvel::wire::Encode(orvel::ItemRecordToPObject(expected[i]))) {
      std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  PObject value;
  orvel::Status st = orvel::wire::Decode(reinterpret_cast<const char*>(data), size, &value);
  if (!st.ok()) {
    if (st.code() != orvel::kErrInvalidArgument) std::abort();
    PObject rest;
    std::vector<orvel::ItemRecord> records;
    if (orvel::wire::DecodeWithItems(reinterpret_cast<const char*>(data), size, &rest, &records).ok()) std::abort();
    return 0;
  }
  CheckListingDecoder(reinterpret_cast<const char*>(data), size, value);
  Touch(value, 0);
  (void)value.toJsonString();
  PObject copy = value;
  if (!(copy == value) && value.toJsonString().find("null") == std::string::npos) {
    // Only NaN (written as null) compares unequal to itself.
    std::abort();
  }
  const std::string once = orvel::wire::Encode(value);
  PObject again;
  if (!orvel::wire::Decode(once.data(), once.size(), &again).ok()) std::abort();
  if (orvel::wire::Encode(again) != once) std::abort();
  return 0;
}
