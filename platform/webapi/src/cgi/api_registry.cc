// ApiRegistry; see api_registry.h. Not thread-safe.
#include "cgi/api_registry.h"

#include <algorithm>

namespace zemo::cgi {

bool ApiRegistry::Add(const std::string& api, const std::string& method, unsigned version,
                      ApiMethod entry) {
  return apis_[api][method].emplace(version, std::move(entry)).second;
}

void ApiRegistry::AddRange(const std::string& api, const std::string& method, VersionRange range,
                           const ApiMethod& entry) {
  for (unsigned v = range.min; v <= range.max && v != 0; ++v) Add(api, method, v, entry);
}

bool ApiRegistry::SetCheck(const std::string& api, const std::string& method, unsigned version,
                           ZemoCheckFn check) {
  auto a = apis_.find(api);
  if (a == apis_.end()) return false;
  auto m = a->second.find(method);
  if (m == a->second.end()) return false;
  auto v = m->second.find(version);
  if (v == m->second.end()) return false;
  v->second.check = check;
  return true;
}

bool ApiRegistry::Has(const std::string& api, const std::string& method, unsigned version) const {
  const ApiMethod* unused = nullptr;
  return Find(api, method, version, &unused) == Lookup::kFound;
}

ApiRegistry::Lookup ApiRegistry::Find(const std::string& api, const std::string& method,
                                      unsigned version, const ApiMethod** out) const {
  auto a = apis_.find(api);
  if (a == apis_.end()) return base_ != nullptr ? base_->Find(api, method, version, out) : Lookup::kNoApi;
  auto m = a->second.find(method);
  if (m == a->second.end()) return Lookup::kNoMethod;
  auto v = m->second.find(version);
  if (v == m->second.end()) return Lookup::kNoVersion;
  *out = &v->second;
  return Lookup::kFound;
}

std::map<std::string, VersionRange> ApiRegistry::Ranges() const {
  std::map<std::string, VersionRange> ranges;
  if (base_ != nullptr) ranges = base_->Ranges();
  for (const auto& [api, methods] : apis_) {
    VersionRange r;
    for (const auto& [name, versions] : methods) {
      if (versions.empty()) continue;
      unsigned lo = versions.begin()->first, hi = versions.rbegin()->first;
      r.min = r.min == 0 ? lo : std::min(r.min, lo);
      r.max = std::max(r.max, hi);
    }
    if (r.max != 0) ranges[api] = r;
  }
  return ranges;
}

}  // namespace zemo::cgi
