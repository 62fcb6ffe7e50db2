// ReportServiceFailure, the one "map the error, log it" step of every
// service call of the module: each form of log line the handlers keep, the
// fixed or the service's own message, and the API code mapping (Files table
// or the client APIs' table).
#include <gtest/gtest.h>

#include <string>

#include "bridge/bridge-response.h"
#include "orvel/client/client_common.h"
#include "orvel/common/service_call.h"

namespace {

using orvel::module::ReportServiceFailure;
using orvel::module::ServiceFailure;

struct Reported {
  int code;
  std::string message;
  int line;
  std::string log;
};

Reported Report(const ServiceFailure& failure, int service_code, const std::string& service_message) {
  BridgeResponse response;
  testing::internal::CaptureStderr();
  EXPECT_EQ(ReportServiceFailure(service_code, service_message, response, failure), -1);
  return {response.GetErrorCode(), response.GetErrorMessage(), response.GetErrorLine(),
          testing::internal::GetCapturedStderr()};
}

TEST(ServiceCall, EachLogFormKeepsItsTextAndTheMessageIsFixedOrTheServices) {
  const int not_found = -507;
  Reported r = Report({"star", 61, "EditLabelOnNode failed", "edit label on node failed"},
                      not_found, "item not found: /a");
  EXPECT_EQ(r.code, OrvelErrCodeGetFromBackend(not_found));
  EXPECT_EQ(r.message, "edit label on node failed");
  EXPECT_EQ(r.line, 61);
  EXPECT_NE(r.log.find("[ERROR] star(61): EditLabelOnNode failed: item not found: /a (-507)\n"),
            std::string::npos)
      << r.log;

  r = Report({"upload", 7, "upload file failed.", "upload file failed", ServiceFailure::kCode},
             not_found, "ignored in the log");
  EXPECT_NE(r.log.find("upload(7): upload file failed. (code: -507)\n"), std::string::npos) << r.log;
  EXPECT_EQ(r.message, "upload file failed");

  r = Report({"search", 9, "searching file failure", "searching file failure",
              ServiceFailure::kPlain},
             not_found, "x");
  EXPECT_NE(r.log.find("search(9): searching file failure\n"), std::string::npos) << r.log;

  // No log line; the service's own message reaches the caller.
  r = Report({"list-backup-tasks", 3, "", nullptr, ServiceFailure::kNoLog}, not_found,
             "backups are off");
  EXPECT_EQ(r.log, "");
  EXPECT_EQ(r.message, "backups are off");
}

TEST(ServiceCall, ClientApisMapTheirOwnCodes) {
  ServiceFailure failure("task", 5, "task_get failed", nullptr);
  failure.api_code = orvel::client::ClientErrorCode;
  Reported r = Report(failure, -1118, "too many attempts");
  EXPECT_EQ(r.code, 1040);
  EXPECT_EQ(r.message, "too many attempts");
  EXPECT_NE(r.log.find("task(5): task_get failed: too many attempts (-1118)\n"), std::string::npos)
      << r.log;
}

}  // namespace
