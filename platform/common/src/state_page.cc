// See state_page.h.
#include "orvelcommon/state_page.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

#include "orvelcommon/scoped_fd.h"

namespace orvel {
namespace {

constexpr char kMagic[8] = {'O', 'R', 'V', 'S', 'T', 'A', 'T', '1'};
constexpr size_t kStateWords = 6;  // 48 bytes, the last always NUL

// The file's bytes. Every field a reader may see change is an atomic, so a
// read that overlaps a write is a stale read (caught by seq), never a race.
struct Page {
  char magic[8];
  std::atomic<uint64_t> seq;  // odd while a change is written
  std::atomic<int64_t> pid;   // the writer
  std::atomic<uint64_t> frozen;
  std::atomic<uint64_t> state[kStateWords];  // NUL-padded text
};
static_assert(std::atomic<uint64_t>::is_always_lock_free, "the page is shared between processes");
static_assert(std::atomic<int64_t>::is_always_lock_free, "the page is shared between processes");

Page* AsPage(void* map) { return static_cast<Page*>(map); }

// The reader's mapping, kept between reads.
struct Reader {
  std::mutex mu;
  std::string path;
  uid_t owner = 0;  // of the file mapped
  const Page* page = nullptr;
};

Reader& TheReader() {
  static Reader* reader = new Reader;  // never destroyed: read until exit
  return *reader;
}

// Maps the page at path if it passes the owner and mode checks.
const Page* MapTrusted(const std::string& path, uid_t uid) {
  ScopedFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd.valid()) return nullptr;
  struct stat st;
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != uid ||
      (st.st_mode & 022) != 0 || st.st_size < static_cast<off_t>(sizeof(Page)))
    return nullptr;
  void* map = ::mmap(nullptr, sizeof(Page), PROT_READ, MAP_SHARED, fd.get(), 0);
  if (map == MAP_FAILED) return nullptr;
  const Page* page = static_cast<const Page*>(map);
  if (std::memcmp(page->magic, kMagic, sizeof(kMagic)) != 0) {
    ::munmap(map, sizeof(Page));
    return nullptr;
  }
  return page;
}

void Unmap(const Page* page) {
  if (page != nullptr) ::munmap(const_cast<Page*>(page), sizeof(Page));
}

// One consistent copy of the page; false when a writer kept it busy.
bool ReadConsistent(const Page* page, std::string* state, bool* frozen) {
  for (int attempt = 0; attempt < 1000; ++attempt) {
    uint64_t before = page->seq.load(std::memory_order_acquire);
    if (before & 1) continue;
    char text[kStateWords * 8];
    for (size_t i = 0; i < kStateWords; ++i) {
      uint64_t word = page->state[i].load(std::memory_order_relaxed);
      std::memcpy(text + i * 8, &word, 8);
    }
    bool flag = page->frozen.load(std::memory_order_relaxed) != 0;
    std::atomic_thread_fence(std::memory_order_acquire);
    if (page->seq.load(std::memory_order_relaxed) != before) continue;
    text[sizeof(text) - 1] = '\0';
    *state = text;
    *frozen = flag;
    return true;
  }
  return false;
}

}  // namespace

std::string StatePagePath(const std::string& socket_path) { return socket_path + ".state"; }

StatePageWriter::~StatePageWriter() {
  if (map_ != nullptr) ::munmap(map_, sizeof(Page));
}

Status StatePageWriter::Create(const std::string& path, const std::string& state, bool frozen) {
  const std::string tmp = path + ".new";
  auto fail = [&tmp](const char* what, void* map) {
    Status st(kErrStorage, std::string(what) + " " + tmp + ": " + std::strerror(errno));
    if (map != nullptr) ::munmap(map, sizeof(Page));
    ::unlink(tmp.c_str());
    return st;
  };
  if (::unlink(tmp.c_str()) != 0 && errno != ENOENT) return fail("unlink", nullptr);
  ScopedFd fd(::open(tmp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!fd.valid()) return Status(kErrStorage, "create " + tmp + ": " + std::strerror(errno));
  char bytes[sizeof(Page)] = {};
  std::memcpy(bytes, kMagic, sizeof(kMagic));
  if (::fchmod(fd.get(), 0644) != 0) return fail("chmod", nullptr);
  if (::write(fd.get(), bytes, sizeof(bytes)) != static_cast<ssize_t>(sizeof(bytes))) return fail("write", nullptr);
  void* map = ::mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
  if (map == MAP_FAILED) return fail("mmap", nullptr);
  AsPage(map)->pid.store(::getpid(), std::memory_order_relaxed);
  std::swap(map_, map);
  Publish(state, frozen);  // complete before any reader can open it
  std::swap(map_, map);
  if (::rename(tmp.c_str(), path.c_str()) != 0) return fail("rename", map);
  if (map_ != nullptr) ::munmap(map_, sizeof(Page));
  map_ = map;
  return Status::OK();
}

void StatePageWriter::Publish(const std::string& state, bool frozen) {
  if (map_ == nullptr) return;
  Page* page = AsPage(map_);
  char text[kStateWords * 8] = {};
  std::memcpy(text, state.data(), std::min(state.size(), sizeof(text) - 1));
  const uint64_t seq = page->seq.load(std::memory_order_relaxed);
  page->seq.store(seq + 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  for (size_t i = 0; i < kStateWords; ++i) {
    uint64_t word;
    std::memcpy(&word, text + i * 8, 8);
    page->state[i].store(word, std::memory_order_relaxed);
  }
  page->frozen.store(frozen ? 1 : 0, std::memory_order_relaxed);
  page->seq.store(seq + 2, std::memory_order_release);
}

bool ReadStatePage(const std::string& path, pid_t pid, uid_t uid, std::string* state, bool* frozen) {
  Reader& r = TheReader();
  std::lock_guard<std::mutex> lock(r.mu);
  for (int attempt = 0; attempt < 2; ++attempt) {
    // A page of another daemon, path or owner is mapped again once: a
    // restarted daemon renamed its own over it.
    if (r.page == nullptr || r.path != path || r.owner != uid || attempt > 0) {
      Unmap(r.page);
      r.page = MapTrusted(path, uid);
      r.path = path;
      r.owner = uid;
      if (r.page == nullptr) return false;
    }
    if (r.page->pid.load(std::memory_order_acquire) != pid) continue;
    return ReadConsistent(r.page, state, frozen);
  }
  return false;
}

}  // namespace orvel
