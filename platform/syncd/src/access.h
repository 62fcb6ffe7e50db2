// access: who may see an item and how. Resolves a wire path for the
// request's caller, which is a user (own items, items shared with the user or
// one of the user's groups, "/shared-with-me/<name>/..." paths) or a link
// visitor (only the linked item and what lies below it), computes the
// caller's role on the item, and builds the caller's records: capabilities
// from the role, the caller's stars and labels, the shared flag.
//
// Threading: every function works on the request's own context and leased
// store; thread-safe as far as those are.
#pragma once

#include <string>
#include <vector>

#include "db/browse_store.h"
#include "dispatch.h"
#include "orvelcommon/item_record.h"

namespace orvel::syncd {

enum class Role { kNone = 0, kViewer = 1, kCommenter = 2, kEditor = 3, kOwner = 4 };

// "viewer", "commenter", "editor" (and "owner"); kNone for anything else.
Role ParseRole(const std::string& text);
const char* RoleName(Role role);
Capabilities CapabilitiesFor(Role role);

// An item as the caller reached it.
struct Access {
  Node node;
  Role role = Role::kNone;
  UserRecord owner;
  std::vector<std::string> components;  // below the owner's root (for the real path)
  std::string view_path;                // the path as the caller sees it
  std::string top_id;                   // highest item the caller may reach (breadcrumbs stop there)
  bool by_link = false;                 // the role comes from the request's sharing link
};

// True for a caller without an account (a sharing-link visitor).
inline bool IsVisitor(const RequestContext& ctx) { return ctx.caller.user.name.empty(); }

// The link of the request's sharing token: kErrTooManyAttempts for an
// address that guessed too often, kErrSharingToken (counted against the
// address) for an unknown token or one expired by the service clock
// (SyncConfigMgr::ThrottleNow). A password link's grant is not checked here.
Status LookupRequestLink(RequestContext& ctx, SharingLink* link);

// Resolves a wire path ("", "/mydrive/..", "id:", "link:", "/shared-with-me/<name>/..")
// for the caller. kErrPermission when the caller may not see the item,
// kErrSharingToken for a visitor whose token is unknown or expired.
Status ResolveAccess(RequestContext& ctx, const std::string& wire_path, Access* out);

// The access to a child of a folder the caller reached.
Access ChildAccess(const Layout& layout, const Access& folder, Node child);

// The real path of the item on the server.
std::string AccessDiskPath(const Layout& layout, const Access& a);

// The caller's records of items, with stars, labels and the shared flag
// (one batch of queries for all of them); `permissions` adds the list of
// shares and links (single-item answers). The items' strings move into the
// records.
Status AccessItemRecords(RequestContext& ctx, std::vector<Access> items, bool permissions,
                         std::vector<ItemRecord>* records);
// The same as wire values: an array of record maps, one record map, and the
// listings' form, the array packed straight from the records (no map per
// record; the same bytes on the wire).
Status AccessRecords(RequestContext& ctx, std::vector<Access> items, bool permissions, PObject* array);
Status AccessRecord(RequestContext& ctx, const Access& item, PObject* record);
Status AccessItemsPacked(RequestContext& ctx, std::vector<Access> items, PObject* packed);

// The folders above the item that the caller may see, from the top down.
Status AccessAncestors(RequestContext& ctx, const Access& item, std::vector<Access>* out);

// Access for an item of a mark listing (a row found by query, not by path).
Status AccessOfNode(RequestContext& ctx, const Node& node, Access* out);

}  // namespace orvel::syncd
