// Request dispatch; see dispatcher.h. Not thread-safe.
#include "cgi/dispatcher.h"

#include <exception>

#include "cgi/api_codes.h"
#include "internal/log.h"

namespace zemo::cgi {

namespace {

static constexpr char kLogSource[] = "dispatcher";

bool Refuse(ZEMO::APIResponse* response, const char* name, const char* reason) {
  Json::Value details(Json::objectValue);
  details["name"] = name;
  details["reason"] = reason;
  response->SetError(kErrBadApiParams, details);
  return false;
}

// A version is a positive integer, sent as a number or as a decimal string.
bool ParseVersion(const Json::Value& v, unsigned* out) {
  if (v.isIntegral() && !v.isBool()) {
    if (v.isInt64() && v.asInt64() >= 1 && v.asInt64() <= 0xFFFFFFFFLL) {
      *out = static_cast<unsigned>(v.asInt64());
      return true;
    }
    return false;
  }
  if (!v.isString()) return false;
  const std::string s = v.asString();
  if (s.empty() || s.size() > 10) return false;
  unsigned long long n = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<unsigned>(c - '0');
  }
  if (n < 1 || n > 0xFFFFFFFFULL) return false;
  *out = static_cast<unsigned>(n);
  return true;
}

bool ReadName(const Json::Value& params, const char* name, std::string* out,
              ZEMO::APIResponse* response) {
  if (!params.isMember(name)) return Refuse(response, name, "required");
  const Json::Value& v = params[name];
  if (!v.isString() || v.asString().empty()) return Refuse(response, name, "type");
  *out = v.asString();
  return true;
}

// Runs fn, turning an escaping exception into a 401 answer.
template <class Fn>
bool Guarded(const char* what, const std::string& origin, ZEMO::APIResponse* response, Fn fn) {
  try {
    fn();
    return true;
  } catch (const std::exception& e) {
    WEBAPI_LOG(Logger::kError, "%s of %s threw: %s", what, origin.c_str(), e.what());
  } catch (...) {
    WEBAPI_LOG(Logger::kError, "%s of %s threw", what, origin.c_str());
  }
  SetErrorMessage(response, kErrInternal, "internal error");
  return false;
}

}  // namespace

void SetErrorMessage(ZEMO::APIResponse* response, int code, const std::string& message) {
  Json::Value details(Json::objectValue);
  details["message"] = message;
  response->SetError(code, details);
}

bool ReadApiTriple(const Json::Value& params, ApiTriple* out, ZEMO::APIResponse* response) {
  if (!ReadName(params, "api", &out->api, response)) return false;
  if (!ReadName(params, "method", &out->method, response)) return false;
  if (!params.isMember("version")) return Refuse(response, "version", "required");
  if (!ParseVersion(params["version"], &out->version)) return Refuse(response, "version", "type");
  return true;
}

void Dispatch(const ApiRegistry& registry, ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  const ApiMethod* entry = nullptr;
  switch (registry.Find(request->GetAPIClass(), request->GetAPIMethod(), request->GetAPIVersion(),
                        &entry)) {
    case ApiRegistry::Lookup::kNoApi:
      return SetErrorMessage(response, kErrNoSuchApi, "no such API");
    case ApiRegistry::Lookup::kNoMethod:
      return SetErrorMessage(response, kErrNoSuchMethod, "no such method");
    case ApiRegistry::Lookup::kNoVersion:
      return SetErrorMessage(response, kErrBadVersion, "version not supported");
    case ApiRegistry::Lookup::kFound:
      break;
  }
  if (entry->check != nullptr) {
    int passed = 0;
    if (!Guarded("check", entry->origin, response,
                 [&] { passed = entry->check(request, response); })) {
      return;
    }
    if (passed == 0) {
      // A check that refused without saying why still refuses.
      if (!response->IsError()) SetErrorMessage(response, kErrCheckFailed, "parameter check failed");
      return;
    }
  }
  Guarded("process", entry->origin, response, [&] { entry->process(request, response); });
}

}  // namespace zemo::cgi
