// Item conversion, request parsing, path safety and client set-up shared by
// the Files API handlers (see orvel_utils.h). Error mapping lives in
// orvel_errors.cc.
#include "orvel_utils.h"

#include <syslog.h>

#include <cinttypes>
#include <cstdio>
#include <sstream>

#include "bridge/bridge-request.h"
#include "zemo/nas.h"

namespace {
constexpr const char kSrc[] = "server/ui-web/src/orvel/common/orvel_utils";

Json::Value CapabilitiesToJson(const Nimbard::Capabilities& caps) {
  Json::Value out(Json::objectValue);
  out["can_preview"] = caps.can_preview;
  out["can_read"] = caps.can_read;
  out["can_write"] = caps.can_write;
  out["can_delete"] = caps.can_delete;
  out["can_rename"] = caps.can_rename;
  out["can_comment"] = caps.can_comment;
  out["can_share"] = caps.can_share;
  out["can_encrypt"] = caps.can_encrypt;
  out["can_organize"] = caps.can_organize;
  return out;
}

Json::Value PermissionsToJson(const std::vector<Nimbard::PermissionInfo>& permissions) {
  Json::Value out(Json::arrayValue);
  for (const Nimbard::PermissionInfo& p : permissions) {
    Json::Value entry(Json::objectValue);
    entry["permission_id"] = p.permission_id;
    entry["type"] = p.type;
    entry["name"] = p.name;
    entry["role"] = p.role;
    entry["inherited"] = p.inherited;
    out.append(entry);
  }
  return out;
}

Json::Value LabelsToJson(const std::vector<Nimbard::LabelInfo>& labels) {
  Json::Value out(Json::arrayValue);
  for (const Nimbard::LabelInfo& label : labels) {
    Json::Value entry;
    ConvertLabelInfoToJSon(label, entry);
    out.append(entry);
  }
  return out;
}

const char* TypeName(int type) {
  if (type == 0) return "file";
  if (type == 1) return "dir";
  return "";
}

std::string Decimal(uint64_t value) {
  char text[32];
  snprintf(text, sizeof(text), "%llu", static_cast<unsigned long long>(value));
  return text;
}

// Parses a JSON text (comments allowed) into out; false on a syntax error.
bool ParseProperties(const std::string& text, Json::Value& out) {
  if (text == "{}") {  // the common case; spares a reader per item of a listing
    out = Json::Value(Json::objectValue);
    return true;
  }
  Json::Reader reader;
  return reader.parse(text, out, true);
}

void FillIdentity(const Nimbard::FileInfo& info, Json::Value& out) {
  out["file_id"] = info.file_id;
  out["path"] = info.path;
  out["tpx_path"] = info.tpx_path;
  out["display_path"] = info.display_path;
  if (!info.original_path.empty()) out["original_path"] = info.original_path;
  out["name"] = info.name;
  out["type"] = TypeName(info.type);
  out["parent_id"] = info.parent_id;
  out["created_time"] = Json::UInt(info.created_time);
  out["access_time"] = Json::UInt(info.access_time);
  out["modified_time"] = Json::UInt(info.modified_time);
  out["change_time"] = Json::UInt(info.change_time);
  out["size"] = Json::UInt64(info.size);
}

void FillState(const Nimbard::FileInfo& info, Json::Value& out) {
  out["capabilities"] = CapabilitiesToJson(info.capabilities);
  out["version_id"] = Decimal(info.sync_id);
  out["sync_id"] = Json::UInt64(info.sync_id);
  out["max_id"] = Json::UInt64(info.max_id);
  out["removed"] = info.removed;
  out["encrypted"] = info.encrypted;
  out["starred"] = info.starred;
  out["shared"] = info.shared;
  out["adv_shared"] = info.adv_shared;
  out["sync_to_device"] = info.sync_to_device;
  out["shared_with"] = PermissionsToJson(info.permissions);
}

void FillExtras(const Nimbard::FileInfo& info, Json::Value& out) {
  if (!ParseProperties(info.properties, out["properties"])) {
    syslog(LOG_ERR, "%s:%d Properties cannot be parsed.\n", kSrc, __LINE__);
  }
  if (!ParseProperties(info.app_properties, out["app_properties"])) {
    syslog(LOG_ERR, "%s:%d App properties cannot be parsed.\n", kSrc, __LINE__);
  }
  Json::Value owner(Json::objectValue);
  owner["display_name"] = info.owner_display_name;
  owner["name"] = info.owner_name;
  owner["uid"] = Json::UInt(info.owner_uid);
  out["owner"] = owner;
  out["permanent_link"] = info.permanent_link;
  out["labels"] = LabelsToJson(info.labels);
  out["hash"] = info.hash;
  out["content_snippet"] = info.content_snippet;
  out["revisions"] = Json::UInt(info.revisions);
  out["content_type"] = info.content_type;
  Json::Value image(Json::objectValue);
  image["time"] = Json::UInt(info.modified_time);
  out["image_metadata"] = image;
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
  if (!out.isObject()) out = Json::Value(Json::objectValue);
  FillIdentity(info, out);
  FillState(info, out);
  FillExtras(info, out);
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
