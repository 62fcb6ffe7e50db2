// Resolution of fixed platform paths under ZEMO_ROOT.
#include "orvelcommon/zemo_root.h"

#include <cstdlib>

namespace orvel {

std::string ZemoPath(const std::string& fixed_path) {
  if (fixed_path.empty() || fixed_path[0] != '/') return fixed_path;
  const char* root = std::getenv("ZEMO_ROOT");
  if (root == nullptr || *root == '\0') return fixed_path;
  std::string r(root);
  while (r.size() > 1 && r.back() == '/') r.pop_back();
  if (r == "/") return fixed_path;
  return r + fixed_path;
}

std::string PackageTarget() { return ZemoPath("/var/packages/ZemoraOrvel/target"); }

std::string ResolveSocketAddress(const std::string& address) {
  const std::string scheme = "unix:";
  std::string path = address;
  if (path.compare(0, scheme.size(), scheme) == 0) path = path.substr(scheme.size());
  return ZemoPath(path);
}

}  // namespace orvel
