// ZEMO::APIRequest: the parameters, caller and connection data of one
// request, as entry.cgi filled them in, and the typed parameter fetchers
// modules use. One request per process; not thread-safe.
#include "zemo/webapi.h"

namespace ZEMO {

namespace {

// Shared by the GetAndCheck* fetchers: absent, present but refused by the
// type test or the validator, or accepted.
template <class T, class TypeOk, class Convert>
APIParameter<T> Fetch(const Json::Value& params, const std::string& name, int necessity,
                      const APIValidator* validator, TypeOk type_ok, Convert convert) {
  if (!params.isMember(name)) return APIParameter<T>(false, necessity == 0, T());
  const Json::Value& v = params[name];
  if (!type_ok(v)) return APIParameter<T>(true, true, T());
  if (validator != nullptr && !validator->Validate(v)) return APIParameter<T>(true, true, T());
  return APIParameter<T>(true, false, convert(v));
}

}  // namespace

APIRequest::APIRequest(std::string api, std::string method, unsigned version, Json::Value params)
    : api_(std::move(api)), method_(std::move(method)), version_(version) {
  InitParam(params);
}

Json::Value APIRequest::GetParamRef(const std::string& name, const Json::Value& def) const {
  return params_.isMember(name) ? params_[name] : def;
}

bool APIRequest::HasParam(const std::string& name) const { return params_.isMember(name); }

void APIRequest::InitParam(const Json::Value& params) {
  params_ = params.isObject() ? params : Json::Value(Json::objectValue);
}

APIParameter<std::string> APIRequest::GetAndCheckString(const std::string& name, int necessity,
                                                        const APIValidator* validator) const {
  return Fetch<std::string>(
      params_, name, necessity, validator, [](const Json::Value& v) { return v.isString(); },
      [](const Json::Value& v) { return v.asString(); });
}

APIParameter<Json::Value> APIRequest::GetAndCheckUnitArray(const std::string& name, int necessity,
                                                           const APIValidator* validator) const {
  return Fetch<Json::Value>(
      params_, name, necessity, validator, [](const Json::Value& v) { return v.isArray(); },
      [](const Json::Value& v) { return v; });
}

void APIRequest::SetRemote(std::string ip, std::string proto, std::string host, int port) {
  remote_ip_ = std::move(ip);
  proto_ = std::move(proto);
  host_ = std::move(host);
  port_ = port;
}

void APIRequest::SetUpload(Json::Value form_fields, std::string tmp_path, std::string file_name) {
  upload_fields_ = form_fields.isObject() ? std::move(form_fields) : Json::Value(Json::objectValue);
  upload_tmp_ = std::move(tmp_path);
  upload_name_ = std::move(file_name);
}

}  // namespace ZEMO
