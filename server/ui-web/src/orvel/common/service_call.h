// The one way a handler calls the sync service: a client set up for the
// request, the call, and on failure the service's code mapped to an API
// error and logged. The Files handlers and the client APIs (Task, Recycle,
// Revision, Sharing) all go through CallService or, when the client is also
// used for other calls, ReportServiceFailure. Each caller keeps its own log
// line and error message; ServiceFailure says what they are.
// Reentrant; one Nimbard client per call.
#pragma once

#include <string>
#include <utility>

#include "bridge/bridge-request.h"
#include "bridge/bridge-response.h"
#include "bridge/request-handler.h"
#include "orvelcommon/logger.h"
#include "nimbard/nimbard.h"
#include "orvel/common/orvel_utils.h"

namespace orvel::module {

// How a failed service call is reported.
struct ServiceFailure {
  // What the log line carries after `what`.
  enum Details {
    kMessageAndCode,  // "<what>: <service message> (<service code>)"
    kCode,            // "<what> (code: <service code>)"
    kPlain,           // "<what>"
    kNoLog,           // no log line
  };
  ServiceFailure(const char* source, int at_line, std::string log_what, const char* api_message,
                 Details log_details = kMessageAndCode)
      : log_source(source),
        line(at_line),
        what(std::move(log_what)),
        message(api_message),
        details(log_details) {}

  const char* log_source;  // the handler's log source
  int line;                // the handler's line, in the log line and the error
  std::string what;
  const char* message;  // the API error's message; nullptr: the service's own
  Details details;
  int level = Logger::kError;
  int (*api_code)(int) = OrvelErrCodeGetFromBackend;
};

// Logs the failure and records the API error on response. Returns -1.
int ReportServiceFailure(int service_code, const std::string& service_message,
                         BridgeResponse& response, const ServiceFailure& failure);
inline int ReportServiceFailure(const Nimbard& client, BridgeResponse& response,
                                const ServiceFailure& failure) {
  return ReportServiceFailure(client.GetLastError(), client.GetLastErrorMessage(), response,
                              failure);
}

// Sets up a client for the request's caller (acting for sudo_user when not
// empty) and runs call(client), which returns the client's result (< 0 on
// failure). On failure reports it as `failure` says and returns false.
template <class Call>
bool CallService(const RequestAuthentication& auth, BridgeRequest& request,
                 BridgeResponse& response, const std::string& sudo_user,
                 const ServiceFailure& failure, Call&& call) {
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, sudo_user);
  if (call(client) >= 0) return true;
  ReportServiceFailure(client, response, failure);
  return false;
}

}  // namespace orvel::module
