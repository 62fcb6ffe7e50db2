// See intent.h.
#include "intent.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "log.h"
#include "nimbard/pobject.h"
#include "nimbard/wire.h"
#include "space.h"

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

bool Exists(const std::string& path, struct stat* st = nullptr) {
  struct stat scratch;
  return lstat(path.c_str(), st ? st : &scratch) == 0;
}

// Puts one step back; nothing to do when it was never made.
Status UndoStep(const RenameStep& s) {
  struct stat st;
  bool made = Exists(s.to, &st) && st.st_ino == s.ino && st.st_dev == s.dev;
  if (made) {
    if (Exists(s.from)) return Status(kErrStorage, "cannot undo the rename to " + s.to + ": " + s.from + " exists");
    ORVEL_RETURN_IF_ERROR(RenameNoReplaceDurable(s.to, s.from));
  }
  if (s.aside.empty() || !Exists(s.aside)) return Status::OK();
  if (made || !Exists(s.to)) return RenameNoReplaceDurable(s.aside, s.to);
  return RemoveTree(s.aside);  // never replaced: `to` is still the old file
}

Status UndoAll(const std::vector<RenameStep>& steps) {
  Status result;
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
    Status st = UndoStep(*it);
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

Status RenameIntent::Record() {
  for (RenameStep& s : steps_) {
    struct stat st;
    if (!Exists(s.from, &st)) return FsError("lstat", s.from, errno);
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
    Status st = s.replace ? LinkDurable(s.to, s.aside) : Status::OK();
    if (st.ok()) st = s.replace ? RenameDurable(s.from, s.to) : RenameNoReplaceDurable(s.from, s.to);
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
    if (!s.aside.empty()) RemoveTree(s.aside);  // a leftover is swept at start-up
  }
}

Status RenameIntent::Undo() {
  done_ = true;
  Status st = UndoAll(steps_);
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
    if (st.ok()) st = UndoAll(steps);
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
      doomed.push_back(layout.tmp + "/" + e->d_name);
  }
  closedir(dir);
  for (const std::string& p : doomed) RemoveTree(p);
  return Status::OK();
}

}  // namespace orvel::syncd
