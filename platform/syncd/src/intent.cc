// See intent.h.
#include "intent.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "fault.h"
#include "log.h"
#include "orvelcommon/pobject.h"
#include "orvelcommon/wire.h"
#include "space.h"
#include "space_fs.h"

namespace orvel::syncd {
namespace {

std::string EncodeSteps(const std::vector<RenameStep>& steps) {
  PObject a = PObject::MakeArray();
  for (const RenameStep& s : steps) {
    PObject m = PObject::MakeMap();
    m["from"] = s.from;
    m["to"] = s.to;
    m["replace"] = s.replace;
    m["aside"] = s.aside;
    m["dev"] = static_cast<unsigned long long>(s.dev);
    m["ino"] = static_cast<unsigned long long>(s.ino);
    a.push_back(m);
  }
  return wire::Encode(a);
}

Status DecodeSteps(const std::string& blob, std::vector<RenameStep>* out) {
  PObject a;
  ORVEL_RETURN_IF_ERROR(wire::Decode(blob.data(), blob.size(), &a));
  if (!a.isArray()) return Status(kErrStorage, "intent record is not a list");
  for (const PObject& m : a.asArray()) {
    RenameStep s;
    s.from = m["from"].asString();
    s.to = m["to"].asString();
    s.replace = m["replace"].asBool();
    s.aside = m["aside"].asString();
    s.dev = m["dev"].asUInt64();
    s.ino = m["ino"].asUInt64();
    out->push_back(std::move(s));
  }
  return Status::OK();
}

// An entry named by its path inside the data folder: the folder that holds
// it, opened beneath the data folder without following links, and its name.
struct DataEntry {
  ScopedFd dir;
  std::string name;
};

Status OpenDataEntry(const std::string& data, const std::string& path, DataEntry* out) {
  if (path.size() <= data.size() + 1 || !PathIsInside(path, data))
    return Status(kErrPermission, "not inside the data folder: " + path);
  const std::string rel = path.substr(data.size() + 1);
  const size_t slash = rel.find_last_of('/');
  out->name = slash == std::string::npos ? rel : rel.substr(slash + 1);
  ScopedFd root(open(data.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!root.valid()) return FsError("open", data, errno);
  return OpenBeneath(root.get(), slash == std::string::npos ? "." : rel.substr(0, slash), O_RDONLY | O_DIRECTORY, 0,
                     path, &out->dir);
}

bool Exists(const std::string& data, const std::string& path, struct stat* st = nullptr) {
  struct stat scratch;
  DataEntry e;
  bool exists = false;
  return OpenDataEntry(data, path, &e).ok() && StatAt(e.dir.get(), e.name, path, st ? st : &scratch, &exists).ok() &&
         exists;
}

Status RenameEntries(const std::string& data, const std::string& from, const std::string& to, bool replace) {
  if (int e = fault::Check("fs.rename")) return FsError("rename", from + " -> " + to, e);
  DataEntry a, b;
  ORVEL_RETURN_IF_ERROR(OpenDataEntry(data, from, &a));
  ORVEL_RETURN_IF_ERROR(OpenDataEntry(data, to, &b));
  return RenameAt(a.dir.get(), a.name, b.dir.get(), b.name, replace ? 0 : RENAME_NOREPLACE, to);
}

// Hard-links the entry `from` (never what a link points to) as `to`.
Status LinkEntry(const std::string& data, const std::string& from, const std::string& to) {
  if (int e = fault::Check("fs.link")) return FsError("link", from + " -> " + to, e);
  DataEntry a, b;
  ORVEL_RETURN_IF_ERROR(OpenDataEntry(data, from, &a));
  ORVEL_RETURN_IF_ERROR(OpenDataEntry(data, to, &b));
  if (linkat(a.dir.get(), a.name.c_str(), b.dir.get(), b.name.c_str(), 0) != 0)
    return FsError("link", from + " -> " + to, errno);
  return FsyncFd(b.dir.get(), to);
}

Status RemoveEntry(const std::string& data, const std::string& path) {
  DataEntry e;
  ORVEL_RETURN_IF_ERROR(OpenDataEntry(data, path, &e));
  return RemoveAt(e.dir.get(), e.name, path);
}

// The path of the entry `name` of the open folder dir, spelled from the
// data folder's configured path (the kernel gives the resolved one).
std::string EntryPath(const std::string& data, int dir, const std::string& name) {
  char buf[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(dir);
  ssize_t n = readlink(link.c_str(), buf, sizeof(buf) - 1);
  if (n <= 0) return name;  // refused later as not inside the data folder
  std::string path(buf, static_cast<size_t>(n));
  char real[PATH_MAX];
  if (realpath(data.c_str(), real) && PathIsInside(path, real)) path = data + path.substr(strlen(real));
  return path + "/" + name;
}

// Puts one step back; nothing to do when it was never made.
Status UndoStep(const std::string& data, const RenameStep& s) {
  struct stat st;
  bool made = Exists(data, s.to, &st) && st.st_ino == s.ino && st.st_dev == s.dev;
  if (made) {
    if (Exists(data, s.from))
      return Status(kErrStorage, "cannot undo the rename to " + s.to + ": " + s.from + " exists");
    ORVEL_RETURN_IF_ERROR(RenameEntries(data, s.to, s.from, false));
  }
  if (s.aside.empty() || !Exists(data, s.aside)) return Status::OK();
  if (made || !Exists(data, s.to)) return RenameEntries(data, s.aside, s.to, false);
  return RemoveEntry(data, s.aside);  // never replaced: `to` is still the old file
}

Status UndoAll(const std::string& data, const std::vector<RenameStep>& steps) {
  Status result;
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
    Status st = UndoStep(data, *it);
    if (!st.ok() && result.ok()) result = st;
  }
  return result;
}

Status DropRecord(Store* store, int64_t id) {
  Transaction tx(store, true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(store->DropIntent(id));
  return tx.Commit();
}

}  // namespace

RenameIntent::~RenameIntent() {
  if (!done_ && (started_ || id_ != 0)) Undo();
}

void RenameIntent::Add(const std::string& from, const std::string& to, bool replace) {
  RenameStep s;
  s.from = from;
  s.to = to;
  s.replace = replace;
  steps_.push_back(std::move(s));
}

void RenameIntent::Add(int from_dir, const std::string& from_name, int to_dir, const std::string& to_name,
                       bool replace) {
  Add(EntryPath(layout_.data, from_dir, from_name), EntryPath(layout_.data, to_dir, to_name), replace);
}

Status RenameIntent::Record() {
  for (RenameStep& s : steps_) {
    struct stat st;
    if (!Exists(layout_.data, s.from, &st)) return Status(kErrNotFound, "nothing to rename: " + s.from);
    s.dev = st.st_dev;
    s.ino = st.st_ino;
    if (s.replace) s.aside = layout_.tmp + "/intent-" + NewFileId();
  }
  if (!store_ || steps_.empty()) return Status::OK();
  Transaction tx(store_, true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  int64_t id = 0;
  ORVEL_RETURN_IF_ERROR(store_->AddIntent(EncodeSteps(steps_), &id));
  ORVEL_RETURN_IF_ERROR(tx.Commit());
  id_ = id;
  return Status::OK();
}

Status RenameIntent::Apply() {
  started_ = true;
  for (const RenameStep& s : steps_) {
    Status st = s.replace ? LinkEntry(layout_.data, s.to, s.aside) : Status::OK();
    if (st.ok()) st = RenameEntries(layout_.data, s.from, s.to, s.replace);
    ORVEL_RETURN_IF_ERROR(st);
  }
  return Status::OK();
}

Status RenameIntent::Drop() {
  if (!store_ || id_ == 0) return Status::OK();
  return store_->DropIntent(id_);
}

void RenameIntent::Committed() {
  done_ = true;
  for (const RenameStep& s : steps_) {
    if (!s.aside.empty()) RemoveEntry(layout_.data, s.aside);  // a leftover is swept at start-up
  }
}

Status RenameIntent::Undo() {
  done_ = true;
  Status st = UndoAll(layout_.data, steps_);
  if (!st.ok()) {
    SLOG_ERROR("undoing a failed write: %s; start-up will try again", st.ToString().c_str());
    return st;
  }
  if (store_ && id_ != 0) {
    Status drop = DropRecord(store_, id_);
    if (!drop.ok()) SLOG_WARN("intent %lld: dropping its record: %s", static_cast<long long>(id_), drop.ToString().c_str());
  }
  return Status::OK();
}

Status RecoverIntents(const Layout& layout, Store* store) {
  std::vector<std::pair<int64_t, std::string>> records;
  ORVEL_RETURN_IF_ERROR(store->ListIntents(&records));
  bool all_undone = true;
  for (const auto& [id, blob] : records) {
    std::vector<RenameStep> steps;
    Status st = DecodeSteps(blob, &steps);
    if (st.ok()) st = UndoAll(layout.data, steps);
    if (!st.ok()) {
      SLOG_ERROR("intent %lld: %s; kept for the next start", static_cast<long long>(id), st.ToString().c_str());
      all_undone = false;
      continue;
    }
    ORVEL_RETURN_IF_ERROR(DropRecord(store, id));
    SLOG_INFO("intent %lld: an interrupted write was undone (%zu renames)", static_cast<long long>(id), steps.size());
  }
  if (!all_undone) return Status::OK();  // their files stay for the next try
  DIR* dir = opendir(layout.tmp.c_str());
  if (!dir) return FsError("opendir", layout.tmp, errno);
  std::vector<std::string> doomed;
  while (const dirent* e = readdir(dir)) {
    if (strncmp(e->d_name, "intent-", 7) == 0 || strncmp(e->d_name, ".syncd-copy-", 12) == 0)
      doomed.push_back(layout.tmp + "/" + e->d_name);  // removed without following links
  }
  closedir(dir);
  for (const std::string& p : doomed) RemoveEntry(layout.data, p);
  return Status::OK();
}

}  // namespace orvel::syncd
