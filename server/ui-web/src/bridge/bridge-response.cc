// BridgeResponse (see bridge-response.h).
#include "bridge-response.h"

#include "zemo/nas.h"

void BridgeResponse::SetError(int code, const std::string& message, int line) {
  error_code_ = code;
  error_message_ = message;
  error_line_ = line;
}

void BridgeResponse::SetJsonResponse(const Json::Value& value) {
  type_ = kJson;
  json_ = value;
  json_text_.clear();
}

void BridgeResponse::SetJsonResponse(Json::Value&& value) {
  type_ = kJson;
  json_ = std::move(value);
  json_text_.clear();
}

void BridgeResponse::SetJsonText(std::string text) {
  type_ = kJson;
  json_ = Json::Value();
  json_text_ = std::move(text);
}

void BridgeResponse::SetHeader(std::string name, std::string value) {
  headers_.emplace_back(std::move(name), std::move(value));
}

void BridgeResponse::SetCookie(const std::string& name, const std::string& value,
                               const CookieOptions& options) {
  std::string cookie = name + "=" + UrlEncode(value);
  if (!options.path.empty()) cookie += "; path=" + options.path;
  SetHeader("Set-Cookie", cookie);
}

void BridgeResponse::SetCookie(const std::string& name, const std::string& value) {
  SetCookie(name, value, CookieOptions());
}

void BridgeResponse::AddAutoRemovePath(const std::string& path) {
  if (!path.empty()) auto_remove_paths_.push_back(path);
}

void BridgeResponse::SetArchiveResponse(const std::string& name, const std::string& path,
                                        const std::string& /*codepage*/, bool auto_remove) {
  type_ = kArchive;
  archive_name_ = name;
  archive_path_ = path;
  if (auto_remove) AddAutoRemovePath(path);
}

void BridgeResponse::SetFileResponse(const std::string& name, const std::string& path,
                                     bool force_download, bool auto_remove) {
  type_ = kFile;
  file_name_ = name;
  file_path_ = path;
  force_download_ = force_download;
  if (auto_remove) AddAutoRemovePath(path);
}
