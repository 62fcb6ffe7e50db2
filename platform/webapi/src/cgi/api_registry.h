// ApiRegistry: every (api, method, version) entry.cgi serves, from the
// built-in APIs and the loaded modules, with the function that serves it and
// the optional parameter check that runs first. Filled once at start-up of a
// request, then read; not thread-safe.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "zemo/webapi.h"

namespace zemo::cgi {

using ProcessFn = std::function<void(ZEMO::APIRequest*, ZEMO::APIResponse*)>;

struct ApiMethod {
  ProcessFn process;
  ZemoCheckFn check = nullptr;  // null: no check
  std::string origin;           // "built-in" or the module's path (for logs)
};

struct VersionRange {
  unsigned min = 0;
  unsigned max = 0;
};

class ApiRegistry {
 public:
  enum class Lookup { kFound, kNoApi, kNoMethod, kNoVersion };

  // Adds one served version; false (and nothing changed) when it is taken.
  bool Add(const std::string& api, const std::string& method, unsigned version, ApiMethod entry);
  // Adds versions min..max of one method.
  void AddRange(const std::string& api, const std::string& method, VersionRange range,
                const ApiMethod& entry);
  // Serves the APIs of base that this registry does not have (by API name),
  // without copying them: a persistent worker's modules, registered once,
  // under each request's built-in APIs. base must outlive this registry.
  void SetBase(const ApiRegistry* base) { base_ = base; }
  // Attaches a check to a served version; false when it is not served.
  bool SetCheck(const std::string& api, const std::string& method, unsigned version,
                ZemoCheckFn check);

  bool HasApi(const std::string& api) const {
    return apis_.count(api) != 0 || (base_ != nullptr && base_->HasApi(api));
  }
  bool Has(const std::string& api, const std::string& method, unsigned version) const;
  Lookup Find(const std::string& api, const std::string& method, unsigned version,
              const ApiMethod** out) const;
  // Each API with the lowest and highest version of any of its methods.
  std::map<std::string, VersionRange> Ranges() const;

 private:
  std::map<std::string, std::map<std::string, std::map<unsigned, ApiMethod>>> apis_;
  const ApiRegistry* base_ = nullptr;
};

}  // namespace zemo::cgi
