// See name_forms.h.
#include "name_forms.h"

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/stringpiece.h>

#include <algorithm>

#include "orvelcommon/utf8.h"

namespace orvel::syncd {
namespace {

bool IsAscii(const std::string& s) {
  return std::all_of(s.begin(), s.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// name in the normaliser's form; name itself when ICU fails.
std::string Normalize(const icu::Normalizer2* (*instance)(UErrorCode&), const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* n = instance(status);
  if (U_FAILURE(status) || n == nullptr) return name;
  std::string out;
  icu::StringByteSink<std::string> sink(&out, static_cast<int32_t>(name.size()) + 8);
  n->normalizeUTF8(0, icu::StringPiece(name.data(), static_cast<int32_t>(name.size())), sink, nullptr,
                   status);
  return U_SUCCESS(status) ? out : name;
}

}  // namespace

std::string NormalizeName(const std::string& name) {
  if (IsAscii(name) || !IsValidUtf8(name)) return name;
  return Normalize(&icu::Normalizer2::getNFCInstance, name);
}

std::vector<std::string> NameForms(const std::string& name) {
  std::vector<std::string> forms = {name};
  if (IsAscii(name) || !IsValidUtf8(name)) return forms;
  for (const std::string& f : {Normalize(&icu::Normalizer2::getNFCInstance, name),
                               Normalize(&icu::Normalizer2::getNFDInstance, name)}) {
    if (std::find(forms.begin(), forms.end(), f) == forms.end()) forms.push_back(f);
  }
  return forms;
}

}  // namespace orvel::syncd
