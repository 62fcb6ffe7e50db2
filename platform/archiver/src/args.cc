// See args.h.
#include "args.h"

namespace orvel::archiver {
namespace {

bool Expect(const std::vector<std::string>& args, size_t* i, const char* want, std::string* error) {
  if (*i < args.size() && args[*i] == want) {
    ++*i;
    return true;
  }
  *error = std::string("expected \"") + want + "\" at argument " + std::to_string(*i + 1) +
           (*i < args.size() ? ", got \"" + args[*i] + "\"" : ", got nothing");
  return false;
}

}  // namespace

bool ParseArgs(const std::vector<std::string>& args, Options* out, std::string* error) {
  *out = Options();
  size_t i = 0;
  for (const char* fixed : {"-q", "-0", "-r"}) {
    if (!Expect(args, &i, fixed, error)) return false;
  }
  if (i < args.size() && args[i] == "-i") {
    ++i;
    if (!Expect(args, &i, ".", error)) return false;
    out->include_dot_only = true;
  }
  if (!Expect(args, &i, "-yf", error)) return false;
  if (i < args.size() && args[i] == "-UN=UTF8") {
    out->utf8 = true;
    ++i;
  } else if (i < args.size() && args[i] == "-cp") {
    if (i + 1 >= args.size()) {
      *error = "-cp needs a code page";
      return false;
    }
    out->code_page = args[i + 1];
    i += 2;
  } else {
    *error = "expected -cp <code page> or -UN=UTF8";
    return false;
  }
  if (!Expect(args, &i, "-", error)) return false;
  if (i + 1 != args.size()) {
    *error = "expected exactly one folder after \"-\"";
    return false;
  }
  out->folder = args[i];
  if (out->folder.empty()) {
    *error = "empty folder";
    return false;
  }
  return true;
}

}  // namespace orvel::archiver
