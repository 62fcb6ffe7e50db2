// Sharing links for their owner (link_create, link_update, link_delete) and
// for visitors (link_unlock). A link has a role (viewer or editor), an
// optional expiry on the service clock and an optional password, kept only as
// a hash. The item's first link gives it its permanent link, a public id
// that names the item as "link:<id>" (the secret is the token). A visitor
// who gives a password link's password receives a grant (link_secrets.h)
// that opens the link until it expires, the link's password changes or the
// link is deleted.
#include "ops_links.h"

#include "link_secrets.h"

namespace orvel::syncd {
namespace {

std::string NewToken() { return NewFileId() + NewFileId(); }  // 256 random bits

Status LinkRole(const PObject& args, std::string* role) {
  ORVEL_RETURN_IF_ERROR(ArgString(args, "role", role));
  if (*role != "viewer" && *role != "editor")
    return Status(kErrInvalidArgument, "link role must be viewer or editor: \"" + *role + "\"");
  return Status::OK();
}

// "expires" when present: 0 (never) or a time after now.
Status LinkExpiry(RequestContext& ctx, const PObject& args, int64_t* expires) {
  uint64_t at = static_cast<uint64_t>(*expires);
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "expires", &at));
  if (at > static_cast<uint64_t>(INT64_MAX)) return Status(kErrInvalidArgument, "expires is out of range");
  if (at != 0 && static_cast<int64_t>(at) <= ctx.d->config.ThrottleNow())
    return Status(kErrInvalidArgument, "expires is in the past");
  *expires = static_cast<int64_t>(at);
  return Status::OK();
}

// "password" when present: "" removes it, anything else is hashed.
Status LinkPassword(const PObject& args, std::string* hash) {
  if (args["password"].isNull()) return Status::OK();
  std::string password;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "password", &password));
  if (password.size() > kMaxLinkPasswordBytes)
    return Status(kErrInvalidArgument, "password is longer than " + std::to_string(kMaxLinkPasswordBytes) + " bytes");
  if (password.empty()) {
    hash->clear();
    return Status::OK();
  }
  return HashLinkPassword(password, hash);
}

// The caller's own link of args["token"]. A link of an item the caller may
// not see answers as an unknown token; one the caller sees but does not own
// is kErrPermission.
Status OwnedLink(RequestContext& ctx, const PObject& args, SharingLink* link) {
  std::string token;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "token", &token));
  if (token.empty()) return Status(kErrInvalidArgument, "argument \"token\" is required");
  const Status missing(kErrNotFound, "sharing link not found");
  Status st = ctx.store->browse()->GetLink(token, link);
  if (st.code() == kErrSharingToken) return missing;
  ORVEL_RETURN_IF_ERROR(st);
  if (link->owner == ctx.caller.user.name) return Status::OK();
  Access seen;
  if (!ResolveAccess(ctx, "id:" + link->file_id, &seen).ok()) return missing;
  return Status(kErrPermission, "permission denied: only the owner changes a sharing link");
}

}  // namespace

PObject LinkRecord(const SharingLink& l) {
  PObject p = PObject::MakeMap();
  p["token"] = l.token;
  p["role"] = l.role;
  p["created"] = static_cast<long long>(l.created);
  p["expires"] = static_cast<long long>(l.expires);
  p["has_password"] = !l.password_hash.empty();
  return p;
}

Status OpLinkCreate(RequestContext& ctx, const PObject& args, PObject* result) {
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveOwnedItem(ctx, args, true, &item));
  SharingLink link{NewToken(), item.node.file_id, ctx.caller.user.name, "viewer",
                   ctx.d->config.ThrottleNow(), 0, ""};
  ORVEL_RETURN_IF_ERROR(LinkRole(args, &link.role));
  ORVEL_RETURN_IF_ERROR(LinkExpiry(ctx, args, &link.expires));
  ORVEL_RETURN_IF_ERROR(LinkPassword(args, &link.password_hash));
  std::string permanent;
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->CreateLink(link));
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->EnsurePermanentLink(link.file_id, NewFileId(), &permanent));
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  *result = LinkRecord(link);
  (*result)["file_id"] = link.file_id;
  (*result)["permanent_link"] = permanent;
  return Status::OK();
}

Status OpLinkUpdate(RequestContext& ctx, const PObject& args, PObject* result) {
  SharingLink link;
  ORVEL_RETURN_IF_ERROR(OwnedLink(ctx, args, &link));
  ORVEL_RETURN_IF_ERROR(LinkRole(args, &link.role));
  ORVEL_RETURN_IF_ERROR(LinkExpiry(ctx, args, &link.expires));
  ORVEL_RETURN_IF_ERROR(LinkPassword(args, &link.password_hash));
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->UpdateLink(link));
  // A new or removed password ends what the old one opened.
  if (!args["password"].isNull())
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->RemoveLinkGrants(link.token));
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  *result = LinkRecord(link);
  return Status::OK();
}

Status OpLinkDelete(RequestContext& ctx, const PObject& args, PObject*) {
  SharingLink link;
  ORVEL_RETURN_IF_ERROR(OwnedLink(ctx, args, &link));
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->RemoveLink(link.token));
  return tx.Commit();
}

Status OpLinkUnlock(RequestContext& ctx, const PObject& args, PObject* result) {
  if (ctx.sharing_token.empty()) return Status(kErrInvalidArgument, "a sharing token is required");
  std::string password;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "password", &password));
  if (password.empty()) return Status(kErrInvalidArgument, "argument \"password\" is required");
  SharingLink link;
  ORVEL_RETURN_IF_ERROR(LookupRequestLink(ctx, &link));
  const int64_t now = ctx.d->config.ThrottleNow();
  if (link.password_hash.empty()) {
    (*result)["grant"] = "";  // nothing to unlock
    (*result)["expires"] = 0LL;
    return Status::OK();
  }
  if (password.size() > kMaxLinkPasswordBytes || !LinkPasswordMatches(link.password_hash, password)) {
    ctx.d->link_throttle.Failed(ctx.forward_ip, now);
    return Status(kErrLinkPassword, "wrong password for the sharing link");
  }
  const std::string grant = NewLinkGrant();
  const int64_t expires = now + ctx.d->config.GetLinkGrantSeconds();
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->AddLinkGrant(LinkGrantDigest(grant), link.token, now, expires));
  (*result)["grant"] = grant;
  (*result)["expires"] = static_cast<long long>(expires);
  return Status::OK();
}

}  // namespace orvel::syncd
