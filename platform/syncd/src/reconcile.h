// reconcile: brings the database in line with the real tree. Files and
// folders that an administrator added on disk are indexed (hashed), files
// whose size or modification time changed are re-hashed, and rows whose file
// vanished are marked (vanished = 1, with everything below them). Also the
// start-up cleaning of old temp files in @tmp.
//
// Threading: the caller holds Daemon::write_mu (or runs before the server
// starts). Each folder is one transaction.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "daemon.h"
#include "db/store.h"

namespace orvel::syncd {

struct ReconcileStats {
  uint64_t folders = 0, added = 0, updated = 0, vanished = 0, revived = 0, skipped = 0;
};

// Reconciles the folder row `folder` (at `components` below its owner's
// root) and everything below it. Symbolic links become link items
// (kLinkContentType) and are never followed; a link on the way to a folder
// fails that folder with kErrPermission.
Status ReconcileFolder(Daemon& d, Store* store, const Node& folder, const std::vector<std::string>& components,
                       ReconcileStats* stats);

// Reconciles every home that has a root row, and creates the rows of homes
// that exist on disk for known users.
Status ReconcileAll(Daemon& d, ReconcileStats* stats);

// Removes the entries of @tmp whose modification time is older than
// max_age_seconds. Returns the number removed in *removed.
Status CleanTmp(const Daemon& d, int64_t max_age_seconds, int* removed);

}  // namespace orvel::syncd
