// libFuzzer target: the daemon's msgpack wire decoder and the PObject values
// it builds. A message that decodes must encode to a message that decodes to
// the same encoding, and every accessor must be safe on every decoded value.
#include <cstdint>
#include <cstdlib>
#include <string>

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  PObject value;
  orvel::Status st = orvel::wire::Decode(reinterpret_cast<const char*>(data), size, &value);
  if (!st.ok()) {
    if (st.code() != orvel::kErrInvalidArgument) std::abort();
    return 0;
  }
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
