// "star": sets or clears the star on many items with one service call.
#include "star.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "star";
}  // namespace

StarHandler::StarHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(false);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "star", 0, 0);
}

StarHandler::~StarHandler() = default;

int StarHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                        BridgeResponse& response) {
  const Json::Value files_value = request.GetParamRef("files", Json::Value(Json::arrayValue));
  const Json::Value starred = request.GetParamRef("starred", Json::Value(Json::arrayValue));
  std::vector<std::string> files;
  for (const Json::Value& file : files_value) {
    if (!file.isString()) {
      ORVEL_LOG_ERROR("file is expected as string\n");
      response.SetError(114, "file is expected as string", __LINE__);
      return -1;
    }
    files.push_back(file.asString());
  }
  std::vector<Nimbard::StarEditAction> actions;
  if (starred.isBool()) {
    Nimbard::StarEditAction action;
    if (JsonReqToStarAction(starred, action) < 0) {
      ORVEL_LOG_ERROR("invalid starred format\n");
      response.SetError(114, "invalid starred format", __LINE__);
      return -1;
    }
    actions.push_back(action);
  } else {
    for (const Json::Value& element : starred) {
      Nimbard::StarEditAction action;
      if (JsonReqToStarAction(element, action) < 0) {
        ORVEL_LOG_ERROR("invalid starred format");
        response.SetError(114, "invalid starred format", __LINE__);
        return -1;
      }
      actions.push_back(action);
    }
  }
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "EditLabelOnNode failed", "edit label on node failed"},
                   [&](Nimbard& client) { return client.EditStarOnNode(files, actions); })) {
    return -1;
  }
  return 0;
}
