// Parameter parsing; see form_params.h. Thread-safe.
#include "cgi/form_params.h"

#include "zemo/nas.h"
#include "zemo/webapi.h"

namespace zemo::cgi {

namespace {

// Filled in by the framework (through ZEMO::APIUpload) and never taken from
// the request: a module trusts them as the framework's own.
constexpr const char* kFrameworkParams[] = {"file_tmp"};

std::string DecodeComponent(std::string text) {
  for (char& c : text) {
    if (c == '+') c = ' ';
  }
  return UrlDecode(text);
}

}  // namespace

void ParseUrlEncoded(const std::string& text, RawParams* out) {
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('&', pos);
    if (end == std::string::npos) end = text.size();
    std::string pair = text.substr(pos, end - pos);
    pos = end + 1;
    size_t eq = pair.find('=');
    std::string name = DecodeComponent(pair.substr(0, eq));
    if (name.empty()) continue;
    (*out)[name] = eq == std::string::npos ? "" : DecodeComponent(pair.substr(eq + 1));
  }
}

Json::Value ParamValue(const std::string& text) {
  Json::Value parsed;
  if (ZEMO::WebAPIUtil::ParseJson(text, parsed)) return parsed;
  return Json::Value(text);
}

Json::Value ToJsonParams(const RawParams& raw) {
  Json::Value params(Json::objectValue);
  for (const auto& [name, text] : raw) params[name] = ParamValue(text);
  return params;
}

std::string StringParam(const RawParams& raw, const std::string& name, bool* found) {
  auto it = raw.find(name);
  *found = it != raw.end();
  if (!*found) return "";
  Json::Value parsed;
  if (ZEMO::WebAPIUtil::ParseJson(it->second, parsed) && parsed.isString()) return parsed.asString();
  return it->second;
}

std::vector<std::string> DropFrameworkParams(RawParams* raw) {
  std::vector<std::string> dropped;
  for (const char* name : kFrameworkParams) {
    if (raw->erase(name) != 0) dropped.push_back(name);
  }
  return dropped;
}

}  // namespace zemo::cgi
