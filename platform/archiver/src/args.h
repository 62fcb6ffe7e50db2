// Command-line arguments of the platform archiver. It accepts exactly the
// argument lists the web module passes for a folder download:
//
//   -q -0 -r [-i .] -yf (-cp <code page> | -UN=UTF8) - ./.
//
// and nothing else, so that a caller that expects another zip's behaviour
// fails loudly instead of getting an archive it did not ask for.
// Pure functions, thread-safe.
#pragma once

#include <string>
#include <vector>

namespace orvel::archiver {

struct Options {
  std::string folder = ".";  // what to archive (the last argument, "./.")
  bool utf8 = false;         // "-UN=UTF8": names as UTF-8 with the UTF-8 flag
  std::string code_page;     // "-cp X": names converted to X ("" = as they are)
  bool include_dot_only = false;  // "-i .": only entries named "." (an empty archive)
};

// Parses argv[1..]; on failure returns false and sets *error to a one-line
// reason.
bool ParseArgs(const std::vector<std::string>& args, Options* out, std::string* error);

}  // namespace orvel::archiver
