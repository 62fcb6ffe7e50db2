// Shared conversions of the Files API handlers: service records to the API's
// JSON, request JSON to service records, path safety, the mapping of service
// error codes to API codes, and the fixed set-up of a sync-service client.
//
// The conversion and parsing functions report trouble on the system log
// ("server/ui-web/src/orvel/common/orvel_utils:<line> ..."), not through the
// module logger; callers set the API error. All functions are reentrant.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "nimbard/nimbard.h"

class BridgeRequest;

// The API item object of one file record. Always succeeds (returns 0); an
// unparsable properties text is logged and left as the reader left it.
int ConvertFileInfoToJSon(const Nimbard::FileInfo& info, Json::Value& out);
// {"sync_id", "version_id", "size", "modified_time", "hash"} of a revision.
int ConvertVersionInfoToJSon(const Nimbard::RevisionInfo& info, Json::Value& out);
// {"label_id", "color", "name"}.
int ConvertLabelInfoToJSon(const Nimbard::LabelInfo& info, Json::Value& out);

// Request objects to service records: 0, or -1 (logged, output partly set).
int JsonReqToMemberSelector(const Json::Value& value, Nimbard::MemberSelector& member);
int JsonReqToStarAction(const Json::Value& value, Nimbard::StarEditAction& action);
int JsonReqToLabelAction(const Json::Value& value, Nimbard::LabelEditAction& action);

// Reads a list filter object {"starred", "label_id", "type": [..],
// "extensions": [..]}; a non-object leaves every output untouched.
void ParseFileListFilter(const Json::Value& filter, bool& starred, std::string& label_id,
                         std::vector<std::string>& types, std::vector<std::string>& extensions);

// False when a component of path is "." or ".." or holds a backslash.
bool IsSafePath(const std::string& path);

// The API error code of a service result code (0 stays 0; unknown -> 1000).
int OrvelErrCodeGetFromBackend(int backend_code);

// Appends each element of a JSON array with asString(); throws (jsoncpp)
// when an element has no string form or the value is not an array or null.
std::vector<std::string>& operator<<(std::vector<std::string>& out, const Json::Value& array);

// Configures a fresh client for one request: local socket, no TLS, the
// caller's origin and tokens, protocol 11061, time-out 300 s, and the sudo
// user when sudo_user is not empty.
void SetupNimbardSession(Nimbard& client, const std::string& user_name, BridgeRequest& request,
                         const std::string& sudo_user);

// The uid of a user name, or -1 when unknown.
int OrvelGetUID(const std::string& user_name);
