// What confinement costs: opening an item beneath a folder fd with openat2
// (RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS) against open() of its path string,
// at several depths, and copying a folder of 10,000 small files entry by
// entry through folder fds against the same copy by path strings. Prints
// microseconds per open and files per second; never run as a test.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "space_fs.h"
#include "transfer.h"

namespace {

using Clock = std::chrono::steady_clock;
using orvel::syncd::ScopedFd;

double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

void Opens(const std::string& root, int root_fd, int depth) {
  std::string rel = "f";
  for (int i = 0; i < depth; ++i) rel = "d" + std::to_string(depth) + "/" + rel;
  for (size_t p = rel.find('/'); p != std::string::npos; p = rel.find('/', p + 1))
    mkdir((root + "/" + rel.substr(0, p)).c_str(), 0755);
  std::ofstream(root + "/" + rel) << "x";
  constexpr int kRounds = 20000;
  auto s = Clock::now();
  for (int i = 0; i < kRounds; ++i) ScopedFd fd(open((root + "/" + rel).c_str(), O_RDONLY | O_CLOEXEC));
  double by_path = Seconds(s) / kRounds * 1e6;
  s = Clock::now();
  for (int i = 0; i < kRounds; ++i) {
    ScopedFd fd;
    orvel::syncd::OpenBeneath(root_fd, rel, O_RDONLY, 0, rel, &fd);
  }
  double beneath = Seconds(s) / kRounds * 1e6;
  std::printf("open at depth %2d: path %6.2f us, beneath %6.2f us\n", depth, by_path, beneath);
}

void Copies(const std::string& root, int root_fd) {
  mkdir((root + "/src").c_str(), 0755);
  constexpr int kFiles = 10000;
  for (int i = 0; i < kFiles; ++i) std::ofstream(root + "/src/f" + std::to_string(i)) << i;
  mkdir((root + "/by-path").c_str(), 0755);
  auto s = Clock::now();
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "/f" + std::to_string(i);
    ScopedFd in(open((root + "/src" + name).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    ScopedFd out(open((root + "/by-path" + name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
    orvel::syncd::CopyFileContent(in.get(), out.get(), name);
  }
  double by_path = Seconds(s);
  s = Clock::now();
  ScopedFd src, dst;
  orvel::syncd::OpenFolderAt(root_fd, "src", "src", &src);
  mkdirat(root_fd, "by-fd", 0755);
  orvel::syncd::OpenFolderAt(root_fd, "by-fd", "by-fd", &dst);
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "f" + std::to_string(i);
    ScopedFd in, out;
    orvel::syncd::OpenFileAt(src.get(), name, name, &in);
    orvel::syncd::CreateFileAt(dst.get(), name, 0640, name, &out);
    orvel::syncd::CopyFileContent(in.get(), out.get(), name);
  }
  double by_fd = Seconds(s);
  std::printf("copy of 10,000 files: path %.2f s (%.0f files/s), fds %.2f s (%.0f files/s)\n", by_path,
              kFiles / by_path, by_fd, kFiles / by_fd);
}

}  // namespace

int main() {
  char tmpl[] = "/tmp/space-fs-bench-XXXXXX";
  if (!mkdtemp(tmpl)) return 1;
  const std::string root = tmpl;
  ScopedFd root_fd(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int depth : {1, 4, 16}) Opens(root, root_fd.get(), depth);
  Copies(root, root_fd.get());
  orvel::syncd::RemoveTree(root);
  return 0;
}
