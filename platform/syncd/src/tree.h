// tree: the real file tree under the data folder. Name rules, the folder
// layout, and the durable file-system steps every write is made of (temp file
// in @tmp, fsync, rename, fsync of the folder). errno becomes a Status in
// exactly one place here (FsError), with the operation and path attached;
// every call retries EINTR. Each durable step passes the fault-injection
// seam (fault.h) once. Stateless and thread-safe.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "orvelcommon/scoped_fd.h"
#include "orvelcommon/status.h"

namespace orvel::syncd {

// The data folder's fixed sub-folders.
struct Layout {
  std::string data;      // the data folder itself
  std::string homes;     // <data>/homes
  std::string db;        // <data>/@db
  std::string versions;  // <data>/@versions
  std::string recycle;   // <data>/@recycle
  std::string thumbs;    // <data>/@thumbs
  std::string tmp;       // <data>/@tmp (mode 01777)

  static Layout ForDataDir(const std::string& data_dir);
  std::string Home(const std::string& user) const { return homes + "/" + user; }
  // Creates every folder that is missing (homes 0755, @tmp 01777, the rest
  // 0700 except @db 0755). Existing folders are left as they are, except
  // that @tmp always gets its 01777 mode back.
  Status Create() const;
};

// Item names: kErrInvalidName for "", ".", "..", a name holding "/" or NUL,
// or one longer than 255 bytes. Anything else (spaces, UTF-8, leading dots)
// is a valid name.
Status ValidateName(const std::string& name);

// The n-th autorename candidate of name (n >= 1): "a.txt" -> "a (n).txt",
// "folder" -> "folder (n)", ".bashrc" -> ".bashrc (n)", "a.tar.gz" ->
// "a.tar (n).gz"; folders never split an extension. The stem is shortened (on
// a UTF-8 character boundary) so that the result stays within 255 bytes.
std::string AutoRenameName(const std::string& name, bool is_dir, unsigned n);

// Lower-case extension without the dot ("" when none); the same split as
// AutoRenameName.
std::string ExtensionOf(const std::string& name);

// errno -> Status, the one helper of this layer.
Status FsError(const char* op, const std::string& path, int err);

// ScopedFd (orvelcommon/scoped_fd.h) is the file-descriptor guard here too.
using orvel::ScopedFd;

// A path that is removed when the guard ends, unless Cancel() was called (a
// temp file kept after a successful rename).
class TempPathGuard {
 public:
  explicit TempPathGuard(std::string path) : path_(std::move(path)) {}
  ~TempPathGuard();
  TempPathGuard(const TempPathGuard&) = delete;
  TempPathGuard& operator=(const TempPathGuard&) = delete;
  void Cancel() { path_.clear(); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

Status FsyncFd(int fd, const std::string& path_for_errors);
Status FsyncDir(const std::string& dir);
// mkdir(path, mode) and fsync of its parent; kErrNameExists when it exists.
// A folder whose parent could not be fsynced is removed again.
Status MakeDirDurable(const std::string& path, mode_t mode);
// rename(from, to), then fsync of the folder of `to` (and of `from` when it
// is another folder). kErrStorage with the errno text; EXDEV is returned as
// is (Status code kErrStorage, message starting "EXDEV") via *cross_device.
Status RenameDurable(const std::string& from, const std::string& to, bool* cross_device = nullptr);
// Links from -> to (hard link), then fsyncs the folder of `to`. EEXIST is
// not an error (content-addressed targets).
Status LinkDurable(const std::string& from, const std::string& to);
// Copies the content of src_fd into a new temp file in dir (mode 0640),
// fsyncs it and returns its path in *out; the caller owns the file.
Status CopyToTemp(int src_fd, const std::string& dir, std::string* out);
// SHA-256 of everything readable from fd (from offset 0), lower-case hex,
// and the byte count.
Status HashFd(int fd, std::string* hex, uint64_t* size);
Status HashPath(const std::string& path, std::string* hex, uint64_t* size);
// Removes a file, a symbolic link or a whole tree without following links.
// A missing path is success.
Status RemoveTree(const std::string& path);
// Removes the entries of the open folder dfd (which it takes and closes)
// without following links, and nothing else.
Status RemoveContents(int dfd, const std::string& path);
// Sets a file's access and modification times (seconds); 0 leaves one as is.
Status SetTimes(int fd, int64_t atime, int64_t mtime, const std::string& path);
// True when `path` is `dir` itself or lies inside it (both normalised
// absolute paths without "." or ".." components).
bool PathIsInside(const std::string& path, const std::string& dir);

}  // namespace orvel::syncd
