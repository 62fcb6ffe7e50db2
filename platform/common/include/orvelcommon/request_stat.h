// stat(2) remembered for the length of one web request.
//
// A persistent worker asks after the same few files in every request: the
// configuration and the user database (once by the framework, once by the
// user library) and the debug switch. Within a RequestStatScope the first
// answer for a path is kept and given again, so each is looked at once per
// request and the whole request sees one version of each. Outside a scope
// every call goes to the kernel. Thread-safe.
#pragma once

#include <sys/stat.h>

#include <string>

namespace orvel {

// As ::stat: 0 and *st filled, or -1 with errno set.
int RequestStat(const std::string& path, struct stat* st);

// Opens the memo for one request and empties it when the request ends.
class RequestStatScope {
 public:
  RequestStatScope();
  ~RequestStatScope();
  RequestStatScope(const RequestStatScope&) = delete;
  RequestStatScope& operator=(const RequestStatScope&) = delete;
};

}  // namespace orvel
