// RequestHandler: the base of every method handler of the Files API, and the
// caller record it hands to Handle.
//
// A concrete handler only declares its requirements in its constructor
// (databases, account rules, access privilege, service-state rules, API
// binding) and overrides Handle. HandleRequest runs the fixed row of gates
// before Handle:
//   Authenticate -> CheckDemoMode -> CheckServiceStatus -> CheckAccount ->
//   CheckSudoUser -> InitializeDatabase -> CheckAccessPrivilege -> Handle
// Each gate returns 0 to go on, or -1 after recording its error once with
// BridgeResponse::SetError; the first refusal ends the request.
//
// One handler object serves one request on one thread. The gates that open
// databases or switch the effective ids undo that before the request ends.
#pragma once

#include <json/json.h>

#include <string>

#include "bridge-request.h"
#include "bridge-response.h"

namespace ZEMO {
class APIRequest;
class APIResponse;
}  // namespace ZEMO

// The caller, as the authentication service found it and the account checks
// amended it.
struct RequestAuthentication {
  std::string user_name;       // "anonymous" for a sharing-link visitor
  std::string remote_address;  // "127.0.0.1" when unknown
  std::string url_protocol;    // "http" when unknown
  std::string url_host;        // "localhost" when unknown
  int url_port = 0;
  int uid = 0;  // -1 for an anonymous caller
  bool is_admin = false;
  bool trusted = false;  // uid 0: exempt from account and privilege rules
  bool is_anonymous = false;
  bool expired = true;  // an unfilled record fails the expiry rule
  bool session_timed_out = false;
};

// Identifies the caller of a request. Authenticate returns a negative value
// when the caller cannot be identified.
class AuthenticationService {
 public:
  virtual ~AuthenticationService() = default;
  virtual int Authenticate(RequestAuthentication& auth, BridgeRequest& request,
                           BridgeResponse& response) = 0;
};

// Fills the record from the framework's login state; never fails.
class WebAPIAuthenticationService : public AuthenticationService {
 public:
  WebAPIAuthenticationService(ZEMO::APIRequest* request, ZEMO::APIResponse* response)
      : request_(request), response_(response) {}
  int Authenticate(RequestAuthentication& auth, BridgeRequest& request,
                   BridgeResponse& response) override;

 private:
  ZEMO::APIRequest* request_;
  ZEMO::APIResponse* response_;
};

enum RequestMethod : unsigned { kRequestMethodRead = 1, kRequestMethodWrite = 2 };

class RequestHandler {
 public:
  // Bits of the required database.
  static constexpr unsigned kUserDb = 1, kLogDb = 2, kSyncDb = 4;
  // Bits of the account option.
  static constexpr unsigned kAccountAppPrivilege = 1, kAccountExpiry = 2, kAccountAnonymous = 4;
  // Bits of the required access privilege.
  static constexpr unsigned kPrivilegeEnabledUser = 1, kPrivilegeAdmin = 2;
  // Bits of the status option.
  static constexpr unsigned kStatusEnabled = 1, kStatusNotFrozen = 2;

  RequestHandler() = default;
  virtual ~RequestHandler();
  RequestHandler(const RequestHandler&) = delete;
  RequestHandler& operator=(const RequestHandler&) = delete;

  // The method's own work; the base does nothing and returns 0.
  virtual int Handle(const RequestAuthentication& auth, BridgeRequest& request,
                     BridgeResponse& response);

  // Runs the gates and Handle: 0 on success, -1 on any refusal or failure.
  int HandleRequest(BridgeRequest& request, BridgeResponse& response);

  void SetAuthenticationService(AuthenticationService* service) { auth_service_ = service; }
  void SetRequiredDatabase(unsigned bits) { required_database_ = bits; }
  void SetAccountOption(unsigned bits) { account_option_ = bits; }
  void SetRequiredAccessPrivilege(unsigned bits) { required_access_privilege_ = bits; }
  void SetRequestMethod(RequestMethod method) { request_method_ = method; }
  void SetStatusOption(unsigned bits) { status_option_ = bits; }
  void SetAllowDemoMode(bool allow) { allow_demo_mode_ = allow; }
  void SetAPI(const std::string& api_class, const std::string& api_method, unsigned version_min,
              unsigned version_max);

  std::string GetAPIClass() const { return api_class_; }
  std::string GetAPIMethod() const { return api_method_; }
  unsigned GetVersionMin() const { return version_min_; }
  unsigned GetVersionMax() const { return version_max_; }
  // "<class>.<method>", the "." even when either is empty.
  std::string GetAPI() const { return api_class_ + "." + api_method_; }
  unsigned GetRequiredDatabase() const { return required_database_; }
  unsigned GetAccountOption() const { return account_option_; }
  unsigned GetRequiredAccessPrivilege() const { return required_access_privilege_; }
  RequestMethod GetRequestMethod() const { return request_method_; }
  unsigned GetStatusOption() const { return status_option_; }
  bool IsAllowDemoMode() const { return allow_demo_mode_; }
  // The account the request runs on behalf of ("sudo"); "" when none.
  const std::string& GetSudoUser() const { return sudo_user_; }

  // Gates of HandleRequest, in pipeline order; each 0 or -1 (error set).
  int Authenticate(RequestAuthentication& auth, BridgeRequest& request, BridgeResponse& response);
  int CheckDemoMode(const RequestAuthentication& auth, BridgeRequest& request,
                    BridgeResponse& response) const;
  int CheckServiceStatus(const RequestAuthentication& auth, BridgeRequest& request,
                         BridgeResponse& response);
  int CheckAccount(RequestAuthentication& auth, BridgeRequest& request, BridgeResponse& response);
  int CheckSudoUser(RequestAuthentication& auth, BridgeRequest& request, BridgeResponse& response);
  // 0, or negative when a declared database cannot be opened (no error set).
  int InitializeDatabase();
  int CheckAccessPrivilege(const RequestAuthentication& auth, BridgeRequest& request,
                           BridgeResponse& response);

  // 0 permitted; 1 or 2 the caller may not use the application; -1 unknown.
  int CheckAppPrivilege(const RequestAuthentication& auth);
  bool IsUserEnabled(const RequestAuthentication& auth);
  bool IsFreeze() const;
  void DestroyDatabase();
  bool IsUserHomeEnabled(const std::string& user_name) const;
  // The package's temp folder on the system volume ("<share>/@tmp"), made
  // when missing; "" when the configuration cannot be read.
  static std::string CreateAndGetSysVolumeTempDirectory();

  // Fills an asynchronous task's error data from a service result code:
  // {"code": API code, "backend_code": rc}; nothing for rc >= 0. Returns the
  // API code (0 for success).
  int SetTaskErrDataByItemRc(int rc, Json::Value& data);

 private:
  int HandleWithCorrectPrivilege(const RequestAuthentication& auth, BridgeRequest& request,
                                 BridgeResponse& response);
  int CheckSudoTarget(RequestAuthentication& auth, const std::string& target);

  std::string sudo_user_;
  unsigned required_database_ = 0;
  unsigned opened_databases_ = 0;
  unsigned account_option_ = 3;
  unsigned required_access_privilege_ = 3;
  RequestMethod request_method_ = kRequestMethodWrite;
  unsigned status_option_ = 3;
  bool allow_demo_mode_ = false;
  unsigned version_min_ = 0;
  unsigned version_max_ = 0;
  std::string api_class_;
  std::string api_method_;
  AuthenticationService* auth_service_ = nullptr;
};
