// upload_file: makes a folder, or stores a file the caller staged in the
// temp folder, with the five conflict policies (docs/wire.md, docs/daemon.md).
//
// Order of a file upload, for crash safety: open the source (no links
// followed), hash it (or take the digest entry.cgi recorded on it,
// staged_data.h) and check size and hash (-1106), fsync it (or copy it
// into @tmp and fsync when it lies on another file system), then under the
// write lock: resolve the parent, apply the conflict policy, keep the old
// content under @versions (overwrite_server), rename into place, fsync the
// folder, and only then commit the row. A failure before the commit takes
// the rename back. A crash before the commit leaves a new file that start-up
// reconciliation indexes, or (a replaced file) a record from which start-up
// puts the old file back (intent.h); nothing acknowledged is lost.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>

#include "access.h"
#include "intent.h"
#include "item.h"
#include "log.h"
#include "mime.h"
#include "name_forms.h"
#include "ops.h"
#include "ops_browse.h"
#include "revisions.h"
#include "space_fs.h"
#include "staged_data.h"

namespace orvel::syncd {
namespace {

constexpr unsigned kMaxAutoRename = 10000;

struct UploadArgs {
  std::vector<std::string> components;  // destination below /mydrive
  bool is_dir = false;
  std::string policy = "stop";
  int64_t created_time = 0, access_time = 0, mtime = 0;
  bool encrypted = false, has_encrypted = false;
  std::string permanent_link;
  std::string properties;  // JSON text; empty = not given
  std::string data_path, hash;
  uint64_t size = 0;
  bool has_size = false;
};

// Seconds; values that can only be milliseconds are converted.
int64_t Seconds(uint64_t v) {
  if (v > 100000000000ULL) v /= 1000;
  return static_cast<int64_t>(v);
}

Status ParseArgs(const PObject& args, UploadArgs* a) {
  std::string path, file_type;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  ItemRef ref;
  ORVEL_RETURN_IF_ERROR(ParseItemRef(path, &ref));
  if (ref.kind != ItemRef::Kind::kMyDrive)
    return Status(kErrInvalidArgument, "upload needs a /mydrive path: " + path);
  if (ref.components.empty()) return Status(kErrInvalidName, "invalid name: \"\"");
  a->components = ref.components;

  ORVEL_RETURN_IF_ERROR(ArgBool(args, "is_dir", &a->is_dir));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "file_type", &file_type));
  if (file_type == "dir" || file_type == "folder") {
    if (args["is_dir"].isBool() && !a->is_dir)
      return Status(kErrInvalidArgument, "is_dir false contradicts file_type \"dir\"");
    a->is_dir = true;
  } else if (!file_type.empty() && file_type != "file") {
    return Status(kErrInvalidArgument, "unknown file_type: \"" + file_type + "\"");
  } else if (file_type == "file" && a->is_dir) {
    return Status(kErrInvalidArgument, "is_dir true contradicts file_type \"file\"");
  }

  ORVEL_RETURN_IF_ERROR(ArgString(args, "conflict_policy", &a->policy));
  if (a->policy.empty()) a->policy = "stop";
  if (a->policy != "stop" && a->policy != "skip" && a->policy != "autorename" &&
      a->policy != "overwrite" && a->policy != "overwrite_server")
    return Status(kErrInvalidArgument, "unknown conflict_policy: \"" + a->policy + "\"");

