// Package configuration: defaults, the JSON file and $ZEMO_ROOT expansion.
#include "orvelcommon/sync_config.h"

#include <json/json.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

#include "orvelcommon/zemo_root.h"

namespace {

std::string ExpandRoot(const std::string& value) {
  const std::string var = "$ZEMO_ROOT";
  if (value.compare(0, var.size(), var) != 0) return value;
  return orvel::ZemoPath(value.size() == var.size() ? "/" : value.substr(var.size()));
}

std::string StringKey(const Json::Value& root, const char* key, const std::string& def) {
  const Json::Value& v = root[key];
  return v.isString() ? ExpandRoot(v.asString()) : def;
}

uint64_t UIntKey(const Json::Value& root, const char* key, uint64_t def) {
  const Json::Value& v = root[key];
  return v.isUInt64() ? v.asUInt64() : def;
}

// A limit: absent, zero or not an unsigned number keeps the default.
uint64_t LimitKey(const Json::Value& root, const char* key, uint64_t def) {
  uint64_t v = UIntKey(root, key, def);
  return v == 0 ? def : v;
}

unsigned SecondsKey(const Json::Value& root, const char* key, unsigned def) {
  uint64_t v = LimitKey(root, key, def);
  return v > 86400 ? 86400 : static_cast<unsigned>(v);
}

}  // namespace

int SyncConfigMgr::Init() {
  working_dir_ = orvel::PackageTarget() + "/var";
  data_dir_ = orvel::ZemoPath("/volume1/ZemoraOrvel");
  Json::Value root(Json::objectValue);
  std::ifstream in(GetConfigPath());
  if (in) {
    std::stringstream text;
    text << in.rdbuf();
    Json::CharReaderBuilder b;
    std::string errs;
    std::istringstream s(text.str());
    if (!Json::parseFromStream(b, s, &root, &errs) || !root.isObject()) return -1;
  }
  working_dir_ = StringKey(root, "working_dir", working_dir_);
  data_dir_ = StringKey(root, "data_dir", data_dir_);
  db_backend_ = StringKey(root, "db_backend", "sqlite");
  db_connect_ = StringKey(root, "db_connect", data_dir_ + "/@db");
  web_account_ = StringKey(root, "web_account", "www-data");
  upload_max_ = UIntKey(root, "upload_max_bytes", 0);
  download_x_sendfile_ = !root["download_x_sendfile"].isBool() || root["download_x_sendfile"].asBool();
  idle_ = static_cast<unsigned>(UIntKey(root, "session_idle_seconds", 3600));
  max_ = static_cast<unsigned>(UIntKey(root, "session_max_seconds", 604800));
  workers_ = static_cast<unsigned>(UIntKey(root, "worker_threads", 2));
  office_converter_ = StringKey(root, "office_converter", "soffice");
  recycle_keep_days_ = static_cast<unsigned>(std::min<uint64_t>(UIntKey(root, "recycle_keep_days", 30), 100000));
  throttle_clock_ = root["throttle_clock"].isInt64() ? root["throttle_clock"].asInt64() : 0;
  link_grant_seconds_ = SecondsKey(root, "link_grant_seconds", 43200);
  decode_max_input_ = LimitKey(root, "decode_max_input_bytes", 256ull << 20);
  decode_max_pixels_ = LimitKey(root, "decode_max_pixels", 1ull << 28);
  render_memory_ = LimitKey(root, "render_memory_bytes", 1ull << 30);
  render_seconds_ = SecondsKey(root, "render_seconds", 30);
  convert_memory_ = LimitKey(root, "convert_memory_bytes", 4ull << 30);
  convert_seconds_ = SecondsKey(root, "convert_seconds", 300);
  revision_keep_count_ = UIntKey(root, "revision_keep_count", 32);
  revision_keep_days_ = UIntKey(root, "revision_keep_days", 0);
  tpx_shares_.clear();
  for (const Json::Value& s : root["tpx_shares"]) {
    if (!s.isObject()) continue;
    orvel::TpxShare share;
    share.name = s["name"].asString();
    share.path = ExpandRoot(s["path"].asString());
    for (const Json::Value& u : s["users"]) share.users.push_back(u.asString());
    tpx_shares_.push_back(std::move(share));
  }
  return 0;
}

std::string SyncConfigMgr::GetConfigPath() const { return orvel::PackageTarget() + "/etc/orvel.conf"; }
std::string SyncConfigMgr::GetWorkingDirPath() const { return working_dir_; }
std::string SyncConfigMgr::GetDataDirPath() const { return data_dir_; }
std::string SyncConfigMgr::GetDbConnectParam() const { return db_connect_; }
std::string SyncConfigMgr::GetDBBackendString() const { return db_backend_; }
std::string SyncConfigMgr::GetSystemRepoLocation() const { return data_dir_; }
std::string SyncConfigMgr::GetSysShareBin() const { return data_dir_; }
std::string SyncConfigMgr::GetSocketPath() const {
  return orvel::ResolveSocketAddress("unix:/tmp/cloud-syncservice");
}
std::string SyncConfigMgr::GetWebAccount() const { return web_account_; }
uint64_t SyncConfigMgr::GetUploadMaxBytes() const { return upload_max_; }
uint64_t SyncConfigMgr::GetRevisionKeepCount() const { return revision_keep_count_; }
uint64_t SyncConfigMgr::GetRevisionKeepDays() const { return revision_keep_days_; }
unsigned SyncConfigMgr::GetSessionIdleSeconds() const { return idle_; }
unsigned SyncConfigMgr::GetSessionMaxSeconds() const { return max_; }
unsigned SyncConfigMgr::GetWorkerThreads() const { return workers_; }
std::string SyncConfigMgr::GetOfficeConverter() const { return office_converter_; }
unsigned SyncConfigMgr::GetRecycleKeepDays() const { return recycle_keep_days_; }
int64_t SyncConfigMgr::ThrottleNow() const {
  return throttle_clock_ > 0 ? throttle_clock_ : static_cast<int64_t>(std::time(nullptr));
}
unsigned SyncConfigMgr::GetLinkGrantSeconds() const { return link_grant_seconds_; }
uint64_t SyncConfigMgr::GetDecodeMaxInputBytes() const { return decode_max_input_; }
uint64_t SyncConfigMgr::GetDecodeMaxPixels() const { return decode_max_pixels_; }
uint64_t SyncConfigMgr::GetRenderMemoryBytes() const { return render_memory_; }
unsigned SyncConfigMgr::GetRenderSeconds() const { return render_seconds_; }
uint64_t SyncConfigMgr::GetConvertMemoryBytes() const { return convert_memory_; }
unsigned SyncConfigMgr::GetConvertSeconds() const { return convert_seconds_; }
std::string SyncConfigMgr::GetSyncDbPath() const { return db_connect_ + "/sync.db"; }
std::string SyncConfigMgr::GetUserDbPath() const { return db_connect_ + "/users.db"; }
std::string SyncConfigMgr::GetLogDbPath() const { return db_connect_ + "/log.db"; }

int SyncGetConf(SyncConfigMgr* conf) { return conf->Init(); }
