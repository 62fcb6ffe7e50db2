// See thumbnail.h.
#include "thumbnail.h"

#include <sys/stat.h>
#include <vips/vips.h>

#include <cstdio>
#include <mutex>

#include "space.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

const char* const kImageExtensions[] = {"jpg", "jpeg", "png", "gif", "webp", "tif", "tiff",
                                        "bmp", "heic", "heif", "avif", "svg", "pdf"};

bool InitVips() {
  static std::once_flag once;
  static bool ok = false;
  std::call_once(once, [] {
    ok = VIPS_INIT("orvel-syncd") == 0;
    if (ok) {
      vips_cache_set_max(0);  // results go to disk; keep no decoded images
      vips_concurrency_set(2);
    }
  });
  return ok;
}

// A VipsImage reference that is dropped when the guard ends.
class ImageRef {
 public:
  ImageRef() = default;
  ~ImageRef() {
    if (img_) g_object_unref(img_);
  }
  ImageRef(const ImageRef&) = delete;
  ImageRef& operator=(const ImageRef&) = delete;
  VipsImage** out() { return &img_; }
  VipsImage* get() const { return img_; }

 private:
  VipsImage* img_ = nullptr;
};

std::string VipsError() {
  std::string msg = vips_error_buffer();
  vips_error_clear();
  while (!msg.empty() && msg.back() == '\n') msg.pop_back();
  return msg;
}

// Loader options: every frame of an animation, or the first page of a PDF.
std::string LoadOptions(const std::string& ext, const ThumbRequest& want) {
  if (want.animate && (ext == "gif" || ext == "webp")) return "n=-1";
  if (ext == "pdf") return "page=0";
  return "";
}

Status Render(const std::string& source, const std::string& ext, const ThumbRequest& want,
              const std::string& dest) {
  if (!InitVips()) return Status(kErrInternal, "image library did not start: " + VipsError());
  ImageRef thumb;
  std::string opts = LoadOptions(ext, want);
  int rc = opts.empty()
               ? vips_thumbnail(source.c_str(), thumb.out(), want.box, "height", want.box, "size",
                                VIPS_SIZE_DOWN, nullptr)
               : vips_thumbnail(source.c_str(), thumb.out(), want.box, "height", want.box, "size",
                                VIPS_SIZE_DOWN, "option_string", opts.c_str(), nullptr);
  if (rc != 0) return Status(kErrNoThumbnail, "no thumbnail for this item: " + VipsError());
  VipsImage* img = thumb.get();
  ImageRef flat;
  if (want.format == "jpg" && vips_image_hasalpha(img)) {  // JPEG has no alpha: flatten on white
    VipsArrayDouble* white = vips_array_double_newv(1, 255.0);
    rc = vips_flatten(img, flat.out(), "background", white, nullptr);
    vips_area_unref(VIPS_AREA(white));
    if (rc != 0) return Status(kErrNoThumbnail, "no thumbnail for this item: " + VipsError());
    img = flat.get();
  }
  std::string target = dest + (want.format == "jpg" ? "[Q=85,strip]" : "[strip]");
  if (vips_image_write_to_file(img, target.c_str(), nullptr) != 0)
    return Status(kErrStorage, "writing thumbnail " + dest + ": " + VipsError());
  return Status::OK();
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

Status GetOrMakeThumbnail(const std::string& cache_dir, const std::string& source, const std::string& hash,
                          const std::string& ext, const ThumbRequest& want, std::string* out_path) {
  if (hash.size() < 8) return Status(kErrNoThumbnail, "no thumbnail for this item: no content hash");
  std::string dir = cache_dir + "/" + hash.substr(0, 2);
  *out_path = dir + "/" + hash + "-" + want.size + (want.animate ? "-anim" : "") + "." + want.format;
  struct stat st;
  if (stat(out_path->c_str(), &st) == 0 && st.st_size > 0) return Status::OK();
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return FsError("mkdir", dir, errno);
  std::string tmp = dir + "/.tmp-" + NewFileId() + "." + want.format;
  TempPathGuard guard(tmp);
  ORVEL_RETURN_IF_ERROR(Render(source, ext, want, tmp));
  ORVEL_RETURN_IF_ERROR(RenameDurable(tmp, *out_path));
  guard.Cancel();
  return Status::OK();
}

}  // namespace orvel::syncd
