// The removal of an upload's received file. The module removes it as root,
// so it must be sure the path is what the web framework received for this
// request: a regular file (not a link) lying directly in the framework's
// temp folder and owned by the account the module runs as (the framework
// hands the file to that account). Anything else is left alone and logged.
// The removal goes through a descriptor of the temp folder and never follows
// a link. Stateless; safe from any thread.
#pragma once

#include <sys/types.h>

#include <string>

namespace orvel::module {

// Removes path when it passes the checks above; true when it was removed,
// false when it was missing, refused (logged) or could not be removed.
bool RemoveReceivedFile(const std::string& tmp_dir, const std::string& path, uid_t owner);

}  // namespace orvel::module