  uint64_t v = 0;
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "created_time", &v));
  a->created_time = Seconds(v);
  v = 0;
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "access_time", &v));
  a->access_time = Seconds(v);
  const PObject& mt = args["mtime"];
  if (mt.isMap()) {
    v = 0;
    ORVEL_RETURN_IF_ERROR(ArgUInt(mt, "mtime", &v));
    a->mtime = Seconds(v);
  } else if (!mt.isNull()) {
    return Status(kErrInvalidArgument, "argument \"mtime\" must be a map");
  }
  a->has_encrypted = args["encrypted"].isBool();
  ORVEL_RETURN_IF_ERROR(ArgBool(args, "encrypted", &a->encrypted));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "permanent_link", &a->permanent_link));
  const PObject& props = args["properties"];
  if (props.isMap()) {
    for (const auto& kv : props.asMap()) {
      if (!kv.second.isString())
        return Status(kErrInvalidArgument, "properties must map names to strings");
    }
    a->properties = props.toJsonString();
  } else if (!props.isNull()) {
    return Status(kErrInvalidArgument, "argument \"properties\" must be a map");
  }
  // "removed" is accepted and not used yet; marks are applied on commit.
  ORVEL_RETURN_IF_ERROR(CheckItemMarks(args));
  if (a->is_dir) return Status::OK();

  ORVEL_RETURN_IF_ERROR(ArgString(args, "file_data_path", &a->data_path));
  if (a->data_path.empty()) return Status(kErrInvalidArgument, "file upload without file_data_path");
  const PObject& file = args["file"];
  if (!file.isNull() && !file.isMap()) return Status(kErrInvalidArgument, "argument \"file\" must be a map");
  a->has_size = file["size"].isInteger();
  ORVEL_RETURN_IF_ERROR(ArgUInt(file, "size", &a->size));
  ORVEL_RETURN_IF_ERROR(ArgString(file, "hash", &a->hash));
  return Status::OK();
}

// The content to rename into place: the caller's file itself, or a copy in
// @tmp when it lies on another file system or has other hard links.
struct Staged {
  ScopedFd fd;
  std::string path;
  std::unique_ptr<TempPathGuard> copy;  // set when path is our own copy
  struct stat st;
  std::string hash;
};

