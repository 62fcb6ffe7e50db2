// entry.cgi: the web API framework's program. Run by the web server once per
// request to /webapi/entry.cgi (CGI), or started once with a listening
// socket on fd 0 as a persistent FastCGI responder (fcgi/worker.h). Either
// way each request is served by ServeRequest. Single-threaded.
#include <fcntl.h>
#include <signal.h>

#include "cgi/serve.h"
#include "fcgi/worker.h"
#include "internal/io.h"
#include "internal/log.h"

namespace {

constexpr const char kDebugSwitch[] = "/var/packages/ZemoraOrvel/target/etc/syncfolder.debug";

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
  // A client that hangs up must not kill us half-way (temp files, sessions).
  ::signal(SIGPIPE, SIG_IGN);
  // Nor a SIGTERM from the web server when the client went away: the
  // request stops writing and unwinds, so its clean-up runs. The worker
  // ends after its request.
  zemo::io::StopOnTerminate();
  Logger::Initialize(0, "", kDebugSwitch, 50, 1);
  if (zemo::fcgi::StartedAsFastCgi()) return zemo::fcgi::RunWorker();
  WidenPipes();
  zemo::cgi::CgiEnv env = zemo::cgi::ReadCgiEnv();
  zemo::cgi::FdBodyInput body(0);
  zemo::cgi::ServeRequest(env, &body, nullptr);
  return 0;
}
