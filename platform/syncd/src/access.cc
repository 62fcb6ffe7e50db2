// See access.h. An item's role for a caller: owner of the item's space;
// otherwise the highest role of the shares with the caller or the caller's
// groups on the item or any folder above it; otherwise the role of the
// request's sharing link when the link's item is the item or above it.
#include "access.h"


#include "item.h"
#include "link_secrets.h"

namespace orvel::syncd {
namespace {

constexpr char kSharedPrefix[] = "/shared-with-me";

// The owner's folders from the root down to node (node last).
Status Chain(Store* store, const Node& node, std::vector<Node>* chain) {
  chain->assign(1, node);
  Node cur = node;
  for (int depth = 0; !cur.parent_id.empty(); ++depth) {
    if (depth > 4096) return Status(kErrInternal, "folder loop above id:" + node.file_id);
    ORVEL_RETURN_IF_ERROR(store->GetById(cur.parent_id, &cur));
    if (cur.vanished) return Status(kErrNotFound, "item not found: id:" + node.file_id);
    if (cur.removed) return Status(kErrInRecycleBin, "item is in the recycle bin: id:" + node.file_id);
    chain->insert(chain->begin(), cur);
  }
  return Status::OK();
}

bool InGroups(const UserRecord& u, const std::string& group) {
  for (const auto& g : u.groups)
    if (g == group) return true;
  return false;
}

// "prefix/<chain[top].name>/..../<node.name>".
std::string ViewFrom(const std::vector<Node>& chain, size_t top, const std::string& prefix) {
  std::string out = prefix;
  for (size_t i = top; i < chain.size(); ++i) out += "/" + chain[i].name;
  return out;
}

// A password link opens only to a request that carries one of the link's
// unexpired grants (ops_links.cc hands them out).
Status CheckUnlocked(RequestContext& ctx, const SharingLink& link, int64_t now) {
  if (link.password_hash.empty()) return Status::OK();
  bool found = false;
  if (!ctx.link_grant.empty())
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->HasLinkGrant(LinkGrantDigest(ctx.link_grant), link.token,
                                                            now, &found));
  return found ? Status::OK() : Status(kErrLinkLocked, "link needs its password");
}

// The request's link, open to this request.
Status ValidLink(RequestContext& ctx, SharingLink* link) {
  ORVEL_RETURN_IF_ERROR(LookupRequestLink(ctx, link));
  return CheckUnlocked(ctx, *link, ctx.d->config.ThrottleNow());
}

Status LookupOwner(RequestContext& ctx, const std::string& name, UserRecord* out) {
  if (!IsVisitor(ctx) && name == ctx.caller.user.name) {
    *out = ctx.caller.user;
    return Status::OK();
  }
  Status st = ctx.d->users->Lookup(name, out);
  if (st.code() == kErrPermission) {  // an owner no longer in the user database
    *out = UserRecord();
    out->name = name;
    return Status::OK();
  }
  return st;
}

// Fills role, view path and top of an item of someone else's space.
Status EvaluateOther(RequestContext& ctx, const std::vector<Node>& chain, Access* a) {
  size_t top = chain.size();
  if (!IsVisitor(ctx)) {
    for (size_t i = 0; i < chain.size(); ++i) {
      std::vector<Share> shares;
      ORVEL_RETURN_IF_ERROR(ctx.store->browse()->SharesOf(chain[i].file_id, &shares));
      for (const Share& s : shares) {
        bool mine = s.kind == "user" ? s.name == ctx.caller.user.name : InGroups(ctx.caller.user, s.name);
        if (!mine) continue;
        Role r = ParseRole(s.role);
        if (r > a->role) a->role = r;
        if (top == chain.size()) top = i;
      }
    }
    if (a->role != Role::kNone) {
      a->view_path = ViewFrom(chain, top, kSharedPrefix);
      a->top_id = chain[top].file_id;
      return Status::OK();
    }
  }
  if (ctx.sharing_token.empty())
    return Status(kErrPermission, "permission denied: id:" + a->node.file_id);
  SharingLink link;
  ORVEL_RETURN_IF_ERROR(ValidLink(ctx, &link));
  for (size_t i = 0; i < chain.size(); ++i) {
    if (chain[i].file_id != link.file_id) continue;
    a->role = ParseRole(link.role);
    if (a->role == Role::kNone || a->role == Role::kOwner) a->role = Role::kViewer;
    a->by_link = true;
    a->view_path = ViewFrom(chain, i, "");
    a->top_id = chain[i].file_id;
    return Status::OK();
  }
  return Status(kErrPermission, "permission denied: id:" + a->node.file_id);
}

// Completes an access from the item's chain of folders.
Status Evaluate(RequestContext& ctx, const std::vector<Node>& chain, Access* a) {
  a->node = chain.back();
  a->components.clear();
  for (size_t i = 1; i < chain.size(); ++i) a->components.push_back(chain[i].name);
  ORVEL_RETURN_IF_ERROR(LookupOwner(ctx, a->node.owner, &a->owner));
  if (!IsVisitor(ctx) && a->node.owner == ctx.caller.user.name) {
    a->role = Role::kOwner;
    a->view_path = MyDrivePath(a->components);
    a->top_id = chain.front().file_id;
    return Status::OK();
  }
  return EvaluateOther(ctx, chain, a);
}

// Walks `rest` down from a folder the caller reached.
Status WalkDown(Store* store, const std::vector<std::string>& rest, std::vector<Node>* chain) {
  for (const std::string& name : rest) {
    if (!chain->back().is_dir()) return Status(kErrNotFolder, "not a folder: " + chain->back().name);
    Node child;
    Status st = store->GetChild(chain->back().file_id, name, &child);
    if (st.code() == kErrNotFound) return Status(kErrNotFound, "item not found: " + name);
    ORVEL_RETURN_IF_ERROR(st);
    chain->push_back(child);
  }
  return Status::OK();
}

Status ResolveShared(RequestContext& ctx, const std::string& wire_path, Access* out) {
  std::vector<std::string> parts = SplitPath(wire_path.substr(sizeof(kSharedPrefix) - 1));
  if (parts.empty()) return Status(kErrInvalidArgument, "name a shared item below " + std::string(kSharedPrefix));
  for (const auto& p : parts)
    if (p == "." || p == "..") return Status(kErrInvalidName, "invalid name: \"" + p + "\"");
  std::vector<Node> roots;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->SharedRootsByName(ctx.caller.user.name, ctx.caller.user.groups,
                                                               parts[0], &roots));
  if (roots.empty()) return Status(kErrNotFound, "item not found: " + wire_path);
  std::vector<Node> chain;
  ORVEL_RETURN_IF_ERROR(Chain(ctx.store.get(), roots.front(), &chain));
  ORVEL_RETURN_IF_ERROR(WalkDown(ctx.store.get(), {parts.begin() + 1, parts.end()}, &chain));
  return Evaluate(ctx, chain, out);
}

