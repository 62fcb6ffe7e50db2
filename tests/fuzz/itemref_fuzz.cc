// libFuzzer target: the daemon's parser of wire item references ("/mydrive/..",
// "id:..", "link:..") and the name rules behind it. What it accepts must be
// safe to join below a user's home: no "." or "..", no "/" or NUL in a name,
// and a /mydrive path must read back as the same components.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "paths.h"
#include "tree.h"

using orvel::syncd::ItemRef;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  ItemRef ref;
  orvel::Status st = orvel::syncd::ParseItemRef(text, &ref);
  for (const std::string& c : orvel::syncd::SplitPath(text)) {
    if (c.empty() || c.find('/') != std::string::npos) std::abort();
  }
  if (!st.ok()) {
    if (st.code() != orvel::kErrInvalidName && st.code() != orvel::kErrOutsideSpace) std::abort();
    return 0;
  }
  if (ref.kind != ItemRef::Kind::kMyDrive) {
    if (ref.key.empty() || ref.key.find('/') != std::string::npos ||
        ref.key.find('\0') != std::string::npos || !ref.components.empty()) {
      std::abort();
    }
    return 0;
  }
  for (const std::string& c : ref.components) {
    if (!orvel::syncd::ValidateName(c).ok() || c == "." || c == ".." ||
        c.find_first_of(std::string("/\0", 2)) != std::string::npos) {
      std::abort();
    }
  }
  ItemRef again;
  if (!orvel::syncd::ParseItemRef(orvel::syncd::MyDrivePath(ref.components), &again).ok() ||
      again.components != ref.components) {
    std::abort();
  }
  return 0;
}
