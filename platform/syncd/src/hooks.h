// hooks: named points where a test can act on the disk between the daemon's
// check of an item and its use of it, deterministically (no racing).
//
// When the environment variable ORVEL_SYNCD_HOOKS names a folder at start-up
// and that folder holds an executable file named after a point, the daemon
// runs it there (no arguments, a minimal environment) and waits for it to
// end before it goes on. Without the variable every point costs one branch.
// Only whoever starts the daemon sets its environment, so this opens nothing
// to its clients.
//
// Threading: thread-safe; concurrent points run their programs concurrently.
#pragma once

#include <string>

namespace orvel::syncd {

// Runs the hook program of `point`, if any; failures are logged and ignored.
void RunHook(const std::string& point);

}  // namespace orvel::syncd
