// transfer_place: the steps of transfer.h that change the visible tree:
// placing a staged item, moving and deleting. Each records its renames
// (intent.h), renames on disk (the folders fsynced), then commits the rows in
// one transaction; a failure or a crash before the commit takes the renames
// back. The caller holds Daemon::write_mu.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>
#include <ctime>

#include "db/recycle_store.h"
#include "fault.h"
#include "intent.h"
#include "log.h"
#include "mime.h"
#include "space_fs.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

constexpr unsigned kMaxAutoRename = 10000;

std::string DiskOf(const Daemon& d, const Resolved& r) {
  return DiskPath(d.layout, r.node.owner, r.components);
}

// The folder `r` itself, opened beneath its owner's space.
Status OpenFolderOf(const Daemon& d, const Resolved& r, ScopedFd* out) {
  return OpenSpaceFolder(d, r.node.owner, r.components, out);
}

Resolved Child(const Resolved& parent, const Node& node) {
  Resolved r;
  r.node = node;
  r.components = parent.components;
  r.components.push_back(node.name);
  if (!parent.view_path.empty()) r.view_path = parent.view_path + "/" + node.name;
  return r;
}

// Whether the name is taken on disk; an entry that cannot be checked counts
// as taken, so that nothing is ever clobbered.
bool OnDisk(int dir, const std::string& name) {
  struct stat st;
  bool exists = false;
  return !StatAt(dir, name, name, &st, &exists).ok() || exists;
}

}  // namespace

Status ChooseName(Store* store, const Resolved& dest, int dest_dir, const std::string& name,
                  bool is_dir, const std::string& p, std::string* chosen, Node* existing,
                  bool* has_existing, bool* skip) {
  *chosen = name;
  *has_existing = *skip = false;
  Status st = store->GetChild(dest.node.file_id, name, existing);
  if (!st.ok() && st.code() != kErrNotFound) return st;
  bool indexed = st.ok();
  if (!indexed && !OnDisk(dest_dir, name)) return Status::OK();
  const std::string view = MyDrivePath(dest.components) + "/" + name;
  if (p == "autorename") {
    for (unsigned n = 1; n <= kMaxAutoRename; ++n) {
      std::string cand = AutoRenameName(name, is_dir, n);
      Node other;
      st = store->GetChild(dest.node.file_id, cand, &other);
      if (st.ok()) continue;
      if (st.code() != kErrNotFound) return st;
      if (OnDisk(dest_dir, cand)) continue;
      *chosen = cand;
      return Status::OK();
    }
    return Status(kErrNameExists, "no free name for " + view);
  }
  if (!indexed) return Status(kErrNameExists, "name exists on disk but is not indexed yet: " + view);
  if (p == "stop") return Status(kErrNameExists, "name already exists: " + view);
  if (p == "skip") {
    *skip = true;
    return Status::OK();
  }
  if (existing->is_dir() && !is_dir) return Status(kErrIsFolder, "is a folder: " + view);
  if (!existing->is_dir() && is_dir) return Status(kErrNotFolder, "not a folder: " + view);
  *has_existing = true;
  return Status::OK();
}

