// entry.cgi as a persistent FastCGI responder: the web server starts it with
// a listening socket on fd 0; it accepts one connection at a time and serves
// its requests one after another with the same RequestFlow as CGI mode.
// Kept between requests: the loaded modules and libraries, the daemon
// connection cache, the configuration and the user database (WorkerCache).
// Everything else a request may change is reset when it ends (RequestScope):
// stdout/stderr, the raw output, the stop flag, the link grant, umask, the
// current folder; the identity is restored by the request's own guard and
// checked afterwards: a worker that is not back to its starting ids ends
// instead of serving another request. Single-threaded.
#pragma once

namespace zemo::fcgi {

// Whether fd 0 is a listening socket (how the FastCGI mode is recognised).
bool StartedAsFastCgi();

// Serves until SIGTERM; the exit code of the process (1 when the identity
// could not be restored or the listening socket failed).
int RunWorker();

}  // namespace zemo::fcgi
