// transfer_stage: conflict policies, subtree counts, reference resolution and
// the staging copies of transfer.h (from the database's tree or from a
// server path). Runs without the write lock; see transfer.h.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "mime.h"
#include "space_fs.h"
#include "tasks.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

bool KnownPolicy(const std::string& p) {
  return p == "stop" || p == "skip" || p == "autorename" || p == "overwrite" ||
         p == "overwrite_server";
}

Status OnePolicy(const PObject& v, const std::string& def, std::string* out) {
  if (v.isNull()) {
    *out = def;
    return Status::OK();
  }
  if (!v.isString()) return Status(kErrInvalidArgument, "conflict policy must be a string");
  *out = v.asString().empty() ? def : v.asString() == "version" ? "overwrite_server" : v.asString();
  if (!KnownPolicy(*out)) return Status(kErrInvalidArgument, "unknown conflict_policy: \"" + *out + "\"");
  return Status::OK();
}

// Reads everything from src_fd to dst_fd with read/write.
Status CopyByReading(int src_fd, int dst_fd, const std::string& dst_path) {
  std::vector<char> block(1 << 20);
  for (;;) {
    ssize_t r = read(src_fd, block.data(), block.size());
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return FsError("read", "copy source", errno);
    if (r == 0) return Status::OK();
    for (ssize_t off = 0; off < r;) {
      ssize_t w = write(dst_fd, block.data() + off, static_cast<size_t>(r - off));
      if (w < 0 && errno == EINTR) continue;
      if (w < 0) return FsError("write", dst_path, errno);
      off += w;
    }
  }
}

Node NewRowLike(const Node& src, const std::string& parent_id) {
  Node n = src;
  n.row_id = 0;
  n.file_id = NewFileId();
  n.parent_id = parent_id;
  n.sync_id = n.max_id = 0;
  n.removed = n.vanished = false;
  n.permanent_link.clear();
  n.revisions = 0;
  n.child_count = n.child_dirs = 0;
  return n;
}

}  // namespace

Status ParseConflictPolicy(const PObject& v, const std::string& def, ConflictPolicy* out) {
  if (v.isMap()) {
    std::string base;
    ORVEL_RETURN_IF_ERROR(OnePolicy(v["default"], def, &base));
    ORVEL_RETURN_IF_ERROR(OnePolicy(v["file"], base, &out->file));
    const PObject& folder = v.hasMember("folder") ? v["folder"] : v["dir"];
    return OnePolicy(folder, base, &out->folder);
  }
  std::string one;
  ORVEL_RETURN_IF_ERROR(OnePolicy(v, def, &one));
  out->file = out->folder = one;
  return Status::OK();
}

PObject ConflictPolicyToPObject(const ConflictPolicy& p) {
  PObject m = PObject::MakeMap();
  m["file"] = p.file;
  m["folder"] = p.folder;
  return m;
}

Status LiveChildren(Store* store, const std::string& folder_id, std::vector<Node>* out) {
  ORVEL_RETURN_IF_ERROR(store->ListAllChildren(folder_id, out));
  out->erase(std::remove_if(out->begin(), out->end(),
                            [](const Node& n) { return n.removed || n.vanished; }),
             out->end());
  return Status::OK();
}

Status CountSubtree(Store* store, const Node& node, TreeCount* out) {
  ++out->items;
  if (!node.is_dir()) {
    out->bytes += node.size;
    return Status::OK();
  }
  std::vector<Node> kids;
  ORVEL_RETURN_IF_ERROR(LiveChildren(store, node.file_id, &kids));
  for (const Node& k : kids) ORVEL_RETURN_IF_ERROR(CountSubtree(store, k, out));
  return Status::OK();
}

Status CopyFileContent(int src_fd, int dst_fd, const std::string& dst_path) {
  if (ioctl(dst_fd, FICLONE, src_fd) == 0) return Status::OK();
  for (;;) {
    ssize_t n = copy_file_range(src_fd, nullptr, dst_fd, nullptr, 1 << 30, 0);
    if (n > 0) continue;
    if (n == 0) return Status::OK();
    if (errno == EINTR) continue;
    if (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) break;
    return FsError("copy_file_range", dst_path, errno);
  }
  // The fallback starts over from both files' beginnings.
  if (lseek(src_fd, 0, SEEK_SET) < 0 || lseek(dst_fd, 0, SEEK_SET) < 0 || ftruncate(dst_fd, 0) != 0)
    return FsError("lseek", dst_path, errno);
  return CopyByReading(src_fd, dst_fd, dst_path);
}

