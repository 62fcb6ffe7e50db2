// Thumbnails with libvips: from standard input to standard output.
//
// Only the loaders of the formats that get thumbnails are allowed (JPEG,
// PNG, GIF, WebP, TIFF, HEIF/AVIF, SVG, PDF); every other libvips loader
// (ImageMagick's above all) is blocked, whatever the file's bytes claim to
// be. The image's header is read first (libvips loads lazily): an image
// whose pixel count (every frame of an animation, a PDF page or SVG at 72
// dpi) is over the limit is refused before a pixel is decoded. SVG and PDF
// are read from memory, so they cannot pull in other files. Damaged files
// fail instead of giving a partly grey picture (LoadOptions).
#include <sys/stat.h>
#include <vips/vips.h>

#include <string>

#include "decode_protocol.h"
#include "decoder.h"

namespace orvel::syncd::decode {
namespace {

const char* const kAllowedLoaders[] = {
    "VipsForeignLoadJpeg", "VipsForeignLoadPng", "VipsForeignLoadNsgif", "VipsForeignLoadWebp",
    "VipsForeignLoadTiff", "VipsForeignLoadHeif", "VipsForeignLoadSvg",  "VipsForeignLoadPdf"};

// A GObject reference dropped when the guard ends.
template <typename T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* p) : p_(p) {}
  ~Ref() {
    if (p_) g_object_unref(p_);
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  T** out() { return &p_; }
  T* get() const { return p_; }

 private:
  T* p_ = nullptr;
};

std::string VipsError() {
  std::string msg = vips_error_buffer();
  vips_error_clear();
  while (!msg.empty() && msg.back() == '\n') msg.pop_back();
  for (char& c : msg)
    if (c == '\n') c = ' ';
  return msg;
}

// libvips reports damage it works around as warnings on standard error;
// they are dropped (the reason for a failure is in its error buffer).
void DropWarnings(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer data) {
  if (level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL)) g_log_default_handler(domain, level, message, data);
}

bool StartVips() {
  g_log_set_default_handler(DropWarnings, nullptr);
  if (VIPS_INIT("orvel-decode") != 0) return false;
  vips_cache_set_max(0);
  vips_concurrency_set(1);
  vips_operation_block_set("VipsForeignLoad", TRUE);
  for (const char* loader : kAllowedLoaders) vips_operation_block_set(loader, FALSE);
  return true;
}

// Loader options: every frame of an animation, the first page of a PDF, and
// when a file counts as damaged. libjpeg only warns about broken scan data
// (and paints the rest grey), so a JPEG fails on any warning; other loaders
// warn about harmless things (a PNG's odd colour profile) and fail on errors.
std::string LoadOptions(const ThumbArgs& a) {
  const bool jpeg = a.ext == "jpg" || a.ext == "jpeg";
  std::string opts = jpeg ? "fail_on=warning" : "fail_on=error";
  if (a.animate && (a.ext == "gif" || a.ext == "webp")) opts += ",n=-1";
  if (a.ext == "pdf") opts += ",page=0";
  return opts;
}

// The whole input in memory, as a source (SVG and PDF: no file name for
// them to resolve other files against).
VipsSource* MemorySource() {
  Ref<VipsSource> in(vips_source_new_from_descriptor(0));
  if (!in.get()) return nullptr;
  VipsBlob* blob = vips_source_map_blob(in.get());
  if (!blob) return nullptr;
  VipsSource* copy = vips_source_new_from_blob(blob);
  vips_area_unref(VIPS_AREA(blob));  // the new source holds its own reference
  return copy;
}

int CheckPixels(VipsSource* source, const std::string& opts, uint64_t max_pixels) {
  Ref<VipsImage> head(vips_image_new_from_source(source, opts.c_str(), "access", VIPS_ACCESS_SEQUENTIAL,
                                                 nullptr));
  if (!head.get()) return Fail(kUndecodable, "not an image that can be read: " + VipsError());
  const uint64_t w = static_cast<uint64_t>(vips_image_get_width(head.get()));
  const uint64_t h = static_cast<uint64_t>(vips_image_get_height(head.get()));
  if (w * h > max_pixels)
    return Fail(kTooLarge, "image too large: " + std::to_string(w) + "x" + std::to_string(h) +
                               " pixels, more than " + std::to_string(max_pixels));
  return kOk;
}

int Save(VipsImage* img, const ThumbArgs& a) {
  Ref<VipsImage> flat;
  if (a.format == "jpg" && vips_image_hasalpha(img)) {  // JPEG has no alpha: flatten on white
    VipsArrayDouble* white = vips_array_double_newv(1, 255.0);
    int rc = vips_flatten(img, flat.out(), "background", white, nullptr);
    vips_area_unref(VIPS_AREA(white));
    if (rc != 0) return Fail(kUndecodable, "cannot decode the image: " + VipsError());
    img = flat.get();
  }
  Ref<VipsTarget> out(vips_target_new_to_descriptor(1));
  if (!out.get()) return Fail(kWriteFailed, "cannot write the thumbnail: " + VipsError());
  const std::string suffix = a.format == "jpg" ? ".jpg[Q=85,strip]" : "." + a.format + "[strip]";
  // The pixels are decoded here, while the thumbnail is written.
  if (vips_image_write_to_target(img, suffix.c_str(), out.get(), nullptr) != 0)
    return Fail(kUndecodable, "cannot decode the image: " + VipsError());
  return kOk;
}

}  // namespace

int RenderThumbnail(const ThumbArgs& a) {
  struct stat st;
  if (fstat(0, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size == 0)
    return Fail(kUndecodable, "not an image that can be read: empty or not a file");
  if (!StartVips()) return Fail(kUndecodable, "image library did not start: " + VipsError());
  const bool in_memory = a.ext == "svg" || a.ext == "pdf";
  Ref<VipsSource> source(in_memory ? MemorySource() : vips_source_new_from_descriptor(0));
  if (!source.get()) return Fail(kUndecodable, "cannot read the file: " + VipsError());
  const std::string opts = LoadOptions(a);
  int rc = CheckPixels(source.get(), opts, a.max_pixels);
  if (rc != kOk) return rc;
  Ref<VipsImage> thumb;
  if (vips_thumbnail_source(source.get(), thumb.out(), a.box, "height", a.box, "size", VIPS_SIZE_DOWN,
                            "option_string", opts.c_str(), nullptr) != 0)
    return Fail(kUndecodable, "cannot decode the image: " + VipsError());
  return Save(thumb.get(), a);
}

}  // namespace orvel::syncd::decode
