// Parameters, service calls and records of the client APIs (client_common.h).
#include "orvel/client/client_common.h"

#include <string>

#include "bridge/module-log.h"
#include "nimbard/nimbard.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

namespace orvel::client {

namespace {

bool Refuse(BridgeResponse& response, const std::string& message, int line) {
  response.SetError(114, message, line);
  return false;
}

// A number sent as JSON, or a string of digits (a form field that the
// framework kept as text).
bool AsUInt(const Json::Value& value, uint64_t* out) {
  if (value.isUInt64()) {
    *out = value.asUInt64();
    return true;
  }
  if (!value.isString()) return false;
  const std::string text = value.asString();
  if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  *out = std::stoull(text);
  return true;
}

}  // namespace

bool ReadPaging(const BridgeRequest& request, BridgeResponse& response, uint64_t default_limit,
                uint64_t max_limit, Paging* out) {
  out->offset = 0;
  out->limit = default_limit;
  if (!ReadOptionalUInt(request, response, "offset", 0, &out->offset)) return false;
  if (!ReadOptionalUInt(request, response, "limit", default_limit, &out->limit)) return false;
  if (out->limit == 0 || out->limit > max_limit) {
    return Refuse(response, "limit must be 1 to " + std::to_string(max_limit), __LINE__);
  }
  return true;
}

bool ReadRequiredString(const BridgeRequest& request, BridgeResponse& response, const char* name,
                        std::string* out) {
  const Json::Value value = request.GetParamRef(name, Json::Value());
  if (value.isNull()) return Refuse(response, std::string(name) + " is required", __LINE__);
  if (!value.isString() || value.asString().empty()) {
    return Refuse(response, std::string(name) + " must be a non-empty string", __LINE__);
  }
  *out = value.asString();
  return true;
}

bool ReadOptionalString(const BridgeRequest& request, BridgeResponse& response, const char* name,
                        const std::string& def, std::string* out) {
  const Json::Value value = request.GetParamRef(name, Json::Value());
  if (value.isNull()) {
    *out = def;
    return true;
  }
  if (!value.isString()) return Refuse(response, std::string(name) + " must be a string", __LINE__);
  *out = value.asString();
  return true;
}

bool ReadStringList(const BridgeRequest& request, BridgeResponse& response, const char* name,
                    PObject* out) {
  const Json::Value value = request.GetParamRef(name, Json::Value());
  if (value.isNull()) return Refuse(response, std::string(name) + " is required", __LINE__);
  *out = PObject::MakeArray();
  if (value.isString() && !value.asString().empty()) {
    out->push_back(value.asString());
    return true;
  }
  if (!value.isArray() || value.empty()) {
    return Refuse(response, std::string(name) + " must be a non-empty array of strings", __LINE__);
  }
  for (const Json::Value& element : value) {
    if (!element.isString() || element.asString().empty()) {
      return Refuse(response, std::string(name) + " must be a non-empty array of strings", __LINE__);
    }
    out->push_back(element.asString());
  }
  return true;
}

bool ReadOptionalBool(const BridgeRequest& request, BridgeResponse& response, const char* name,
                      bool def, bool* out) {
  const Json::Value value = request.GetParamRef(name, Json::Value());
  *out = def;
  if (value.isNull()) return true;
  if (value.isBool()) {
    *out = value.asBool();
    return true;
  }
  return Refuse(response, std::string(name) + " must be true or false", __LINE__);
}

bool ReadOptionalUInt(const BridgeRequest& request, BridgeResponse& response, const char* name,
                      uint64_t def, uint64_t* out) {
  const Json::Value value = request.GetParamRef(name, Json::Value());
  *out = def;
  if (value.isNull()) return true;
  if (AsUInt(value, out)) return true;
  return Refuse(response, std::string(name) + " must be a non-negative integer", __LINE__);
}

int ClientErrorCode(int service_code) {
  switch (service_code) {
    case -1118:  // kErrTooManyAttempts
      return 1040;
    case -1120:  // kErrLinkPassword
      return 1042;
    default:
      return OrvelErrCodeGetFromBackend(service_code);
  }
}

bool CallService(const RequestAuthentication& auth, BridgeRequest& request,
                 BridgeResponse& response, const char* log_source, const std::string& op,
                 const PObject& args, PObject* result) {
  orvel::module::ServiceFailure failure(log_source, __LINE__, op + " failed", nullptr);
  failure.api_code = ClientErrorCode;
  return orvel::module::CallService(auth, request, response, std::string(), failure,
                                    [&](Nimbard& client) { return client.Call(op, args, result); });
}

Json::Value ToJson(const PObject& value) { return value.toJson(); }

Json::Value ItemJson(const PObject& record) {
  Nimbard::FileInfo info;
  Nimbard::FileInfoFromPObject(record, info);
  Json::Value out(Json::objectValue);
  ConvertFileInfoToJSon(info, out);
  return out;
}

}  // namespace orvel::client
