// tmp_sweep: keeps content deleted for good from staying reachable in @tmp.
// A download hands out hard links (a single file's download folder, a
// download task's staging tree); they are removed after the stream, but a
// stream that never ends cleanly leaves them until the temp cleaning. A
// permanent delete therefore notes the inodes of the files it deletes that
// have other links, and unlinks every other link of them found in @tmp.
//
// Threading: stateless; the caller must not hold Daemon::write_mu (the walk
// of @tmp can be long).
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "orvelcommon/status.h"

namespace orvel::syncd {

using InodeSet = std::set<std::pair<uint64_t, uint64_t>>;  // (dev, ino)

// Adds the inodes of the regular files at or below path that have more than
// one link (symbolic links are not followed).
Status CollectLinkedInodes(const std::string& path, InodeSet* out);

// Unlinks every regular file at any depth below tmp whose inode is in
// inodes; *removed counts them. Entries that cannot be read are skipped.
Status UnlinkLinksBelow(const std::string& tmp, const InodeSet& inodes, uint64_t* removed);

}  // namespace orvel::syncd
