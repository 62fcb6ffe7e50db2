// The upload request that "create" and "upload" send to the sync service
// (Nimbard::UploadFile), built in one place. The two methods differ only in
// the options below; "update" reuses the file block.
//
// Builders return 0, or -1 after logging under the caller's log name; they
// set no API error (the caller reports its own). Reentrant.
#pragma once

#include "bridge/bridge-request.h"
#include "nimbard/file.h"
#include "orvelcommon/pobject.h"

namespace orvel::module {

struct UploadRequestOptions {
  const char* log_source;     // "create" or "upload"
  bool always_set_removed;    // "removed" even when not sent (false)
  bool with_permanent_link;   // copy "permanent_link" when sent
  bool keep_boolean_starred;  // store a JSON boolean "starred" as it is
};

// The options of "create" and of "upload".
extern const UploadRequestOptions kCreateRequestOptions;
extern const UploadRequestOptions kUploadRequestOptions;

// Fills request from the parameters; file is the content's file (a File on
// an empty path for a folder). A "type" of "folder" makes a folder request;
// any other type a file request with "file_data_path" and the file block.
int PrepareUploadRequest(const UploadRequestOptions& options, BridgeRequest& request,
                         const File& file, PObject& out);

// Reads and hashes file, then sets "file": {"size", "hash", "refer",
// "is_delta", "real_size"}.
int PrepareFileBlock(const char* log_source, const File& file, PObject& out);

// "version" becomes "overwrite_server"; any other policy is kept.
std::string ConflictPolicy(const std::string& conflict_action);

}  // namespace orvel::module
