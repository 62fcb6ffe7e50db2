// See reconcile.h.
#include "reconcile.h"

#include <dirent.h>
#include <fcntl.h>
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

namespace orvel::syncd {
namespace {

struct DiskEntry {
  std::string name;
  bool is_dir = false;
  struct stat st;
};

Status ReadDir(const std::string& dir, std::vector<DiskEntry>* out, uint64_t* skipped) {
  out->clear();
  DIR* dp = opendir(dir.c_str());
  if (!dp) return FsError("opendir", dir, errno);
  while (struct dirent* e = readdir(dp)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    DiskEntry de;
    de.name = e->d_name;
    if (fstatat(dirfd(dp), e->d_name, &de.st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISDIR(de.st.st_mode)) {
      de.is_dir = true;
    } else if (!S_ISREG(de.st.st_mode) || !ValidateName(de.name).ok()) {
      ++*skipped;  // symbolic links, devices, sockets are not indexed
      continue;
    }
    out->push_back(std::move(de));
  }
  closedir(dp);
  return Status::OK();
}

// Fills the row of a disk entry (a new row, or an existing one to refresh).
Status FillFromDisk(const DiskEntry& e, const std::string& path, Node* n, bool* content_changed) {
  *content_changed = false;
  n->type = e.is_dir ? 1 : 0;
  n->name = e.name;
  n->ext = e.is_dir ? "" : ExtensionOf(e.name);
  n->content_type = ContentTypeOf(e.name, e.is_dir);
  n->access_time = e.st.st_atime;
  n->change_time = e.st.st_ctime;
  if (n->created_time == 0) n->created_time = e.st.st_mtime;
  if (!e.is_dir) {
    bool stale = n->row_id == 0 || n->size != static_cast<uint64_t>(e.st.st_size) ||
                 n->modified_time != e.st.st_mtime || n->hash.empty();
    if (stale) {
      std::string hash;
      uint64_t size = 0;
      ORVEL_RETURN_IF_ERROR(HashPath(path, &hash, &size));
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

// One folder: returns the sub-folders to visit next.
Status ReconcileOne(Store* store, const Node& folder, const std::string& dir, ReconcileStats* stats,
                    std::vector<std::pair<Node, std::string>>* next) {
  std::vector<DiskEntry> disk;
  ORVEL_RETURN_IF_ERROR(ReadDir(dir, &disk, &stats->skipped));
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
    std::string path = dir + "/" + e.name;
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
    Status st = FillFromDisk(e, path, &n, &content_changed);
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
      next->push_back({n, path});
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
  std::vector<std::pair<Node, std::string>> dirs;
  for (auto& [n, changed] : updates) {
    if (changed || n.sync_id == 0) n.sync_id = seq;
    n.max_id = seq;
    ORVEL_RETURN_IF_ERROR(store->Update(n));
    if (n.is_dir()) dirs.push_back({n, dir + "/" + n.name});
  }
  for (Node& n : inserts) {
    n.sync_id = n.max_id = seq;
    ORVEL_RETURN_IF_ERROR(store->Insert(&n));
    if (n.is_dir()) dirs.push_back({n, dir + "/" + n.name});
  }
  ORVEL_RETURN_IF_ERROR(store->TouchAncestors(folder.file_id, seq));
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  next->insert(next->end(), dirs.begin(), dirs.end());
  return Status::OK();
}

}  // namespace

Status ReconcileFolder(Daemon& d, Store* store, const Node& folder, const std::string& dir,
                       ReconcileStats* stats) {
  (void)d;
  std::vector<std::pair<Node, std::string>> stack = {{folder, dir}};
  while (!stack.empty()) {
    auto [node, path] = std::move(stack.back());
    stack.pop_back();
    ++stats->folders;
    ORVEL_RETURN_IF_ERROR(ReconcileOne(store, node, path, stats, &stack));
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
    std::string dir = d.layout.Home(root.owner);
    if (mkdir(dir.c_str(), 0750) == 0) {
      SLOG_WARN("home folder of %s was missing; recreated it", root.owner.c_str());
    }
    Status st = ReconcileFolder(d, store.get(), root, dir, stats);
    if (!st.ok()) SLOG_ERROR("reconcile %s: %s", dir.c_str(), st.ToString().c_str());
  }
  // Homes made on disk by an administrator for known users.
  DIR* dp = opendir(d.layout.homes.c_str());
  if (!dp) return FsError("opendir", d.layout.homes, errno);
  std::vector<std::string> names;
  while (struct dirent* e = readdir(dp)) {
    std::string name = e->d_name;
    if (name == "." || name == ".." || owners.count(name)) continue;
    names.push_back(name);
  }
  closedir(dp);
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

Status CleanTmp(const std::string& tmp, int64_t max_age_seconds, int* removed) {
  *removed = 0;
  DIR* dp = opendir(tmp.c_str());
  if (!dp) return FsError("opendir", tmp, errno);
  int64_t cutoff = time(nullptr) - max_age_seconds;
  std::vector<std::string> old;
  while (struct dirent* e = readdir(dp)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    struct stat st;
    if (fstatat(dirfd(dp), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (st.st_mtime < cutoff) old.push_back(tmp + "/" + e->d_name);
  }
  closedir(dp);
  for (const std::string& p : old) {
    Status st = RemoveTree(p);
    if (st.ok()) ++*removed;
    else SLOG_WARN("clean @tmp: %s", st.ToString().c_str());
  }
  return Status::OK();
}

}  // namespace orvel::syncd
