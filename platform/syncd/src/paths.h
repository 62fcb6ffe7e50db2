// paths: parsing of the wire's item references (docs/wire.md, "Paths").
// Pure functions, thread-safe.
#pragma once

#include <string>
#include <vector>

#include "orvelcommon/status.h"

namespace orvel::syncd {

struct ItemRef {
  enum class Kind { kMyDrive, kId, kLink };
  Kind kind = Kind::kMyDrive;
  // kMyDrive: the components below /mydrive (empty = the space's root).
  std::vector<std::string> components;
  // kId: the file id; kLink: the permanent link.
  std::string key;
};

// Parses "", "/", "/mydrive", "/mydrive/a/b", "id:<file_id>" and
// "link:<permanent_link>". Repeated and trailing slashes are ignored.
// kErrInvalidName for a "." or ".." component, a component over 255 bytes
// or one holding NUL, and for an empty id or link; kErrOutsideSpace for a
// path outside every known space ("/other", "mydrive", "/mydriveX").
Status ParseItemRef(const std::string& wire_path, ItemRef* out);

// "/mydrive" + "/" + components joined.
std::string MyDrivePath(const std::vector<std::string>& components);

// Splits a relative path ("a/b/c") into components, ignoring empty ones.
std::vector<std::string> SplitPath(const std::string& rel);

}  // namespace orvel::syncd
