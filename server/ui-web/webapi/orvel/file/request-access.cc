// "request_access": asks an item's owner for access; the service records and
// forwards the request.
#include "request-access.h"

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"

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
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, GetSudoUser());
  if (client.RequestFileAccess(path) < 0) {
    ORVEL_LOG_ERROR("RequestFileAccess failed: %s (%d)", client.GetLastErrorMessage().c_str(),
                    client.GetLastError());
    response.SetError(OrvelErrCodeGetFromBackend(client.GetLastError()), "request access failed",
                      __LINE__);
    return -1;
  }
  return 0;
}
