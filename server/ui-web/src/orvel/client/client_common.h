// What every handler of the client APIs (Task, Recycle, Revision, Sharing)
// shares: reading their parameters, the one way they call the service
// (client set-up, the call, the error mapped and logged), and turning the
// service's records into the APIs' JSON.
//
// Conventions (docs/client-api.md): a missing or malformed parameter is API
// error 114 with a message naming the parameter; a service failure is the
// API code of ClientErrorCode with the service's own message, which names
// the cause and the item.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

#include "bridge/bridge-request.h"
#include "bridge/bridge-response.h"
#include "bridge/request-handler.h"
#include "orvelcommon/pobject.h"

namespace orvel::client {

// Paging of a list method: "offset" (default 0) and "limit" (default
// default_limit, at most max_limit).
struct Paging {
  uint64_t offset = 0;
  uint64_t limit = 0;
};

// Each reader returns false after recording error 114 on response.
bool ReadPaging(const BridgeRequest& request, BridgeResponse& response, uint64_t default_limit,
                uint64_t max_limit, Paging* out);
// A non-empty string.
bool ReadRequiredString(const BridgeRequest& request, BridgeResponse& response, const char* name,
                        std::string* out);
// A string when present (else *out = def); any other JSON type is refused.
bool ReadOptionalString(const BridgeRequest& request, BridgeResponse& response, const char* name,
                        const std::string& def, std::string* out);
// A non-empty array of non-empty strings (a single string is taken as one).
bool ReadStringList(const BridgeRequest& request, BridgeResponse& response, const char* name,
                    PObject* out);
// A boolean (true/false, or the strings "true"/"false") when present.
bool ReadOptionalBool(const BridgeRequest& request, BridgeResponse& response, const char* name,
                      bool def, bool* out);
// A non-negative integer when present.
bool ReadOptionalUInt(const BridgeRequest& request, BridgeResponse& response, const char* name,
                      uint64_t def, uint64_t* out);

// The API error code of a service code: the Files module's table, plus the
// codes only the client APIs meet.
int ClientErrorCode(int service_code);

// Calls the service's op with args for the request's caller and fills
// *result, through orvel::module::CallService (orvel/common/service_call.h).
// On failure records the API error (ClientErrorCode, the service's message),
// logs "<op> failed: <message> (<code>)" under log_source and returns false.
bool CallService(const RequestAuthentication& auth, BridgeRequest& request,
                 BridgeResponse& response, const char* log_source, const std::string& op,
                 const PObject& args, PObject* result);

// Conversions between the wire's records and JSON.
Json::Value ToJson(const PObject& value);
// The module's item object of one wire item record.
Json::Value ItemJson(const PObject& record);

}  // namespace orvel::client
