// See recycle.h. A restore is one rename out of @recycle, recorded as an
// intent first (intent.h): a failure or a crash before the commit takes it
// back, so rows and disk agree.
#include "recycle.h"

#include <ctime>
#include <mutex>

#include "intent.h"
#include "jobs.h"
#include "log.h"
#include "mime.h"
#include "space_fs.h"
#include "tmp_sweep.h"
#include "transfer.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

// The folder components of an original path ("/mydrive/a/b/name" -> a, b).
std::vector<std::string> FolderComponents(const std::string& original_path) {
  std::vector<std::string> out;
  const std::string prefix = "/mydrive/";
  if (original_path.compare(0, prefix.size(), prefix) != 0) return out;
  size_t start = prefix.size();
  for (size_t slash; (slash = original_path.find('/', start)) != std::string::npos; start = slash + 1)
    out.push_back(original_path.substr(start, slash - start));
  return out;
}

// Makes the folder `name` in parent (on disk, then its row).
Status MakeFolder(Daemon& d, Store* store, const Resolved& parent, const std::string& name, Resolved* out) {
  ORVEL_RETURN_IF_ERROR(ValidateName(name));
  ScopedFd dir;
  ORVEL_RETURN_IF_ERROR(OpenSpaceFolder(d, parent.node.owner, parent.components, &dir));
  std::vector<std::string> components = parent.components;
  components.push_back(name);
  const std::string path = MyDrivePath(components);
  ORVEL_RETURN_IF_ERROR(MakeDirAt(dir.get(), name, 0750, path));
  const int64_t now = time(nullptr);
  Node n;
  n.file_id = NewFileId();
  n.parent_id = parent.node.file_id;
  n.owner = parent.node.owner;
  n.name = name;
  n.type = 1;
  n.created_time = n.access_time = n.modified_time = n.change_time = now;
  Transaction tx(store, true);
  Status st = tx.status();
  if (st.ok()) st = store->NextChange(&n.sync_id);
  n.max_id = n.sync_id;
  if (st.ok()) st = store->Insert(&n);
  if (st.ok()) st = store->TouchAncestors(parent.node.file_id, n.sync_id);
  if (st.ok()) st = tx.Commit();
  if (!st.ok()) {
    RemoveAt(dir.get(), name, path);
    return st;
  }
  out->node = n;
  out->components = components;
  out->view_path.clear();
  return Status::OK();
}

// The folder to restore e into: its original folder while live, else the
// original path, made again where folders are missing.
Status RestoreFolder(Daemon& d, Store* store, const Caller& caller, const RecycleEntry& e, Resolved* out) {
  Node parent;
  if (store->GetById(e.parent_id, &parent).ok() && !parent.removed && !parent.vanished &&
      parent.owner == e.owner && ResolveFolderById(d, store, caller, e.parent_id, out).ok())
    return Status::OK();
  Node root;
  ORVEL_RETURN_IF_ERROR(EnsureHome(d, store, e.owner, &root));
  Resolved cur;
  cur.node = root;
  for (const std::string& name : FolderComponents(e.original_path)) {
    Node child;
    Status st = store->GetChild(cur.node.file_id, name, &child);
    if (st.code() == kErrNotFound) {
      Resolved made;
      ORVEL_RETURN_IF_ERROR(MakeFolder(d, store, cur, name, &made));
      cur = made;
      continue;
    }
    ORVEL_RETURN_IF_ERROR(st);
    cur.components.push_back(child.name);
    cur.node = child;
    if (!child.is_dir()) return Status(kErrNotFolder, "not a folder: " + MyDrivePath(cur.components));
  }
  *out = cur;
  return Status::OK();
}

}  // namespace

