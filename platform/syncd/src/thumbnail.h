// thumbnail: thumbnails of images (and first pages of PDFs), cached under
// the data folder's @thumbs by content hash, size and format, so an
// unchanged file is never decoded twice. The image is decoded by
// orvel-decode in a child process under the decoder limits (decode.h);
// decoding shrinks on load (JPEG, WebP, PDF, SVG), so a large photo costs a
// fraction of its full size in memory.
//
// A thumbnail is written into an unnamed file (O_TMPFILE) in its cache
// folder and linked under its name once complete, so a failed or killed
// render leaves nothing behind. Where the file system has no unnamed files
// a ".tmp-" file is used instead, removed on failure and, should the daemon
// itself die, at the next start (RemoveStaleThumbTemps).
//
// Threading: thread-safe. Two requests for the same missing thumbnail both
// render it and the first link wins (the results are identical).
#pragma once

#include <string>

#include "decode.h"
#include "orvelcommon/status.h"

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

// The cached thumbnail of the file open as `source_fd` whose content hash
// is `hash`; renders it into `cache_dir` when missing. kErrNoThumbnail
// (-901) with the reason when the file cannot become a thumbnail: not a
// regular file, over the size or pixel limit, not an image of a known kind,
// damaged, over the memory or time limit, or the client (`client_fd`, -1
// for none) hung up while it was rendered.
Status GetOrMakeThumbnail(const Decoder& decoder, const std::string& cache_dir, int source_fd,
                          const std::string& hash, const std::string& ext, const ThumbRequest& want,
                          int client_fd, std::string* out_path);

// Removes the ".tmp-" files of renders from the cache folders (start-up,
// before any render runs); *removed counts them.
Status RemoveStaleThumbTemps(const std::string& cache_dir, int* removed);

}  // namespace orvel::syncd
