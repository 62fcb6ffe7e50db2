// Open daemon connections kept between the Nimbard clients of one process, so
// that the status check, the freeze check and the operation of one web request
// share a connection instead of connecting three times.
//
// A connection is keyed by what the daemon judged when it was accepted: the
// socket path, the caller's effective uid at connect (the daemon authorises by
// SO_PEERCRED) and the client's time-out. A client takes a connection out of
// the cache for as long as it lives and hands it back after clean calls, so
// no connection is ever shared by two clients at once. Thread-safe.
#pragma once

#include <sys/types.h>

#include <string>

namespace orvel::client {

// The cache key of a connection to path made with the current effective uid.
std::string ConnectionKey(const std::string& path, unsigned timeout_seconds);

// An idle connection for key, owned by the caller from now on; -1 when there
// is none. Connections the daemon has closed, long-idle ones and ones
// inherited over fork() are dropped, never returned.
int TakeConnection(const std::string& key);

// Hands fd, positioned between two answers, back for reuse; when the cache
// is full, the connection idle longest is closed to make room.
void ReturnConnection(const std::string& key, int fd);

// The process (pid and uid, as the kernel saw it accept) at the other end of
// an idle connection to path that is still open: the daemon is running now.
// False when no such connection is cached.
bool LiveDaemon(const std::string& path, pid_t* pid, uid_t* uid);

}  // namespace orvel::client
