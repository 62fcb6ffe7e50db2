// RequestFlow; see request_flow.h. Single-threaded.
#include "cgi/request_flow.h"

#include "cgi/api_codes.h"
#include "cgi/builtin_apis.h"
#include "cgi/method_policy.h"
#include "cgi/module_loader.h"
#include "internal/log.h"
#include "nimbard/platform.h"
#include "orvelcommon/zemo_root.h"

namespace zemo::cgi {

namespace {

static constexpr char kLogSource[] = "entry";

constexpr const char kModulesDir[] = "/usr/lib/zemo/webapi";

// The cookie of a password link's grant (set by ZEMO.ZemoraOrvel.Sharing
// unlock_link; docs/framework.md).
constexpr const char kLinkGrantCookie[] = "link_grant";

}  // namespace

bool RequestFlow::Fail(int code, const std::string& message) {
  SetErrorMessage(response_, code, message);
  return false;
}

bool RequestFlow::CheckMethod() {
  if (env_.method == "GET" || env_.method == "POST" || env_.method == "HEAD") return true;
  return Fail(kErrBadRequest, "request method not supported");
}

bool RequestFlow::LoadConfig() {
  if ((cache_ != nullptr ? cache_->Config(&conf_) : conf_.Init()) == 0) return true;
  WEBAPI_LOG(Logger::kError, "cannot read configuration %s", conf_.GetConfigPath().c_str());
  return Fail(kErrInternal, "bad configuration");
}

bool RequestFlow::PrepareAccount() {
  lower_ = ShouldLowerIdentity(conf_.GetWebAccount());
  if (!lower_) return true;
  orvel::Status st = cache_ != nullptr ? cache_->Account(conf_.GetWebAccount(), &account_)
                                       : LookupWebAccount(conf_.GetWebAccount(), &account_);
  if (st.ok()) return true;
  WEBAPI_LOG(Logger::kError, "web account: %s", st.ToString().c_str());
  return Fail(kErrInternal, "web account unknown");
}

bool RequestFlow::ReadParams() {
  ParseUrlEncoded(env_.query, &raw_);
  BodyLimits limits;
  limits.tmp_dir = conf_.GetDataDirPath() + "/@tmp";
  limits.upload_max = conf_.GetUploadMaxBytes();
  limits.chown_upload = lower_;
  limits.owner_uid = account_.uid;
  limits.owner_gid = account_.gid;
  orvel::Status st = ReadRequestBody(env_, body_in_, limits, &body_);
  if (st.code() == kErrBadRequest) return Fail(kErrBadRequest, st.message());
  if (!st.ok()) {
    WEBAPI_LOG(Logger::kError, "reading the request body: %s", st.ToString().c_str());
    return Fail(kErrInternal, "cannot receive the request body");
  }
  for (const auto& [name, value] : body_.fields) raw_[name] = value;
  for (const std::string& name : DropFrameworkParams(&raw_)) {
    WEBAPI_LOG(Logger::kWarning, "parameter '%s' sent by %s dropped: the framework fills it in",
               name.c_str(), env_.remote_addr.c_str());
  }
  params_ = ToJsonParams(raw_);
  return ReadApiTriple(params_, &triple_, response_);
}

bool RequestFlow::ResolveCaller() {
  if (cache_ != nullptr) {
    users_ = cache_->Users(conf_.GetUserDbPath());
  } else {
    own_users_.reset(new UserDbHandle(conf_.GetUserDbPath()));
    users_ = own_users_.get();
  }
  SessionLimits limits{conf_.GetSessionIdleSeconds(), conf_.GetSessionMaxSeconds()};
  orvel::Status st = ResolveSession(env_, raw_, limits, users_, &session_);
  if (st.ok()) {
    if (!session_.login.user.empty()) caller_.reset(new RequestUserScope(session_.user));
    return true;
  }
  WEBAPI_LOG(Logger::kError, "session look-up: %s", st.ToString().c_str());
  return Fail(kErrInternal, "user database unavailable");
}

void RequestFlow::BuildRequest() {
  request_ = ZEMO::APIRequest(triple_.api, triple_.method, triple_.version, params_);
  request_.SetLogin(session_.login);
  request_.SetQueryString(env_.query);
  request_.SetRemote(env_.remote_addr, env_.https ? "https" : "http", env_.host, env_.port);
  if (body_.upload) request_.SetUpload(params_, body_.upload->path(), body_.upload_name);
}

bool RequestFlow::CheckReadOnlyCall() {
  if (env_.method == "POST") return true;
  // Unknown APIs and methods are answered by the dispatcher (102 to 104).
  if (!registry_.Has(triple_.api, triple_.method, triple_.version)) return true;
  if (ReadsOnly(triple_.api, triple_.method)) return true;
  WEBAPI_LOG(Logger::kInfo, "%s of %s.%s from %s refused: the method needs POST",
             env_.method.c_str(), triple_.api.c_str(), triple_.method.c_str(),
             env_.remote_addr.c_str());
  return Fail(kErrBadRequest, "method needs POST");
}

bool RequestFlow::LowerIdentity() {
  if (!lower_) return true;
  orvel::Status st = LoweredIdentity::Lower(account_, &identity_);
  if (st.ok()) return true;
  WEBAPI_LOG(Logger::kError, "cannot switch to the web account: %s", st.ToString().c_str());
  return Fail(kErrInternal, "cannot switch to the web account");
}

void RequestFlow::RegisterApis(bool with_modules) {
  AuthContext ctx{&env_, &raw_, users_, &session_, conf_.ThrottleNow()};
  RegisterAuthApi(ctx, &registry_);
  RegisterInfoApi(&registry_, &registry_);
  if (!with_modules) return;
  if (cache_ != nullptr) {
    cache_->AddModules(orvel::ZemoPath(kModulesDir), BuiltinApiNames(), &registry_);
  } else {
    LoadModuleDir(orvel::ZemoPath(kModulesDir), BuiltinApiNames(), &registry_);
  }
}

void RequestFlow::Run() {
  // The grant of a password link travels to the daemon with every call of
  // this request (nimbard/platform.h); none unless the cookie came.
  SetRequestLinkGrant("");
  bool has_grant = false;
  std::string grant = CookieValue(env_.cookie, kLinkGrantCookie, &has_grant);
  if (has_grant) SetRequestLinkGrant(grant);
  if (!CheckMethod() || !LoadConfig() || !PrepareAccount() || !ReadParams() || !ResolveCaller()) {
    return;
  }
  BuildRequest();
  // Auth works on the user database as root and needs no module; anything
  // else runs, modules included, as the web account.
  bool auth = triple_.api == kAuthApi;
  if (!auth) {
    // The worker keeps its handle for the next request.
    if (cache_ == nullptr) users_->Close();
    if (!LowerIdentity()) return;
  }
  RegisterApis(!auth);
  if (!CheckReadOnlyCall()) return;
  Dispatch(registry_, &request_, response_);
}

}  // namespace zemo::cgi
