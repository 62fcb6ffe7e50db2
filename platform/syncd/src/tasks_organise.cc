// The task functions of copy, move, delete and download staging, and the
// table of every task kind. Arguments are the ids the op resolved when the
// task was submitted (ops_transfer.cc); each item is re-resolved here, since
// the tree may have changed meanwhile. Results: {"items": [{"source",
// "path", "file_id", "skipped"}]} (delete: {"source", "file_id",
// "permanent"}; download: {"path"}).
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <set>

#include "db/recycle_store.h"
#include "dispatch.h"
#include "item.h"
#include "jobs.h"
#include "log.h"
#include "space_fs.h"
#include "tasks.h"
#include "tmp_sweep.h"
#include "transfer.h"

namespace orvel::syncd {

Status RunImportTask(TaskContext& ctx);   // tasks_import.cc
Status RunConvertTask(TaskContext& ctx);  // tasks_import.cc

namespace {

struct ItemArgs {
  std::vector<std::string> sources;
  std::string dest;
  ConflictPolicy policy;
};

Status ReadItemArgs(const PObject& a, ItemArgs* out) {
  for (const PObject& s : a["sources"].asArray()) out->sources.push_back(s.asString());
  out->dest = a["dest"].asString();
  return ParseConflictPolicy(a["conflict"], "autorename", &out->policy);
}

// Items are named by id in the task's arguments and resolved again with the
// owner's current roles.
Status ResolveId(RequestContext& rc, const std::string& id, TransferUse use, Resolved* out) {
  return ResolveForTransfer(rc, "id:" + id, use, out);
}

// o lies in dest (moved or copied there, or merged into a namesake).
void AddResult(TaskContext& ctx, const std::string& source, const Resolved& dest, const PlaceOutcome& o) {
  PObject e = PObject::MakeMap();
  e["source"] = source;
  e["path"] = o.components.empty() ? MyDrivePath(o.components) : dest.ViewPath() + "/" + o.components.back();
  e["file_id"] = o.node.file_id;
  e["skipped"] = o.skipped;
  ctx.result["items"].push_back(e);
}

// Items and bytes of every source, for progress.
void CountTotals(RequestContext& rc, const std::vector<std::string>& ids, StageProgress* progress) {
  TreeCount c;
  for (const std::string& id : ids) {
    Resolved r;
    if (ResolveId(rc, id, TransferUse::kRead, &r).ok()) CountSubtree(rc.store.get(), r.node, &c);
  }
  progress->total = c.items;
  progress->total_bytes = c.bytes;
}

Status RunCopy(TaskContext& ctx) {
  ItemArgs a;
  ORVEL_RETURN_IF_ERROR(ReadItemArgs(ctx.args, &a));
  RequestContext rc;
  ORVEL_RETURN_IF_ERROR(TaskRequestContext(ctx, &rc));
  const StoreLease& store = rc.store;
  ctx.result["items"] = PObject::MakeArray();
  StageProgress progress;
  progress.task = &ctx;
  CountTotals(rc, a.sources, &progress);
  for (size_t i = 0; i < a.sources.size(); ++i) {
    Resolved src;
    ORVEL_RETURN_IF_ERROR(ResolveId(rc, a.sources[i], TransferUse::kRead, &src));
    const int tmp = ctx.d->dirs.tmp();
    const std::string temp = ctx.TempName("copy-" + std::to_string(i));
    TempEntryGuard guard(tmp, temp);
    ItemAt from;
    ORVEL_RETURN_IF_ERROR(OpenItemAt(*ctx.d, src.node.owner, src.components, &from));
    StagedNode staged;
    // Cancelled mid-way by a request, the items copied so far are placed and
    // kept; a daemon that stops takes the item back (recovery fails the task).
    const Status copied = StageFromStore(store.get(), src.node, from.dir.get(), from.path, tmp, temp, &progress,
                                         &staged);
    if (copied.code() != kErrTaskCancelled || !ctx.CancelledByRequest()) ORVEL_RETURN_IF_ERROR(copied);
    ORVEL_RETURN_IF_ERROR(FlushFileSystem(tmp, ctx.d->layout.tmp));
    std::lock_guard<std::mutex> lock(ctx.d->write_mu);
    Resolved dest;
    ORVEL_RETURN_IF_ERROR(ResolveId(rc, a.dest, TransferUse::kWriteInto, &dest));
    if (src.node.is_dir() && IsSameOrBelow(dest, src))
      return Status(kErrIntoItself, "cannot copy a folder into itself: " + src.ViewPath());
    PlaceOutcome o;
    ORVEL_RETURN_IF_ERROR(PlaceStaged(*ctx.d, store.get(), dest, staged, tmp, temp, a.policy, &o));
    AddResult(ctx, src.ViewPath(), dest, o);
    if (!copied.ok()) {
      ctx.FlushProgress();
      return copied;
    }
  }
  ctx.Progress(progress.items, progress.items, progress.bytes, progress.bytes);
  return Status::OK();
}

Status RunMove(TaskContext& ctx) {
  ItemArgs a;
  ORVEL_RETURN_IF_ERROR(ReadItemArgs(ctx.args, &a));
  const std::string change_name = ctx.args["change_name"].asString();
  RequestContext rc;
  ORVEL_RETURN_IF_ERROR(TaskRequestContext(ctx, &rc));
  const StoreLease& store = rc.store;
  ctx.result["items"] = PObject::MakeArray();
  for (size_t i = 0; i < a.sources.size(); ++i) {
    if (ctx.Cancelled()) return Status(kErrTaskCancelled, "task cancelled");
    std::lock_guard<std::mutex> lock(ctx.d->write_mu);
    Resolved src, dest;
    ORVEL_RETURN_IF_ERROR(ResolveId(rc, a.sources[i], TransferUse::kTakeOut, &src));
    ORVEL_RETURN_IF_ERROR(ResolveId(rc, a.dest, TransferUse::kWriteInto, &dest));
    if (src.node.owner != dest.node.owner)
      return Status(kErrPermission, "permission denied: " + src.ViewPath() + " cannot move to another user's space; copy it");
    PlaceOutcome o;
    const std::string from = src.ViewPath();
    ORVEL_RETURN_IF_ERROR(MoveItem(*ctx.d, store.get(), src, dest, change_name, a.policy, &o));
    AddResult(ctx, from, dest, o);
    ctx.Progress(i + 1, a.sources.size());
  }
  return Status::OK();
}

Status RunDelete(TaskContext& ctx) {
  std::vector<std::string> ids;
  for (const PObject& s : ctx.args["sources"].asArray()) ids.push_back(s.asString());
  const bool permanent = ctx.args["permanent"].asBool();
  RequestContext rc;
  ORVEL_RETURN_IF_ERROR(TaskRequestContext(ctx, &rc));
  const StoreLease& store = rc.store;
  ctx.result["items"] = PObject::MakeArray();
  for (size_t i = 0; i < ids.size(); ++i) {
    if (ctx.Cancelled()) return Status(kErrTaskCancelled, "task cancelled");
    const std::string trash = ctx.TempName("trash-" + std::to_string(i));
    std::string view;
    bool for_good = false;
    {
      std::lock_guard<std::mutex> lock(ctx.d->write_mu);
      Resolved src;
      Status st = ResolveId(rc, ids[i], TransferUse::kTakeOut, &src);
      if (st.code() == kErrInRecycleBin && permanent) {
        st = store->GetById(ids[i], &src.node);  // the top of a removed subtree
        Node parent;
        RecycleEntry top;  // a top of its own below a removed folder may go for good
        if (st.ok() && src.node.owner != ctx.caller.user.name)
          st = Status(kErrPermission, "permission denied: id:" + ids[i]);
        else if (st.ok() && store->GetById(src.node.parent_id, &parent).ok() && parent.removed &&
                 !store->recycle()->Get(ids[i], &top).ok())
          st = Status(kErrInRecycleBin, "item is inside a removed folder: id:" + ids[i]);
      }
      ORVEL_RETURN_IF_ERROR(st);
      view = src.node.removed ? "id:" + ids[i] : src.ViewPath();
      // Another user's delete goes to the owner's recycle bin, never for good.
      for_good = permanent && src.node.owner == ctx.caller.user.name;
      ORVEL_RETURN_IF_ERROR(DeleteItem(*ctx.d, store.get(), src, for_good, trash, ctx.caller.user.name));
    }
    // Links that downloads made of what is deleted for good go too.
    const std::string trash_path = ctx.d->layout.tmp + "/" + trash;
    InodeSet linked;
    if (permanent) CollectLinkedInodes(trash_path, &linked);
    // The delete is committed: a trash that cannot be removed now goes to
    // the unlink job queue instead of failing the task.
    Status removed = RemoveAt(ctx.d->dirs.tmp(), trash, trash_path);
    if (!removed.ok() && ctx.d->jobs) removed = ctx.d->jobs->PushUnlink(trash_path, 0);
    if (!removed.ok()) SLOG_WARN("delete: %s", removed.ToString().c_str());
    uint64_t unlinked = 0;
    if (!linked.empty()) UnlinkLinksBelow(ctx.d->layout.tmp, linked, &unlinked);
    if (unlinked) SLOG_INFO("delete: removed %llu download links of deleted content", (unsigned long long)unlinked);
    PObject e = PObject::MakeMap();
    e["source"] = view;
    e["file_id"] = ids[i];
    e["permanent"] = for_good;
    ctx.result["items"].push_back(e);
    ctx.Progress(i + 1, ids.size());
  }
  return Status::OK();
}

// Hard links of node, the entry node.name of src_dir, and of everything live
// below it, at dst_name of dst_dir. A file entry is linked as it is (a link
// stays a link, which the archiver stores as a link); folders are opened
// without following links.
Status LinkTree(Store* store, const Node& node, int src_dir, const std::string& src_path, int dst_dir,
                const std::string& dst_name, StageProgress* progress) {
  if (!node.is_dir()) {
    if (linkat(src_dir, node.name.c_str(), dst_dir, dst_name.c_str(), 0) != 0)
      return FsError("link", src_path + " -> " + dst_name, errno);
    return progress->Step(node.size);
  }
  ScopedFd from, to;
  ORVEL_RETURN_IF_ERROR(OpenFolderAt(src_dir, node.name, src_path, &from));
  if (mkdirat(dst_dir, dst_name.c_str(), 0750) != 0) return FsError("mkdir", dst_name, errno);
  ORVEL_RETURN_IF_ERROR(OpenFolderAt(dst_dir, dst_name, dst_name, &to));
  ORVEL_RETURN_IF_ERROR(progress->Step(0));
  std::vector<Node> kids;
  ORVEL_RETURN_IF_ERROR(LiveChildren(store, node.file_id, &kids));
  for (const Node& k : kids)
    ORVEL_RETURN_IF_ERROR(LinkTree(store, k, from.get(), src_path + "/" + k.name, to.get(), k.name, progress));
  return Status::OK();
}

Status RunDownload(TaskContext& ctx) {
  std::vector<std::string> ids;
  for (const PObject& s : ctx.args["sources"].asArray()) ids.push_back(s.asString());
  RequestContext rc;
  ORVEL_RETURN_IF_ERROR(TaskRequestContext(ctx, &rc));
  const StoreLease& store = rc.store;
  const std::string staging = ctx.TempPath("staging");
  if (mkdirat(ctx.d->dirs.tmp(), ctx.TempName("staging").c_str(), 0750) != 0) return FsError("mkdir", staging, errno);
  ScopedFd staged;
  ORVEL_RETURN_IF_ERROR(OpenFolderAt(ctx.d->dirs.tmp(), ctx.TempName("staging"), staging, &staged));
  StageProgress progress;
  progress.task = &ctx;
  CountTotals(rc, ids, &progress);
  std::set<std::string> used;
  for (const std::string& id : ids) {
    Resolved src;
    ORVEL_RETURN_IF_ERROR(ResolveId(rc, id, TransferUse::kRead, &src));
    std::string name = src.components.empty() ? "mydrive" : src.node.name;
    for (unsigned n = 1; used.count(name); ++n) name = AutoRenameName(src.node.name, src.node.is_dir(), n);
    used.insert(name);
    ItemAt from;
    ORVEL_RETURN_IF_ERROR(OpenItemAt(*ctx.d, src.node.owner, src.components, &from));
    ORVEL_RETURN_IF_ERROR(LinkTree(store.get(), src.node, from.dir.get(), from.path, staged.get(), name, &progress));
  }
  ctx.Progress(progress.items, progress.items, progress.bytes, progress.bytes);
  ctx.result["path"] = staging;
  ctx.result["items"] = static_cast<unsigned long long>(progress.items);
  ctx.result["size"] = static_cast<unsigned long long>(progress.bytes);
  return Status::OK();
}

}  // namespace

const std::vector<TaskKind>& TaskKinds() {
  static const std::vector<TaskKind> kKinds = {
      {"copy", RunCopy, false},
      {"move", RunMove, false},
      {"delete", RunDelete, false},
      {"download", RunDownload, true},
      {"upload_from_tpx", RunImportTask, false},
      {"convert_office", RunConvertTask, false},
  };
  return kKinds;
}

}  // namespace orvel::syncd