// A visitor names the linked item as "" or "/", anything else by id or link.
Status ResolveVisitor(RequestContext& ctx, const std::string& wire_path, const ItemRef& ref, Access* out) {
  SharingLink link;
  ORVEL_RETURN_IF_ERROR(ValidLink(ctx, &link));
  Node n;
  Status st;
  if (ref.kind == ItemRef::Kind::kMyDrive) {
    if (wire_path != "" && wire_path != "/") return Status(kErrPermission, "permission denied: " + wire_path);
    st = ctx.store->GetById(link.file_id, &n);
    if (st.code() == kErrNotFound || (st.ok() && (n.vanished || n.removed)))
      return Status(kErrSharingToken, "sharing token invalid or expired");
  } else {
    st = ref.kind == ItemRef::Kind::kId ? ctx.store->GetById(ref.key, &n) : ctx.store->GetByLink(ref.key, &n);
    if (st.code() == kErrNotFound) return Status(kErrPermission, "permission denied: " + ref.key);
    if (st.ok() && (n.vanished || n.removed)) return Status(kErrPermission, "permission denied: " + ref.key);
  }
  ORVEL_RETURN_IF_ERROR(st);
  std::vector<Node> chain;
  ORVEL_RETURN_IF_ERROR(Chain(ctx.store.get(), n, &chain));
  return Evaluate(ctx, chain, out);
}

}  // namespace

