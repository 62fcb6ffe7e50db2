// Serving one request the same way in both modes: RequestFlow, then the JSON
// answer (unless a module wrote a raw one) on stdout. Any failure it can
// catch becomes a JSON error answer, never an empty one. Single-threaded.
#pragma once

#include "cgi/body_reader.h"
#include "cgi/cgi_env.h"
#include "cgi/worker_cache.h"

namespace zemo::cgi {

// cache: null in CGI mode.
void ServeRequest(const CgiEnv& env, BodyInput* body, WorkerCache* cache);

}  // namespace zemo::cgi