namespace {

Status InsertRows(Store* store, StagedNode& item, uint64_t seq) {
  item.row.sync_id = item.row.max_id = seq;
  ORVEL_RETURN_IF_ERROR(store->Insert(&item.row));
  for (StagedNode& c : item.children) ORVEL_RETURN_IF_ERROR(InsertRows(store, c, seq));
  return Status::OK();
}

Status PlaceNew(Daemon& d, Store* store, const Resolved& dest, int dest_dir, StagedNode& item, int temp_dir,
                const std::string& temp_name, const std::string& name, PlaceOutcome* out) {
  const std::string target = DiskOf(d, dest) + "/" + name;
  RenameIntent intent(d.layout, store);
  intent.Add(temp_dir, temp_name, dest_dir, name);
  ORVEL_RETURN_IF_ERROR(intent.Record());
  ORVEL_RETURN_IF_ERROR(intent.Apply());
  fault::Point("point.place.renamed");
  item.row.name = name;
  item.row.parent_id = dest.node.file_id;
  item.row.owner = dest.node.owner;
  if (!item.row.is_dir()) item.row.ext = ExtensionOf(name);
  Transaction tx(store, true);
  Status st = tx.status();
  uint64_t seq = 0;
  if (st.ok()) st = store->NextChange(&seq);
  if (st.ok()) st = InsertRows(store, item, seq);
  if (st.ok()) st = store->TouchAncestors(dest.node.file_id, seq);
  if (st.ok()) st = intent.Drop();
  if (st.ok()) st = tx.Commit();
  if (!st.ok()) {
    SLOG_ERROR("placing %s failed, taking it back: %s", target.c_str(), st.ToString().c_str());
    return st;
  }
  intent.Committed();
  out->node = item.row;
  out->components = dest.components;
  out->components.push_back(name);
  return Status::OK();
}

// New content for the existing file row `existing` (its id stays): the
// entry from_name of from_dir replaces it (a link on either side is moved
// or replaced as the link).
Status ReplaceContent(Daemon& d, Store* store, const Resolved& dest, int dest_dir, Node existing,
                      const Node& incoming, int from_dir, const std::string& from_name, bool keep_revision,
                      const std::string& drop_id, PlaceOutcome* out) {
  const std::string target = DiskOf(d, dest) + "/" + existing.name;
  bool keep = keep_revision && !existing.hash.empty() && existing.hash != incoming.hash && !existing.is_link();
  if (keep) ORVEL_RETURN_IF_ERROR(KeepVersionAt(d, dest_dir, existing.name, target, existing.hash));
  RenameIntent intent(d.layout, store);
  intent.Add(from_dir, from_name, dest_dir, existing.name, true);
  ORVEL_RETURN_IF_ERROR(intent.Record());
  ORVEL_RETURN_IF_ERROR(intent.Apply());
  Revision rev{existing.file_id, existing.sync_id, existing.size, existing.modified_time, existing.hash};
  existing.size = incoming.size;
  existing.hash = incoming.hash;
  existing.content_type = incoming.content_type;
  existing.modified_time = incoming.modified_time;
  existing.change_time = time(nullptr);
  Transaction tx(store, true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(store->NextChange(&existing.sync_id));
  existing.max_id = existing.sync_id;
  if (keep) {
    ORVEL_RETURN_IF_ERROR(store->AddRevision(rev));
    ++existing.revisions;
  }
  ORVEL_RETURN_IF_ERROR(store->Update(existing));
  if (!drop_id.empty()) ORVEL_RETURN_IF_ERROR(store->Purge(drop_id));
  ORVEL_RETURN_IF_ERROR(store->TouchAncestors(dest.node.file_id, existing.sync_id));
  ORVEL_RETURN_IF_ERROR(intent.Drop());
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  intent.Committed();
  out->node = existing;
  out->components = dest.components;
  out->components.push_back(existing.name);
  return Status::OK();
}

}  // namespace

Status PlaceStaged(Daemon& d, Store* store, const Resolved& dest, StagedNode& item, int temp_dir,
                   const std::string& temp_name, const ConflictPolicy& policy, PlaceOutcome* out) {
  const bool is_dir = item.row.is_dir();
  const std::string& p = policy.For(is_dir);
  ScopedFd dest_dir;
  ORVEL_RETURN_IF_ERROR(OpenFolderOf(d, dest, &dest_dir));
  std::string name;
  Node existing;
  bool has_existing = false, skip = false;
  ORVEL_RETURN_IF_ERROR(
      ChooseName(store, dest, dest_dir.get(), item.row.name, is_dir, p, &name, &existing, &has_existing, &skip));
  if (skip) {
    out->skipped = true;
    out->node = existing;
    return RemoveAt(temp_dir, temp_name, temp_name);
  }
  if (!has_existing) return PlaceNew(d, store, dest, dest_dir.get(), item, temp_dir, temp_name, name, out);
  if (!is_dir)
    return ReplaceContent(d, store, dest, dest_dir.get(), existing, item.row, temp_dir, temp_name,
                          p == "overwrite_server", "", out);
  // A folder onto a folder: its children join the existing one.
  Resolved into = Child(dest, existing);
  ScopedFd staged;
  ORVEL_RETURN_IF_ERROR(OpenFolderAt(temp_dir, temp_name, temp_name, &staged));
  for (StagedNode& c : item.children) {
    PlaceOutcome sub;
    ORVEL_RETURN_IF_ERROR(PlaceStaged(d, store, into, c, staged.get(), c.row.name, policy, &sub));
  }
  out->node = existing;
  out->components = into.components;
  return RemoveAt(temp_dir, temp_name, temp_name);
}

Status MoveItem(Daemon& d, Store* store, const Resolved& src, const Resolved& dest,
                const std::string& new_name, const ConflictPolicy& policy, PlaceOutcome* out) {
  if (src.components.empty()) return Status(kErrInvalidArgument, "cannot move /mydrive itself");
  if (IsSameOrBelow(dest, src))
    return Status(kErrIntoItself, "cannot move a folder into itself: " + src.ViewPath());
  const std::string name = new_name.empty() ? src.node.name : new_name;
  ORVEL_RETURN_IF_ERROR(ValidateName(name));
  if (dest.node.file_id == src.node.parent_id && name == src.node.name) {
    out->node = src.node;
    out->components = src.components;
    return Status::OK();  // already there
  }
  const bool is_dir = src.node.is_dir();
  const std::string& p = policy.For(is_dir);
  ItemAt from;
  ORVEL_RETURN_IF_ERROR(OpenItemAt(d, src.node.owner, src.components, &from));
  ScopedFd dest_dir;
  ORVEL_RETURN_IF_ERROR(OpenFolderOf(d, dest, &dest_dir));
  std::string chosen;
  Node existing;
  bool has_existing = false, skip = false;
  ORVEL_RETURN_IF_ERROR(
      ChooseName(store, dest, dest_dir.get(), name, is_dir, p, &chosen, &existing, &has_existing, &skip));
  if (skip) {
    out->skipped = true;
    out->node = existing;
    return Status::OK();
  }
  if (has_existing && !is_dir)
    return ReplaceContent(d, store, dest, dest_dir.get(), existing, src.node, from.dir.get(), from.name,
                          p == "overwrite_server", src.node.file_id, out);
  if (has_existing) {  // merge the folder's children, then drop it if emptied
    Resolved into = Child(dest, existing);
    std::vector<Node> kids;
    ORVEL_RETURN_IF_ERROR(LiveChildren(store, src.node.file_id, &kids));
    for (const Node& k : kids) {
      PlaceOutcome sub;
      ORVEL_RETURN_IF_ERROR(MoveItem(d, store, Child(src, k), into, "", policy, &sub));
    }
    ORVEL_RETURN_IF_ERROR(LiveChildren(store, src.node.file_id, &kids));
    if (kids.empty() && unlinkat(from.dir.get(), from.name.c_str(), AT_REMOVEDIR) == 0) {
      Transaction tx(store, true);
      ORVEL_RETURN_IF_ERROR(tx.status());
      ORVEL_RETURN_IF_ERROR(store->Purge(src.node.file_id));
      ORVEL_RETURN_IF_ERROR(tx.Commit());
    }
    out->node = existing;
    out->components = into.components;
    return Status::OK();
  }
  const std::string to = DiskOf(d, dest) + "/" + chosen;
  RenameIntent intent(d.layout, store);
  intent.Add(from.dir.get(), from.name, dest_dir.get(), chosen);
  ORVEL_RETURN_IF_ERROR(intent.Record());
  ORVEL_RETURN_IF_ERROR(intent.Apply());
  Node n = src.node;
  n.parent_id = dest.node.file_id;
  n.name = chosen;
  if (!is_dir) {
    n.ext = ExtensionOf(chosen);
    if (!n.is_link()) n.content_type = ContentTypeOf(chosen, false);
  }
  n.change_time = time(nullptr);
  Transaction tx(store, true);
  Status st = tx.status();
  if (st.ok()) st = store->NextChange(&n.sync_id);
  n.max_id = std::max(n.max_id, n.sync_id);
  if (st.ok()) st = store->Update(n);
  if (st.ok()) st = store->TouchAncestors(src.node.parent_id, n.sync_id);
  if (st.ok()) st = store->TouchAncestors(dest.node.file_id, n.sync_id);
  if (st.ok()) st = intent.Drop();
  if (st.ok()) st = tx.Commit();
  if (!st.ok()) return st;  // the intent takes the rename back
  intent.Committed();
  out->node = n;
  out->components = dest.components;
  out->components.push_back(chosen);
  return Status::OK();
}

namespace {

// Flags node and everything live below it as removed.
Status MarkRemoved(Store* store, Node node, int64_t now) {
  if (node.is_dir()) {
    std::vector<Node> kids;
    ORVEL_RETURN_IF_ERROR(LiveChildren(store, node.file_id, &kids));
    for (const Node& k : kids) ORVEL_RETURN_IF_ERROR(MarkRemoved(store, k, now));
  }
  node.removed = true;
  node.change_time = now;
  return store->Update(node);
}

}  // namespace

Status DeleteItem(Daemon& d, Store* store, const Resolved& src, bool permanent,
                  const std::string& trash_name, const std::string& removed_by) {
  if (src.node.parent_id.empty()) return Status(kErrInvalidArgument, "cannot delete /mydrive itself");
  const bool in_bin = src.node.removed;
  if (in_bin && !permanent) return Status::OK();  // already there
  ItemAt from;
  if (in_bin) {
    ORVEL_RETURN_IF_ERROR(DupFd(d.dirs.recycle(), d.layout.recycle, &from.dir));
    from.name = src.node.file_id;
    from.path = d.layout.recycle + "/" + src.node.file_id;
  } else {
    Status opened = OpenItemAt(d, src.node.owner, src.components, &from);
    if (opened.code() != kErrNotFound) ORVEL_RETURN_IF_ERROR(opened);  // a folder on the way vanished: gone
  }
  const int to_dir = permanent ? d.dirs.tmp() : d.dirs.recycle();
  const std::string to = permanent ? trash_name : src.node.file_id;
  struct stat st_disk;
  bool on_disk = false;
  if (from.dir.valid()) ORVEL_RETURN_IF_ERROR(StatAt(from.dir.get(), from.name, from.path, &st_disk, &on_disk));
  const bool gone = !on_disk;  // its file vanished: only the rows go
  RenameIntent intent(d.layout, store);
  if (!gone) {
    intent.Add(from.dir.get(), from.name, to_dir, to);
    // Items deleted earlier from below a folder deleted for good lie in the
    // bin on their own: their content goes with the folder's into the trash.
    std::vector<std::string> below;
    if (permanent && src.node.is_dir()) ORVEL_RETURN_IF_ERROR(store->recycle()->TopsBelow(src.node.file_id, &below));
    for (const std::string& id : below)
      intent.Add(d.layout.recycle + "/" + id, d.layout.tmp + "/" + trash_name + "/@recycled-" + id);
    ORVEL_RETURN_IF_ERROR(intent.Record());
    ORVEL_RETURN_IF_ERROR(intent.Apply());
  }
  int64_t now = time(nullptr);
  Transaction tx(store, true);
  Status st = tx.status();
  uint64_t seq = 0;
  if (st.ok()) st = store->NextChange(&seq);
  if (st.ok()) st = permanent ? store->Purge(src.node.file_id) : MarkRemoved(store, src.node, now);
  if (st.ok() && !permanent)
    st = store->recycle()->Add(RecycleEntry{src.node.file_id, src.node.owner, now, removed_by,
                                            src.node.parent_id, MyDrivePath(src.components)});
  if (st.ok()) st = store->TouchAncestors(src.node.parent_id, seq);
  if (st.ok()) st = intent.Drop();
  if (st.ok()) st = tx.Commit();
  if (!st.ok()) return st;  // the intent takes the rename back
  intent.Committed();
  return Status::OK();
}

}  // namespace orvel::syncd