Status LookupRequestLink(RequestContext& ctx, SharingLink* link) {
  const int64_t now = ctx.d->config.ThrottleNow();
  ORVEL_RETURN_IF_ERROR(ctx.d->link_throttle.Check(ctx.forward_ip, now));
  Status st = ctx.store->browse()->GetLink(ctx.sharing_token, link);
  if (st.ok() && link->expires != 0 && link->expires <= now)
    st = Status(kErrSharingToken, "sharing token invalid or expired");
  if (st.code() == kErrSharingToken) ctx.d->link_throttle.Failed(ctx.forward_ip, now);
  return st;
}

Role ParseRole(const std::string& t) {
  if (t == "viewer") return Role::kViewer;
  if (t == "commenter") return Role::kCommenter;
  if (t == "editor") return Role::kEditor;
  if (t == "owner") return Role::kOwner;
  return Role::kNone;
}

const char* RoleName(Role r) {
  switch (r) {
    case Role::kViewer: return "viewer";
    case Role::kCommenter: return "commenter";
    case Role::kEditor: return "editor";
    case Role::kOwner: return "owner";
    default: return "";
  }
}

Capabilities CapabilitiesFor(Role r) {
  if (r == Role::kOwner) return OwnerCapabilities();
  Capabilities c;
  c.can_preview = c.can_read = r >= Role::kViewer;
  c.can_comment = r >= Role::kCommenter;
  c.can_write = c.can_delete = c.can_rename = c.can_organize = r >= Role::kEditor;
  return c;
}

Status ResolveAccess(RequestContext& ctx, const std::string& wire_path, Access* out) {
  *out = Access();
  ReadSnapshot snapshot(ctx.store.get());  // the rows on the way, as of one moment
  if (!IsVisitor(ctx) && wire_path.compare(0, sizeof(kSharedPrefix) - 1, kSharedPrefix) == 0 &&
      (wire_path.size() == sizeof(kSharedPrefix) - 1 || wire_path[sizeof(kSharedPrefix) - 1] == '/'))
    return ResolveShared(ctx, wire_path, out);
  ItemRef ref;
  ORVEL_RETURN_IF_ERROR(ParseItemRef(wire_path, &ref));
  if (IsVisitor(ctx)) return ResolveVisitor(ctx, wire_path, ref, out);

  Resolved own;
  Status st = ResolveRef(*ctx.d, ctx.store.get(), ctx.caller, ref, &own);
  if (st.ok()) {
    out->node = own.node;
    out->role = Role::kOwner;
    out->owner = ctx.caller.user;
    out->components = own.components;
    out->view_path = own.ViewPath();
    Node root;
    ORVEL_RETURN_IF_ERROR(ctx.store->GetRoot(ctx.caller.user.name, &root));
    out->top_id = root.file_id;
    return Status::OK();
  }
  if (st.code() != kErrPermission || ref.kind == ItemRef::Kind::kMyDrive) return st;
  // Someone else's item: reachable through a share or the request's link.
  Node n;
  ORVEL_RETURN_IF_ERROR(ref.kind == ItemRef::Kind::kId ? ctx.store->GetById(ref.key, &n)
                                                       : ctx.store->GetByLink(ref.key, &n));
  std::vector<Node> chain;
  ORVEL_RETURN_IF_ERROR(Chain(ctx.store.get(), n, &chain));
  ORVEL_RETURN_IF_ERROR(Evaluate(ctx, chain, out));
  // Said only to a caller who may see the item.
  if (n.vanished) return Status(kErrNotFound, "item not found: id:" + n.file_id);
  if (n.removed) return Status(kErrInRecycleBin, "item is in the recycle bin: id:" + n.file_id);
  return Status::OK();
}

Access ChildAccess(const Layout&, const Access& folder, Node child) {
  Access a;
  a.role = folder.role;
  a.owner = folder.owner;
  a.components.reserve(folder.components.size() + 1);
  a.components = folder.components;
  a.components.push_back(child.name);
  a.view_path = folder.view_path + "/" + child.name;
  a.node = std::move(child);
  a.top_id = folder.top_id;
  a.by_link = folder.by_link;
  return a;
}

std::string AccessDiskPath(const Layout& layout, const Access& a) {
  return DiskPath(layout, a.node.owner, a.components);
}

Status AccessOfNode(RequestContext& ctx, const Node& node, Access* out) {
  *out = Access();
  std::vector<Node> chain;
  ORVEL_RETURN_IF_ERROR(Chain(ctx.store.get(), node, &chain));
  return Evaluate(ctx, chain, out);
}

