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
std::string LoadOptions(const std::string& ext, const ThumbSpec& spec) {
  if (spec.animate && (ext == "gif" || ext == "webp")) return "n=-1";
  if (ext == "pdf") return "page=0";
  return "";
}

Status Render(const std::string& source, const std::string& ext, const ThumbSpec& spec,
              const std::string& dest) {
  if (!InitVips()) return Status(kErrInternal, "image library did not start: " + VipsError());
  ImageRef thumb;
  std::string opts = LoadOptions(ext, spec);
  int rc = opts.empty()
               ? vips_thumbnail(source.c_str(), thumb.out(), spec.box, "height", spec.box, "size",
                                VIPS_SIZE_DOWN, nullptr)
               : vips_thumbnail(source.c_str(), thumb.out(), spec.box, "height", spec.box, "size",
                                VIPS_SIZE_DOWN, "option_string", opts.c_str(), nullptr);
  if (rc != 0) return Status(kErrNoThumbnail, "no thumbnail for this item: " + VipsError());
  VipsImage* img = thumb.get();
  ImageRef flat;
  if (spec.format == "jpg" && vips_image_hasalpha(img)) {  // JPEG has no alpha: flatten on white
    VipsArrayDouble* white = vips_array_double_newv(1, 255.0);
    rc = vips_flatten(img, flat.out(), "background", white, nullptr);
    vips_area_unref(VIPS_AREA(white));
    if (rc != 0) return Status(kErrNoThumbnail, "no thumbnail for this item: " + VipsError());
    img = flat.get();
  }
  std::string target = dest + (spec.format == "jpg" ? "[Q=85,strip]" : "[strip]");
  if (vips_image_write_to_file(img, target.c_str(), nullptr) != 0)
    return Status(kErrStorage, "writing thumbnail " + dest + ": " + VipsError());
  return Status::OK();
}

}  // namespace

Status ParseThumbSpec(ThumbSpec* spec) {
  if (spec->size.empty()) spec->size = "small";
  if (spec->format.empty()) spec->format = "jpg";
  if (spec->format == "jpeg") spec->format = "jpg";
  if (spec->size == "small") spec->box = 120;
  else if (spec->size == "medium") spec->box = 320;
  else if (spec->size == "large") spec->box = 640;
  else if (spec->size == "xlarge") spec->box = 1280;
  else return Status(kErrThumbnailSpec, "unsupported thumbnail size: \"" + spec->size + "\"");
  if (spec->format != "jpg" && spec->format != "png" && spec->format != "webp")
    return Status(kErrThumbnailSpec, "unsupported thumbnail format: \"" + spec->format + "\"");
  if (spec->format != "webp") spec->animate = false;  // only WebP keeps frames here
  return Status::OK();
}

bool MayHaveThumbnail(const std::string& ext) {
  for (const char* e : kImageExtensions)
    if (ext == e) return true;
  return false;
}

Status GetOrMakeThumbnail(const std::string& cache_dir, const std::string& source, const std::string& hash,
                          const std::string& ext, const ThumbSpec& spec, std::string* out_path) {
  if (hash.size() < 8) return Status(kErrNoThumbnail, "no thumbnail for this item: no content hash");
  std::string dir = cache_dir + "/" + hash.substr(0, 2);
  *out_path = dir + "/" + hash + "-" + spec.size + (spec.animate ? "-anim" : "") + "." + spec.format;
  struct stat st;
  if (stat(out_path->c_str(), &st) == 0 && st.st_size > 0) return Status::OK();
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return FsError("mkdir", dir, errno);
  std::string tmp = dir + "/.tmp-" + NewFileId() + "." + spec.format;
  TempPathGuard guard(tmp);
  ORVEL_RETURN_IF_ERROR(Render(source, ext, spec, tmp));
  ORVEL_RETURN_IF_ERROR(RenameDurable(tmp, *out_path));
  guard.Cancel();
  return Status::OK();
}

}  // namespace orvel::syncd
