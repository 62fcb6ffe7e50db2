// relay_floor: a stand-in for the archiver that http_bench puts in its place
// for one extra run of the zip step. It writes the bytes of every regular
// file below the current folder to stdout by splice, in name order, with no
// zip headers and no CRC: the cheapest producer there can be. The zip step's
// rate through it is what the rest of the path costs on its own (entry.cgi
// relaying the pipe, lighttpd reading the FastCGI answer and writing it to
// the client, the client), so it bounds what any archiver can reach.
// Never installed; it accepts and ignores the archiver's arguments.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Splices the whole of fd to stdout; false on failure.
bool SpliceFile(int fd) {
  for (off_t at = 0;;) {
    ssize_t n = splice(fd, &at, STDOUT_FILENO, nullptr, 1 << 20, SPLICE_F_MOVE);
    if (n == 0) return true;
    if (n < 0) return false;
  }
}

// Every regular file below dir_fd, folders walked in name order.
bool SpliceTree(int dir_fd) {
  DIR* dir = fdopendir(dir_fd);
  if (dir == nullptr) return false;
  std::vector<std::string> names;
  while (const dirent* e = readdir(dir)) {
    if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) names.emplace_back(e->d_name);
  }
  std::sort(names.begin(), names.end());
  bool ok = true;
  for (const std::string& name : names) {
    int fd = openat(dirfd(dir), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) continue;  // a link: not followed
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
      ok = SpliceTree(fd) && ok;  // takes fd
      continue;
    }
    if (S_ISREG(st.st_mode)) ok = SpliceFile(fd) && ok;
    close(fd);
  }
  closedir(dir);
  return ok;
}

}  // namespace

int main() {
  fcntl(STDOUT_FILENO, F_SETPIPE_SZ, 1 << 20);  // as the archiver does
  int top = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (top < 0 || !SpliceTree(top)) {
    std::perror("relay_floor");
    return 15;
  }
  return 0;
}
