// The methods a GET or HEAD request may call; see method_policy.h.
#include "cgi/method_policy.h"

namespace zemo::cgi {

namespace {

struct ReadMethod {
  const char* api;
  const char* method;
};

// "download" and "get_thumbnail" are what a browser fetches through a plain
// link (with "_token" beside the session cookie). Login and logout stay open
// to GET: they act on the session they present or create, never on data.
constexpr ReadMethod kReadMethods[] = {
    {"ZEMO.API.Auth", "login"},
    {"ZEMO.API.Auth", "logout"},
    {"ZEMO.API.Info", "query"},
    {"ZEMO.ZemoraOrvel.Files", "list"},
    {"ZEMO.ZemoraOrvel.Files", "list_starred"},
    {"ZEMO.ZemoraOrvel.Files", "list_labelled"},
    {"ZEMO.ZemoraOrvel.Files", "list_ancestor"},
    {"ZEMO.ZemoraOrvel.Files", "list_backup_tasks"},
    {"ZEMO.ZemoraOrvel.Files", "shared_with_me"},
    {"ZEMO.ZemoraOrvel.Files", "shared_with_others"},
    {"ZEMO.ZemoraOrvel.Files", "recent"},
    {"ZEMO.ZemoraOrvel.Files", "search"},
    {"ZEMO.ZemoraOrvel.Files", "get"},
    {"ZEMO.ZemoraOrvel.Files", "get_thumbnail"},
    {"ZEMO.ZemoraOrvel.Files", "download"},
    {"ZEMO.ZemoraOrvel.Task", "list"},
    {"ZEMO.ZemoraOrvel.Task", "get"},
    {"ZEMO.ZemoraOrvel.Recycle", "list"},
    {"ZEMO.ZemoraOrvel.Revision", "list"},
    {"ZEMO.ZemoraOrvel.Revision", "download"},
    {"ZEMO.ZemoraOrvel.Sharing", "list"},
    {"ZEMO.ZemoraOrvel.Label", "list"},
};

}  // namespace

bool ReadsOnly(const std::string& api, const std::string& method) {
  for (const ReadMethod& m : kReadMethods) {
    if (api == m.api && method == m.method) return true;
  }
  return false;
}

}  // namespace zemo::cgi
