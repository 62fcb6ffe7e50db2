// HTTPFileOutputer::GetMimeType: the MIME type of a file name from the
// mime.types table (the copy under ZEMO_ROOT first, then the system's). The
// extension after the last dot is compared without regard to case.
//
// Each table is parsed once into a map and parsed again only when its file
// changes (path, inode, size or times): a persistent worker answers many
// downloads, and scanning the system table line by line cost each of them
// more than the rest of the request. Thread-safe.
#include <cctype>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <unordered_map>

#include "internal/io.h"
#include "orvelcommon/zemo_root.h"
#include "zemo/nas.h"

namespace {

constexpr const char kMimeTypesPath[] = "/etc/mime.types";

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// The extension of the last path component, lower-cased; "" when none.
std::string ExtensionOf(const std::string& name) {
  size_t slash = name.find_last_of('/');
  std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
  size_t dot = base.find_last_of('.');
  if (dot == std::string::npos || dot + 1 == base.size()) return "";
  return Lower(base.substr(dot + 1));
}

// One parsed table: extension -> type, the first line naming an extension
// winning, as a scan from the top would.
struct Table {
  zemo::io::FileStamp stamp;
  std::unordered_map<std::string, std::string> types;
};

void Parse(std::istream& in, Table* table) {
  std::string line;
  while (std::getline(in, line)) {
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.resize(hash);
    std::istringstream words(line);
    std::string mime, word;
    if (!(words >> mime)) continue;
    while (words >> word) table->types.emplace(Lower(word), mime);
  }
}

// Looks ext up in one mime.types file; false when the file cannot be read
// or does not list it.
bool LookupIn(const std::string& path, const std::string& ext, std::string* type) {
  static std::mutex mu;
  static std::map<std::string, Table> tables;
  // The stamp is taken before reading: a change during the read shows as a
  // different stamp next time, which parses again.
  const zemo::io::FileStamp now = zemo::io::FileStamp::Of(path);
  std::lock_guard<std::mutex> lock(mu);
  auto it = tables.find(path);
  if (it == tables.end() || !it->second.stamp.Same(now)) {
    Table fresh;
    fresh.stamp = now;
    std::ifstream in(path);
    if (in) Parse(in, &fresh);
    it = tables.insert_or_assign(path, std::move(fresh)).first;
  }
  auto found = it->second.types.find(ext);
  if (found == it->second.types.end()) return false;
  *type = found->second;
  return true;
}

}  // namespace

std::string HTTPFileOutputer::GetMimeType(const std::string& name) {
  std::string ext = ExtensionOf(name);
  if (ext.empty()) return "";
  std::string type;
  std::string rooted = orvel::ZemoPath(kMimeTypesPath);
  if (LookupIn(rooted, ext, &type)) return type;
  if (rooted != kMimeTypesPath && LookupIn(kMimeTypesPath, ext, &type)) return type;
  return "";
}
