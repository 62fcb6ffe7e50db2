// HTTPFileOutputer::GetMimeType: the MIME type of a file name from the
// mime.types table (the copy under ZEMO_ROOT first, then the system's). The
// extension after the last dot is compared without regard to case. The file
// is scanned line by line on each call (no cache: one look-up per request).
// Thread-safe.
#include <cctype>
#include <fstream>
#include <sstream>

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

// Looks ext up in one mime.types file; false when the file cannot be read
// or does not list it.
bool LookupIn(const std::string& table, const std::string& ext, std::string* type) {
  std::ifstream in(table);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.resize(hash);
    std::istringstream words(line);
    std::string mime, word;
    if (!(words >> mime)) continue;
    while (words >> word) {
      if (Lower(word) == ext) {
        *type = mime;
        return true;
      }
    }
  }
  return false;
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
