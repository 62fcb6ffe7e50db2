// The task functions of server-path import and office conversion. Both
// stage new content under a task temp name (a copy of the server path, or
// soffice's output), flush it, and place it in the destination folder with
// the task's conflict policy. Results: {"items": [{"source", "path",
// "file_id", "skipped"}]}.
#include <sys/stat.h>

#include <cerrno>
#include <mutex>

#include "convert.h"
#include "tasks.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

void AddResult(TaskContext& ctx, const std::string& source, const PlaceOutcome& o) {
  PObject e = PObject::MakeMap();
  e["source"] = source;
  e["path"] = MyDrivePath(o.components);
  e["file_id"] = o.node.file_id;
  e["skipped"] = o.skipped;
  ctx.result["items"].push_back(e);
}

// Places one staged item into the folder with id dest_id.
Status PlaceInto(TaskContext& ctx, Store* store, const std::string& dest_id, StagedNode& staged,
                 const std::string& temp, const ConflictPolicy& policy, const std::string& source) {
  ORVEL_RETURN_IF_ERROR(FlushFileSystem(temp));
  std::lock_guard<std::mutex> lock(ctx.d->write_mu);
  Resolved dest;
  ORVEL_RETURN_IF_ERROR(ResolveFolderById(*ctx.d, store, ctx.caller, dest_id, &dest));
  PlaceOutcome o;
  ORVEL_RETURN_IF_ERROR(PlaceStaged(*ctx.d, store, dest, staged, temp, policy, &o));
  AddResult(ctx, source, o);
  return Status::OK();
}

}  // namespace

Status RunImportTask(TaskContext& ctx) {
  ConflictPolicy policy;
  ORVEL_RETURN_IF_ERROR(ParseConflictPolicy(ctx.args["conflict"], "stop", &policy));
  const std::string dest = ctx.args["dest"].asString();
  StoreLease store;
  ORVEL_RETURN_IF_ERROR(ctx.d->pool->Acquire(&store));
  ctx.result["items"] = PObject::MakeArray();
  StageProgress progress;
  progress.task = &ctx;
  const PObject::Array& paths = ctx.args["paths"].asArray();
  for (size_t i = 0; i < paths.size(); ++i) {
    const std::string& src = paths[i].asString();
    struct stat st;
    if (lstat(src.c_str(), &st) != 0)
      return Status(kErrServerPathMissing, "server path not found: " + src);
    const std::string temp = ctx.TempPath("import-" + std::to_string(i));
    TempPathGuard guard(temp);
    StagedNode staged;
    ORVEL_RETURN_IF_ERROR(StageFromDisk(src, temp, ctx.caller.user.name, &progress, &staged));
    ORVEL_RETURN_IF_ERROR(PlaceInto(ctx, store.get(), dest, staged, temp, policy, src));
  }
  ctx.Progress(progress.items, progress.items);
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
  const std::string profile = ctx.TempPath("profile");
  if (mkdir(profile.c_str(), 0700) != 0) return FsError("mkdir", profile, errno);
  TempPathGuard profile_guard(profile);
  const PObject::Array& ids = ctx.args["sources"].asArray();
  for (size_t i = 0; i < ids.size(); ++i) {
    ItemRef ref;
    ref.kind = ItemRef::Kind::kId;
    ref.key = ids[i].asString();
    Resolved src;
    ORVEL_RETURN_IF_ERROR(ResolveRef(*ctx.d, store.get(), ctx.caller, ref, &src));
    const std::string format = OfficeTargetFormat(src.node.name);
    if (format.empty() || src.node.is_dir())
      return Status(kErrNotConvertible, "conversion not supported for this type: " + src.ViewPath());
    const std::string out_dir = ctx.TempPath("conv-" + std::to_string(i));
    TempPathGuard out_guard(out_dir);
    if (mkdir(out_dir.c_str(), 0700) != 0) return FsError("mkdir", out_dir, errno);
    std::string output;
    ORVEL_RETURN_IF_ERROR(RunSoffice(ctx, soffice, DiskPath(ctx.d->layout, src.node.owner, src.components),
                                     format, out_dir, profile, &output));
    const std::string temp = ctx.TempPath("conv-" + std::to_string(i) + "-out");
    TempPathGuard guard(temp);
    StageProgress progress;
    StagedNode staged;
    ORVEL_RETURN_IF_ERROR(StageFromDisk(output, temp, ctx.caller.user.name, &progress, &staged));
    ORVEL_RETURN_IF_ERROR(PlaceInto(ctx, store.get(), dest, staged, temp, policy, src.ViewPath()));
    ctx.Progress(i + 1, ids.size());
  }
  return Status::OK();
}

}  // namespace orvel::syncd
