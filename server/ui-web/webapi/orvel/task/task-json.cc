// See task-json.h.
#include "webapi/orvel/task/task-json.h"

#include <string>
#include <vector>

#include "orvel/client/client_common.h"

namespace orvel::client {
namespace {

const char* const kStates[] = {"queued", "running", "finished", "failed", "cancelled"};

bool KnownState(const std::string& state) {
  for (const char* s : kStates) {
    if (state == s) return true;
  }
  return false;
}

Json::Value UInt(const PObject& v) { return Json::Value(static_cast<Json::UInt64>(v.asUInt64())); }

// One placed or deleted item: the fields a caller can use, never a server path.
Json::Value ResultItem(const PObject& item) {
  Json::Value out(Json::objectValue);
  for (const char* key : {"source", "path", "file_id"}) {
    if (item[key].isString()) out[key] = item[key].asString();
  }
  for (const char* key : {"skipped", "permanent"}) {
    if (item[key].isBool()) out[key] = item[key].asBool();
  }
  return out;
}

Json::Value ResultJson(const std::string& kind, const std::string& state, const PObject& result) {
  Json::Value out(Json::objectValue);
  if (kind == "download") {
    // The staged tree is fetched with the Files API's "download" and "task_id".
    out["download_ready"] = state == "finished";
    out["items"] = UInt(result["items"]);
    out["size"] = UInt(result["size"]);
    return out;
  }
  out["items"] = Json::Value(Json::arrayValue);
  if (result["items"].isArray()) {
    for (const PObject& item : result["items"].asArray()) out["items"].append(ResultItem(item));
  }
  return out;
}

bool RefuseStates(BridgeResponse& response, const std::string& given) {
  response.SetError(114,
                    "state must be one or more of queued, running, finished, failed, cancelled: \"" +
                        given + "\"",
                    __LINE__);
  return false;
}

bool RefuseType(BridgeResponse& response) {
  response.SetError(114, "state must be a string or a non-empty array of strings", __LINE__);
  return false;
}

}  // namespace

Json::Value TaskJson(const PObject& r) {
  Json::Value t(Json::objectValue);
  const std::string kind = r["kind"].asString(), state = r["state"].asString();
  t["task_id"] = r["task_id"].asString();
  t["kind"] = kind;
  t["state"] = state;
  Json::Value& p = t["progress"];
  for (const char* key : {"done", "total", "bytes_done", "bytes_total"}) p[key] = UInt(r["progress"][key]);
  for (const char* key : {"created", "started", "finished"}) {
    t[key] = static_cast<Json::Int64>(r[key].asInt64());
  }
  const int service_code = static_cast<int>(r["error"]["code"].asInt64());
  Json::Value& e = t["error"];
  e["code"] = service_code ? ClientErrorCode(service_code) : 0;
  e["service_code"] = service_code;
  e["message"] = r["error"]["message"].asString();
  t["result"] = ResultJson(kind, state, r["result"]);
  return t;
}

bool ReadTaskStates(const BridgeRequest& request, BridgeResponse& response, PObject* out) {
  *out = PObject::MakeArray();
  const Json::Value value = request.GetParamRef("state", Json::Value());
  if (value.isNull()) return true;
  std::vector<std::string> states;
  if (value.isString()) {
    const std::string text = value.asString();
    size_t start = 0;
    for (;;) {
      const size_t comma = text.find(',', start);
      states.push_back(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
      if (comma == std::string::npos) break;
      start = comma + 1;
    }
  } else if (value.isArray() && !value.empty()) {
    for (const Json::Value& v : value) {
      if (!v.isString()) return RefuseType(response);
      states.push_back(v.asString());
    }
  } else {
    return RefuseType(response);
  }
  for (const std::string& s : states) {
    if (!KnownState(s)) return RefuseStates(response, s);
    out->push_back(s);
  }
  return true;
}

}  // namespace orvel::client
