// Ancestors, backup tasks and access requests as callers see them, and the
// administrator's ops behind orvelctl: removing any sharing link, backup
// tasks, the access requests of an owner. (Sharing itself is the owner's:
// ops_share.cc, ops_links.cc.)
#include <ctime>

#include "access.h"
#include "ops_browse.h"

namespace orvel::syncd {
namespace {

// A user of the user database acting on its own space (admin ops).
Status OwnerCaller(RequestContext& ctx, const PObject& args, const char* key, Caller* out) {
  std::string name;
  ORVEL_RETURN_IF_ERROR(ArgString(args, key, &name));
  if (name.empty()) return Status(kErrInvalidArgument, std::string("argument \"") + key + "\" is required");
  ORVEL_RETURN_IF_ERROR(ctx.d->users->Lookup(name, &out->user));
  out->peer_uid = ctx.peer_uid;
  return Status::OK();
}

Status OwnItem(RequestContext& ctx, const Caller& owner, const PObject& args, Resolved* out) {
  std::string path;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  ItemRef ref;
  ORVEL_RETURN_IF_ERROR(ParseItemRef(path, &ref));
  return ResolveRef(*ctx.d, ctx.store.get(), owner, ref, out);
}

}  // namespace

Status OpListAncestor(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string path;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, path, &item));
  std::vector<Access> chain;
  ORVEL_RETURN_IF_ERROR(AccessAncestors(ctx, item, &chain));
  const size_t total = chain.size();
  PObject items;
  ORVEL_RETURN_IF_ERROR(AccessItemsPacked(ctx, std::move(chain), &items));
  (*result)["items"] = std::move(items);
  (*result)["total"] = static_cast<unsigned long long>(total);
  return Status::OK();
}

Status OpListBackups(RequestContext& ctx, const PObject&, PObject* result) {
  std::vector<BackupTask> tasks;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->ListBackups(ctx.caller.user.name, &tasks));
  PObject list = PObject::MakeArray();
  for (const BackupTask& t : tasks) {
    PObject p = PObject::MakeMap();
    p["task_id"] = t.task_id;
    p["name"] = t.name;
    p["target"] = "id:" + t.target;
    list.push_back(std::move(p));
  }
  (*result)["tasks"] = std::move(list);
  return Status::OK();
}

Status OpRequestAccess(RequestContext& ctx, const PObject& args, PObject*) {
  std::string path;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  if (path.empty()) return Status(kErrInvalidArgument, "argument \"path\" names no item");
  ItemRef ref;
  ORVEL_RETURN_IF_ERROR(ParseItemRef(path, &ref));
  if (ref.kind == ItemRef::Kind::kMyDrive)
    return Status(kErrInvalidArgument, "access is requested for another user's item (id: or link:), not " + path);
  Node n;
  Status st = ref.kind == ItemRef::Kind::kId ? ctx.store->GetById(ref.key, &n) : ctx.store->GetByLink(ref.key, &n);
  if (st.code() == kErrNotFound || (st.ok() && n.vanished)) return Status(kErrNotFound, "item not found: " + path);
  ORVEL_RETURN_IF_ERROR(st);
  if (n.owner == ctx.caller.user.name) return Status(kErrInvalidArgument, "the caller owns " + path);
  Access a;
  st = ResolveAccess(ctx, path, &a);
  if (st.ok()) return Status(kErrInvalidArgument, "the caller can already open " + path);
  if (st.code() != kErrPermission && st.code() != kErrSharingToken) return st;
  AccessRequest req{n.file_id, ctx.caller.user.name, n.owner, static_cast<int64_t>(time(nullptr))};
  return ctx.store->browse()->AddAccessRequest(req);
}

Status OpAdminLinkRemove(RequestContext& ctx, const PObject& args, PObject*) {
  std::string token;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "token", &token));
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->RemoveLink(token));
  return tx.Commit();
}

Status OpAdminBackupAdd(RequestContext& ctx, const PObject& args, PObject* result) {
  Caller user;
  ORVEL_RETURN_IF_ERROR(OwnerCaller(ctx, args, "user", &user));
  std::string name;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "name", &name));
  if (name.empty()) return Status(kErrInvalidArgument, "argument \"name\" is required");
  Resolved target;
  Status st = OwnItem(ctx, user, args, &target);
  if (st.code() == kErrNotFound || st.code() == kErrNotFolder)
    return Status(kErrBackupTargetNotFound, "backup target not found: " + args["path"].asString());
  ORVEL_RETURN_IF_ERROR(st);
  if (!target.node.is_dir())
    return Status(kErrBackupTargetNotFound, "backup target is not a folder: " + target.ViewPath());
  BackupTask t{NewFileId(), user.user.name, name, target.node.file_id};
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->AddBackup(t));
  (*result)["task_id"] = t.task_id;
  return Status::OK();
}

Status OpAdminBackupRemove(RequestContext& ctx, const PObject& args, PObject*) {
  Caller user;
  ORVEL_RETURN_IF_ERROR(OwnerCaller(ctx, args, "user", &user));
  std::string task_id;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "task_id", &task_id));
  return ctx.store->browse()->RemoveBackup(user.user.name, task_id);
}

Status OpAdminAccessRequests(RequestContext& ctx, const PObject& args, PObject* result) {
  Caller owner;
  ORVEL_RETURN_IF_ERROR(OwnerCaller(ctx, args, "owner", &owner));
  std::vector<AccessRequest> reqs;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->ListAccessRequests(owner.user.name, &reqs));
  PObject list = PObject::MakeArray();
  for (const AccessRequest& r : reqs) {
    PObject p = PObject::MakeMap();
    p["file_id"] = r.file_id;
    Resolved item;
    ItemRef ref;
    ref.kind = ItemRef::Kind::kId;
    ref.key = r.file_id;
    p["path"] = ResolveRef(*ctx.d, ctx.store.get(), owner, ref, &item).ok() ? item.ViewPath() : "";
    p["requester"] = r.requester;
    p["at"] = static_cast<long long>(r.at);
    list.push_back(std::move(p));
  }
  (*result)["requests"] = std::move(list);
  return Status::OK();
}

}  // namespace orvel::syncd
