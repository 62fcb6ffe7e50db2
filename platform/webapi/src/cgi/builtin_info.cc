// ZEMO.API.Info "query": the APIs this entry.cgi serves, each with its lowest
// and highest version and the path to call it at. The optional parameter
// "query" is "all" (the default) or a comma-separated list of API names.
// Not thread-safe.
#include <set>
#include <sstream>

#include "cgi/builtin_apis.h"

namespace zemo::cgi {

namespace {

// The names asked for; empty means all.
std::set<std::string> WantedApis(const ZEMO::APIRequest& request) {
  std::set<std::string> wanted;
  Json::Value q = request.GetParamRef("query", Json::Value("all"));
  if (!q.isString() || q.asString() == "all" || q.asString().empty()) return wanted;
  std::istringstream names(q.asString());
  std::string name;
  while (std::getline(names, name, ',')) {
    if (!name.empty()) wanted.insert(name);
  }
  return wanted;
}

void Query(const ApiRegistry& registry, ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  std::set<std::string> wanted = WantedApis(*request);
  Json::Value data(Json::objectValue);
  for (const auto& [api, range] : registry.Ranges()) {
    if (!wanted.empty() && wanted.count(api) == 0) continue;
    Json::Value entry(Json::objectValue);
    entry["min_version"] = range.min;
    entry["max_version"] = range.max;
    entry["path"] = kCgiPath;
    data[api] = entry;
  }
  response->SetSuccess(data);
}

}  // namespace

void RegisterInfoApi(const ApiRegistry* registry_view, ApiRegistry* registry) {
  registry->Add(kInfoApi, "query", 1,
                ApiMethod{[registry_view](ZEMO::APIRequest* req, ZEMO::APIResponse* r) {
                            Query(*registry_view, req, r);
                          },
                          nullptr, "built-in"});
}

}  // namespace zemo::cgi
