// Caller gates of RequestHandler: authentication, account rules, acting on
// behalf of another user ("sudo") and access privilege, plus the
// framework-backed authentication service. See request-handler.h.
#include <cstdint>

#include "module-log.h"
#include "nimbard/platform.h"
#include "orvelcommon/user_db.h"
#include "request-handler.h"
#include "run-as-root.h"
#include "zemo/nas.h"
#include "zemo/webapi.h"

namespace {
constexpr const char kLogSource[] = "request-handler";
constexpr const char kSourcePath[] = "server/ui-web/src/bridge/request-handler";
constexpr const char kAnonymous[] = "anonymous";

void MakeAnonymous(RequestAuthentication& auth) {
  auth.uid = -1;
  auth.user_name = kAnonymous;
  auth.is_anonymous = true;
  auth.trusted = false;
  auth.is_admin = false;
}

bool IsDeniedByAppPrivilege(int rc) { return rc == 1 || rc == 2; }

// The user database belongs to root; the request runs as the web account.
int LookUpUid(uint32_t uid, SDK::User* user) {
  ORVEL_RUN_AS_ROOT(root, kSourcePath);
  return SDK::UserService().GetUserByUid(uid, user);
}
}  // namespace

int WebAPIAuthenticationService::Authenticate(RequestAuthentication& auth, BridgeRequest&,
                                              BridgeResponse&) {
  auth.user_name = request_->GetLoginUserName();
  auth.uid = request_->GetLoginUID();
  auth.url_protocol = request_->GetURLProto("http");
  auth.url_host = request_->GetURLHost("");
  auth.url_port = request_->GetURLPort(0);
  auth.remote_address = request_->GetRemoteIP();
  auth.is_admin = request_->IsAdmin();
  auth.trusted = (auth.uid == 0);
  auth.is_anonymous = (auth.uid == -1 || auth.user_name == kAnonymous);
  auth.expired = false;
  auth.session_timed_out = request_->IsTimeout();
  if (auth.remote_address.empty()) auth.remote_address = "127.0.0.1";
  if (auth.url_host.empty()) auth.url_host = "localhost";
  if (auth.is_anonymous) auth.user_name = kAnonymous;
  (void)response_;
  return 0;
}

int RequestHandler::Authenticate(RequestAuthentication& auth, BridgeRequest& request,
                                 BridgeResponse& response) {
  if (auth_service_ == nullptr) {
    ORVEL_LOG_ERROR("no authentication service");
    response.SetError(401, "missing authentication service", __LINE__);
    return -1;
  }
  if (auth_service_->Authenticate(auth, request, response) >= 0) return 0;
  ORVEL_LOG_ERROR("authentication failure");
  response.SetError(105, "authentication failed", __LINE__);
  return -1;
}

int RequestHandler::CheckDemoMode(const RequestAuthentication&, BridgeRequest&,
                                  BridgeResponse&) const {
  return 0;
}

int RequestHandler::CheckAccount(RequestAuthentication& auth, BridgeRequest&,
                                 BridgeResponse& response) {
  const unsigned option = account_option_;
  if (auth.trusted || option == 0) return 0;
  const bool admits_anonymous = (option & kAccountAnonymous) != 0;
  if (auth.is_anonymous && !admits_anonymous) {
    response.SetError(105, "permission denied by anonymous", __LINE__);
    return -1;
  }
  if (auth.session_timed_out && !(auth.is_anonymous && admits_anonymous)) {
    response.SetError(106, "session timeout", __LINE__);
    return -1;
  }
  if ((option & kAccountAppPrivilege) && ServiceSupportAppPrivilege() &&
      IsDeniedByAppPrivilege(CheckAppPrivilege(auth))) {
    if (admits_anonymous) {
      MakeAnonymous(auth);
      return 0;
    }
    ORVEL_LOG_ERROR("Permission denied");
    response.SetError(105, "permission denied by app-privilege", __LINE__);
    return -1;
  }
  if ((option & kAccountExpiry) && auth.expired) {
    ORVEL_LOG_ERROR("account '%s' expired", auth.user_name.c_str());
    response.SetError(105, "permission denied (user expired)", __LINE__);
    return -1;
  }
  return 0;
}

int RequestHandler::CheckSudoUser(RequestAuthentication& auth, BridgeRequest& request,
                                  BridgeResponse& response) {
  if (!request.HasParam("sudo")) return 0;
  // Acting as someone else is reserved to trusted (uid 0) callers: the
  // service believes the user name the module sends.
  if (!auth.trusted) {
    ORVEL_LOG_ERROR("sudo refused for '%s'", auth.user_name.c_str());
    response.SetError(105, "permission denied (sudo)", __LINE__);
    return -1;
  }
  const Json::Value sudo = request.GetParamRef("sudo", Json::Value());
  std::string target;
  if (sudo.isString()) {
    target = sudo.asString();
  } else if (sudo.isUInt()) {
    SDK::User user;
    if (LookUpUid(sudo.asUInt(), &user) != 0) {
      ORVEL_LOG_ERROR("Failed to get user %d", sudo.asInt());
      response.SetError(401, "sudo: Failed to get user", __LINE__);
      return -1;
    }
    target = user.getName();
    auth.uid = static_cast<int>(sudo.asUInt());
  } else {
    ORVEL_LOG_CRIT("shouldn't be here");
    response.SetError(401, "sudo: invalid user", __LINE__);
    return -1;
  }
  return CheckSudoTarget(auth, target);
}

int RequestHandler::CheckSudoTarget(RequestAuthentication& auth, const std::string& target) {
  auth.user_name = target;
  if (account_option_ & kAccountAnonymous) {
    RequestAuthentication probe;
    probe.user_name = target;
    probe.remote_address = "127.0.0.1";
    if (IsDeniedByAppPrivilege(CheckAppPrivilege(probe))) MakeAnonymous(auth);
  }
  sudo_user_ = auth.user_name;
  return 0;
}

int RequestHandler::CheckAccessPrivilege(const RequestAuthentication& auth, BridgeRequest&,
                                         BridgeResponse& response) {
  const unsigned privilege = required_access_privilege_;
  if (auth.trusted) return 0;
  if (privilege & kPrivilegeAdmin) {
    if (auth.is_admin) return 0;
    response.SetError(105, "permission denied (admin only)", __LINE__);
    return -1;
  }
  if (!(privilege & kPrivilegeEnabledUser) || auth.is_admin || auth.is_anonymous) return 0;
  if (required_database_ & kUserDb) {
    if (IsUserEnabled(auth)) return 0;
    response.SetError(105, "permission denied (disabled)", __LINE__);
    return -1;
  }
  response.SetError(401, "user database is not initialized", __LINE__);
  return -1;
}

// The user database belongs to root; the request runs as the web account.
int RequestHandler::CheckAppPrivilege(const RequestAuthentication& auth) {
  ORVEL_RUN_AS_ROOT(root, kSourcePath);
  return SDK::UserAppPrivilege().Check(auth.user_name, auth.remote_address);
}

bool RequestHandler::IsUserEnabled(const RequestAuthentication& auth) {
  orvel::UserRecord user;
  if (UserManager::GetUser(auth.user_name, &user) != 0) return false;
  if (!user.enabled) {
    ORVEL_LOG_DEBUG("User '%s' is disabled", auth.user_name.c_str());
    return false;
  }
  if (!user.system_enabled) {
    ORVEL_LOG_DEBUG("User '%s' is TPX disabled", auth.user_name.c_str());
    return false;
  }
  return true;
}
