// thumbnail: thumbnails of images (and first pages of PDFs) with libvips,
// cached under the data folder's @thumbs by content hash, size and format,
// so an unchanged file is never decoded twice. Decoding shrinks on load
// (JPEG, WebP, PDF), so a large photo costs a fraction of its full size in
// memory.
//
// Threading: thread-safe; libvips is initialised once per process. Two
// requests for the same missing thumbnail both render it and the last
// rename wins (the results are identical).
#pragma once

#include <string>

#include "nimbard/status.h"

namespace orvel::syncd {

struct ThumbRequest {
  std::string size = "small";   // small, medium, large, xlarge
  std::string format = "jpg";   // jpg, png, webp
  bool animate = false;         // keep an animation (webp only)
  int box = 0;                  // bounding box in pixels, from size
};

// Checks and completes the request; kErrThumbnailSpec (-902) for an unknown size
// or format.
Status ParseThumbRequest(ThumbRequest* want);

// Whether an item of this extension may have a thumbnail at all.
bool MayHaveThumbnail(const std::string& ext);

// The cached thumbnail of the file `source` whose content hash is `hash`;
// renders it into `cache_dir` when missing. kErrNoThumbnail (-901) when
// libvips cannot read the file as an image.
Status GetOrMakeThumbnail(const std::string& cache_dir, const std::string& source,
                          const std::string& hash, const std::string& ext, const ThumbRequest& want,
                          std::string* out_path);

}  // namespace orvel::syncd
