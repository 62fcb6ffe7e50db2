// space_fs: every file-system step the daemon takes in a user's space and in
// its own folders (@tmp, @versions, @recycle), relative to directory fds.
//
// The data folder's sub-folders are opened once at start-up without
// following links (DataDirs). A home is opened beneath homes/, and an item
// beneath its home, with openat2(RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS): a
// symbolic link or ".." anywhere on the way is refused with kErrPermission
// ("symbolic link not followed: <path>"), never followed. The last step of an
// item is its name in the folder fd that holds it (ItemAt), used only with
// calls that do not follow links: renameat2, unlinkat, linkat without
// AT_SYMLINK_FOLLOW, mkdirat, fstatat(AT_SYMLINK_NOFOLLOW), readlinkat,
// symlinkat, utimensat(AT_SYMLINK_NOFOLLOW) and openat(O_NOFOLLOW).
//
// Symbolic links found in a home are items of their own (rows with
// kLinkContentType): copied with CopyLinkAt, moved, deleted and staged for
// archives as links; their targets are never read.
//
// The durable steps are few: MakeDirAt, RenameAt and LinkFdAt (each fsyncs
// the folders it changed through FsyncFd), and CreateFileAt's caller fsyncs
// the file it wrote.
//
// Threading: stateless functions; a DataDirs is immutable once opened.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "tree.h"

namespace orvel::syncd {

struct Daemon;

// The data folder's sub-folders as directory fds.
class DataDirs {
 public:
  // Opens homes, @tmp, @versions and @recycle beneath the data folder; each
  // must be a folder reached without a link.
  Status Open(const Layout& layout);
  int homes() const { return homes_.get(); }
  int tmp() const { return tmp_.get(); }
  int versions() const { return versions_.get(); }
  int recycle() const { return recycle_.get(); }

 private:
  ScopedFd homes_, tmp_, versions_, recycle_;
};

// errno of a step below a folder fd: ELOOP (a link on the way) becomes
// kErrPermission "symbolic link not followed: <path>", EXDEV (".." out of
// the folder) kErrPermission "path leads out of its folder: <path>";
// anything else goes through FsError.
Status BeneathError(const char* op, const std::string& path, int err);

// openat2(dir, rel, flags | O_CLOEXEC, mode) with RESOLVE_BENEATH,
// RESOLVE_NO_SYMLINKS and RESOLVE_NO_MAGICLINKS; rel "." is dir itself.
// `path` names the target in errors.
Status OpenBeneath(int dir, const std::string& rel, int flags, mode_t mode, const std::string& path,
                   ScopedFd* out);

// A new fd of the same open folder.
Status DupFd(int fd, const std::string& path, ScopedFd* out);

// Where an item lies: the folder that holds it and its name there. For a
// space's root that is homes/ and the owner's name.
struct ItemAt {
  ScopedFd dir;
  std::string name;
  std::string path;  // the real path, for messages and logs
};

// Opens the folder that holds the item `components` of owner's space.
Status OpenItemAt(const Daemon& d, const std::string& owner, const std::vector<std::string>& components,
                  ItemAt* out);
// Opens the folder `components` of owner's space itself (O_RDONLY).
Status OpenSpaceFolder(const Daemon& d, const std::string& owner,
                       const std::vector<std::string>& components, ScopedFd* out);

// The name of path inside @tmp ("a/b" for "<tmp>/a/b"); kErrPermission for
// a path that is not strictly inside it or holds "." or "..".
Status TmpRelative(const Layout& layout, const std::string& path, std::string* rel);
// Opens a folder given as a path inside @tmp, beneath the @tmp fd.
Status OpenTmpFolder(const Daemon& d, const std::string& path, ScopedFd* out);
// Removes a path inside @tmp (a file, a link or a tree; links never
// followed); a missing path is success.
Status RemoveTmpPath(const Daemon& d, const std::string& path);

// fstatat(dir, name, AT_SYMLINK_NOFOLLOW); *exists false when missing.
Status StatAt(int dir, const std::string& name, const std::string& path, struct stat* st, bool* exists);
// Opens the regular file `name` of dir for reading (never a link, never
// blocking on a special file): kErrPermission for a link, kErrNotFound when
// missing, kErrInvalidArgument for anything but a regular file.
Status OpenFileAt(int dir, const std::string& name, const std::string& path, ScopedFd* out,
                  struct stat* st = nullptr);
// Opens the folder `name` of dir (O_RDONLY | O_DIRECTORY | O_NOFOLLOW).
Status OpenFolderAt(int dir, const std::string& name, const std::string& path, ScopedFd* out);
// Creates the new file `name` in dir for writing (O_EXCL, mode).
Status CreateFileAt(int dir, const std::string& name, mode_t mode, const std::string& path, ScopedFd* out);

// mkdirat(dir, name, mode), the mode set regardless of umask, then fsync of
// dir. kErrNameExists when the name is taken.
Status MakeDirAt(int dir, const std::string& name, mode_t mode, const std::string& path);
// renameat2(from_dir, from, to_dir, to, flags), then fsync of to_dir and of
// from_dir when it is another fd. RENAME_NOREPLACE in flags turns a taken
// name into kErrNameExists.
Status RenameAt(int from_dir, const std::string& from, int to_dir, const std::string& to, unsigned flags,
                const std::string& path);
// Links the open file fd as `name` in dir: the inode that was opened, never
// what a name points to now. kErrNameExists when the name is taken.
Status LinkFdAt(int fd, int dir, const std::string& name, const std::string& path);
// LinkFdAt, then fsync of dir.
Status LinkFdDurable(int fd, int dir, const std::string& name, const std::string& path);
// Keeps the regular file `name` of dir as @versions/<hash> (a hard link of
// the opened inode; an existing entry of that hash is kept as it is).
Status KeepVersionAt(const Daemon& d, int dir, const std::string& name, const std::string& path,
                     const std::string& hash);
// Makes `to` in to_dir a symbolic link with the target of the link `from`
// in from_dir (the target is copied as text, never resolved).
Status CopyLinkAt(int from_dir, const std::string& from, int to_dir, const std::string& to,
                  const std::string& path);
// Removes `name` of dir: a file, a link or a whole tree, without following
// links. A missing name is success.
Status RemoveAt(int dir, const std::string& name, const std::string& path);
// Sets the access and modification times (seconds; 0 leaves one as is) of
// the entry itself, a link included.
Status SetTimesAt(int dir, const std::string& name, int64_t atime, int64_t mtime, const std::string& path);

// One entry of a folder, as lstat sees it.
struct DirEntryAt {
  std::string name;
  struct stat st;
};
// The entries of the open folder dir (without "." and ".."), sorted by name.
Status ReadDirAt(int dir, const std::string& path, std::vector<DirEntryAt>* out);

// An entry of a folder fd that is removed when the guard ends, unless
// Cancel() was called. The folder fd must outlive the guard.
class TempEntryGuard {
 public:
  TempEntryGuard(int dir, std::string name) : dir_(dir), name_(std::move(name)) {}
  ~TempEntryGuard();
  TempEntryGuard(const TempEntryGuard&) = delete;
  TempEntryGuard& operator=(const TempEntryGuard&) = delete;
  void Cancel() { name_.clear(); }

 private:
  int dir_;
  std::string name_;
};

}  // namespace orvel::syncd
