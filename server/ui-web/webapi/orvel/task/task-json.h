// The Task API's task object, made from the service's task record
// (docs/api-task.md): the fields a caller needs, with the error's API code
// beside the service's, and the result shaped per kind (no server paths).
#pragma once

#include <json/json.h>

#include "bridge/bridge-request.h"
#include "bridge/bridge-response.h"
#include "orvelcommon/pobject.h"

namespace orvel::client {

Json::Value TaskJson(const PObject& record);

// The "state" filter of "list": absent (every state), one state, several
// comma-separated, or an array of them. Records error 114 and returns false
// for anything else; *out is the service's "states" array.
bool ReadTaskStates(const BridgeRequest& request, BridgeResponse& response, PObject* out);

}  // namespace orvel::client
