// Item conversion, request parsing, path safety and client set-up shared by
// the Files API handlers (see orvel_utils.h). Error mapping lives in
// orvel_errors.cc.
#include "orvel_utils.h"

#include <syslog.h>

#include <cinttypes>
#include <cstdio>
#include <sstream>

#include "bridge/bridge-request.h"
#include "orvel/common/item_json.h"
#include "zemo/nas.h"

namespace {
constexpr const char kSrc[] = "server/ui-web/src/orvel/common/orvel_utils";

std::string Decimal(uint64_t value) {
  char text[32];
  snprintf(text, sizeof(text), "%llu", static_cast<unsigned long long>(value));
  return text;
}

bool IsIntegerValue(const Json::Value& v) { return v.isInt() || v.isUInt(); }

uint32_t AsUnsigned(const Json::Value& v) {
  return v.isUInt() ? v.asUInt() : static_cast<uint32_t>(v.asInt());
}

void AppendStrings(const Json::Value& value, std::vector<std::string>& out) {
  if (!value.isArray()) return;
  for (const Json::Value& element : value) out.push_back(element.asString());
}
}  // namespace

int ConvertFileInfoToJSon(const Nimbard::FileInfo& info, Json::Value& out) {
  orvel::module::WriteItemTree(info, out);
  return 0;
}

int ConvertVersionInfoToJSon(const Nimbard::RevisionInfo& info, Json::Value& out) {
  out = Json::Value(Json::objectValue);
  out["sync_id"] = Json::UInt64(info.sync_id);
  out["version_id"] = Decimal(info.sync_id);
  out["size"] = Json::UInt64(info.size);
  out["modified_time"] = Json::UInt(info.modified_time);
  out["hash"] = info.hash;
  return 0;
}

int ConvertLabelInfoToJSon(const Nimbard::LabelInfo& info, Json::Value& out) {
  out = Json::Value(Json::objectValue);
  out["label_id"] = info.label_id;
  out["color"] = info.color;
  out["name"] = info.name;
  return 0;
}

int JsonReqToMemberSelector(const Json::Value& value, Nimbard::MemberSelector& member) {
  if (!value.isObject() || !value["type"].isString()) return -1;
  member.type = value["type"].asString();
  if (value.isMember("name")) {
    const Json::Value& name = value["name"];
    if (!name.isString() || name.asString().empty()) return -1;
    member.name = name.asString();
  }
  if (value.isMember("uid")) {
    if (!IsIntegerValue(value["uid"])) return -1;
    member.uid = AsUnsigned(value["uid"]);
  }
  if (value.isMember("gid")) {
    if (!IsIntegerValue(value["gid"])) return -1;
    member.gid = AsUnsigned(value["gid"]);
  }
  return 0;
}

int JsonReqToStarAction(const Json::Value& value, Nimbard::StarEditAction& action) {
  if (value.isBool()) {
    action.starred = value.asBool();
    return 0;
  }
  if (!value.isObject()) {
    syslog(LOG_ERR, "%s:%d starred is expected as boolean or object\n", kSrc, __LINE__);
    return -1;
  }
  if (!value["starred"].isBool()) {
    syslog(LOG_ERR, "%s:%d starred is requiered\n", kSrc, __LINE__);
    return -1;
  }
  action.starred = value["starred"].asBool();
  if (value.isMember("member") && JsonReqToMemberSelector(value["member"], action.member) < 0) {
    syslog(LOG_ERR, "%s:%d invalid member format", kSrc, __LINE__);
    return -1;
  }
  return 0;
}

int JsonReqToLabelAction(const Json::Value& value, Nimbard::LabelEditAction& action) {
  if (value.isString()) {
    action.action = "add";
    action.name = value.asString();
    return 0;
  }
  if (!value.isObject()) {
    syslog(LOG_ERR, "%s:%d label is expected as string or object\n", kSrc, __LINE__);
    return -1;
  }
  action.action = value.get("action", "").asString();
  if (action.action.empty()) {
    syslog(LOG_ERR, "%s:%d action is requiered\n", kSrc, __LINE__);
    return -1;
  }
  action.label_id = value.get("label_id", "").asString();
  action.name = value.get("name", "").asString();
  if (action.label_id.empty() && action.name.empty()) {
    syslog(LOG_ERR, "%s:%d one of label name and label id is requiered\n", kSrc, __LINE__);
    return -1;
  }
  if (value.isMember("member") && JsonReqToMemberSelector(value["member"], action.member) < 0) {
    syslog(LOG_ERR, "%s:%d invalid member format", kSrc, __LINE__);
    return -1;
  }
  return 0;
}

void ParseFileListFilter(const Json::Value& filter, bool& starred, std::string& label_id,
                         std::vector<std::string>& types, std::vector<std::string>& extensions) {
  if (!filter.isObject()) return;
  starred = filter.isMember("starred") ? filter["starred"].asBool() : false;
  label_id = filter.isMember("label_id") ? filter["label_id"].asString() : std::string();
  AppendStrings(filter["type"], types);
  AppendStrings(filter["extensions"], extensions);
}

bool IsSafePath(const std::string& path) {
  std::istringstream parts(path);
  std::string component;
  while (std::getline(parts, component, '/')) {
    if (component.empty()) continue;
    if (component == "." || component == "..") return false;
    if (component.find('\\') != std::string::npos) return false;
  }
  return true;
}

std::vector<std::string>& operator<<(std::vector<std::string>& out, const Json::Value& array) {
  if (!array.isNull() && !array.isArray()) Json::throwLogicError("expected an array of strings");
  for (const Json::Value& element : array) out.push_back(element.asString());
  return out;
}

void SetupNimbardSession(Nimbard& client, const std::string& user_name, BridgeRequest& request,
                         const std::string& sudo_user) {
  client.SetSSL(false, false, "", "");
  client.SetServer("unix:/tmp/cloud-syncservice", 0);
  client.SetForwardInfo(request.GetRemoteIP(), 0, request.GetUrlProto());
  client.SetUser(user_name, "", "");
  client.SetSession(request.GetParamRef("access_token", "").asString());
  client.SetSharingToken(request.GetParamRef("sharing_token", "").asString());
  client.SetServerVersion(11061);
  client.SetTimeout(300);
  if (!sudo_user.empty()) client.SetSudoUser(sudo_user);
}

int OrvelGetUID(const std::string& user_name) {
  SDK::User user;
  if (SDK::UserService().GetUserByName(user_name, &user) != 0) return -1;
  return static_cast<int>(user.getUid());
}
