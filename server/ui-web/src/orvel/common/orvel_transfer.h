// Copy and move of the Files API, written once: both read the same
// parameters, answer a dry run with the service's parsed verdict and start
// the real operation as a service task ({"async_task_id"}). Reentrant; one
// client per call.
#pragma once

#include "bridge/request-handler.h"

namespace orvel::module {

struct TransferKind {
  const char* log_source;       // "copy" or "move"
  bool is_move;                 // move reads "change_name" and calls Move*
  const char* dry_run_step;     // "CopyDryRun" / "MoveDryRun"
  const char* dry_run_message;  // "copy dry run failed" / "move dry run failed"
  const char* op_step;          // "CopyFile" / "MoveFile"
  const char* op_message;       // "copy file failed" / "move file failed"
};

extern const TransferKind kCopyTransfer;
extern const TransferKind kMoveTransfer;

// 0, or -1 with the error set.
int HandleTransfer(const TransferKind& kind, const RequestAuthentication& auth,
                   const std::string& sudo_user, BridgeRequest& request, BridgeResponse& response);

}  // namespace orvel::module
