// The task functions of server-path import and office conversion. Both
// stage new content under a task temp name (a copy of the server path, or
// soffice's output), flush it, and place it in the destination folder with
// the task's conflict policy. Results: {"items": [{"source", "path",
// "file_id", "skipped"}]}.
//
// A server path was checked when the task was submitted; it is resolved
// again when the task runs, beneath the root fd of the share that holds it
// and without following any link, so that a folder swapped for a link in
// between leads nowhere.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>

#include "convert.h"
#include "space_fs.h"
#include "tasks.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

std::string RealPathOf(const std::string& p) {
  char buf[PATH_MAX];
  return realpath(p.c_str(), buf) ? std::string(buf) : std::string();
}

void AddResult(TaskContext& ctx, const std::string& source, const PlaceOutcome& o) {
  PObject e = PObject::MakeMap();
  e["source"] = source;
  e["path"] = MyDrivePath(o.components);
  e["file_id"] = o.node.file_id;
  e["skipped"] = o.skipped;
  ctx.result["items"].push_back(e);
}

// Places one staged item (the @tmp entry temp) into the folder with id dest_id.
Status PlaceInto(TaskContext& ctx, Store* store, const std::string& dest_id, StagedNode& staged,
                 const std::string& temp, const ConflictPolicy& policy, const std::string& source) {
  ORVEL_RETURN_IF_ERROR(FlushFileSystem(ctx.d->dirs.tmp(), ctx.d->layout.tmp));
  std::lock_guard<std::mutex> lock(ctx.d->write_mu);
  Resolved dest;
  ORVEL_RETURN_IF_ERROR(ResolveFolderById(*ctx.d, store, ctx.caller, dest_id, &dest));
  PlaceOutcome o;
  ORVEL_RETURN_IF_ERROR(PlaceStaged(*ctx.d, store, dest, staged, ctx.d->dirs.tmp(), temp, policy, &o));
  AddResult(ctx, source, o);
  return Status::OK();
}

// Splits a real path into its folder and last name.
void SplitLast(const std::string& path, std::string* dir, std::string* name) {
  const size_t slash = path.find_last_of('/');
  *dir = slash == 0 ? "/" : path.substr(0, slash);
  *name = path.substr(slash + 1);
}

// Opens the folder that holds the server path `real` beneath its share's
// root, without following links; out->name is its last name.
Status OpenServerPath(const Daemon& d, const std::string& user, const std::string& real, ItemAt* out) {
  const Status refused(kErrServerPathRefused, "server path not allowed: " + real);
  std::string root;
  ORVEL_RETURN_IF_ERROR(ServerShareOf(d, user, real, &root));
  out->path = real;
  std::string share_dir, rel;
  if (real == root) {  // the share itself: its folder is the configured one
    SplitLast(root, &share_dir, &out->name);
    rel = ".";
  } else {
    share_dir = root;
    SplitLast(real.substr(root == "/" ? 0 : root.size()), &rel, &out->name);
    rel = rel == "/" ? "." : rel.substr(1);
  }
  ScopedFd share(open(share_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!share.valid()) return Status(kErrServerPathMissing, "server path not found: " + real);
  Status st = OpenBeneath(share.get(), rel, O_RDONLY | O_DIRECTORY, 0, real, &out->dir);
  if (st.code() == kErrNotFound || st.code() == kErrNotFolder)
    return Status(kErrServerPathMissing, "server path not found: " + real);
  if (!st.ok()) return refused;
  struct stat sb;
  bool exists = false;
  if (!StatAt(out->dir.get(), out->name, real, &sb, &exists).ok() || !exists)
    return Status(kErrServerPathMissing, "server path not found: " + real);
  if (S_ISLNK(sb.st_mode)) return refused;
  return Status::OK();
}

}  // namespace

Status ServerShareOf(const Daemon& d, const std::string& user, const std::string& real, std::string* root) {
  const Status refused(kErrServerPathRefused, "server path not allowed: " + real);
  if (real.empty() || real[0] != '/') return refused;
  const std::string data = RealPathOf(d.layout.data);
  if (!data.empty() && (PathIsInside(real, data) || PathIsInside(data, real))) return refused;
  for (const TpxShare& share : d.config.GetTpxShares()) {
    *root = RealPathOf(share.path);
    if (root->empty() || !PathIsInside(real, *root)) continue;
    for (const std::string& u : share.users) {
      if (u == "*" || u == user) return Status::OK();
    }
  }
  return refused;
}