Status StageFile(Daemon& d, uid_t peer_uid, const UploadArgs& a, Staged* s) {
  StagedData src;
  ORVEL_RETURN_IF_ERROR(OpenStagedData(d.layout, peer_uid, a.data_path, &src));
  uint64_t size = 0;
  ORVEL_RETURN_IF_ERROR(HashStagedData(src, &s->hash, &size));
  s->fd = std::move(src.fd);
  s->st = src.st;
  if ((a.has_size && size != a.size) || (!a.hash.empty() && a.hash != s->hash))
    return Status(kErrHashMismatch, "content does not match its size or hash: " + a.data_path);

  struct stat data_st;
  if (stat(d.layout.tmp.c_str(), &data_st) != 0) return FsError("stat", d.layout.tmp, errno);
  if (s->st.st_dev != data_st.st_dev || s->st.st_nlink > 1) {
    std::string copy;
    ORVEL_RETURN_IF_ERROR(CopyToTemp(s->fd.get(), d.layout.tmp, &copy));
    s->copy = std::make_unique<TempPathGuard>(copy);
    time_t mtime = s->st.st_mtime;
    s->fd = ScopedFd(open(copy.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!s->fd.valid()) return FsError("open", copy, errno);
    if (fstat(s->fd.get(), &s->st) != 0) return FsError("fstat", copy, errno);
    s->path = copy;
    ORVEL_RETURN_IF_ERROR(SetTimes(s->fd.get(), 0, mtime, copy));
    s->st.st_mtime = mtime;
  } else {
    s->path = src.path;
    ORVEL_RETURN_IF_ERROR(FsyncFd(s->fd.get(), src.path));
  }
  if (a.mtime > 0 || a.access_time > 0) {
    ORVEL_RETURN_IF_ERROR(SetTimes(s->fd.get(), a.access_time, a.mtime, s->path));
    if (a.mtime > 0) s->st.st_mtime = a.mtime;
  }
  return Status::OK();
}

// The daemon owns the tree: its own ids, owner read-write, group read. Done
// only once the file is about to be renamed into place, so that a refused
// upload leaves the caller's file as it was (and removable by the caller).
Status TakeOwnership(const Staged& s) {
  if (geteuid() == 0 && fchown(s.fd.get(), geteuid(), getegid()) != 0)
    return FsError("fchown", s.path, errno);
  if (fchmod(s.fd.get(), 0640) != 0) return FsError("fchmod", s.path, errno);
  return Status::OK();
}

bool DiskEntryExists(int dir, const std::string& name) {
  struct stat st;
  bool exists = false;
  return !StatAt(dir, name, name, &st, &exists).ok() || exists;  // unsure: taken
}

// The renamed file must be the one that was hashed.
Status CheckSameInode(const Staged& s, int dir, const std::string& name, const std::string& dest) {
  struct stat st;
  bool exists = false;
  ORVEL_RETURN_IF_ERROR(StatAt(dir, name, dest, &st, &exists));
  if (!exists) return FsError("lstat", dest, ENOENT);
  if (st.st_ino != s.st.st_ino || st.st_dev != s.st.st_dev)
    return Status(kErrHashMismatch, "upload source changed while it was stored: " + dest);
  return Status::OK();
}

struct Target {
  Resolved parent;
  ScopedFd dir;  // the parent folder, opened beneath the owner's space
  std::string name;
  bool has_existing = false;
  Node existing;
  std::string Dest(const Daemon& d) const {
    return DiskPath(d.layout, parent.node.owner, parent.components) + "/" + name;
  }
};

// Applies the policy to an existing name. Sets *answer_existing for "skip"
// and for folders that already exist under an overwrite policy.
Status ApplyPolicy(Daemon& d, Store* store, const UploadArgs& a, Target* t, bool* answer_existing) {
  *answer_existing = false;
  ORVEL_RETURN_IF_ERROR(OpenSpaceFolder(d, t->parent.node.owner, t->parent.components, &t->dir));
  Status st = store->GetChild(t->parent.node.file_id, t->name, &t->existing);
  if (!st.ok() && st.code() != kErrNotFound) return st;
  t->has_existing = st.ok();
  bool on_disk = DiskEntryExists(t->dir.get(), t->name);
  if (!t->has_existing && !on_disk) return Status::OK();
  std::string view = t->parent.ViewPath() + "/" + t->name;

  if (a.policy == "autorename") {
    for (unsigned n = 1; n <= kMaxAutoRename; ++n) {
      std::string cand = AutoRenameName(t->name, a.is_dir, n);
      Node other;
      st = store->GetChild(t->parent.node.file_id, cand, &other);
      if (st.ok()) continue;
      if (st.code() != kErrNotFound) return st;
      if (DiskEntryExists(t->dir.get(), cand)) continue;
      t->name = cand;
      t->has_existing = false;
      return Status::OK();
    }
    return Status(kErrNameExists, "no free name for " + view);
  }
  if (t->has_existing) t->name = t->existing.name;  // acting on it: its stored spelling
  if (!t->has_existing)  // on disk only: not indexed yet, never clobbered
    return Status(kErrNameExists, "name exists on disk but is not indexed yet: " + view);
  if (a.policy == "stop") return Status(kErrNameExists, "name already exists: " + view);
  if (a.policy == "skip") {
    *answer_existing = true;
    return Status::OK();
  }
  // overwrite, overwrite_server
  if (t->existing.is_dir() && !a.is_dir) return Status(kErrIsFolder, "is a folder: " + view);
  if (!t->existing.is_dir() && a.is_dir) return Status(kErrNotFolder, "not a folder: " + view);
  if (a.is_dir) *answer_existing = true;  // a folder is "replaced" by itself
  return Status::OK();
}

void ApplyMetadata(const UploadArgs& a, Node* n) {
  if (a.has_encrypted) n->encrypted = a.encrypted;
  if (!a.permanent_link.empty()) n->permanent_link = a.permanent_link;
  if (!a.properties.empty()) n->properties = a.properties;
}

// Runs inside the transaction that commits the stored row: the caller's
// marks of the request.
using CommitHook = std::function<Status(const Node&)>;

// Commits a new row for t->name (already on disk at dest); the caller takes
// the disk entry back if it fails.
Status CommitNew(Store* store, const Target& t, Node* n, const std::string& dest, const CommitHook& hook) {
  Transaction tx(store, true);
  Status st = tx.status();
  if (st.ok()) st = store->NextChange(&n->sync_id);
  n->max_id = n->sync_id;
  if (st.ok()) st = store->Insert(n);
  if (st.ok()) st = store->TouchAncestors(t.parent.node.file_id, n->sync_id);
  if (st.ok()) st = hook(*n);
  if (st.ok()) st = tx.Commit();
  if (!st.ok()) SLOG_ERROR("upload: commit of %s failed, taking it back: %s", dest.c_str(), st.ToString().c_str());
  return st;
}

Status StoreFolder(Daemon& d, Store* store, const UploadArgs& a, const Target& t, const CommitHook& hook,
                   Node* out) {
  const std::string dest = t.Dest(d);
  ORVEL_RETURN_IF_ERROR(MakeDirAt(t.dir.get(), t.name, 0750, dest));
  int64_t now = time(nullptr);
  if (a.mtime > 0 || a.access_time > 0) SetTimesAt(t.dir.get(), t.name, a.access_time, a.mtime, dest);
  Node n;
  n.file_id = NewFileId();
  n.parent_id = t.parent.node.file_id;
  n.owner = t.parent.node.owner;
  n.name = t.name;
  n.type = 1;
  n.created_time = a.created_time ? a.created_time : now;
  n.access_time = a.access_time ? a.access_time : now;
  n.modified_time = a.mtime ? a.mtime : now;
  n.change_time = now;
  ApplyMetadata(a, &n);
  Status st = CommitNew(store, t, &n, dest, hook);
  if (!st.ok()) {
    RemoveAt(t.dir.get(), t.name, dest);
    return st;
  }
  *out = n;
  return Status::OK();
}

Status StoreFile(Daemon& d, Store* store, const UploadArgs& a, const Target& t, Staged* s,
                 const CommitHook& hook, Node* out) {
  const std::string dest = t.Dest(d);
  int64_t now = time(nullptr);
  Node n;
  if (t.has_existing) {  // overwrite / overwrite_server: same item, new content (a link is replaced)
    n = t.existing;
    bool keep = a.policy == "overwrite_server" && n.hash != s->hash && !n.hash.empty() && !n.is_link();
    if (keep) ORVEL_RETURN_IF_ERROR(KeepVersionAt(d, t.dir.get(), t.name, dest, n.hash));
    ORVEL_RETURN_IF_ERROR(TakeOwnership(*s));
    RenameIntent intent(d.layout, store);  // a failure or crash puts the old file back
    intent.Add(s->path, dest, true);
    ORVEL_RETURN_IF_ERROR(intent.Record());
    ORVEL_RETURN_IF_ERROR(intent.Apply());
    ORVEL_RETURN_IF_ERROR(CheckSameInode(*s, t.dir.get(), t.name, dest));
    Revision rev{n.file_id, n.sync_id, n.size, n.modified_time, n.hash};
    n.size = static_cast<uint64_t>(s->st.st_size);
    n.hash = s->hash;
    n.content_type = ContentTypeOf(n.name, false);
    n.modified_time = s->st.st_mtime;
    n.access_time = a.access_time ? a.access_time : now;
    if (a.created_time) n.created_time = a.created_time;
    n.change_time = now;
    ApplyMetadata(a, &n);
    Transaction tx(store, true);
    ORVEL_RETURN_IF_ERROR(tx.status());
    ORVEL_RETURN_IF_ERROR(store->NextChange(&n.sync_id));
    n.max_id = n.sync_id;
    if (keep) {
      ORVEL_RETURN_IF_ERROR(store->AddRevision(rev));
      ++n.revisions;
    }
    ORVEL_RETURN_IF_ERROR(store->Update(n));
    ORVEL_RETURN_IF_ERROR(store->TouchAncestors(t.parent.node.file_id, n.sync_id));
    ORVEL_RETURN_IF_ERROR(hook(n));
    ORVEL_RETURN_IF_ERROR(intent.Drop());
    ORVEL_RETURN_IF_ERROR(tx.Commit());
    intent.Committed();
    if (s->copy) s->copy->Cancel();
    *out = n;
    return Status::OK();
  }
  ORVEL_RETURN_IF_ERROR(TakeOwnership(*s));
  // A new name needs no record: after a crash reconciliation indexes the
  // whole file; a failure here takes it back.
  RenameIntent intent(d.layout, nullptr);
  intent.Add(s->path, dest);
  ORVEL_RETURN_IF_ERROR(intent.Record());
  ORVEL_RETURN_IF_ERROR(intent.Apply());
  ORVEL_RETURN_IF_ERROR(CheckSameInode(*s, t.dir.get(), t.name, dest));
  n.file_id = NewFileId();
  n.parent_id = t.parent.node.file_id;
  n.owner = t.parent.node.owner;
  n.name = t.name;
  n.type = 0;
  n.size = static_cast<uint64_t>(s->st.st_size);
  n.hash = s->hash;
  n.ext = ExtensionOf(t.name);
  n.content_type = ContentTypeOf(t.name, false);
  n.created_time = a.created_time ? a.created_time : now;
  n.access_time = a.access_time ? a.access_time : now;
  n.modified_time = s->st.st_mtime;
  n.change_time = now;
  ApplyMetadata(a, &n);
  ORVEL_RETURN_IF_ERROR(CommitNew(store, t, &n, dest, hook));
  intent.Committed();
  if (s->copy) s->copy->Cancel();
  *out = n;
  return Status::OK();
}

// An existing folder answered under an overwrite policy still gets the
// request's marks ("skip" leaves the item as it was).
Status MarkExisting(RequestContext& ctx, const PObject& args, const Node& n, const CommitHook& hook) {
  if (!HasItemMarks(args)) return Status::OK();
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(hook(n));
  return tx.Commit();
}

}  // namespace

