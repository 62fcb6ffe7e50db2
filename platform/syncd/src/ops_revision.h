// The revision ops (docs/wire.md): list, hand over and restore the older
// contents of a file, and the content replacement they share with
// update_file.
#pragma once

#include <string>

#include "access.h"
#include "dispatch.h"

namespace orvel::syncd {

Status OpRevisionList(RequestContext& ctx, const PObject& args, PObject* result);
Status OpRevisionDownload(RequestContext& ctx, const PObject& args, PObject* result);
Status OpRevisionRestore(RequestContext& ctx, const PObject& args, PObject* result);

// Makes the readable file src_fd the item's new content through the steps
// of update_file (copied and fsynced in @tmp, the old content kept as a
// revision, the renames recorded, the row committed). kErrHashMismatch when
// the copy's hash is not expect_hash. Takes write_mu. ops_update.cc.
Status ReplaceContent(RequestContext& ctx, int src_fd, const std::string& expect_hash, Access* item);

}  // namespace orvel::syncd