Status StageProgress::Step(uint64_t bytes_done) {
  ++items;
  bytes += bytes_done;
  if (!task) return Status::OK();
  task->Progress(items, std::max(total, items), bytes, std::max(total_bytes, bytes));
  if (task->Cancelled()) return Status(kErrTaskCancelled, "task cancelled");
  return Status::OK();
}

namespace {

// Copies the regular file src_name of src_dir to the new file dst_name of
// dst_dir (mode 0640), keeping its times.
Status CopyOneFile(int src_dir, const std::string& src_name, const std::string& src_path, int dst_dir,
                   const std::string& dst_name, struct stat* st_out) {
  ScopedFd in;
  struct stat st;
  Status opened = OpenFileAt(src_dir, src_name, src_path, &in, &st);
  if (opened.code() == kErrNotFound) return Status(kErrDataMissing, "data file missing: " + src_path);
  ORVEL_RETURN_IF_ERROR(opened);
  const std::string dst = "@tmp/" + dst_name;
  ScopedFd out;
  ORVEL_RETURN_IF_ERROR(CreateFileAt(dst_dir, dst_name, 0640, dst, &out));
  ORVEL_RETURN_IF_ERROR(CopyFileContent(in.get(), out.get(), dst));
  ORVEL_RETURN_IF_ERROR(SetTimes(out.get(), st.st_atime, st.st_mtime, dst));
  if (st_out) *st_out = st;
  return Status::OK();
}

// mkdirat of a staging folder (not durable: the whole staging is flushed
// before it is placed), then both folders opened.
Status StageFolder(int src_dir, const std::string& src_name, const std::string& src_path, int dst_dir,
                   const std::string& dst_name, ScopedFd* from, ScopedFd* to) {
  ORVEL_RETURN_IF_ERROR(OpenFolderAt(src_dir, src_name, src_path, from));
  if (mkdirat(dst_dir, dst_name.c_str(), 0750) != 0) return FsError("mkdir", dst_name, errno);
  return OpenFolderAt(dst_dir, dst_name, dst_name, to);
}

}  // namespace

Status StageFromStore(Store* store, const Node& src, int src_dir, const std::string& src_path, int dst_dir,
                      const std::string& dst_name, StageProgress* progress, StagedNode* out) {
  out->row = NewRowLike(src, "");
  out->children.clear();
  if (src.is_link()) {
    ORVEL_RETURN_IF_ERROR(CopyLinkAt(src_dir, src.name, dst_dir, dst_name, src_path));
    return progress->Step(0);
  }
  if (!src.is_dir()) {
    ORVEL_RETURN_IF_ERROR(CopyOneFile(src_dir, src.name, src_path, dst_dir, dst_name, nullptr));
    return progress->Step(src.size);
  }
  ScopedFd from, to;
  ORVEL_RETURN_IF_ERROR(StageFolder(src_dir, src.name, src_path, dst_dir, dst_name, &from, &to));
  ORVEL_RETURN_IF_ERROR(progress->Step(0));
  std::vector<Node> kids;
  ORVEL_RETURN_IF_ERROR(LiveChildren(store, src.file_id, &kids));
  out->children.resize(kids.size());
  for (size_t i = 0; i < kids.size(); ++i) {
    Status st = StageFromStore(store, kids[i], from.get(), src_path + "/" + kids[i].name, to.get(), kids[i].name,
                               progress, &out->children[i]);
    out->children[i].row.parent_id = out->row.file_id;
    // A cancel comes after an item is staged whole: the tree keeps what is staged so far.
    if (st.code() == kErrTaskCancelled) out->children.resize(i + 1);
    ORVEL_RETURN_IF_ERROR(st);
  }
  return Status::OK();
}

