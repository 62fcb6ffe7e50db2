// The handlers of the wire's ops (docs/wire.md), by area: service state and
// admin (ops_service.cc), browsing (ops_files.cc), upload (ops_upload.cc).
// Each returns OK and fills *result, or an error Status of the catalogue.
#pragma once

#include "dispatch.h"

namespace orvel::syncd {

Status OpStatus(RequestContext& ctx, const PObject& args, PObject* result);
Status OpFreezeGet(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminSetStatus(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminSetFreeze(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminStats(RequestContext& ctx, const PObject& args, PObject* result);
Status OpJobPushUnlink(RequestContext& ctx, const PObject& args, PObject* result);

Status OpListFile(RequestContext& ctx, const PObject& args, PObject* result);
Status OpGetFileInfo(RequestContext& ctx, const PObject& args, PObject* result);

Status OpUploadFile(RequestContext& ctx, const PObject& args, PObject* result);

}  // namespace orvel::syncd
