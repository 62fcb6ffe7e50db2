// EntryNames: the names entries get inside an archive. Names on disk may hold
// any byte but '/' and NUL, and an extractor on another platform reads more
// of them as structure: Windows takes '\' as a separator and "C:" as a drive,
// drops trailing dots and spaces, and a code page can turn a character into
// one of those bytes (CP932 writes U+00A5 as 0x5C). So every component is
// rewritten before it is written, and every entry stays below the folder the
// archive is extracted into, whatever platform extracts it:
//
//   - bytes that are not UTF-8 become U+FFFD (UTF-8 archives) or '_' (code
//     pages, which have no U+FFFD);
//   - with a code page, a component is taken as an extractor will read it
//     back (converted to the code page and back again);
//   - '\' and ':' become '_';
//   - a component made only of dots and spaces gets a leading '_'.
//
// Symbolic links are kept as links only when their target is relative and
// stays inside the archived tree: some leading ".." (no more than the link
// lies deep) followed by names only. Their names are rewritten the same way,
// so a kept link still points at its rewritten target. Other links are
// stored as plain files holding the target text (see zip_stream.h).
//
// Not thread-safe (iconv state); one object per archive.
#pragma once

#include <iconv.h>

#include <string>

namespace orvel::archiver {

class EntryNames {
 public:
  EntryNames() = default;
  ~EntryNames();
  EntryNames(const EntryNames&) = delete;
  EntryNames& operator=(const EntryNames&) = delete;

  // Names go to the iconv charset `charset` ("" or "UTF-8": names stay
  // UTF-8). False when iconv does not know it (names then stay UTF-8).
  bool SetCharset(const std::string& charset);

  // The archive form of one name found on disk (a single component).
  std::string Component(const std::string& disk_name) const;

  // A link `depth` folders below the top of the archive with `target`: true,
  // with *out the target written with rewritten names, when it stays inside
  // the archived tree; false when it is absolute, empty, climbs above the top
  // or has ".." after a name.
  bool LinkTarget(const std::string& target, size_t depth, std::string* out) const;

 private:
  // in converted by cd; false when iconv refuses it.
  static bool Convert(iconv_t cd, const std::string& in, std::string* out);

  iconv_t to_ = reinterpret_cast<iconv_t>(-1);    // UTF-8 -> code page
  iconv_t from_ = reinterpret_cast<iconv_t>(-1);  // code page -> UTF-8
};

}  // namespace orvel::archiver
