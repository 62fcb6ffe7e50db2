// See sharing_params.h.
#include "webapi/orvel/sharing/sharing_params.h"

#include <cstdlib>

#include "orvel/client/client_common.h"
#include "zemo/nas.h"

namespace orvel::sharing {
namespace {

bool Refuse(BridgeResponse& response, const std::string& message, int line) {
  response.SetError(114, message, line);
  return false;
}

}  // namespace

void SetUp(RequestHandler* handler, const char* method, bool writes, bool visitors) {
  handler->SetRequiredDatabase(0);
  unsigned account = RequestHandler::kAccountAppPrivilege | RequestHandler::kAccountExpiry;
  if (visitors) account |= RequestHandler::kAccountAnonymous;
  handler->SetAccountOption(account);
  handler->SetRequiredAccessPrivilege(0);
  handler->SetStatusOption(RequestHandler::kStatusEnabled);
  handler->SetRequestMethod(writes ? kRequestMethodWrite
                                   : kRequestMethodRead);
  handler->SetAPI(kApi, method, 1, 1);
}

bool ReadPath(const BridgeRequest& request, BridgeResponse& response, PObject* args) {
  std::string path;
  if (!client::ReadRequiredString(request, response, "path", &path)) return false;
  (*args)["path"] = path;
  return true;
}

bool ReadMember(const BridgeRequest& request, BridgeResponse& response, PObject* args) {
  std::string kind, name;
  if (!client::ReadOptionalString(request, response, "kind", "user", &kind)) return false;
  if (kind != "user" && kind != "group") return Refuse(response, "kind must be user or group", __LINE__);
  if (!client::ReadRequiredString(request, response, "name", &name)) return false;
  (*args)["kind"] = kind;
  (*args)["name"] = name;
  return true;
}

bool ReadRole(const BridgeRequest& request, BridgeResponse& response,
              std::initializer_list<const char*> allowed, PObject* args) {
  std::string role;
  if (!client::ReadOptionalString(request, response, "role", "", &role)) return false;
  if (role.empty() && !request.HasParam("role")) return true;
  std::string names;
  for (const char* a : allowed) {
    if (role == a) {
      (*args)["role"] = role;
      return true;
    }
    names += (names.empty() ? "" : ", ") + std::string(a);
  }
  return Refuse(response, "role must be one of " + names, __LINE__);
}

bool ReadLinkOptions(const BridgeRequest& request, BridgeResponse& response, PObject* args) {
  if (request.HasParam("expires")) {
    uint64_t expires = 0;
    if (!client::ReadOptionalUInt(request, response, "expires", 0, &expires)) return false;
    (*args)["expires"] = static_cast<unsigned long long>(expires);
  }
  if (!request.HasParam("password")) return true;
  if (InQueryString(request, "password"))
    return Refuse(response, "password must be sent in the request body, not in the URL", __LINE__);
  std::string password;
  if (!client::ReadOptionalString(request, response, "password", "", &password)) return false;
  (*args)["password"] = password;
  return true;
}

bool InQueryString(const BridgeRequest& request, const std::string& name) {
  const std::string text = request.GetQueryString();
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t end = text.find('&', pos);
    if (end == std::string::npos) end = text.size();
    const std::string pair = text.substr(pos, end - pos);
    if (UrlDecode(pair.substr(0, pair.find('='))) == name) return true;
    pos = end + 1;
  }
  return false;
}

Json::Value LinkJson(const PObject& link) {
  Json::Value out(Json::objectValue);
  out["token"] = link["token"].asString();
  out["role"] = link["role"].asString();
  out["created"] = Json::Int64(link["created"].asInt64());
  out["expires"] = Json::Int64(link["expires"].asInt64());
  out["has_password"] = link["has_password"].asBool();
  return out;
}

}  // namespace orvel::sharing
