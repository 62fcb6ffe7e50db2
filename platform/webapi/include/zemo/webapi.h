// The web API framework's interface to modules: the request and response
// objects that entry.cgi hands to a module's Process(), the upload reader,
// parameter checks, and the module table layouts. One request per process;
// none of these objects is thread-safe.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ZEMO {

class APIRequest;
class APIResponse;

// The identity of the caller as the framework established it.
struct LoginInfo {
  std::string user;      // "" for a caller without a session
  int uid = -1;          // -1 for a caller without a session
  bool admin = false;
  bool timed_out = false;
};

// A parameter fetched through GetAndCheck*: invalid when required and
// missing, or of the wrong type, or refused by the validator.
template <class T>
class APIParameter {
 public:
  APIParameter() = default;
  APIParameter(bool set, bool invalid, T value)
      : set_(set), invalid_(invalid), value_(std::move(value)) {}
  bool IsSet() const { return set_; }
  bool IsInvalid() const { return invalid_; }
  const T& Get() const { return value_; }

 private:
  bool set_ = false;
  bool invalid_ = false;
  T value_{};
};

// A parameter validator; IsBelong tests membership in a JSON array.
class APIValidator {
 public:
  virtual ~APIValidator() = default;
  virtual bool Validate(const Json::Value& value) const = 0;
  static bool IsBelong(const Json::Value& value, const Json::Value& allowed);
};

class APIRequest {
 public:
  APIRequest() = default;
  APIRequest(std::string api, std::string method, unsigned version, Json::Value params);

  const std::string& GetAPIClass() const { return api_; }
  const std::string& GetAPIMethod() const { return method_; }
  unsigned GetAPIVersion() const { return version_; }

  // The parameter's value (JSON-decoded where the text was valid JSON), or
  // def when absent.
  Json::Value GetParamRef(const std::string& name, const Json::Value& def) const;
  bool HasParam(const std::string& name) const;
  const Json::Value& GetParams() const { return params_; }
  // Replaces every parameter (used after reading an upload's form fields).
  void InitParam(const Json::Value& params);

  // necessity: 0 required, 1 optional. validator may be null.
  APIParameter<std::string> GetAndCheckString(const std::string& name, int necessity,
                                              const APIValidator* validator) const;
  // An array parameter (any element types).
  APIParameter<Json::Value> GetAndCheckUnitArray(const std::string& name, int necessity,
                                                 const APIValidator* validator) const;

  std::string GetRemoteIP() const { return remote_ip_; }
  // The request's query string as sent (for a module that must know whether
  // a parameter came in the URL).
  const std::string& GetQueryString() const { return query_; }
  std::string GetURLProto(const std::string& def) const { return proto_.empty() ? def : proto_; }
  std::string GetURLHost(const std::string& def) const { return host_.empty() ? def : host_; }
  int GetURLPort(int def) const { return port_ ? port_ : def; }

  std::string GetLoginUserName() const { return login_.user; }
  int GetLoginUID() const { return login_.uid; }
  bool IsAdmin() const { return login_.admin; }
  bool IsTimeout() const { return login_.timed_out; }

  // A multipart request that carried a file part.
  bool IsUploadRequest() const { return !upload_tmp_.empty(); }

  // Framework side.
  void SetLogin(const LoginInfo& login) { login_ = login; }
  void SetRemote(std::string ip, std::string proto, std::string host, int port);
  void SetQueryString(std::string query) { query_ = std::move(query); }
  void SetUpload(Json::Value form_fields, std::string tmp_path, std::string file_name);
  const Json::Value& UploadFields() const { return upload_fields_; }
  const std::string& UploadTmpPath() const { return upload_tmp_; }
  const std::string& UploadFileName() const { return upload_name_; }

 private:
  std::string api_, method_;
  unsigned version_ = 0;
  Json::Value params_{Json::objectValue};
  LoginInfo login_;
  std::string remote_ip_, proto_, host_, query_;
  int port_ = 0;
  Json::Value upload_fields_{Json::objectValue};
  std::string upload_tmp_, upload_name_;
};

class APIResponse {
 public:
  void SetSuccess(const Json::Value& data);
  void SetSuccess(Json::Value&& data);  // takes the tree over, no copy
  void SetSuccess();  // success without "data"
  // Success with "data" given as its compact JSON text, written by the
  // zemo/json_text.h functions (a large listing is written straight from
  // its records, never built as a tree). The framework prints it as it is.
  void SetSuccessText(std::string data_text);
  void SetError(int code, const Json::Value& details = Json::Value());
  void SetHeader(const std::string& name, const std::string& value);
  // With false the framework writes nothing: what the module printed to
  // stdout is the whole CGI answer.
  void SetEnableOutput(bool enable) { output_enabled_ = enable; }

  bool IsOutputEnabled() const { return output_enabled_; }
  bool IsError() const { return error_code_ != 0; }
  bool HasData() const { return has_data_; }
  int GetErrorCode() const { return error_code_; }
  const Json::Value& GetErrorDetails() const { return error_details_; }
  const Json::Value& GetData() const { return data_; }
  // The text given to SetSuccessText; empty when the data is a tree.
  const std::string& GetDataText() const { return data_text_; }
  const std::vector<std::pair<std::string, std::string>>& GetHeaders() const { return headers_; }
  // The envelope: {"success": true[, "data"]} or {"success": false, "error": {...}}.
  Json::Value Envelope() const;

 private:
  bool output_enabled_ = true;
  bool has_data_ = false;
  int error_code_ = 0;
  Json::Value error_details_;
  Json::Value data_;
  std::string data_text_;
  std::vector<std::pair<std::string, std::string>> headers_;
};

// Reads an upload request's form fields and received file.
class APIUpload {
 public:
  explicit APIUpload(APIRequest* request) : request_(request) {}
  // 0 and the form fields (an object), or a non-zero error code.
  int GetUploadParam(Json::Value& params);
  // 0 and the received file's temp path, or a non-zero error code.
  int GetUploadFile(std::string& tmp_path);

 private:
  APIRequest* request_;
};

class WebAPIUtil {
 public:
  // Parses a JSON text; true on success.
  static bool ParseJson(const std::string& text, Json::Value& out);
};

}  // namespace ZEMO

// Module tables, as exported by a module's GetAPITable / GetAPICheckTable.
typedef void (*ZemoProcessFn)(ZEMO::APIRequest*, ZEMO::APIResponse*);
typedef int (*ZemoCheckFn)(ZEMO::APIRequest*, ZEMO::APIResponse*);

struct ZemoAPIEntry {
  const char* api;
  uintptr_t version;
  const char* method;
  ZemoProcessFn process;
};

struct ZemoAPICheckEntry {
  const char* api;
  uintptr_t version;
  const char* method;
  ZemoCheckFn check;
  uintptr_t reserved1;
  uintptr_t reserved2;
};

extern "C" {
typedef ZemoAPIEntry* (*ZemoGetAPITableFn)();
typedef ZemoAPICheckEntry* (*ZemoGetAPICheckTableFn)();
}
