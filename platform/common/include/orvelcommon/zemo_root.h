// Resolution of the platform's fixed paths under the environment variable
// ZEMO_ROOT, so that several instances (and every test) run side by side.
// An unset or empty ZEMO_ROOT means "/". Thread-safe (reads the environment).
#pragma once

#include <string>

namespace orvel {

// "/tmp/cloud-syncservice" -> "$ZEMO_ROOT/tmp/cloud-syncservice".
// Paths that are not absolute are returned unchanged.
std::string ZemoPath(const std::string& fixed_path);

// The package folder: $ZEMO_ROOT/var/packages/ZemoraOrvel/target.
std::string PackageTarget();

// Strips a leading "unix:" from a socket address and resolves it.
std::string ResolveSocketAddress(const std::string& address);

}  // namespace orvel
