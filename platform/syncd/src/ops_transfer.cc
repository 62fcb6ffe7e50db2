// copy, move, delete, convert_office and upload_from_tpx (submission) and
// the copy/move dry runs. See ops_transfer.h and docs/transfer.md.
#include <climits>
#include <cstdlib>

#include "convert.h"
#include "name_forms.h"
#include "ops_transfer.h"
#include "tasks.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

constexpr size_t kMaxItems = 10000;

Status Runner(RequestContext& ctx, TaskRunner** out) {
  *out = ctx.d->tasks;
  if (!*out) return Status(kErrBusy, "tasks are not available");
  return Status::OK();
}

Status ReadFiles(const PObject& args, std::vector<std::string>* files) {
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "files", files));
  if (files->empty()) return Status(kErrInvalidArgument, "no items given");
  if (files->size() > kMaxItems)
    return Status(kErrTooManyItems, "too many items in one request: " + std::to_string(files->size()));
  return Status::OK();
}

PObject Ids(const std::vector<Resolved>& items) {
  PObject a = PObject::MakeArray();
  for (const Resolved& r : items) a.push_back(r.node.file_id);
  return a;
}

Status Submit(RequestContext& ctx, const char* kind, const PObject& task_args, PObject* result) {
  TaskRunner* runner = nullptr;
  ORVEL_RETURN_IF_ERROR(Runner(ctx, &runner));
  std::string id;
  ORVEL_RETURN_IF_ERROR(runner->Submit(kind, ctx.caller.user.name, task_args, &id));
  (*result)["task_id"] = id;
  return Status::OK();
}

// The parsed and checked arguments of copy and move.
struct ItemRequest {
  std::vector<Resolved> sources;
  Resolved dest;
  ConflictPolicy policy;
  std::string change_name;
};

Status ReadItemRequest(RequestContext& ctx, const PObject& args, bool move, ItemRequest* r) {
  std::vector<std::string> files;
  std::string dest;
  ORVEL_RETURN_IF_ERROR(ReadFiles(args, &files));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "dest", &dest));
  if (dest.empty()) return Status(kErrInvalidArgument, "no destination folder given");
  ORVEL_RETURN_IF_ERROR(ParseConflictPolicy(args["conflict"], "autorename", &r->policy));
  if (move) {
    ORVEL_RETURN_IF_ERROR(ArgString(args, "change_name", &r->change_name));
    r->change_name = NormalizeName(r->change_name);
    if (!r->change_name.empty()) {
      ORVEL_RETURN_IF_ERROR(ValidateName(r->change_name));
      if (files.size() != 1) return Status(kErrInvalidArgument, "change_name needs exactly one item");
    }
  }
  const TransferUse use = move ? TransferUse::kTakeOut : TransferUse::kRead;
  ORVEL_RETURN_IF_ERROR(ResolveAllForTransfer(ctx, files, use, &r->sources));
  ORVEL_RETURN_IF_ERROR(ResolveForTransfer(ctx, dest, TransferUse::kWriteInto, &r->dest));
  for (const Resolved& s : r->sources) {
    if (s.components.empty())
      return Status(kErrInvalidArgument, std::string("cannot ") + (move ? "move" : "copy") + " /mydrive itself");
    if (move && s.node.owner != r->dest.node.owner)
      return Status(kErrPermission, "permission denied: " + s.ViewPath() + " cannot move to another user's space; copy it");
    if (s.node.is_dir() && IsSameOrBelow(r->dest, s))
      return Status(kErrIntoItself, std::string("cannot ") + (move ? "move" : "copy") +
                                        " a folder into itself: " + s.ViewPath());
  }
  return Status::OK();
}

PObject ItemTaskArgs(const ItemRequest& r) {
  PObject a = PObject::MakeMap();
  a["sources"] = Ids(r.sources);
  a["dest"] = r.dest.node.file_id;
  a["conflict"] = ConflictPolicyToPObject(r.policy);
  a["change_name"] = r.change_name;
  return a;
}

