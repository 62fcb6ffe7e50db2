// download, download_dry_run and download_task_result. One file is handed
// over as a hard link in the caller's temp folder (which must lie in the
// data folder's @tmp, so that the link is on the same file system and the
// web module can queue the folder for removal); a folder or several items
// become a "download" task that stages a tree of hard links, fetched later
// with download_task_result (which waits for the task to end).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "access.h"
#include "hooks.h"
#include "jobs.h"
#include "log.h"
#include "orvelcommon/utf8.h"
#include "space_fs.h"
#include "ops_transfer.h"
#include "tasks.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

constexpr int64_t kResultWaitMs = 280 * 1000;  // under the client's 300 s time-out
// A handed-out staging is the module's to remove after its stream; if the
// module never gets there (killed mid-stream), the daemon removes it then.
constexpr unsigned kStagingKeepSeconds = 6 * 3600;

Status ReadSelection(RequestContext& ctx, const PObject& args, std::vector<Resolved>* items) {
  std::vector<std::string> files;
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "files", &files));
  if (files.empty()) return Status(kErrInvalidArgument, "no items given");
  return ResolveAllForTransfer(ctx, files, TransferUse::kRead, items);
}

// Hands the regular file `f` over as dst_name in the folder dst_dir: a hard
// link of the inode opened beneath the owner's space (or, where a link is
// not possible, a copy). A symbolic link item, or a link found on the way,
// is refused: its target is never served.
Status HandOver(Daemon& d, const Resolved& f, int dst_dir, const std::string& dst_name, const std::string& dst) {
  if (f.node.is_link()) return Status(kErrPermission, "symbolic link not followed: " + f.ViewPath());
  ItemAt at;
  ScopedFd in;
  Status st = OpenItemAt(d, f.node.owner, f.components, &at);
  if (st.ok()) st = OpenFileAt(at.dir.get(), at.name, at.path, &in);
  if (st.code() == kErrNotFound) return Status(kErrDataMissing, "data file missing: " + at.path);
  ORVEL_RETURN_IF_ERROR(st);
  st = LinkFdAt(in.get(), dst_dir, dst_name, dst);
  if (st.ok() || st.code() == kErrNameExists) return st;
  ScopedFd out;
  ORVEL_RETURN_IF_ERROR(CreateFileAt(dst_dir, dst_name, 0640, dst, &out));
  TempEntryGuard guard(dst_dir, dst_name);
  ORVEL_RETURN_IF_ERROR(CopyFileContent(in.get(), out.get(), dst));
  guard.Cancel();
  return Status::OK();
}

// Whose tasks the caller's are: the user's, or a visitor's link's.
std::string CallerTaskOwner(const RequestContext& ctx) {
  return IsVisitor(ctx) ? VisitorTaskOwner(ctx.sharing_token) : ctx.caller.user.name;
}

Status OwnTask(RequestContext& ctx, const PObject& args, TaskRunner** runner, TaskRow* row) {
  std::string id;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "task_id", &id));
  *runner = ctx.d->tasks;
  if (!*runner) return Status(kErrBusy, "tasks are not available");
  if (id.empty()) return Status(kErrInvalidArgument, "no task_id given");
  if (IsVisitor(ctx)) {  // the link must still be valid, as for any visitor op
    Access link;
    ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, "/", &link));
  }
  Status st = (*runner)->Get(id, row);
  if (st.code() == kErrTaskNotFound || (st.ok() && row->owner != CallerTaskOwner(ctx)))
    return Status(kErrTaskNotFound, "task not found: " + id);
  return st;
}

// The error a task ended with, as the op's answer.
Status TaskOutcome(const TaskRow& row) {
  if (row.state == "finished") return Status::OK();
  if (row.state == "cancelled") return Status(kErrTaskCancelled, "task cancelled: " + row.task_id);
  if (row.state == "failed")
    return Status(row.error_code ? row.error_code : kErrTaskFailed, row.error_message);
  return Status(kErrBusy, "task is still " + row.state + ": " + row.task_id);
}

}  // namespace

Status OpDownload(RequestContext& ctx, const PObject& args, PObject* result) {
  std::vector<Resolved> items;
  ORVEL_RETURN_IF_ERROR(ReadSelection(ctx, args, &items));
  if (items.size() > 1 || items.front().node.is_dir()) {
    TaskRunner* runner = ctx.d->tasks;
    if (!runner) return Status(kErrBusy, "tasks are not available");
    PObject a = PObject::MakeMap();
    a["sources"] = PObject::MakeArray();
    for (const Resolved& r : items) a["sources"].push_back(r.node.file_id);
    if (IsVisitor(ctx)) {  // the task reads through the same link when it runs
      a["sharing_token"] = ctx.sharing_token;
      a["forward_ip"] = ctx.forward_ip;
    }
    std::string id;
    ORVEL_RETURN_IF_ERROR(runner->Submit("download", CallerTaskOwner(ctx), a, &id));
    (*result)["task_id"] = id;
    return Status::OK();
  }
  std::string temp_dir;
  ScopedFd dir;
  ORVEL_RETURN_IF_ERROR(OpenDownloadFolder(*ctx.d, args, &temp_dir, &dir));
  const Resolved& f = items.front();
  const std::string dst = temp_dir + "/" + f.node.name;
  ORVEL_RETURN_IF_ERROR(HandOver(*ctx.d, f, dir.get(), f.node.name, dst));
  RunHook("download-file-linked");
  (*result)["file_path"] = dst;
  (*result)["file_name"] = orvel::ValidUtf8(f.node.name);  // the name the browser saves: valid UTF-8
  return Status::OK();
}

