// "label": adds or removes labels on many items with one service call.
#include "label.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "label";
}  // namespace

LabelHandler::LabelHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(false);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "label", 0, 0);
}

LabelHandler::~LabelHandler() = default;

int LabelHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                         BridgeResponse& response) {
  const Json::Value files_value = request.GetParamRef("files", Json::Value(Json::arrayValue));
  const Json::Value labels = request.GetParamRef("labels", Json::Value(Json::arrayValue));
  std::vector<std::string> files;
  for (const Json::Value& file : files_value) {
    if (!file.isString()) {
      ORVEL_LOG_ERROR("file is expected as string\n");
      response.SetError(114, "file is expected as string", __LINE__);
      return -1;
    }
    files.push_back(file.asString());
  }
  // A bare string or boolean for "labels" is no container: no actions.
  std::vector<Nimbard::LabelEditAction> actions;
  for (const Json::Value& element : labels) {
    Nimbard::LabelEditAction action;
    if (JsonReqToLabelAction(element, action) < 0) {
      ORVEL_LOG_ERROR("invalid label format");
      response.SetError(114, "invalid label format", __LINE__);
      return -1;
    }
    actions.push_back(action);
  }
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "EditLabelOnNode failed", "edit label on node failed"},
                   [&](Nimbard& client) { return client.EditLabelOnNode(files, actions); })) {
    return -1;
  }
  return 0;
}
