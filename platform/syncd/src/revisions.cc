// See revisions.h.
#include "revisions.h"

#include <mutex>
#include <vector>

#include "log.h"
#include "space_fs.h"

namespace orvel::syncd {
namespace {

constexpr size_t kAgeBatch = 256;

// Removes @versions/<hash> for each hash no row holds any more. A crash
// between the commit and here leaves an unreferenced file behind (space,
// never a wrong answer).
void RemoveUnheld(Daemon& d, Store* store, const std::vector<std::string>& hashes) {
  for (const std::string& hash : hashes) {
    bool held = true;
    Status st = store->HashReferenced(hash, &held);
    if (st.ok() && !held) st = RemoveAt(d.dirs.versions(), hash, d.layout.versions + "/" + hash);
    if (!st.ok()) SLOG_WARN("revision content %s: %s", hash.c_str(), st.ToString().c_str());
  }
}

}  // namespace

RevisionKeep RevisionKeepOf(const Daemon& d, int64_t now) {
  RevisionKeep keep;
  keep.keep_count = d.config.GetRevisionKeepCount();
  const uint64_t days = d.config.GetRevisionKeepDays();
  if (days > 0 && days < static_cast<uint64_t>(now / 86400)) keep.created_before = now - static_cast<int64_t>(days) * 86400;
  return keep;
}

Status PruneFileRevisions(Daemon& d, Store* store, const std::string& file_id, uint32_t* remaining) {
  std::vector<std::string> hashes;
  {
    Transaction tx(store, true);
    ORVEL_RETURN_IF_ERROR(tx.status());
    ORVEL_RETURN_IF_ERROR(store->PruneRevisions(file_id, RevisionKeepOf(d, time(nullptr)), &hashes, remaining));
    ORVEL_RETURN_IF_ERROR(tx.Commit());
  }
  RemoveUnheld(d, store, hashes);
  return Status::OK();
}

Status PruneOldRevisions(Daemon& d, int* pruned) {
  *pruned = 0;
  const RevisionKeep keep = RevisionKeepOf(d, time(nullptr));
  if (keep.created_before == 0) return Status::OK();
  StoreLease store;
  ORVEL_RETURN_IF_ERROR(d.pool->Acquire(&store));
  std::lock_guard<std::mutex> lock(d.write_mu);
  std::vector<std::string> files;
  ORVEL_RETURN_IF_ERROR(store->FilesWithOldRevisions(keep.created_before, kAgeBatch, &files));
  for (const std::string& file_id : files) {
    uint32_t remaining = 0;
    ORVEL_RETURN_IF_ERROR(PruneFileRevisions(d, store.get(), file_id, &remaining));
    ++*pruned;
  }
  return Status::OK();
}

}  // namespace orvel::syncd
