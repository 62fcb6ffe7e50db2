// The parameters every Revision method reads: "path" (a file as the Files
// API names items) and, for download and restore, "revision_id".
#pragma once

#include <string>

#include "orvel/client/client_common.h"

namespace orvel::revision {

// "path", then (when with_id) "revision_id": a non-empty string or a
// non-negative integer (the ids are numbers, and a form field "12" reaches
// the module as one). False after recording error 114.
inline bool ReadParams(const BridgeRequest& request, BridgeResponse& response, bool with_id,
                       std::string* path, std::string* revision_id) {
  if (!orvel::client::ReadRequiredString(request, response, "path", path)) return false;
  if (!with_id) return true;
  const Json::Value value = request.GetParamRef("revision_id", Json::Value());
  if (value.isUInt64()) {
    *revision_id = std::to_string(value.asUInt64());
    return true;
  }
  return orvel::client::ReadRequiredString(request, response, "revision_id", revision_id);
}

}  // namespace orvel::revision
