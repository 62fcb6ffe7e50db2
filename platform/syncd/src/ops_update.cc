// update_file: changes an existing item: name (same rules and conflict error
// as upload), times, flags, properties, the caller's labels, star and mute,
// and new content from "file_content" (base64) or a staged "file_data_path",
// keeping the old content as a revision.
//
// Order, for crash safety: new content is decoded or copied into @tmp and
// fsynced first; then under the write lock the old content is linked into
// @versions, both renames (the entry's name, the new content over it) are
// recorded (intent.h) and made, the folders fsynced, and only then the row
// committed. A failure or a crash before the commit takes the renames back.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <ctime>

#include "access.h"
#include "intent.h"
#include "mime.h"
#include "name_forms.h"
#include "orvelcommon/base64.h"
#include "ops_browse.h"
#include "ops_revision.h"
#include "revisions.h"
#include "staged_data.h"
#include "space_fs.h"

namespace orvel::syncd {
namespace {

constexpr size_t kMaxInlineContent = 64u << 20;  // base64 text

struct UpdateArgs {
  std::string path, name, content_b64, data_path, hash, properties;
  bool has_name = false, has_content = false, has_data = false, has_size = false;
  uint64_t size = 0, created = 0, accessed = 0, modified = 0;
  bool has_encrypted = false, encrypted = false;
};

int64_t Seconds(uint64_t v) { return static_cast<int64_t>(v > 100000000000ULL ? v / 1000 : v); }

Status ParseContent(const PObject& args, UpdateArgs* a) {
  a->has_content = args["file_content"].isString();
  ORVEL_RETURN_IF_ERROR(ArgString(args, "file_content", &a->content_b64));
  a->has_data = args["file_data_path"].isString();
  ORVEL_RETURN_IF_ERROR(ArgString(args, "file_data_path", &a->data_path));
  if (a->has_content && a->has_data)
    return Status(kErrInvalidArgument, "file_content and file_data_path are exclusive");
  if (a->content_b64.size() > kMaxInlineContent)
    return Status(kErrTooLarge, "file_content is over 64 MiB; upload the file instead");
  const PObject& file = args["file"];
  if (!file.isNull() && !file.isMap()) return Status(kErrInvalidArgument, "argument \"file\" must be a map");
  a->has_size = file["size"].isInteger();
  ORVEL_RETURN_IF_ERROR(ArgUInt(file, "size", &a->size));
  return ArgString(file, "hash", &a->hash);
}

Status ParseArgs(const PObject& args, UpdateArgs* a) {
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &a->path));
  a->has_name = args["name"].isString();
  ORVEL_RETURN_IF_ERROR(ArgString(args, "name", &a->name));
  a->name = NormalizeName(a->name);
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "created_time", &a->created));
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "access_time", &a->accessed));
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "modified_time", &a->modified));
  a->has_encrypted = args["encrypted"].isBool();
  ORVEL_RETURN_IF_ERROR(ArgBool(args, "encrypted", &a->encrypted));
  bool removed = false;
  ORVEL_RETURN_IF_ERROR(ArgBool(args, "removed", &removed));
  if (removed) return Status(kErrInvalidArgument, "\"removed\" true: use delete to move items to the recycle bin");
  const PObject& props = args["properties"];
  if (props.isMap()) {
    for (const auto& kv : props.asMap())
      if (!kv.second.isString()) return Status(kErrInvalidArgument, "properties must map names to strings");
    a->properties = props.toJsonString();
  } else if (!props.isNull()) {
    return Status(kErrInvalidArgument, "argument \"properties\" must be a map");
  }
  for (const char* key : {"labels", "starred"}) {
    if (!args[key].isNull() && !args[key].isArray())
      return Status(kErrInvalidArgument, std::string("argument \"") + key + "\" must be an array");
    // An empty list is what a client's "labels" that is no list at all arrives as.
    if (args[key].isArray() && args[key].asArray().empty())
      return Status(kErrInvalidArgument, std::string("argument \"") + key + "\" holds no action");
  }
  ORVEL_RETURN_IF_ERROR(CheckItemMarks(args));
  return ParseContent(args, a);
}

// New content, fsynced in @tmp, with its hash.
struct NewContent {
  std::unique_ptr<TempPathGuard> guard;
  std::string path, hash;
  uint64_t size = 0;
};

Status StageInline(Daemon& d, const std::string& b64, NewContent* c) {
  std::string bytes(b64.size() / 4 * 3 + 3, '\0');
  unsigned len = static_cast<unsigned>(bytes.size());
  if (!b64.empty() && !EncBase64Dec(b64.data(), static_cast<unsigned>(b64.size()), &bytes[0], &len))
    return Status(kErrInvalidArgument, "file_content is not valid base64");
  bytes.resize(b64.empty() ? 0 : len);
  ScopedFd mem(memfd_create("orvel-update", MFD_CLOEXEC));
  if (!mem.valid()) return FsError("memfd_create", "update content", errno);
  for (size_t off = 0; off < bytes.size();) {
    ssize_t w = write(mem.get(), bytes.data() + off, bytes.size() - off);
    if (w < 0 && errno == EINTR) continue;
    if (w < 0) return FsError("write", "update content", errno);
    off += static_cast<size_t>(w);
  }
  ORVEL_RETURN_IF_ERROR(CopyToTemp(mem.get(), d.layout.tmp, &c->path));
  c->guard = std::make_unique<TempPathGuard>(c->path);
  return HashFd(mem.get(), &c->hash, &c->size);
}