Status OpUploadFile(RequestContext& ctx, const PObject& args, PObject* result) {
  Daemon& d = *ctx.d;
  UploadArgs a;
  ORVEL_RETURN_IF_ERROR(ParseArgs(args, &a));
  Node root;
  ORVEL_RETURN_IF_ERROR(EnsureHome(d, ctx.store.get(), ctx.caller.user.name, &root));
  Staged staged;
  if (!a.is_dir) ORVEL_RETURN_IF_ERROR(StageFile(d, ctx.peer_uid, a, &staged));

  std::lock_guard<std::mutex> lock(d.write_mu);
  Target t;
  ORVEL_RETURN_IF_ERROR(ResolveParent(d, ctx.store.get(), ctx.caller, a.components, &t.parent));
  t.name = NormalizeName(a.components.back());
  bool answer_existing = false;
  ORVEL_RETURN_IF_ERROR(ApplyPolicy(d, ctx.store.get(), a, &t, &answer_existing));
  CommitHook marks = [&](const Node& stored) { return ApplyItemMarks(ctx, stored.file_id, args); };
  Node n;
  if (answer_existing) {
    n = t.existing;
    if (a.policy != "skip") ORVEL_RETURN_IF_ERROR(MarkExisting(ctx, args, n, marks));
  } else if (a.is_dir) {
    ORVEL_RETURN_IF_ERROR(StoreFolder(d, ctx.store.get(), a, t, marks, &n));
  } else {
    // The writer of the new content goes with its row (revisions name it).
    CommitHook written = [&](const Node& stored) {
      ORVEL_RETURN_IF_ERROR(ctx.store->SetContentWriter(stored.file_id, stored.sync_id, ctx.caller.user.name));
      return marks(stored);
    };
    ORVEL_RETURN_IF_ERROR(StoreFile(d, ctx.store.get(), a, t, &staged, written, &n));
    if (n.revisions > 0) ORVEL_RETURN_IF_ERROR(PruneFileRevisions(d, ctx.store.get(), n.file_id, &n.revisions));
  }
  if (HasItemMarks(args)) {  // answer the caller's view, marks included
    Access item;
    ORVEL_RETURN_IF_ERROR(AccessOfNode(ctx, n, &item));
    return AccessRecord(ctx, item, &(*result)["file"]);
  }
  std::vector<std::string> comps = t.parent.components;
  comps.push_back(n.name);
  (*result)["file"] = MakeRecord(n, MyDrivePath(comps), DiskPath(d.layout, n.owner, comps),
                                 ctx.caller.user);
  return Status::OK();
}

}  // namespace orvel::syncd