Status OpenDownloadFolder(const Daemon& d, const PObject& args, std::string* temp_dir, ScopedFd* dir) {
  ORVEL_RETURN_IF_ERROR(ArgString(args, "temp_dir", temp_dir));
  while (temp_dir->size() > 1 && temp_dir->back() == '/') temp_dir->pop_back();
  ORVEL_RETURN_IF_ERROR(CheckUnlinkPath(*temp_dir, d.layout.tmp));
  Status st = OpenTmpFolder(d, *temp_dir, dir);
  if (st.code() == kErrPermission) return st;
  if (!st.ok()) return Status(kErrNotFolder, "temp_dir is not a folder: " + *temp_dir);
  return Status::OK();
}

Status OpDownloadDryRun(RequestContext& ctx, const PObject& args, PObject* result) {
  std::vector<Resolved> items;
  ORVEL_RETURN_IF_ERROR(ReadSelection(ctx, args, &items));
  TreeCount count;
  for (const Resolved& r : items) ORVEL_RETURN_IF_ERROR(CountSubtree(ctx.store.get(), r.node, &count));
  (*result)["items"] = static_cast<unsigned long long>(count.items);
  (*result)["size"] = static_cast<unsigned long long>(count.bytes);
  (*result)["archive"] = items.size() > 1 || items.front().node.is_dir();
  return Status::OK();
}

Status OpDownloadTaskResult(RequestContext& ctx, const PObject& args, PObject* result) {
  TaskRunner* runner = nullptr;
  TaskRow row;
  ORVEL_RETURN_IF_ERROR(OwnTask(ctx, args, &runner, &row));
  if (row.kind != "download") return Status(kErrInvalidArgument, "not a download task: " + row.task_id);
  ORVEL_RETURN_IF_ERROR(runner->Wait(row.task_id, kResultWaitMs, &row));
  ORVEL_RETURN_IF_ERROR(TaskOutcome(row));
  PObject task = TaskToPObject(row);
  const std::string path = task["result"]["path"].asString();
  std::string rel;
  struct stat st;
  if (!TmpRelative(ctx.d->layout, path, &rel).ok() ||
      fstatat(ctx.d->dirs.tmp(), rel.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    return Status(kErrNotFound, "the download of task " + row.task_id + " is no longer available");
  if (ctx.d->jobs) {
    Status queued = ctx.d->jobs->PushUnlink(path, kStagingKeepSeconds);
    if (!queued.ok()) SLOG_WARN("download %s: %s", row.task_id.c_str(), queued.ToString().c_str());
  }
  (*result)["path"] = path;
  return Status::OK();
}

Status OpTaskGet(RequestContext& ctx, const PObject& args, PObject* result) {
  TaskRunner* runner = nullptr;
  TaskRow row;
  ORVEL_RETURN_IF_ERROR(OwnTask(ctx, args, &runner, &row));
  (*result)["task"] = TaskToPObject(row);
  return Status::OK();
}

Status OpTaskCancel(RequestContext& ctx, const PObject& args, PObject* result) {
  TaskRunner* runner = nullptr;
  TaskRow row;
  ORVEL_RETURN_IF_ERROR(OwnTask(ctx, args, &runner, &row));
  ORVEL_RETURN_IF_ERROR(runner->Cancel(row.task_id));
  ORVEL_RETURN_IF_ERROR(runner->Get(row.task_id, &row));
  (*result)["task"] = TaskToPObject(row);
  return Status::OK();
}

Status OpAdminTaskList(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string owner;
  uint64_t limit = 100;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "owner", &owner));
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "limit", &limit));
  if (!ctx.d->tasks) return Status(kErrBusy, "tasks are not available");
  std::vector<TaskRow> rows;
  ORVEL_RETURN_IF_ERROR(ctx.d->tasks->List(owner, limit ? limit : 100, &rows));
  PObject list = PObject::MakeArray();
  for (const TaskRow& r : rows) list.push_back(TaskToPObject(r));
  (*result)["tasks"] = list;
  return Status::OK();
}

Status OpAdminTaskShow(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string id;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "task_id", &id));
  if (!ctx.d->tasks) return Status(kErrBusy, "tasks are not available");
  TaskRow row;
  ORVEL_RETURN_IF_ERROR(ctx.d->tasks->Get(id, &row));
  (*result)["task"] = TaskToPObject(row);
  return Status::OK();
}

Status OpAdminTaskCancel(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string id;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "task_id", &id));
  if (!ctx.d->tasks) return Status(kErrBusy, "tasks are not available");
  ORVEL_RETURN_IF_ERROR(ctx.d->tasks->Cancel(id));
  TaskRow row;
  ORVEL_RETURN_IF_ERROR(ctx.d->tasks->Get(id, &row));
  (*result)["task"] = TaskToPObject(row);
  return Status::OK();
}

}  // namespace orvel::syncd