// {"items", "size", "conflicts": [{"source", "target", "is_dir", "policy"}]}.
Status DryRun(RequestContext& ctx, const PObject& args, bool move, PObject* result) {
  ItemRequest r;
  ORVEL_RETURN_IF_ERROR(ReadItemRequest(ctx, args, move, &r));
  TreeCount count;
  PObject conflicts = PObject::MakeArray();
  for (const Resolved& s : r.sources) {
    ORVEL_RETURN_IF_ERROR(CountSubtree(ctx.store.get(), s.node, &count));
    std::string name = r.change_name.empty() ? s.node.name : r.change_name;
    if (move && s.node.parent_id == r.dest.node.file_id && name == s.node.name) continue;
    Node existing;
    Status st = ctx.store->GetChild(r.dest.node.file_id, name, &existing);
    if (st.code() == kErrNotFound) continue;
    ORVEL_RETURN_IF_ERROR(st);
    PObject c = PObject::MakeMap();
    c["source"] = s.ViewPath();
    c["target"] = r.dest.ViewPath() + "/" + name;
    c["is_dir"] = existing.is_dir();
    c["policy"] = r.policy.For(s.node.is_dir());
    conflicts.push_back(c);
  }
  (*result)["items"] = static_cast<unsigned long long>(count.items);
  (*result)["size"] = static_cast<unsigned long long>(count.bytes);
  (*result)["conflicts"] = conflicts;
  return Status::OK();
}

std::string RealPathOf(const std::string& p) {
  char buf[PATH_MAX];
  return realpath(p.c_str(), buf) ? std::string(buf) : std::string();
}

// A server path the caller may import: its real path inside a share that
// names the caller (or "*"), and not inside the data folder.
Status CheckServerPath(RequestContext& ctx, const std::string& path, std::string* real) {
  if (path.empty() || path[0] != '/') return Status(kErrServerPathRefused, "server path not allowed: " + path);
  *real = RealPathOf(path);
  if (real->empty()) {
    if (errno == ENOENT || errno == ENOTDIR) return Status(kErrServerPathMissing, "server path not found: " + path);
    return Status(kErrServerPathRefused, "server path not allowed: " + path);
  }
  std::string root;
  if (!ServerShareOf(*ctx.d, ctx.caller.user.name, *real, &root).ok())
    return Status(kErrServerPathRefused, "server path not allowed: " + path);
  return Status::OK();
}

// Only the owner empties an item from the recycle bin.
Status CheckOwnRemoved(RequestContext& ctx, const std::string& id) {
  Node n;
  ORVEL_RETURN_IF_ERROR(ctx.store->GetById(id, &n));
  if (n.owner != ctx.caller.user.name)
    return Status(kErrPermission, "permission denied: only the owner can delete id:" + id + " for good");
  return Status::OK();
}

}  // namespace

Status OpCopyDryRun(RequestContext& ctx, const PObject& args, PObject* result) {
  return DryRun(ctx, args, false, result);
}

Status OpMoveDryRun(RequestContext& ctx, const PObject& args, PObject* result) {
  return DryRun(ctx, args, true, result);
}

Status OpCopy(RequestContext& ctx, const PObject& args, PObject* result) {
  ItemRequest r;
  ORVEL_RETURN_IF_ERROR(ReadItemRequest(ctx, args, false, &r));
  return Submit(ctx, "copy", ItemTaskArgs(r), result);
}

Status OpMove(RequestContext& ctx, const PObject& args, PObject* result) {
  ItemRequest r;
  ORVEL_RETURN_IF_ERROR(ReadItemRequest(ctx, args, true, &r));
  return Submit(ctx, "move", ItemTaskArgs(r), result);
}

