// The hand-over folder of X-Sendfile downloads; see orvelcommon/handover.h.
#include "orvelcommon/handover.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace orvel {

std::string HandOverFolder(const std::string& tmp_dir) { return tmp_dir + "/handover"; }

std::string HandOverLinkName(int64_t now) {
  unsigned char bytes[8] = {};
  if (getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) {
    // getrandom only fails before the pool is ready; the pid and a counter
    // still keep names of one process apart.
    static unsigned counter = 0;
    unsigned v = static_cast<unsigned>(getpid()) * 2654435761u + ++counter;
    std::memcpy(bytes, &v, sizeof(v));
  }
  char name[64];
  std::snprintf(name, sizeof(name), "%lld-", static_cast<long long>(now));
  std::string out(name);
  static const char kHex[] = "0123456789abcdef";
  for (unsigned char b : bytes) {
    out.push_back(kHex[b >> 4]);
    out.push_back(kHex[b & 15]);
  }
  return out;
}

namespace {

// The time a link name starts with; false for any other name.
bool LinkTime(const char* name, int64_t* t) {
  char* end = nullptr;
  long long v = std::strtoll(name, &end, 10);
  if (end == name || *end != '-' || v < 0) return false;
  *t = v;
  return true;
}

}  // namespace

int SweepHandOver(const std::string& tmp_dir, int64_t now, int64_t max_age) {
  const std::string folder = HandOverFolder(tmp_dir);
  int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return 0;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return 0;
  }
  int removed = 0;
  while (const dirent* e = readdir(dir)) {
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    int64_t made = 0;
    if (LinkTime(e->d_name, &made) && made + max_age >= now) continue;
    if (unlinkat(dirfd(dir), e->d_name, 0) == 0) ++removed;
  }
  closedir(dir);
  return removed;
}

}  // namespace orvel