Status StageFromDisk(int src_dir, const std::string& src_name, const std::string& src_path, int dst_dir,
                     const std::string& dst_name, const std::string& owner, StageProgress* progress,
                     StagedNode* out) {
  struct stat st;
  bool exists = false;
  ORVEL_RETURN_IF_ERROR(StatAt(src_dir, src_name, src_path, &st, &exists));
  if (!exists) return FsError("lstat", src_path, ENOENT);
  int64_t now = time(nullptr);
  Node& n = out->row;
  n = Node();
  n.file_id = NewFileId();
  n.owner = owner;
  n.name = src_name;
  n.type = S_ISDIR(st.st_mode) ? 1 : 0;
  n.created_time = n.access_time = n.change_time = now;
  n.modified_time = st.st_mtime;
  n.content_type = ContentTypeOf(src_name, n.is_dir());
  if (!n.is_dir()) {
    if (!S_ISREG(st.st_mode)) return Status(kErrInvalidArgument, "not a regular file: " + src_path);
    ORVEL_RETURN_IF_ERROR(CopyOneFile(src_dir, src_name, src_path, dst_dir, dst_name, &st));
    ScopedFd copy;
    ORVEL_RETURN_IF_ERROR(OpenFileAt(dst_dir, dst_name, "@tmp/" + dst_name, &copy));
    ORVEL_RETURN_IF_ERROR(HashFd(copy.get(), &n.hash, &n.size));
    n.ext = ExtensionOf(src_name);
    return progress->Step(n.size);
  }
  ScopedFd from, to;
  ORVEL_RETURN_IF_ERROR(StageFolder(src_dir, src_name, src_path, dst_dir, dst_name, &from, &to));
  ORVEL_RETURN_IF_ERROR(progress->Step(0));
  std::vector<DirEntryAt> entries;
  ORVEL_RETURN_IF_ERROR(ReadDirAt(from.get(), src_path, &entries));
  for (const DirEntryAt& e : entries) {
    if (!S_ISREG(e.st.st_mode) && !S_ISDIR(e.st.st_mode)) continue;  // links and special files are not imported
    if (!ValidateName(e.name).ok()) continue;
    out->children.emplace_back();
    ORVEL_RETURN_IF_ERROR(StageFromDisk(from.get(), e.name, src_path + "/" + e.name, to.get(), e.name, owner,
                                        progress, &out->children.back()));
    out->children.back().row.parent_id = n.file_id;
  }
  return Status::OK();
}

Status FlushFileSystem(int fd, const std::string& path) {
  if (syncfs(fd) != 0) return FsError("syncfs", path, errno);
  return Status::OK();
}

bool IsSameOrBelow(const Resolved& inner, const Resolved& outer) {
  if (inner.node.owner != outer.node.owner) return false;
  if (inner.components.size() < outer.components.size()) return false;
  return std::equal(outer.components.begin(), outer.components.end(), inner.components.begin());
}

Status ResolveAll(Daemon& d, Store* store, const Caller& caller,
                  const std::vector<std::string>& paths, std::vector<Resolved>* out) {
  out->clear();
  for (const std::string& p : paths) {
    ItemRef ref;
    ORVEL_RETURN_IF_ERROR(ParseItemRef(p, &ref));
    out->emplace_back();
    ORVEL_RETURN_IF_ERROR(ResolveRef(d, store, caller, ref, &out->back()));
  }
  return Status::OK();
}

Status ResolveFolder(Daemon& d, Store* store, const Caller& caller, const std::string& path,
                     Resolved* out) {
  ItemRef ref;
  ORVEL_RETURN_IF_ERROR(ParseItemRef(path, &ref));
  ORVEL_RETURN_IF_ERROR(ResolveRef(d, store, caller, ref, out));
  if (!out->node.is_dir()) return Status(kErrNotFolder, "not a folder: " + out->ViewPath());
  return Status::OK();
}

Status ResolveFolderById(Daemon& d, Store* store, const Caller& caller, const std::string& file_id,
                         Resolved* out) {
  return ResolveFolder(d, store, caller, "id:" + file_id, out);
}

}  // namespace orvel::syncd
