// The ops of the recycle bin (docs/wire.md): list the caller's bin, restore
// items from it, delete given items or the whole bin for good (as a
// "delete" task). Only the owner of a bin reaches it: another user's
// removed item answers exactly like an unknown one (-502).
#pragma once

#include "dispatch.h"

namespace orvel::syncd {

Status OpRecycleList(RequestContext& ctx, const PObject& args, PObject* result);
Status OpRecycleRestore(RequestContext& ctx, const PObject& args, PObject* result);
Status OpRecycleDelete(RequestContext& ctx, const PObject& args, PObject* result);
Status OpRecycleEmpty(RequestContext& ctx, const PObject& args, PObject* result);

}  // namespace orvel::syncd
