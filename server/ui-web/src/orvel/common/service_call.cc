// Reporting of a failed service call (service_call.h).
#include "orvel/common/service_call.h"

#include "bridge/module-log.h"

namespace orvel::module {

int ReportServiceFailure(int service_code, const std::string& service_message,
                         BridgeResponse& response, const ServiceFailure& failure) {
  const char* what = failure.what.c_str();
  switch (failure.details) {
    case ServiceFailure::kMessageAndCode:
      Log(failure.level, failure.log_source, failure.line, "%s: %s (%d)", what,
          service_message.c_str(), service_code);
      break;
    case ServiceFailure::kCode:
      Log(failure.level, failure.log_source, failure.line, "%s (code: %d)", what, service_code);
      break;
    case ServiceFailure::kPlain:
      Log(failure.level, failure.log_source, failure.line, "%s", what);
      break;
    case ServiceFailure::kNoLog:
      break;
  }
  response.SetError(failure.api_code(service_code),
                    failure.message ? std::string(failure.message) : service_message, failure.line);
  return -1;
}

}  // namespace orvel::module
