// The service state page: a small file beside the daemon's socket in which
// the daemon publishes its service state and view 0's freeze flag. A client
// that holds a live connection to that daemon reads them from the page
// instead of asking (one round trip fewer per web request); any other
// client asks as before.
//
// One writer, the daemon, which changes the page only under its
// ServiceState lock; any number of readers, each mapping the file read-only.
// A sequence count, odd while a change is being written, makes a read that
// overlapped a change read again.
//
// Trust: the page is believed only when it is owned by the uid of the peer
// at the other end of the client's connection, writable by nobody else, and
// names that peer's pid: a page left by an earlier daemon, or put in the
// socket's folder (sticky and world-writable) by anyone else, is not read.
#pragma once

#include <sys/types.h>

#include <string>

#include "orvelcommon/status.h"

namespace orvel {

// Where the daemon listening on socket_path keeps its page.
std::string StatePagePath(const std::string& socket_path);

class StatePageWriter {
 public:
  StatePageWriter() = default;
  ~StatePageWriter();
  StatePageWriter(const StatePageWriter&) = delete;
  StatePageWriter& operator=(const StatePageWriter&) = delete;

  // Makes this process's page at path, showing state and frozen: written in
  // full under a temporary name (mode 0644), then renamed over whatever was
  // there.
  Status Create(const std::string& path, const std::string& state, bool frozen);
  // Publishes a state (at most 47 bytes; longer ones are cut) and the flag.
  void Publish(const std::string& state, bool frozen);

 private:
  void* map_ = nullptr;
};

// The state and flag on the page at path when the page is trusted for the
// daemon with pid and uid (see above); false otherwise: no page, another
// process's, a mode or owner that anyone else could have written. The
// mapping is kept between calls and made again when the page names another
// pid. Thread-safe.
bool ReadStatePage(const std::string& path, pid_t pid, uid_t uid, std::string* state, bool* frozen);

}  // namespace orvel
