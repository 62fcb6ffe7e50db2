// "list": the caller's own tasks, newest first, with "offset", "limit" and
// "total", and an optional "state" filter. Only the caller's tasks are read.
#include "webapi/orvel/task/list.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/task/task-json.h"

namespace {
constexpr const char kLogSource[] = "task-list";
constexpr uint64_t kDefaultLimit = 100;
constexpr uint64_t kMaxLimit = 1000;
}  // namespace

TaskListHandler::TaskListHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Task", "list", 1, 1);
}

int TaskListHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                            BridgeResponse& response) {
  orvel::client::Paging paging;
  PObject states;
  if (!orvel::client::ReadPaging(request, response, kDefaultLimit, kMaxLimit, &paging)) return -1;
  if (!orvel::client::ReadTaskStates(request, response, &states)) return -1;
  PObject args = PObject::MakeMap();
  args["offset"] = static_cast<unsigned long long>(paging.offset);
  args["limit"] = static_cast<unsigned long long>(paging.limit);
  args["states"] = states;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "task_list", args, &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["tasks"] = Json::Value(Json::arrayValue);
  if (result["tasks"].isArray()) {
    for (const PObject& task : result["tasks"].asArray()) data["tasks"].append(orvel::client::TaskJson(task));
  }
  data["offset"] = static_cast<Json::UInt64>(paging.offset);
  data["total"] = static_cast<Json::UInt64>(result["total"].asUInt64());
  response.SetJsonResponse(std::move(data));
  return 0;
}
