// The handlers of the transfer and organising ops (docs/wire.md): copy,
// move, delete, conversion and server-path import submit tasks after
// checking every argument (so refusals answer at once with their codes);
// dry runs answer counts and conflicts; download hands over one file or
// submits a staging task; task ops read and cancel tasks.
#pragma once

#include "dispatch.h"

namespace orvel::syncd {

Status OpCopyDryRun(RequestContext& ctx, const PObject& args, PObject* result);
Status OpCopy(RequestContext& ctx, const PObject& args, PObject* result);
Status OpMoveDryRun(RequestContext& ctx, const PObject& args, PObject* result);
Status OpMove(RequestContext& ctx, const PObject& args, PObject* result);
Status OpDelete(RequestContext& ctx, const PObject& args, PObject* result);
Status OpConvertOffice(RequestContext& ctx, const PObject& args, PObject* result);
Status OpUploadFromTpx(RequestContext& ctx, const PObject& args, PObject* result);

Status OpDownload(RequestContext& ctx, const PObject& args, PObject* result);
Status OpDownloadDryRun(RequestContext& ctx, const PObject& args, PObject* result);
Status OpDownloadTaskResult(RequestContext& ctx, const PObject& args, PObject* result);

Status OpTaskList(RequestContext& ctx, const PObject& args, PObject* result);  // ops_tasks.cc
Status OpTaskGet(RequestContext& ctx, const PObject& args, PObject* result);
Status OpTaskCancel(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminTaskList(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminTaskShow(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminTaskCancel(RequestContext& ctx, const PObject& args, PObject* result);

}  // namespace orvel::syncd
