// ZipStream: writes one folder as a store-only ZIP stream to a file
// descriptor as it walks the folder (libarchive's zip writer; Zip64 records
// where sizes or offsets need them; file content spliced into a pipe output,
// zip_output.h). Memory stays constant whatever the
// archive's size: one data buffer and the names of the folder being read.
// Folders become "name/" entries; symbolic links are never followed: one
// whose target stays inside the tree is stored as a link, any other as a
// plain file holding the target text; other special files are skipped.
// Names are UTF-8 with the UTF-8 flag, or converted to a code page, and are
// rewritten so that no entry can land outside the extraction folder on any
// platform (entry_names.h).
//
// Not thread-safe; one object writes one archive.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "entry_names.h"
#include "zip_output.h"

struct archive;

namespace orvel::archiver {

struct StreamResult {
  unsigned long long entries = 0, bytes = 0;
  unsigned long long skipped = 0;  // entries that could not be read (logged to stderr)
};

class ZipStream {
 public:
  // File content is read and written in blocks of this size.
  static constexpr size_t kBlock = 1 << 20;

  // utf8: names as UTF-8 with the flag; else code_page ("" = names as they
  // are on disk).
  ZipStream(int out_fd, bool utf8, const std::string& code_page);
  ~ZipStream();
  ZipStream(const ZipStream&) = delete;
  ZipStream& operator=(const ZipStream&) = delete;

  // Opens the stream. false (with *error) when the writer cannot start.
  bool Open(std::string* error);
  // Adds everything below folder (not the folder itself). false when the
  // stream itself failed (the output is broken); unreadable entries are
  // skipped and counted.
  bool AddTree(const std::string& folder, std::string* error);
  // Writes the central directory. false when that failed.
  bool Close(std::string* error);
  const StreamResult& result() const { return result_; }

 private:
  bool AddDir(int dir_fd, const std::string& prefix, std::string* error);
  bool AddEntry(int dir_fd, const std::string& name, const std::string& prefix, std::string* error);
  bool WriteFileData(int fd, const std::string& path, std::string* error);
  void Skip(const std::string& path, const char* what, int err);
  // libarchive's write callback: hands every byte to output_.
  static ssize_t WriteOut(archive* a, void* self, const void* data, size_t len);

  ZipOutput output_;
  bool utf8_;
  std::string code_page_;
  EntryNames names_;
  archive* a_ = nullptr;
  bool open_ = false;
  StreamResult result_;
  std::vector<char> block_;  // file data, read and written in 1 MiB pieces
};

// The iconv name of a code page given by name: NAS language codes ("enu",
// "jpn", "cht", ...) map to their Windows code pages, "cpNNN" and other names
// pass through.
std::string CharsetForCodePage(const std::string& code_page);

}  // namespace orvel::archiver
