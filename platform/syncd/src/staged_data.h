// staged_data: accepting the data file a client staged for upload_file and
// update_file ("file_data_path"). The daemon renames that file into a user's
// space, so it takes only a regular file (not a link) lying directly in
// <data>/@tmp, opened through a descriptor of @tmp without following links,
// and owned by the connecting peer's uid unless the peer is root. Anything
// else is refused with kErrInvalidArgument and left untouched; a missing file
// is kErrDataMissing. Stateless; thread-safe.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "orvelcommon/status.h"
#include "tree.h"

namespace orvel::syncd {

struct StagedData {
  ScopedFd fd;       // open for reading
  std::string path;  // <layout.tmp>/<name>: the daemon's own spelling of it
  struct stat st;
};

// Opens data_path for a peer with uid peer_uid; see above.
Status OpenStagedData(const Layout& layout, uid_t peer_uid, const std::string& data_path,
                      StagedData* out);

// The SHA-256 and size of a staged file. The digest that the web framework
// recorded on the file as it wrote it (orvelcommon/sha256.h, StoreDigest) is
// taken as it is when the file has no other hard link and the size and
// modification time recorded with it still match; otherwise the file is
// read and hashed (hook point "staged-data-hash" runs first). Only peers the
// daemon already trusts to act for users can stage a file or write that
// record on it (docs/transfer.md, "One hash per upload").
Status HashStagedData(const StagedData& data, std::string* hex, uint64_t* size);

}  // namespace orvel::syncd
