// "convert_office": converts office documents into a folder as a service
// task. The method table's check function has already vetted "files" and
// "conflict_action".
#include "convert-office.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "convert-office";
}  // namespace

ConvertOfficeHandler::ConvertOfficeHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(false);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "convert_office", 0, 0);
}

ConvertOfficeHandler::~ConvertOfficeHandler() = default;

int ConvertOfficeHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                 BridgeResponse& response) {
  const Json::Value files = request.GetParamRef("files", Json::Value(Json::arrayValue));
  const std::string conflict = request.GetParamRef("conflict_action", "autorename").asString();
  const std::string dest = request.GetParamRef("to_parent_folder", "").asString();
  if (files.empty()) {
    ORVEL_LOG_ERROR("no file seleted");
    response.SetError(114, "no file seleted", __LINE__);
    return -1;
  }
  std::vector<std::string> paths;
  for (const Json::Value& file : files) {
    const std::string path = file.asString();
    if (path.empty()) {
      ORVEL_LOG_ERROR("path is required");
      response.SetError(114, "path is required", __LINE__);
      return -1;
    }
    paths.push_back(path);
  }
  std::string task_id;
  if (!CallService(
          auth, request, response, GetSudoUser(),
          {kLogSource, __LINE__, "ConvertOffice failed", "remove file failed"},
          [&](Nimbard& client) { return client.ConvertOffice(paths, dest, conflict, task_id); })) {
    return -1;
  }
  Json::Value result(Json::objectValue);
  result["async_task_id"] = task_id;
  response.SetJsonResponse(result);
  return 0;
}