Status StageDataPath(Daemon& d, uid_t peer_uid, const UpdateArgs& a, NewContent* c) {
  StagedData src;
  ORVEL_RETURN_IF_ERROR(OpenStagedData(d.layout, peer_uid, a.data_path, &src));
  ORVEL_RETURN_IF_ERROR(HashStagedData(src, &c->hash, &c->size));
  ScopedFd fd = std::move(src.fd);
  if ((a.has_size && a.size != c->size) || (!a.hash.empty() && a.hash != c->hash))
    return Status(kErrHashMismatch, "content does not match its size or hash: " + a.data_path);
  ORVEL_RETURN_IF_ERROR(CopyToTemp(fd.get(), d.layout.tmp, &c->path));
  c->guard = std::make_unique<TempPathGuard>(c->path);
  return Status::OK();
}

Status CheckRole(RequestContext& ctx, const UpdateArgs& a, const PObject& args, const Access& item) {
  Capabilities caps = CapabilitiesFor(item.role);
  bool writes = a.has_content || a.has_data || a.created || a.accessed || a.modified || a.has_encrypted ||
                !a.properties.empty();
  bool renames = a.has_name && a.name != item.node.name;
  bool marks = HasItemMarks(args);
  if ((writes && !caps.can_write) || (renames && !caps.can_rename))
    return Status(kErrPermission, "permission denied: " + item.view_path + " is shared as " + RoleName(item.role));
  if (marks && IsVisitor(ctx)) return Status(kErrPermission, "permission denied: link visitors have no marks");
  if (marks && item.by_link)
    return Status(kErrPermission, "permission denied: marks need an item of the caller's or shared with the caller");
  if (renames && item.node.parent_id.empty()) return Status(kErrInvalidName, "the space's root cannot be renamed");
  if ((a.has_content || a.has_data) && item.node.is_dir())
    return Status(kErrIsFolder, "is a folder: " + item.view_path);
  return Status::OK();
}

// Adds the rename of the entry to intent and gives item its new name; the
// row is changed by the caller.
Status PlanRename(RequestContext& ctx, Access* item, const std::string& name, RenameIntent* intent) {
  ORVEL_RETURN_IF_ERROR(ValidateName(name));
  Node other;
  Status st = ctx.store->GetChild(item->node.parent_id, name, &other);
  std::string view = item->view_path.substr(0, item->view_path.find_last_of('/') + 1) + name;
  // Another spelling of the item's own name is a rename, not a conflict.
  if (st.ok() && other.file_id != item->node.file_id)
    return Status(kErrNameExists, "name already exists: " + view);
  if (!st.ok() && st.code() != kErrNotFound) return st;
  ItemAt at;
  ORVEL_RETURN_IF_ERROR(OpenItemAt(*ctx.d, item->node.owner, item->components, &at));
  struct stat on_disk;
  bool exists = false;
  ORVEL_RETURN_IF_ERROR(StatAt(at.dir.get(), name, at.path, &on_disk, &exists));
  if (exists) return Status(kErrNameExists, "name already exists: " + view);
  intent->Add(at.dir.get(), at.name, at.dir.get(), name);
  item->node.name = name;
  item->components.back() = name;
  item->view_path = view;
  if (!item->node.is_dir()) {
    item->node.ext = ExtensionOf(name);
    if (!item->node.is_link()) item->node.content_type = ContentTypeOf(name, false);
  }
  return Status::OK();
}

// The caller's labels, star and mute, committed together.
Status ApplyMarks(RequestContext& ctx, const PObject& args, const Access& item) {
  if (!HasItemMarks(args)) return Status::OK();
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ApplyItemMarks(ctx, item.node.file_id, args));
  return tx.Commit();
}

Status Commit(RequestContext& ctx, Node& n, const Revision* rev, bool new_content, RenameIntent* intent) {
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ctx.store->NextChange(&n.sync_id));
  n.max_id = n.sync_id;
  if (rev) {
    ORVEL_RETURN_IF_ERROR(ctx.store->AddRevision(*rev));
    ++n.revisions;
  }
  ORVEL_RETURN_IF_ERROR(ctx.store->Update(n));
  if (new_content) ORVEL_RETURN_IF_ERROR(ctx.store->SetContentWriter(n.file_id, n.sync_id, ctx.caller.user.name));
  if (!n.parent_id.empty()) ORVEL_RETURN_IF_ERROR(ctx.store->TouchAncestors(n.parent_id, n.sync_id));
  ORVEL_RETURN_IF_ERROR(intent->Drop());
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  intent->Committed();
  return Status::OK();
}

