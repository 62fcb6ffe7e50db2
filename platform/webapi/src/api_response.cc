// ZEMO::APIResponse: what a module answers (data or an error, extra headers,
// whether the framework writes the answer at all) and the JSON envelope the
// framework prints around it. One request per process; not thread-safe.
#include "zemo/webapi.h"

namespace ZEMO {

void APIResponse::SetSuccess(const Json::Value& data) {
  error_code_ = 0;
  error_details_ = Json::Value();
  data_ = data;
  data_text_.clear();
  has_data_ = true;
}

void APIResponse::SetSuccess(Json::Value&& data) {
  error_code_ = 0;
  error_details_ = Json::Value();
  data_ = std::move(data);
  data_text_.clear();
  has_data_ = true;
}

void APIResponse::SetSuccessText(std::string data_text) {
  error_code_ = 0;
  error_details_ = Json::Value();
  data_ = Json::Value();
  data_text_ = std::move(data_text);
  has_data_ = true;
}

void APIResponse::SetSuccess() {
  error_code_ = 0;
  error_details_ = Json::Value();
  data_ = Json::Value();
  data_text_.clear();
  has_data_ = false;
}

void APIResponse::SetError(int code, const Json::Value& details) {
  error_code_ = code;
  error_details_ = details;
  data_ = Json::Value();
  data_text_.clear();
  has_data_ = false;
}

void APIResponse::SetHeader(const std::string& name, const std::string& value) {
  headers_.emplace_back(name, value);
}

Json::Value APIResponse::Envelope() const {
  Json::Value env(Json::objectValue);
  if (IsError()) {
    env["success"] = false;
    Json::Value error(Json::objectValue);
    error["code"] = error_code_;
    if (!error_details_.isNull()) error["errors"] = error_details_;
    env["error"] = error;
    return env;
  }
  env["success"] = true;
  if (has_data_ && !data_text_.empty()) {
    Json::Value data;
    WebAPIUtil::ParseJson(data_text_, data);
    env["data"] = std::move(data);
  } else if (has_data_) {
    env["data"] = data_;
  }
  return env;
}

}  // namespace ZEMO