Status RunImportTask(TaskContext& ctx) {
  ConflictPolicy policy;
  ORVEL_RETURN_IF_ERROR(ParseConflictPolicy(ctx.args["conflict"], "stop", &policy));
  const std::string dest = ctx.args["dest"].asString();
  StoreLease store;
  ORVEL_RETURN_IF_ERROR(ctx.d->pool->Acquire(&store));
  ctx.result["items"] = PObject::MakeArray();
  StageProgress progress;
  progress.task = &ctx;
  const int tmp = ctx.d->dirs.tmp();
  const PObject::Array& paths = ctx.args["paths"].asArray();
  for (size_t i = 0; i < paths.size(); ++i) {
    const std::string& src = paths[i].asString();
    ItemAt from;
    ORVEL_RETURN_IF_ERROR(OpenServerPath(*ctx.d, ctx.caller.user.name, src, &from));
    const std::string temp = ctx.TempName("import-" + std::to_string(i));
    TempEntryGuard guard(tmp, temp);
    StagedNode staged;
    ORVEL_RETURN_IF_ERROR(
        StageFromDisk(from.dir.get(), from.name, src, tmp, temp, ctx.caller.user.name, &progress, &staged));
    ORVEL_RETURN_IF_ERROR(PlaceInto(ctx, store.get(), dest, staged, temp, policy, src));
  }
  ctx.Progress(progress.items, progress.items, progress.bytes, progress.bytes);
  return Status::OK();
}

Status RunConvertTask(TaskContext& ctx) {
  ConflictPolicy policy;
  ORVEL_RETURN_IF_ERROR(ParseConflictPolicy(ctx.args["conflict"], "autorename", &policy));
  const std::string dest = ctx.args["dest"].asString();
  const std::string soffice = FindSoffice(ctx.d->config.GetOfficeConverter());
  if (soffice.empty()) return Status(kErrNoConverter, "converter not available: soffice is not installed");
  StoreLease store;
  ORVEL_RETURN_IF_ERROR(ctx.d->pool->Acquire(&store));
  ctx.result["items"] = PObject::MakeArray();
  const int tmp = ctx.d->dirs.tmp();
  const std::string profile = ctx.TempPath("profile");
  if (mkdirat(tmp, ctx.TempName("profile").c_str(), 0700) != 0) return FsError("mkdir", profile, errno);
  TempEntryGuard profile_guard(tmp, ctx.TempName("profile"));
  const PObject::Array& ids = ctx.args["sources"].asArray();
  for (size_t i = 0; i < ids.size(); ++i) {
    ItemRef ref;
    ref.kind = ItemRef::Kind::kId;
    ref.key = ids[i].asString();
    Resolved src;
    ORVEL_RETURN_IF_ERROR(ResolveRef(*ctx.d, store.get(), ctx.caller, ref, &src));
    const std::string format = OfficeTargetFormat(src.node.name);
    if (format.empty() || src.node.is_dir() || src.node.is_link())
      return Status(kErrNotConvertible, "conversion not supported for this type: " + src.ViewPath());
    // soffice reads a hard link of the document opened beneath the space.
    const std::string n = std::to_string(i);
    const std::string in_name = ctx.TempName("conv-" + n + "-in"), out_name = ctx.TempName("conv-" + n);
    TempEntryGuard in_guard(tmp, in_name), out_guard(tmp, out_name), log_guard(tmp, out_name + ".log");
    ScopedFd in_dir, out_dir, doc;
    ItemAt at;
    ORVEL_RETURN_IF_ERROR(OpenItemAt(*ctx.d, src.node.owner, src.components, &at));
    ORVEL_RETURN_IF_ERROR(OpenFileAt(at.dir.get(), at.name, at.path, &doc));
    for (const std::string* name : {&in_name, &out_name}) {
      if (mkdirat(tmp, name->c_str(), 0700) != 0) return FsError("mkdir", ctx.TempPath(*name), errno);
    }
    ORVEL_RETURN_IF_ERROR(OpenFolderAt(tmp, in_name, in_name, &in_dir));
    ORVEL_RETURN_IF_ERROR(OpenFolderAt(tmp, out_name, out_name, &out_dir));
    ORVEL_RETURN_IF_ERROR(LinkFdAt(doc.get(), in_dir.get(), src.node.name, src.ViewPath()));
    std::string output;
    ORVEL_RETURN_IF_ERROR(RunSoffice(ctx, soffice, ctx.d->layout.tmp + "/" + in_name + "/" + src.node.name, format,
                                     ctx.d->layout.tmp + "/" + out_name, profile, &output));
    const std::string temp = ctx.TempName("conv-" + n + "-out");
    TempEntryGuard guard(tmp, temp);
    StageProgress progress;
    StagedNode staged;
    ORVEL_RETURN_IF_ERROR(StageFromDisk(out_dir.get(), output.substr(output.find_last_of('/') + 1), output, tmp,
                                        temp, ctx.caller.user.name, &progress, &staged));
    ORVEL_RETURN_IF_ERROR(PlaceInto(ctx, store.get(), dest, staged, temp, policy, src.ViewPath()));
    ctx.Progress(i + 1, ids.size());
  }
  return Status::OK();
}

}  // namespace orvel::syncd
