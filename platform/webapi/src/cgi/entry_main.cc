// entry.cgi: the web API framework's CGI program, run by the web server once
// per request to /webapi/entry.cgi. It serves the request with RequestFlow
// and writes the JSON answer, unless a module wrote a raw answer itself. Any
// failure it can catch becomes a JSON error answer, never an empty one.
// Single-threaded.
#include <fcntl.h>
#include <signal.h>

#include <cstdio>
#include <exception>

#include "cgi/api_codes.h"
#include "cgi/cgi_output.h"
#include "cgi/dispatcher.h"
#include "cgi/request_flow.h"
#include "internal/io.h"
#include "internal/log.h"

namespace {

static constexpr char kLogSource[] = "entry";

constexpr const char kDebugSwitch[] = "/var/packages/ZemoraOrvel/target/etc/syncfolder.debug";

void Serve(ZEMO::APIResponse* response) {
  zemo::cgi::CgiEnv env = zemo::cgi::ReadCgiEnv();
  zemo::cgi::RequestFlow flow(env, 0, response);
  flow.Run();
}

// Larger pipes to and from the web server: an upload or a download of
// gigabytes then moves in 1 MiB steps instead of 64 KiB ones, with fewer
// wake-ups on both sides. Descriptors that are not pipes are left alone.
void WidenPipes() {
  constexpr int kPipeBytes = 1 << 20;
  ::fcntl(0, F_SETPIPE_SZ, kPipeBytes);
  ::fcntl(1, F_SETPIPE_SZ, kPipeBytes);
}

}  // namespace

int main() {
  WidenPipes();
  // A client that hangs up must not kill us half-way (temp files, sessions).
  ::signal(SIGPIPE, SIG_IGN);
  // Nor a SIGTERM from the web server when the client went away: the
  // request stops writing and unwinds, so its clean-up runs.
  zemo::io::StopOnTerminate();
  Logger::Initialize(0, "", kDebugSwitch, 50, 1);
  ZEMO::APIResponse response;
  try {
    Serve(&response);
  } catch (const std::exception& e) {
    WEBAPI_LOG(Logger::kError, "request failed: %s", e.what());
    if (response.IsOutputEnabled()) zemo::cgi::SetErrorMessage(&response, zemo::cgi::kErrInternal, "internal error");
  } catch (...) {
    WEBAPI_LOG(Logger::kError, "request failed");
    if (response.IsOutputEnabled()) zemo::cgi::SetErrorMessage(&response, zemo::cgi::kErrInternal, "internal error");
  }
  zemo::cgi::WriteAnswer(response, stdout);
  return 0;
}
