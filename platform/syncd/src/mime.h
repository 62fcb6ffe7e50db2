// mime: content type of a file name from the system's /etc/mime.types
// (loaded once, on first use; thread-safe). Unknown extensions give
// "application/octet-stream"; folders have no content type ("").
#pragma once

#include <string>

namespace orvel::syncd {

std::string ContentTypeOf(const std::string& name, bool is_dir);

}  // namespace orvel::syncd
