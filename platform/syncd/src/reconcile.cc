// See reconcile.h.
#include "reconcile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>
#include <set>
#include <utility>

#include "log.h"
#include "mime.h"
#include "space.h"
#include "space_fs.h"

namespace orvel::syncd {
namespace {

struct DiskEntry {
  std::string name;
  bool is_dir = false, is_link = false;
  struct stat st;
};

// The entries of a folder that become items: folders, regular files and
// symbolic links (items of their own, never followed) with valid names.
Status ReadDir(int dir, const std::string& path, std::vector<DiskEntry>* out, uint64_t* skipped) {
  out->clear();
  std::vector<DirEntryAt> entries;
  ORVEL_RETURN_IF_ERROR(ReadDirAt(dir, path, &entries));
  for (DirEntryAt& e : entries) {
    const mode_t m = e.st.st_mode;
    if ((!S_ISDIR(m) && !S_ISREG(m) && !S_ISLNK(m)) || !ValidateName(e.name).ok()) {
      ++*skipped;  // devices, sockets, pipes and unusable names are not indexed
      continue;
    }
    DiskEntry de;
    de.name = std::move(e.name);
    de.is_dir = S_ISDIR(m);
    de.is_link = S_ISLNK(m);
    de.st = e.st;
    out->push_back(std::move(de));
  }
  return Status::OK();
}

// Fills the row of a disk entry (a new row, or an existing one to refresh).
// A link keeps no size and no hash: its target is never read.
Status FillFromDisk(const DiskEntry& e, int dir, const std::string& path, Node* n, bool* content_changed) {
  *content_changed = false;
  const bool was_link = n->row_id != 0 && n->is_link();
  n->type = e.is_dir ? 1 : 0;
  n->name = e.name;
  n->ext = e.is_dir ? "" : ExtensionOf(e.name);
  n->content_type = e.is_link ? kLinkContentType : ContentTypeOf(e.name, e.is_dir);
  n->access_time = e.st.st_atime;
  n->change_time = e.st.st_ctime;
  if (n->created_time == 0) n->created_time = e.st.st_mtime;
  if (e.is_link) {
    *content_changed = n->row_id != 0 && !was_link;
    n->hash.clear();
    n->size = 0;
  } else if (!e.is_dir) {
    bool stale = n->row_id == 0 || was_link || n->size != static_cast<uint64_t>(e.st.st_size) ||
                 n->modified_time != e.st.st_mtime || n->hash.empty();
    if (stale) {
      std::string hash;
      uint64_t size = 0;
      ScopedFd fd;
      ORVEL_RETURN_IF_ERROR(OpenFileAt(dir, e.name, path, &fd));
      ORVEL_RETURN_IF_ERROR(HashFd(fd.get(), &hash, &size));
      *content_changed = hash != n->hash || size != n->size;
      n->hash = hash;
      n->size = size;
    }
  }
  // A folder's own time changes with every entry made in it; the row keeps
  // the time the service gave it.
  if (!e.is_dir || n->row_id == 0) n->modified_time = e.st.st_mtime;
  return Status::OK();
}

// A folder to visit: its row and its place below the owner's root.
using Visit = std::pair<Node, std::vector<std::string>>;

Visit Below(const Visit& parent, const Node& child) {
  Visit v{child, parent.second};
  v.second.push_back(child.name);
  return v;
}

// One folder: returns the sub-folders to visit next.
Status ReconcileOne(Daemon& d, Store* store, const Visit& at, ReconcileStats* stats, std::vector<Visit>* next) {
  const Node& folder = at.first;
  ScopedFd dir;
  ORVEL_RETURN_IF_ERROR(OpenSpaceFolder(d, folder.owner, at.second, &dir));
  const std::string dir_path = DiskPath(d.layout, folder.owner, at.second);
  std::vector<DiskEntry> disk;
  ORVEL_RETURN_IF_ERROR(ReadDir(dir.get(), dir_path, &disk, &stats->skipped));
  std::vector<Node> rows;
  ORVEL_RETURN_IF_ERROR(store->ListAllChildren(folder.file_id, &rows));
  std::map<std::string, Node> live, gone;
  for (Node& r : rows) {
    if (r.removed) continue;  // in the recycle bin: its content lives in @recycle
    (r.vanished ? gone : live)[r.name] = r;
  }

  // Hash outside the transaction; collect the writes.
  std::vector<Node> inserts;
  std::vector<std::pair<Node, bool>> updates;  // row, content changed
  std::vector<std::string> vanish;
  std::set<std::string> seen;
  for (const DiskEntry& e : disk) {
    seen.insert(e.name);
    std::string path = dir_path + "/" + e.name;
    auto it = live.find(e.name);
    Node n;
    bool revive = false;
    if (it != live.end() && it->second.is_dir() == e.is_dir) {
      n = it->second;
    } else {
      if (it != live.end()) vanish.push_back(it->second.file_id);  // type changed
      auto g = gone.find(e.name);
      if (g != gone.end() && g->second.is_dir() == e.is_dir && !g->second.removed) {
        n = g->second;  // came back: keep its id
        revive = true;
      } else {
        n.file_id = NewFileId();
        n.parent_id = folder.file_id;
        n.owner = folder.owner;
      }
    }
    Node before = n;
    bool content_changed = false;
    Status st = FillFromDisk(e, dir.get(), path, &n, &content_changed);
    if (!st.ok()) {
      SLOG_WARN("reconcile: skipping %s: %s", path.c_str(), st.ToString().c_str());
      ++stats->skipped;
      continue;
    }
    if (n.row_id == 0) {
      inserts.push_back(n);
      ++stats->added;
    } else if (revive || content_changed || before.modified_time != n.modified_time ||
               before.size != n.size) {
      n.vanished = false;
      updates.emplace_back(n, content_changed);
      ++(revive ? stats->revived : stats->updated);
    } else if (e.is_dir) {
      next->push_back(Below(at, n));
    }
  }
  for (auto& kv : live) {
    if (!seen.count(kv.first)) vanish.push_back(kv.second.file_id);
  }
  if (inserts.empty() && updates.empty() && vanish.empty()) return Status::OK();

  Transaction tx(store, true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  uint64_t seq = 0;
  ORVEL_RETURN_IF_ERROR(store->NextChange(&seq));
  for (const std::string& id : vanish) {
    ORVEL_RETURN_IF_ERROR(store->MarkVanished(id));
    ++stats->vanished;
  }
  std::vector<Visit> dirs;
  for (auto& [n, changed] : updates) {
    if (changed || n.sync_id == 0) n.sync_id = seq;
    n.max_id = seq;
    ORVEL_RETURN_IF_ERROR(store->Update(n));
    if (n.is_dir()) dirs.push_back(Below(at, n));
  }
  for (Node& n : inserts) {
    n.sync_id = n.max_id = seq;
    ORVEL_RETURN_IF_ERROR(store->Insert(&n));
    if (n.is_dir()) dirs.push_back(Below(at, n));
  }
  ORVEL_RETURN_IF_ERROR(store->TouchAncestors(folder.file_id, seq));
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  next->insert(next->end(), dirs.begin(), dirs.end());
  return Status::OK();
}

}  // namespace

Status ReconcileFolder(Daemon& d, Store* store, const Node& folder, const std::vector<std::string>& components,
                       ReconcileStats* stats) {
  std::vector<Visit> stack = {{folder, components}};
  while (!stack.empty()) {
    Visit at = std::move(stack.back());
    stack.pop_back();
    ++stats->folders;
    ORVEL_RETURN_IF_ERROR(ReconcileOne(d, store, at, stats, &stack));
  }
  return Status::OK();
}

Status ReconcileAll(Daemon& d, ReconcileStats* stats) {
  StoreLease store;
  ORVEL_RETURN_IF_ERROR(d.pool->Acquire(&store));
  std::vector<Node> roots;
  ORVEL_RETURN_IF_ERROR(store->ListRoots(&roots));
  std::set<std::string> owners;
  for (const Node& root : roots) {
    owners.insert(root.owner);
    if (ValidateName(root.owner).ok() && mkdirat(d.dirs.homes(), root.owner.c_str(), 0750) == 0) {
      SLOG_WARN("home folder of %s was missing; recreated it", root.owner.c_str());
    }
    Status st = ReconcileFolder(d, store.get(), root, {}, stats);
    if (!st.ok()) SLOG_ERROR("reconcile %s: %s", d.layout.Home(root.owner).c_str(), st.ToString().c_str());
  }
  // Homes made on disk by an administrator for known users.
  std::vector<DirEntryAt> entries;
  ORVEL_RETURN_IF_ERROR(ReadDirAt(d.dirs.homes(), d.layout.homes, &entries));
  std::vector<std::string> names;
  for (const DirEntryAt& e : entries) {
    if (!owners.count(e.name)) names.push_back(e.name);
  }
  for (const std::string& name : names) {
    UserRecord user;
    if (!d.users->Lookup(name, &user).ok()) {
      SLOG_INFO("reconcile: %s/%s belongs to no known user; left alone", d.layout.homes.c_str(),
                name.c_str());
      continue;
    }
    Node root;
    Status st = EnsureHome(d, store.get(), name, &root);  // indexes what is there
    if (!st.ok()) SLOG_ERROR("reconcile home of %s: %s", name.c_str(), st.ToString().c_str());
  }
  return Status::OK();
}

Status CleanTmp(const Daemon& d, int64_t max_age_seconds, int* removed) {
  *removed = 0;
  std::vector<DirEntryAt> entries;
  ORVEL_RETURN_IF_ERROR(ReadDirAt(d.dirs.tmp(), d.layout.tmp, &entries));
  int64_t cutoff = time(nullptr) - max_age_seconds;
  for (const DirEntryAt& e : entries) {
    if (e.st.st_mtime >= cutoff) continue;
    Status st = RemoveAt(d.dirs.tmp(), e.name, d.layout.tmp + "/" + e.name);
    if (st.ok()) ++*removed;
    else SLOG_WARN("clean @tmp: %s", st.ToString().c_str());
  }
  return Status::OK();
}

}  // namespace orvel::syncd
