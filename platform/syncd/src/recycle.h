// recycle: restoring items from the recycle bin and deleting for good what
// has been there longer than the configured number of days
// (docs/transfer.md, "Delete and the recycle bin").
//
// Threading: RestoreItem needs Daemon::write_mu held by the caller;
// PurgeExpired takes it per item itself.
#pragma once

#include <cstdint>
#include <string>

#include "daemon.h"
#include "db/recycle_store.h"
#include "space.h"

namespace orvel::syncd {

// Renames the removed top e back into the folder it came from and clears
// the removed flag of what went into the bin with it; the item keeps its
// file id and marks. The folder is its original folder while that is live
// (wherever it lies now); otherwise folders are made again along the
// original path. policy: "stop" (kErrNameExists when the name is taken) or
// "autorename". *out is the restored item.
Status RestoreItem(Daemon& d, Store* store, const Caller& caller, const RecycleEntry& e,
                   const std::string& policy, Resolved* out);

// Deletes for good every top of every bin removed before `before` (oldest
// first, so a top inside a removed folder goes before that folder), and
// counts them in *purged.
Status PurgeRemovedBefore(Daemon& d, int64_t before, int* purged);

// PurgeRemovedBefore for the configured recycle_keep_days (none when 0).
void PurgeExpired(Daemon& d);

}  // namespace orvel::syncd
