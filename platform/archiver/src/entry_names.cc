// See entry_names.h.
#include "entry_names.h"

#include <strings.h>

#include <cerrno>
#include <vector>

#include "orvelcommon/utf8.h"

namespace orvel::archiver {
namespace {

const iconv_t kNoIconv = reinterpret_cast<iconv_t>(-1);

bool OnlyDotsAndSpaces(const std::string& s) {
  return s.find_first_not_of(". ") == std::string::npos;
}

// '\' and ':' become '_'; a name of dots and spaces gets a leading '_'.
std::string RewriteSeparators(std::string s) {
  for (char& c : s) {
    if (c == '\\' || c == ':') c = '_';
  }
  if (OnlyDotsAndSpaces(s)) s.insert(0, "_");
  return s;
}

std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t slash = path.find('/', start);
    if (slash == std::string::npos) slash = path.size();
    parts.push_back(path.substr(start, slash - start));
    start = slash + 1;
  }
  return parts;
}

}  // namespace

EntryNames::~EntryNames() {
  if (to_ != kNoIconv) iconv_close(to_);
  if (from_ != kNoIconv) iconv_close(from_);
}

bool EntryNames::SetCharset(const std::string& charset) {
  if (charset.empty() || strcasecmp(charset.c_str(), "UTF-8") == 0) return true;
  to_ = iconv_open(charset.c_str(), "UTF-8");
  from_ = iconv_open("UTF-8", charset.c_str());
  if (to_ != kNoIconv && from_ != kNoIconv) return true;
  if (to_ != kNoIconv) iconv_close(to_);
  if (from_ != kNoIconv) iconv_close(from_);
  to_ = from_ = kNoIconv;
  return false;
}

bool EntryNames::Convert(iconv_t cd, const std::string& in, std::string* out) {
  iconv(cd, nullptr, nullptr, nullptr, nullptr);  // reset the shift state
  out->assign(in.size() * 4 + 8, '\0');
  char* src = const_cast<char*>(in.data());
  size_t src_left = in.size();
  char* dst = &(*out)[0];
  size_t dst_left = out->size();
  if (iconv(cd, &src, &src_left, &dst, &dst_left) == static_cast<size_t>(-1) ||
      iconv(cd, nullptr, nullptr, &dst, &dst_left) == static_cast<size_t>(-1))
    return false;
  out->resize(out->size() - dst_left);
  return true;
}

std::string EntryNames::Component(const std::string& disk_name) const {
  const bool code_page = to_ != kNoIconv;
  std::string name = ValidUtf8(disk_name, code_page ? "_" : "\xEF\xBF\xBD");
  if (code_page) {
    // What an extractor reading the code page will see. A character the
    // code page lacks fails the conversion; the archive writer then keeps
    // the UTF-8 bytes, which never read as '\' or ':'.
    std::string bytes, back;
    if (Convert(to_, name, &bytes) && Convert(from_, bytes, &back)) name = back;
  }
  return RewriteSeparators(name);
}

bool EntryNames::LinkTarget(const std::string& target, size_t depth, std::string* out) const {
  out->clear();
  if (target.empty() || target[0] == '/') return false;
  size_t ups = 0;
  bool named = false;
  for (const std::string& part : Split(target)) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (named || ++ups > depth) return false;
      out->append("../");
      continue;
    }
    named = true;
    out->append(Component(part)).push_back('/');
  }
  if (out->empty()) {
    *out = ".";  // the link's own folder
  } else {
    out->pop_back();
  }
  return true;
}

}  // namespace orvel::archiver
