// Dispatching one request: read and check the api, method and version
// parameters, find what serves them, run its parameter check and then the
// method. Every refusal becomes an error in the response (101 to 104, or the
// check's own). Not thread-safe.
#pragma once

#include <json/json.h>

#include <string>

#include "cgi/api_registry.h"
#include "zemo/webapi.h"

namespace zemo::cgi {

struct ApiTriple {
  std::string api, method;
  unsigned version = 0;
};

// Reads "api", "method" and "version" from the parameters. On failure sets
// error 101 with {"name": <param>, "reason": "required" | "type"} and
// returns false.
bool ReadApiTriple(const Json::Value& params, ApiTriple* out, ZEMO::APIResponse* response);

// Serves the request (its api, method and version are the request's).
// Exceptions from a module are caught and answered as 401.
void Dispatch(const ApiRegistry& registry, ZEMO::APIRequest* request, ZEMO::APIResponse* response);

// Sets an error whose details are {"message": message}.
void SetErrorMessage(ZEMO::APIResponse* response, int code, const std::string& message);

}  // namespace zemo::cgi
