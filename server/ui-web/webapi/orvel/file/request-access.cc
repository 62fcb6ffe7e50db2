// "request_access": asks an item's owner for access; the service records and
// forwards the request.
#include "request-access.h"

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "request-access";
}  // namespace

RequestAccessHandler::RequestAccessHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(false);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "request_access", 0, 0);
}

RequestAccessHandler::~RequestAccessHandler() = default;

int RequestAccessHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                 BridgeResponse& response) {
  const std::string path = request.GetParamRef("path", "").asString();
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "RequestFileAccess failed", "request access failed"},
                   [&](Nimbard& client) { return client.RequestFileAccess(path); })) {
    return -1;
  }
  return 0;
}