Status RestoreItem(Daemon& d, Store* store, const Caller& caller, const RecycleEntry& e,
                   const std::string& policy, Resolved* out) {
  Node n;
  ORVEL_RETURN_IF_ERROR(store->GetById(e.file_id, &n));
  if (!n.removed) return Status(kErrNotFound, "item not found in the recycle bin: id:" + e.file_id);
  Resolved dest;
  ORVEL_RETURN_IF_ERROR(RestoreFolder(d, store, caller, e, &dest));
  ScopedFd dest_dir;
  ORVEL_RETURN_IF_ERROR(OpenSpaceFolder(d, dest.node.owner, dest.components, &dest_dir));
  std::string chosen;
  Node existing;
  bool has_existing = false, skip = false;
  ORVEL_RETURN_IF_ERROR(
      ChooseName(store, dest, dest_dir.get(), n.name, n.is_dir(), policy, &chosen, &existing, &has_existing, &skip));
  if (has_existing || skip) return Status(kErrInvalidArgument, "conflict policy not allowed: " + policy);
  RenameIntent intent(d.layout, store);
  intent.Add(d.dirs.recycle(), e.file_id, dest_dir.get(), chosen);
  ORVEL_RETURN_IF_ERROR(intent.Record());
  ORVEL_RETURN_IF_ERROR(intent.Apply());
  const int64_t now = time(nullptr);
  n.parent_id = dest.node.file_id;
  n.name = chosen;
  n.removed = false;
  n.change_time = now;
  if (!n.is_dir()) {
    n.ext = ExtensionOf(chosen);
    if (!n.is_link()) n.content_type = ContentTypeOf(chosen, false);
  }
  Transaction tx(store, true);
  Status st = tx.status();
  if (st.ok()) st = store->NextChange(&n.sync_id);
  n.max_id = std::max(n.max_id, n.sync_id);
  if (st.ok()) st = store->Update(n);
  if (st.ok()) st = store->recycle()->UnflagBelow(n.file_id, now);
  if (st.ok()) st = store->recycle()->Remove(n.file_id);
  if (st.ok()) st = store->TouchAncestors(dest.node.file_id, n.sync_id);
  if (st.ok()) st = intent.Drop();
  if (st.ok()) st = tx.Commit();
  if (!st.ok()) return st;  // the intent takes the rename back
  intent.Committed();
  out->node = n;
  out->components = dest.components;
  out->components.push_back(chosen);
  out->view_path.clear();
  return Status::OK();
}

Status PurgeRemovedBefore(Daemon& d, int64_t before, int* purged) {
  *purged = 0;
  StoreLease store;
  ORVEL_RETURN_IF_ERROR(d.pool->Acquire(&store));
  std::vector<RecycleEntry> due;
  ORVEL_RETURN_IF_ERROR(store->recycle()->RemovedBefore("", before, &due));
  for (const RecycleEntry& e : due) {
    const std::string trash = "recycle-purge-" + e.file_id;
    {
      std::lock_guard<std::mutex> lock(d.write_mu);
      Resolved src;
      Status st = store->GetById(e.file_id, &src.node);
      if (st.code() == kErrNotFound) continue;  // gone with a folder purged before it
      ORVEL_RETURN_IF_ERROR(st);
      ORVEL_RETURN_IF_ERROR(DeleteItem(d, store.get(), src, true, trash, ""));
    }
    const std::string trash_path = d.layout.tmp + "/" + trash;
    InodeSet linked;
    CollectLinkedInodes(trash_path, &linked);
    Status removed = RemoveAt(d.dirs.tmp(), trash, trash_path);
    if (!removed.ok() && d.jobs) removed = d.jobs->PushUnlink(trash_path, 0);
    if (!removed.ok()) SLOG_WARN("recycle purge: %s", removed.ToString().c_str());
    uint64_t unlinked = 0;
    if (!linked.empty()) UnlinkLinksBelow(d.layout.tmp, linked, &unlinked);
    ++*purged;
  }
  return Status::OK();
}

void PurgeExpired(Daemon& d) {
  const unsigned days = d.config.GetRecycleKeepDays();
  if (days == 0) return;
  int purged = 0;
  Status st = PurgeRemovedBefore(d, static_cast<int64_t>(time(nullptr)) - int64_t{days} * 86400, &purged);
  if (!st.ok()) SLOG_ERROR("recycle purge: %s", st.ToString().c_str());
  if (purged) SLOG_INFO("recycle purge: %d items older than %u days deleted for good", purged, days);
}

}  // namespace orvel::syncd