Status OpDelete(RequestContext& ctx, const PObject& args, PObject* result) {
  std::vector<std::string> files;
  bool permanent = false;
  ORVEL_RETURN_IF_ERROR(ReadFiles(args, &files));
  ORVEL_RETURN_IF_ERROR(ArgBool(args, "permanent", &permanent));
  PObject ids = PObject::MakeArray();
  for (const std::string& f : files) {
    Resolved r;
    Status st = ResolveForTransfer(ctx, f, TransferUse::kTakeOut, &r);
    if (st.code() == kErrInRecycleBin && permanent) {  // emptying it from the recycle bin (by id:)
      ItemRef ref;
      ORVEL_RETURN_IF_ERROR(ParseItemRef(f, &ref));
      ORVEL_RETURN_IF_ERROR(CheckOwnRemoved(ctx, ref.key));
      ids.push_back(ref.key);
      continue;
    }
    ORVEL_RETURN_IF_ERROR(st);
    if (r.components.empty()) return Status(kErrInvalidArgument, "cannot delete /mydrive itself");
    ids.push_back(r.node.file_id);
  }
  PObject a = PObject::MakeMap();
  a["sources"] = ids;
  a["permanent"] = permanent;
  return Submit(ctx, "delete", a, result);
}

Status OpConvertOffice(RequestContext& ctx, const PObject& args, PObject* result) {
  std::vector<std::string> files;
  std::string dest;
  ConflictPolicy policy;
  ORVEL_RETURN_IF_ERROR(ReadFiles(args, &files));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "dest", &dest));
  ORVEL_RETURN_IF_ERROR(ParseConflictPolicy(args["conflict"], "autorename", &policy));
  std::vector<Resolved> sources;
  ORVEL_RETURN_IF_ERROR(ResolveAll(*ctx.d, ctx.store.get(), ctx.caller, files, &sources));
  for (const Resolved& s : sources) {
    if (s.node.is_dir() || s.node.is_link() || OfficeTargetFormat(s.node.name).empty())
      return Status(kErrNotConvertible, "conversion not supported for this type: " + s.ViewPath());
  }
  if (FindSoffice(ctx.d->config.GetOfficeConverter()).empty())
    return Status(kErrNoConverter, "converter not available: soffice is not installed");
  Resolved folder;
  if (!dest.empty()) ORVEL_RETURN_IF_ERROR(ResolveFolder(*ctx.d, ctx.store.get(), ctx.caller, dest, &folder));
  // Without a destination each document is converted beside itself; the
  // task converts per destination, so split by folder.
  PObject a = PObject::MakeMap();
  a["sources"] = Ids(sources);
  a["dest"] = dest.empty() ? sources.front().node.parent_id : folder.node.file_id;
  a["conflict"] = ConflictPolicyToPObject(policy);
  if (dest.empty()) {
    for (const Resolved& s : sources) {
      if (s.node.parent_id != sources.front().node.parent_id)
        return Status(kErrInvalidArgument, "documents from several folders need a destination folder");
    }
  }
  return Submit(ctx, "convert_office", a, result);
}

Status OpUploadFromTpx(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string path;
  std::vector<std::string> paths;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "tpx_paths", &paths));
  ConflictPolicy policy;
  ORVEL_RETURN_IF_ERROR(ParseConflictPolicy(args["conflict_policy"], "stop", &policy));
  if (paths.empty()) return Status(kErrInvalidArgument, "no server paths given");
  if (paths.size() > kMaxItems)
    return Status(kErrTooManyItems, "too many items in one request: " + std::to_string(paths.size()));
  Resolved dest;
  ORVEL_RETURN_IF_ERROR(ResolveFolder(*ctx.d, ctx.store.get(), ctx.caller, path, &dest));
  PObject reals = PObject::MakeArray();
  for (const std::string& p : paths) {
    std::string real;
    ORVEL_RETURN_IF_ERROR(CheckServerPath(ctx, p, &real));
    reals.push_back(real);
  }
  PObject a = PObject::MakeMap();
  a["dest"] = dest.node.file_id;
  a["conflict"] = ConflictPolicyToPObject(policy);
  a["paths"] = reals;
  return Submit(ctx, "upload_from_tpx", a, result);
}

}  // namespace orvel::syncd
