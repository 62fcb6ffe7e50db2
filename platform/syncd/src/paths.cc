// See paths.h.
#include "paths.h"

#include "tree.h"

namespace orvel::syncd {

std::vector<std::string> SplitPath(const std::string& rel) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start <= rel.size()) {
    size_t slash = rel.find('/', start);
    if (slash == std::string::npos) slash = rel.size();
    if (slash > start) out.push_back(rel.substr(start, slash - start));
    start = slash + 1;
  }
  return out;
}

Status ParseItemRef(const std::string& wire_path, ItemRef* out) {
  *out = ItemRef();
  if (wire_path.find('\0') != std::string::npos)
    return Status(kErrInvalidName, "path holds NUL");
  for (const char* prefix : {"id:", "link:"}) {
    std::string p(prefix);
    if (wire_path.compare(0, p.size(), p) == 0) {
      out->kind = p == "id:" ? ItemRef::Kind::kId : ItemRef::Kind::kLink;
      out->key = wire_path.substr(p.size());
      if (out->key.empty() || out->key.find('/') != std::string::npos)
        return Status(kErrInvalidName, "invalid item reference: " + wire_path);
      return Status::OK();
    }
  }
  std::vector<std::string> parts = SplitPath(wire_path);
  if (parts.empty()) return Status::OK();  // "" and "/" mean /mydrive
  if (wire_path[0] != '/' || parts[0] != "mydrive")
    return Status(kErrOutsideSpace, "path outside every known space: " + wire_path);
  for (size_t i = 1; i < parts.size(); ++i) {
    Status st = ValidateName(parts[i]);
    if (!st.ok()) return Status(kErrInvalidName, "invalid path: " + wire_path);
    out->components.push_back(parts[i]);
  }
  return Status::OK();
}

std::string MyDrivePath(const std::vector<std::string>& components) {
  std::string out = "/mydrive";
  for (const auto& c : components) out += "/" + c;
  return out;
}

}  // namespace orvel::syncd
