// ServeRequest; see serve.h. Single-threaded.
#include "cgi/serve.h"

#include <cstdio>
#include <exception>

#include "cgi/api_codes.h"
#include "cgi/cgi_output.h"
#include "cgi/dispatcher.h"
#include "cgi/request_flow.h"
#include "internal/log.h"
#include "orvelcommon/request_stat.h"

namespace zemo::cgi {

namespace {
static constexpr char kLogSource[] = "entry";
}  // namespace

void ServeRequest(const CgiEnv& env, BodyInput* body, WorkerCache* cache) {
  // The configuration, the user database and the debug switch are looked
  // at once each in a request, however many layers ask.
  orvel::RequestStatScope stats;
  ZEMO::APIResponse response;
  try {
    // The flow (its temp file, its lowered identity) ends before the answer
    // is written, as root again.
    RequestFlow flow(env, body, &response, cache);
    flow.Run();
  } catch (const std::exception& e) {
    WEBAPI_LOG(Logger::kError, "request failed: %s", e.what());
    if (response.IsOutputEnabled()) SetErrorMessage(&response, kErrInternal, "internal error");
  } catch (...) {
    WEBAPI_LOG(Logger::kError, "request failed");
    if (response.IsOutputEnabled()) SetErrorMessage(&response, kErrInternal, "internal error");
  }
  WriteAnswer(response, stdout);
}

}  // namespace zemo::cgi