Status AccessItemRecords(RequestContext& ctx, std::vector<Access> items, bool permissions,
                         std::vector<ItemRecord>* records) {
  records->clear();
  records->reserve(items.size());
  ReadSnapshot snapshot(ctx.store.get());  // the marks, shares and links read together
  std::vector<std::string> ids;
  ids.reserve(items.size());
  for (const Access& a : items) ids.push_back(a.node.file_id);
  ItemMarks marks;
  if (!IsVisitor(ctx))
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->MarksAmong(ctx.caller.user.name, ids, &marks));
  for (Access& a : items) {
    // The path on the server is the owner's to see; members and link visitors get "".
    std::string tpx_path = a.role == Role::kOwner ? AccessDiskPath(ctx.d->layout, a) : "";
    const bool root = a.node.parent_id.empty();
    ItemRecord f = MakeFileInfo(std::move(a.node), std::move(a.view_path), std::move(tpx_path), a.owner);
    if (root && a.role != Role::kOwner) f.name = a.owner.name;
    f.capabilities = CapabilitiesFor(a.role);
    f.starred = marks.starred.count(f.file_id) > 0;
    f.shared = marks.shared.count(f.file_id) > 0;
    auto range = marks.labels.equal_range(f.file_id);
    for (auto it = range.first; it != range.second; ++it)
      f.labels.push_back(LabelInfo{it->second.label_id, it->second.name, it->second.color});
    if (permissions && a.role == Role::kOwner) {
      std::vector<Share> shares;
      ORVEL_RETURN_IF_ERROR(ctx.store->browse()->SharesOf(f.file_id, &shares));
      for (const Share& s : shares)
        f.permissions.push_back(PermissionInfo{std::to_string(s.id), s.kind, s.name, s.role, false});
      std::vector<SharingLink> links;
      ORVEL_RETURN_IF_ERROR(ctx.store->browse()->LinksOf(f.file_id, &links));
      for (const SharingLink& l : links)
        f.permissions.push_back(PermissionInfo{"link:" + l.token.substr(0, 8), "link", "", l.role, false});
    }
    records->push_back(std::move(f));
  }
  return Status::OK();
}

Status AccessRecords(RequestContext& ctx, std::vector<Access> items, bool permissions, PObject* array) {
  std::vector<ItemRecord> records;
  ORVEL_RETURN_IF_ERROR(AccessItemRecords(ctx, std::move(items), permissions, &records));
  *array = PObject::MakeArray();
  for (const ItemRecord& f : records) array->push_back(ItemRecordToPObject(f));
  return Status::OK();
}

Status AccessItemsPacked(RequestContext& ctx, std::vector<Access> items, PObject* packed) {
  std::vector<ItemRecord> records;
  ORVEL_RETURN_IF_ERROR(AccessItemRecords(ctx, std::move(items), false, &records));
  *packed = PackedItemRecords(records);
  return Status::OK();
}

Status AccessRecord(RequestContext& ctx, const Access& item, PObject* record) {
  PObject array;
  ORVEL_RETURN_IF_ERROR(AccessRecords(ctx, {item}, true, &array));
  *record = std::move(array.array().front());
  return Status::OK();
}

Status AccessAncestors(RequestContext& ctx, const Access& item, std::vector<Access>* out) {
  out->clear();
  std::vector<Node> chain;
  ORVEL_RETURN_IF_ERROR(Chain(ctx.store.get(), item.node, &chain));
  size_t top = 0;
  while (top < chain.size() && chain[top].file_id != item.top_id) ++top;
  if (top == chain.size()) top = chain.size() - 1;
  // The view path of chain[top] is the item's view path minus the names below it.
  std::string view = item.view_path;
  std::vector<std::string> views(chain.size());
  for (size_t i = chain.size(); i-- > top;) {
    views[i] = view;
    view = view.substr(0, view.find_last_of('/'));
  }
  for (size_t i = top; i + 1 < chain.size(); ++i) {
    Access a;
    a.node = chain[i];
    a.role = item.role;
    a.owner = item.owner;
    a.components.assign(item.components.begin(), item.components.begin() + static_cast<long>(i));
    a.view_path = views[i].empty() ? "/mydrive" : views[i];
    a.top_id = item.top_id;
    a.by_link = item.by_link;
    out->push_back(a);
  }
  return Status::OK();
}

}  // namespace orvel::syncd
