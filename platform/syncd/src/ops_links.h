// The owner's sharing ops (ops_share.cc, ops_links.cc): shares with users and
// groups, sharing links with a role, an expiry and a password, and the
// visitor's unlocking of a password link (docs/browse.md, "Sharing").
#pragma once

#include "access.h"
#include "dispatch.h"

namespace orvel::syncd {

// The item of args["path"] for its owner. An item the caller may not see is
// kErrNotFound as an unknown one; another role is kErrPermission; with
// to_share, the root of a space is kErrInvalidArgument.
Status ResolveOwnedItem(RequestContext& ctx, const PObject& args, bool to_share, Access* out);

// A link as its owner sees it: token, role, created, expires, has_password.
PObject LinkRecord(const SharingLink& link);

Status OpSharingList(RequestContext& ctx, const PObject& args, PObject* result);
Status OpShare(RequestContext& ctx, const PObject& args, PObject* result);
Status OpUnshare(RequestContext& ctx, const PObject& args, PObject* result);
Status OpLinkCreate(RequestContext& ctx, const PObject& args, PObject* result);
Status OpLinkUpdate(RequestContext& ctx, const PObject& args, PObject* result);
Status OpLinkDelete(RequestContext& ctx, const PObject& args, PObject* result);
Status OpLinkUnlock(RequestContext& ctx, const PObject& args, PObject* result);

}  // namespace orvel::syncd
