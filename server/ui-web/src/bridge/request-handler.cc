// The request pipeline of RequestHandler (see request-handler.h). The gates
// themselves live in request-handler-auth.cc (caller and account) and
// request-handler-service.cc (service state, databases, temp folder).
#include "request-handler.h"

#include "module-log.h"
#include "orvel/common/orvel_utils.h"
#include "run-as-root.h"

namespace {
constexpr const char kLogSource[] = "request-handler";
constexpr const char kSourcePath[] = "server/ui-web/src/bridge/request-handler";
}  // namespace

RequestHandler::~RequestHandler() { DestroyDatabase(); }

int RequestHandler::Handle(const RequestAuthentication&, BridgeRequest&, BridgeResponse&) {
  return 0;
}

void RequestHandler::SetAPI(const std::string& api_class, const std::string& api_method,
                            unsigned version_min, unsigned version_max) {
  api_class_ = api_class;
  api_method_ = api_method;
  version_min_ = version_min;
  version_max_ = version_max;
}

int RequestHandler::HandleRequest(BridgeRequest& request, BridgeResponse& response) {
  RequestAuthentication auth;
  if (Authenticate(auth, request, response) < 0) return -1;
  if (CheckDemoMode(auth, request, response) < 0) return -1;
  if (CheckServiceStatus(auth, request, response) < 0) return -1;
  if (CheckAccount(auth, request, response) < 0) return -1;
  if (CheckSudoUser(auth, request, response) < 0) return -1;
  if (InitializeDatabase() < 0) {
    response.SetError(401, "failed to initialize database", __LINE__);
    return -1;
  }
  if (CheckAccessPrivilege(auth, request, response) < 0) return -1;
  return HandleWithCorrectPrivilege(auth, request, response) < 0 ? -1 : 0;
}

int RequestHandler::HandleWithCorrectPrivilege(const RequestAuthentication& auth,
                                               BridgeRequest& request, BridgeResponse& response) {
  int ret;
  if (required_access_privilege_ & kPrivilegeAdmin) {
    ORVEL_RUN_AS_ROOT(root, kSourcePath);
    if (!root.ok()) {
      ORVEL_LOG_ERROR("Failed to switch to root");
      response.SetError(401, "failed to get privilege", __LINE__);
      return -1;
    }
    ORVEL_LOG_DEBUG("handling '%s' with elevated privilege", GetAPI().c_str());
    ret = Handle(auth, request, response);
  } else {
    ORVEL_LOG_DEBUG("handling '%s' with normal user privilege", GetAPI().c_str());
    ret = Handle(auth, request, response);
  }
  if (ret < 0) {
    ORVEL_LOG_ERROR("failed to handle API '%s'", GetAPI().c_str());
    if (response.IsErrorSet()) {
      ORVEL_LOG_ERROR("error code: %d, error message: %s, error line: %d.", response.GetErrorCode(),
                      response.GetErrorMessage().c_str(), response.GetErrorLine());
    }
  }
  return ret;
}

int RequestHandler::SetTaskErrDataByItemRc(int rc, Json::Value& data) {
  if (rc >= 0) return 0;
  const int code = OrvelErrCodeGetFromBackend(rc);
  data["code"] = code;
  data["backend_code"] = rc;
  return code;
}
