// RequestFlow: the life of one request in entry.cgi, as a row of steps that
// each may refuse with an error in the response: request method, the
// configuration, the web account, parameters and body (with the upload),
// api/method/version, the caller's session; then the identity switch, the
// modules, the GET rule (only reading methods) and the dispatch. Parameters
// the framework fills in itself are dropped from what the client sent. The upload's temp file outlives the module call
// and is removed (as root again) when the flow is destroyed. One per
// request: per process in CGI mode, many after one another in the FastCGI
// worker, which passes its WorkerCache (configuration, user database and
// modules kept between requests).
#pragma once

#include <memory>

#include "cgi/api_registry.h"
#include "cgi/body_reader.h"
#include "cgi/cgi_env.h"
#include "cgi/dispatcher.h"
#include "cgi/identity.h"
#include "cgi/session.h"
#include "cgi/worker_cache.h"
#include "internal/request_user.h"
#include "orvelcommon/sync_config.h"
#include "zemo/webapi.h"

namespace zemo::cgi {

class RequestFlow {
 public:
  // body: where the request body is read from (stdin, or the FastCGI
  // connection). cache: null in CGI mode. None is owned.
  RequestFlow(const CgiEnv& env, BodyInput* body, ZEMO::APIResponse* response,
              WorkerCache* cache = nullptr)
      : env_(env), body_in_(body), response_(response), cache_(cache) {}
  RequestFlow(const RequestFlow&) = delete;
  RequestFlow& operator=(const RequestFlow&) = delete;

  // Serves the request; the outcome is in the response.
  void Run();

 private:
  bool Fail(int code, const std::string& message);
  bool CheckMethod();
  bool LoadConfig();
  bool PrepareAccount();
  bool ReadParams();
  bool ResolveCaller();
  void BuildRequest();
  bool LowerIdentity();
  bool CheckReadOnlyCall();
  void RegisterApis(bool with_modules);

  const CgiEnv& env_;
  BodyInput* body_in_;
  ZEMO::APIResponse* response_;
  WorkerCache* cache_;

  SyncConfigMgr conf_;
  bool lower_ = false;
  WebAccount account_;
  RawParams raw_;
  RequestBody body_;  // owns the upload's temp file
  Json::Value params_;
  ApiTriple triple_;
  std::unique_ptr<UserDbHandle> own_users_;  // CGI mode
  UserDbHandle* users_ = nullptr;
  ResolvedSession session_;
  std::unique_ptr<RequestUserScope> caller_;  // while the caller is known
  ZEMO::APIRequest request_;
  ApiRegistry registry_;
  // Declared last so that it is undone first: root again before the temp
  // file is removed.
  std::unique_ptr<LoweredIdentity> identity_;
};

}  // namespace zemo::cgi
