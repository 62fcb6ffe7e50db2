// See mime.h.
#include "mime.h"

#include <fstream>
#include <mutex>
#include <sstream>
#include <unordered_map>

#include "tree.h"

namespace orvel::syncd {
namespace {

const std::unordered_map<std::string, std::string>& Table() {
  static std::once_flag once;
  static std::unordered_map<std::string, std::string> table;
  std::call_once(once, [] {
    std::ifstream in("/etc/mime.types");
    std::string line;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream words(line);
      std::string type, ext;
      if (!(words >> type)) continue;
      while (words >> ext) table.emplace(ext, type);
    }
    if (table.empty()) {  // a minimal fallback when the file is missing
      table = {{"txt", "text/plain"}, {"html", "text/html"}, {"jpg", "image/jpeg"},
               {"jpeg", "image/jpeg"}, {"png", "image/png"}, {"pdf", "application/pdf"},
               {"json", "application/json"}, {"zip", "application/zip"}};
    }
  });
  return table;
}

}  // namespace

std::string ContentTypeOf(const std::string& name, bool is_dir) {
  if (is_dir) return "";
  std::string ext = ExtensionOf(name);
  const auto& t = Table();
  auto it = t.find(ext);
  return it == t.end() ? "application/octet-stream" : it->second;
}

}  // namespace orvel::syncd
