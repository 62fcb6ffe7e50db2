// stat(2) remembered for the length of one web request, and in a persistent
// worker for as long as nothing changes.
//
// A persistent worker asks after the same few files in every request: the
// configuration and the user database (once by the framework, once by the
// user library), the system's passwd and group files and the debug switch.
// Within a RequestStatScope the first answer for a path is kept and given
// again, so each is looked at once per request and the whole request sees
// one version of each. Outside a scope every call goes to the kernel.
//
// KeepStatsBetweenRequests(true) (the FastCGI worker) also keeps answers
// from one request to the next: each path's folder is watched with inotify
// for changes in it, and the folder and each folder above it (as named:
// links on the way are watched, not followed) for being renamed, removed or
// replaced. A request that finds any event queued drops every kept answer
// first. The event is queued by the very call that made the change, so a
// change made before a request begins is seen by that request.
// Thread-safe.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace orvel {

// As ::stat: 0 and *st filled, or -1 with errno set.
int RequestStat(const std::string& path, struct stat* st);

// Opens the memo for one request; when the request ends, what cannot be
// kept is dropped.
class RequestStatScope {
 public:
  RequestStatScope();
  ~RequestStatScope();
  RequestStatScope(const RequestStatScope&) = delete;
  RequestStatScope& operator=(const RequestStatScope&) = delete;
};

// Keeps answers between requests (see above), or stops keeping them.
void KeepStatsBetweenRequests(bool on);

// stat(2) calls RequestStat has made in this process (tests, benchmarks).
uint64_t RequestStatLooks();

}  // namespace orvel