// The locked part: disk steps, then the row.
Status ApplyUnderLock(RequestContext& ctx, const UpdateArgs& a, NewContent* content, Access* item) {
  Node fresh;
  ORVEL_RETURN_IF_ERROR(ctx.store->GetById(item->node.file_id, &fresh));
  if (fresh.vanished || fresh.removed) return Status(kErrNotFound, "item not found: " + item->view_path);
  item->node = fresh;
  Node& n = item->node;
  int64_t now = time(nullptr);
  // Both renames (name, content) are recorded first; a failure or a crash
  // before the commit takes them back (intent.h). New content replaces the
  // entry itself (a link included), never goes through it.
  RenameIntent intent(ctx.d->layout, ctx.store.get());
  const std::vector<std::string> before = item->components;
  if (a.has_name && a.name != n.name) ORVEL_RETURN_IF_ERROR(PlanRename(ctx, item, a.name, &intent));
  std::unique_ptr<Revision> rev;
  const bool new_content = content && !content->path.empty();
  if (new_content) {
    ItemAt now_at;
    ORVEL_RETURN_IF_ERROR(OpenItemAt(*ctx.d, n.owner, before, &now_at));
    if (!n.hash.empty() && n.hash != content->hash && !n.is_link()) {
      ORVEL_RETURN_IF_ERROR(KeepVersionAt(*ctx.d, now_at.dir.get(), now_at.name, now_at.path, n.hash));
      rev = std::make_unique<Revision>(Revision{n.file_id, n.sync_id, n.size, n.modified_time, n.hash});
    }
    intent.Add(content->path, AccessDiskPath(ctx.d->layout, *item), true);
  }
  ORVEL_RETURN_IF_ERROR(intent.Record());
  ORVEL_RETURN_IF_ERROR(intent.Apply());
  if (new_content) {
    n.size = content->size;
    n.hash = content->hash;
    n.content_type = ContentTypeOf(n.name, false);
    n.modified_time = now;
  }
  if (a.created) n.created_time = Seconds(a.created);
  if (a.accessed) n.access_time = Seconds(a.accessed);
  if (a.modified) n.modified_time = Seconds(a.modified);
  ItemAt at;
  if ((a.accessed || a.modified) && OpenItemAt(*ctx.d, n.owner, item->components, &at).ok())
    SetTimesAt(at.dir.get(), at.name, n.access_time, n.modified_time, at.path);
  if (a.has_encrypted) n.encrypted = a.encrypted;
  if (!a.properties.empty()) n.properties = a.properties;
  n.change_time = now;
  ORVEL_RETURN_IF_ERROR(Commit(ctx, n, rev.get(), new_content, &intent));
  if (new_content) content->guard->Cancel();
  if (rev) ORVEL_RETURN_IF_ERROR(PruneFileRevisions(*ctx.d, ctx.store.get(), n.file_id, &n.revisions));
  return Status::OK();
}

}  // namespace

Status ReplaceContent(RequestContext& ctx, int src_fd, const std::string& expect_hash, Access* item) {
  NewContent content;
  ORVEL_RETURN_IF_ERROR(CopyToTemp(src_fd, ctx.d->layout.tmp, &content.path));
  content.guard = std::make_unique<TempPathGuard>(content.path);
  ORVEL_RETURN_IF_ERROR(HashPath(content.path, &content.hash, &content.size));
  if (content.hash != expect_hash)
    return Status(kErrHashMismatch, "kept content does not match its hash: " + expect_hash);
  std::lock_guard<std::mutex> lock(ctx.d->write_mu);
  return ApplyUnderLock(ctx, UpdateArgs(), &content, item);
}

Status OpUpdateFile(RequestContext& ctx, const PObject& args, PObject* result) {
  UpdateArgs a;
  ORVEL_RETURN_IF_ERROR(ParseArgs(args, &a));
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, a.path, &item));
  ORVEL_RETURN_IF_ERROR(CheckRole(ctx, a, args, item));
  // Marks are applied after the other changes: refuse bad ones before any.
  ORVEL_RETURN_IF_ERROR(CheckItemMarkActions(ctx, args));
  NewContent content;
  if (a.has_content) ORVEL_RETURN_IF_ERROR(StageInline(*ctx.d, a.content_b64, &content));
  if (a.has_data) ORVEL_RETURN_IF_ERROR(StageDataPath(*ctx.d, ctx.peer_uid, a, &content));
  {
    std::lock_guard<std::mutex> lock(ctx.d->write_mu);
    ORVEL_RETURN_IF_ERROR(ApplyUnderLock(ctx, a, &content, &item));
  }
  ORVEL_RETURN_IF_ERROR(ApplyMarks(ctx, args, item));
  return AccessRecord(ctx, item, &(*result)["file"]);
}

}  // namespace orvel::syncd
