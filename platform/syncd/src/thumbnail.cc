// See thumbnail.h.
#include "thumbnail.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "decode_protocol.h"
#include "log.h"
#include "space.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

// BMP is missing on purpose: libvips reads it only through ImageMagick,
// which the decoder does not load.
const char* const kImageExtensions[] = {"jpg", "jpeg", "png", "gif", "webp", "tif", "tiff",
                                        "heic", "heif", "avif", "svg", "pdf"};

constexpr char kTempPrefix[] = ".tmp-";
constexpr uint64_t kMaxThumbBytes = 64ull << 20;  // an animated xlarge WebP stays far below

Status NoThumbnail(const std::string& why) {
  return Status(kErrNoThumbnail, "no thumbnail for this item: " + why);
}

// The file a render writes into: unnamed when the file system allows.
struct RenderTarget {
  ScopedFd fd;
  std::string named;  // the ".tmp-" path when it could not be unnamed
};

Status OpenTarget(const std::string& dir, const std::string& format, RenderTarget* t) {
  t->fd.Reset(open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644));
  if (t->fd.valid()) return Status::OK();
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) return FsError("open", dir, errno);
  t->named = dir + "/" + kTempPrefix + NewFileId() + "." + format;
  t->fd.Reset(open(t->named.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!t->fd.valid()) return FsError("open", t->named, errno);
  return Status::OK();
}

// Gives the complete thumbnail its name; an existing one (a concurrent
// render of the same file) is kept.
Status Publish(RenderTarget* t, const std::string& dir, const std::string& path) {
  struct stat st;
  if (fstat(t->fd.get(), &st) != 0) return FsError("fstat", path, errno);
  if (st.st_size == 0) return NoThumbnail("the decoder wrote nothing");
  ORVEL_RETURN_IF_ERROR(FsyncFd(t->fd.get(), path));
  if (!t->named.empty()) return RenameDurable(t->named, path);
  const std::string by_fd = "/proc/self/fd/" + std::to_string(t->fd.get());
  if (linkat(AT_FDCWD, by_fd.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0 && errno != EEXIST)
    return FsError("link", path, errno);
  return FsyncDir(dir);
}

Status Render(const Decoder& decoder, int source_fd, const std::string& ext, const ThumbRequest& want,
              int client_fd, int out_fd) {
  DecodeRun run;
  run.args = {"thumb", ext, std::to_string(want.box), want.format, want.animate ? "1" : "0",
              std::to_string(decoder.max_pixels)};
  run.in_fd = source_fd;
  run.out_fd = out_fd;
  run.hangup_fd = client_fd;
  run.output_bytes = kMaxThumbBytes;
  Status st = RunDecoder(decoder, run, kErrNoThumbnail);
  if (st.code() == kErrNoThumbnail) return NoThumbnail(st.message());
  return st;
}

}  // namespace

Status ParseThumbRequest(ThumbRequest* want) {
  if (want->size.empty()) want->size = "small";
  if (want->format.empty()) want->format = "jpg";
  if (want->format == "jpeg") want->format = "jpg";
  if (want->size == "small") want->box = 120;
  else if (want->size == "medium") want->box = 320;
  else if (want->size == "large") want->box = 640;
  else if (want->size == "xlarge") want->box = 1280;
  else return Status(kErrThumbnailSpec, "unsupported thumbnail size: \"" + want->size + "\"");
  if (want->format != "jpg" && want->format != "png" && want->format != "webp")
    return Status(kErrThumbnailSpec, "unsupported thumbnail format: \"" + want->format + "\"");
  if (want->format != "webp") want->animate = false;  // only WebP keeps frames here
  return Status::OK();
}

bool MayHaveThumbnail(const std::string& ext) {
  for (const char* e : kImageExtensions)
    if (ext == e) return true;
  return false;
}

Status GetOrMakeThumbnail(const Decoder& decoder, const std::string& cache_dir, int source_fd,
                          const std::string& hash, const std::string& ext, const ThumbRequest& want,
                          int client_fd, std::string* out_path) {
  if (hash.size() < 8) return NoThumbnail("no content hash");
  std::string dir = cache_dir + "/" + hash.substr(0, 2);
  *out_path = dir + "/" + hash + "-" + want.size + (want.animate ? "-anim" : "") + "." + want.format;
  struct stat st;
  if (stat(out_path->c_str(), &st) == 0 && st.st_size > 0) return Status::OK();
  Status input = CheckDecoderInput(source_fd, decoder.max_input_bytes);
  if (!input.ok()) return NoThumbnail(input.message());
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return FsError("mkdir", dir, errno);
  RenderTarget target;
  ORVEL_RETURN_IF_ERROR(OpenTarget(dir, want.format, &target));
  TempPathGuard guard(target.named);
  Status rendered = Render(decoder, source_fd, ext, want, client_fd, target.fd.get());
  if (!rendered.ok()) {
    SLOG_INFO("thumbnail of %s (%s, %s): %s", hash.c_str(), ext.c_str(), want.size.c_str(),
              rendered.message().c_str());
    return rendered;
  }
  ORVEL_RETURN_IF_ERROR(Publish(&target, dir, *out_path));
  guard.Cancel();
  return Status::OK();
}

Status RemoveStaleThumbTemps(const std::string& cache_dir, int* removed) {
  *removed = 0;
  DIR* top = opendir(cache_dir.c_str());
  if (!top) return FsError("opendir", cache_dir, errno);
  std::vector<std::string> stale;
  while (struct dirent* e = readdir(top)) {
    if (e->d_name[0] == '.') continue;
    const std::string sub = cache_dir + "/" + e->d_name;
    DIR* d = opendir(sub.c_str());
    if (!d) continue;
    while (struct dirent* f = readdir(d)) {
      if (strncmp(f->d_name, kTempPrefix, sizeof(kTempPrefix) - 1) == 0) stale.push_back(sub + "/" + f->d_name);
    }
    closedir(d);
  }
  closedir(top);
  for (const std::string& p : stale) {
    Status st = RemoveTree(p);
    if (st.ok()) ++*removed;
    else SLOG_WARN("clean @thumbs: %s", st.ToString().c_str());
  }
  return Status::OK();
}

}  // namespace orvel::syncd
