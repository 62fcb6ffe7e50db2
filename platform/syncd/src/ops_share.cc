// The owner's sharing ops: sharing_list (the shares and links of an item),
// share and unshare (with a user or a group, with a role). Only the item's
// owner shares: sharing widens who sees the owner's data, so an editor of a
// shared folder may change its files but not who else sees them
// (docs/browse.md, "Sharing"). Administrators reach these ops through
// orvelctl, acting as the owner with "sudo" from a root peer.
#include "access.h"
#include "ops_browse.h"
#include "ops_links.h"

namespace orvel::syncd {
namespace {

// The member a share names; unknown users and groups are refused.
Status ShareMember(RequestContext& ctx, const PObject& args, Share* sh) {
  ORVEL_RETURN_IF_ERROR(ArgString(args, "kind", &sh->kind));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "name", &sh->name));
  if (sh->kind.empty()) sh->kind = "user";
  if (sh->kind != "user" && sh->kind != "group")
    return Status(kErrInvalidArgument, "share kind must be user or group: \"" + sh->kind + "\"");
  if (sh->name.empty()) return Status(kErrInvalidArgument, "argument \"name\" is required");
  if (sh->kind == "group") {
    Status st = ctx.d->users->FindGroup(sh->name);
    return st.code() == kErrNotFound ? Status(kErrInvalidArgument, st.message()) : st;
  }
  if (sh->name == ctx.caller.user.name) return Status(kErrInvalidArgument, "an owner cannot share with itself");
  UserRecord rec;
  Status st = ctx.d->users->Lookup(sh->name, &rec);
  return st.code() == kErrPermission ? Status(kErrInvalidArgument, st.message()) : st;
}

}  // namespace

Status ResolveOwnedItem(RequestContext& ctx, const PObject& args, bool to_share, Access* out) {
  std::string path;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  if (path.empty()) return Status(kErrInvalidArgument, "argument \"path\" is required");
  Status st = ResolveAccess(ctx, path, out);
  // An item the caller may not see answers exactly as an unknown one.
  if (st.code() == kErrPermission) return Status(kErrNotFound, "item not found: " + path);
  ORVEL_RETURN_IF_ERROR(st);
  if (out->role != Role::kOwner) return Status(kErrPermission, "permission denied: only the owner shares " + path);
  if (to_share && out->node.parent_id.empty())
    return Status(kErrInvalidArgument, "a whole space cannot be shared");
  return Status::OK();
}

Status OpSharingList(RequestContext& ctx, const PObject& args, PObject* result) {
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveOwnedItem(ctx, args, false, &item));
  std::vector<Share> shares;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->SharesOf(item.node.file_id, &shares));
  std::vector<SharingLink> links;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->LinksOf(item.node.file_id, &links));
  PObject record;
  ORVEL_RETURN_IF_ERROR(AccessRecord(ctx, item, &record));
  PObject share_list = PObject::MakeArray();
  for (const Share& s : shares) {
    PObject p = PObject::MakeMap();
    p["kind"] = s.kind;
    p["name"] = s.name;
    p["role"] = s.role;
    share_list.push_back(std::move(p));
  }
  PObject link_list = PObject::MakeArray();
  for (const SharingLink& l : links) link_list.push_back(LinkRecord(l));
  (*result)["item"] = std::move(record);
  (*result)["shares"] = std::move(share_list);
  (*result)["links"] = std::move(link_list);
  return Status::OK();
}

Status OpShare(RequestContext& ctx, const PObject& args, PObject*) {
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveOwnedItem(ctx, args, true, &item));
  Share sh;
  ORVEL_RETURN_IF_ERROR(ShareMember(ctx, args, &sh));
  std::string role = "viewer";
  ORVEL_RETURN_IF_ERROR(ArgString(args, "role", &role));
  Role r = ParseRole(role);
  if (r == Role::kNone || r == Role::kOwner)
    return Status(kErrInvalidArgument, "role must be viewer, commenter or editor: \"" + role + "\"");
  sh.file_id = item.node.file_id;
  sh.owner = ctx.caller.user.name;
  sh.role = role;
  return ctx.store->browse()->AddShare(sh);
}

Status OpUnshare(RequestContext& ctx, const PObject& args, PObject*) {
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveOwnedItem(ctx, args, false, &item));
  Share sh;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "kind", &sh.kind));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "name", &sh.name));
  if (sh.kind.empty()) sh.kind = "user";
  if (sh.name.empty()) return Status(kErrInvalidArgument, "argument \"name\" is required");
  return ctx.store->browse()->RemoveShare(item.node.file_id, sh.kind, sh.name);
}

}  // namespace orvel::syncd
