// See space.h.
#include "space.h"

#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "log.h"
#include "reconcile.h"

namespace orvel::syncd {

std::string NewFileId() {
  unsigned char bytes[16];
  size_t got = 0;
  while (got < sizeof(bytes)) {
    ssize_t r = getrandom(bytes + got, sizeof(bytes) - got, 0);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned char b : bytes) {
    out.push_back(kHex[b >> 4]);
    out.push_back(kHex[b & 15]);
  }
  return out;
}

std::string DiskPath(const Layout& layout, const std::string& owner,
                     const std::vector<std::string>& components) {
  std::string p = layout.Home(owner);
  for (const auto& c : components) p += "/" + c;
  return p;
}

Status EnsureHome(Daemon& d, Store* store, const std::string& owner, Node* root) {
  Status st = store->GetRoot(owner, root);
  if (st.code() != kErrNotFound) return st;
  ORVEL_RETURN_IF_ERROR(ValidateName(owner));

  std::lock_guard<std::mutex> lock(d.write_mu);
  st = store->GetRoot(owner, root);  // another thread may have made it
  if (st.code() != kErrNotFound) return st;
  std::string dir = d.layout.Home(owner);
  bool existed = true;
  if (mkdirat(d.dirs.homes(), owner.c_str(), 0750) != 0) {
    if (errno != EEXIST) return FsError("mkdir", dir, errno);
  } else {
    existed = false;
    ORVEL_RETURN_IF_ERROR(FsyncFd(d.dirs.homes(), d.layout.homes));
  }
  int64_t now = time(nullptr);
  Node n;
  n.file_id = NewFileId();
  n.owner = owner;
  n.name = owner;  // roots share parent_id "": their names keep them apart
  n.type = 1;
  n.created_time = n.access_time = n.modified_time = n.change_time = now;
  {
    Transaction tx(store, true);
    ORVEL_RETURN_IF_ERROR(tx.status());
    ORVEL_RETURN_IF_ERROR(store->NextChange(&n.sync_id));
    n.max_id = n.sync_id;
    ORVEL_RETURN_IF_ERROR(store->Insert(&n));
    ORVEL_RETURN_IF_ERROR(tx.Commit());
  }
  SLOG_INFO("created home of %s (%s)", owner.c_str(), n.file_id.c_str());
  if (existed) {
    ReconcileStats stats;
    st = ReconcileFolder(d, store, n, {}, &stats);
    if (!st.ok()) SLOG_ERROR("indexing existing home of %s: %s", owner.c_str(), st.ToString().c_str());
    else SLOG_INFO("indexed existing home of %s: %llu added", owner.c_str(),
                   static_cast<unsigned long long>(stats.added));
  }
  return store->GetRoot(owner, root);
}

Status MakeHomeOnce(Daemon& d, Store* store, const std::string& owner) {
  if (d.homes.Contains(owner)) return Status::OK();
  Node root;
  ORVEL_RETURN_IF_ERROR(EnsureHome(d, store, owner, &root));
  d.homes.Add(owner);
  return Status::OK();
}

namespace {

// Walks components from root; stops before the last `skip_last` of them.
Status Walk(Store* store, const Node& root, const std::vector<std::string>& components,
            size_t count, bool for_parent, Resolved* out) {
  out->node = root;
  out->components.clear();
  for (size_t i = 0; i < count; ++i) {
    if (!out->node.is_dir())
      return Status(kErrNotFolder, "not a folder: " + MyDrivePath(out->components));
    Node child;
    Status st = store->GetChild(out->node.file_id, components[i], &child);
    if (st.code() == kErrNotFound) {
      std::vector<std::string> upto(components.begin(), components.begin() + i + 1);
      return Status(for_parent ? kErrParentNotFound : kErrNotFound,
                    (for_parent ? "parent folder not found: " : "item not found: ") +
                        MyDrivePath(upto));
    }
    ORVEL_RETURN_IF_ERROR(st);
    out->node = child;
    out->components.push_back(child.name);  // the stored spelling (name_forms.h)
  }
  return Status::OK();
}

}  // namespace

Status ResolveRef(Daemon& d, Store* store, const Caller& caller, const ItemRef& ref, Resolved* out) {
  Node root;
  ORVEL_RETURN_IF_ERROR(EnsureHome(d, store, caller.user.name, &root));
  if (ref.kind == ItemRef::Kind::kMyDrive)
    return Walk(store, root, ref.components, ref.components.size(), false, out);

  Node n;
  Status st = ref.kind == ItemRef::Kind::kId ? store->GetById(ref.key, &n) : store->GetByLink(ref.key, &n);
  if (st.code() == kErrNotFound)
    return Status(kErrNotFound, "item not found: " + std::string(ref.kind == ItemRef::Kind::kId ? "id:" : "link:") + ref.key);
  ORVEL_RETURN_IF_ERROR(st);
  if (n.owner != caller.user.name) return Status(kErrPermission, "permission denied: id:" + n.file_id);
  if (n.vanished) return Status(kErrNotFound, "item not found: id:" + n.file_id);
  if (n.removed) return Status(kErrInRecycleBin, "item is in the recycle bin: id:" + n.file_id);
  // Its place: walk up to the root (O(depth)).
  out->node = n;
  out->components.clear();
  Node cur = n;
  for (int depth = 0; !cur.parent_id.empty(); ++depth) {
    if (depth > 4096) return Status(kErrInternal, "folder loop above id:" + n.file_id);
    out->components.insert(out->components.begin(), cur.name);
    ORVEL_RETURN_IF_ERROR(store->GetById(cur.parent_id, &cur));
    if (cur.vanished) return Status(kErrNotFound, "item not found: id:" + n.file_id);
  }
  return Status::OK();
}

Status ResolveParent(Daemon& d, Store* store, const Caller& caller,
                     const std::vector<std::string>& components, Resolved* parent) {
  Node root;
  ORVEL_RETURN_IF_ERROR(EnsureHome(d, store, caller.user.name, &root));
  if (components.empty()) return Status(kErrInvalidName, "invalid name: \"\"");
  ORVEL_RETURN_IF_ERROR(Walk(store, root, components, components.size() - 1, true, parent));
  if (!parent->node.is_dir())
    return Status(kErrNotFolder, "not a folder: " + parent->ViewPath());
  return Status::OK();
}

}  // namespace orvel::syncd
