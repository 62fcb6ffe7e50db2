// revisions: retention of the older contents of files. A revision is a row
// of the revisions table whose content is the file @versions/<hash>; several
// rows (of one file or of several) may share a hash. Retention keeps at most
// revision_keep_count rows per file (the newest) and, when
// revision_keep_days is set, none older; a kept file goes once no row holds
// its hash any more.
//
// Threading: the callers hold the daemon's write_mu, so that no write links
// a hash into @versions between the check that no row holds it and its
// removal.
#pragma once

#include <cstdint>
#include <string>

#include "daemon.h"
#include "db/store.h"

namespace orvel::syncd {

// What the configuration keeps, as of `now`.
RevisionKeep RevisionKeepOf(const Daemon& d, int64_t now);

// Applies retention to one file's revisions (after a revision was added)
// and sets *remaining to the file's revision count. Call with write_mu held.
Status PruneFileRevisions(Daemon& d, Store* store, const std::string& file_id, uint32_t* remaining);

// Applies the age limit to every file (the job worker, now and then);
// *pruned counts the files visited. Takes write_mu itself.
Status PruneOldRevisions(Daemon& d, int* pruned);

}  // namespace orvel::syncd
