// Status: the small error value that platform code (client library, daemon,
// framework, admin tool) returns. Success carries nothing; an error carries a
// service error code (the negative numbers of docs/errors.md) and a message
// with context such as the path or the operation.
#pragma once

#include <string>
#include <utility>

namespace orvel {

// Service error codes, shared by the daemon and its clients (docs/errors.md).
enum ErrorCode : int {
  kOk = 0,
  kErrPermission = -402,
  kErrSharingToken = -403,
  kErrNotFound = -502,
  kErrParentNotFound = -503,
  kErrOutsideSpace = -505,
  kErrInRecycleBin = -506,
  kErrLabelNotFound = -507,
  kErrDataMissing = -508,
  kErrNameExists = -601,
  kErrIntoItself = -602,
  kErrInvalidName = -703,
  kErrTaskNotFound = -705,
  kErrBackupTargetNotFound = -712,
  kErrQuota = -800,
  kErrStorage = -801,
  kErrTooLarge = -803,
  kErrTooManyItems = -804,
  kErrNoThumbnail = -901,
  kErrThumbnailSpec = -902,
  kErrNotConvertible = -903,
  kErrNoConverter = -905,
  kErrEncrypted = -906,
  kErrInvalidArgument = -1101,
  kErrProtocolVersion = -1102,
  kErrBusy = -1103,
  kErrNotFolder = -1104,
  kErrIsFolder = -1105,
  kErrHashMismatch = -1106,
  kErrLabelExists = -1109,
  kErrLabelColour = -1110,
  kErrAlreadyRequested = -1111,
  kErrServerPathRefused = -1112,
  kErrServerPathMissing = -1113,
  kErrTooLargeToAnswer = -1114,
  kErrTaskFailed = -1115,
  kErrTaskCancelled = -1116,
  kErrInternal = -1117,
  kErrTooManyAttempts = -1118,
  kErrLinkLocked = -1119,     // a password link without a valid grant
  kErrLinkPassword = -1120,   // unlock_link: the password does not match
};

class Status {
 public:
  Status() = default;
  Status(int code, std::string message) : code_(code), message_(std::move(message)) {}
  static Status OK() { return Status(); }

  bool ok() const { return code_ == 0; }
  int code() const { return code_; }
  const std::string& message() const { return message_; }
  std::string ToString() const;  // "OK" or "message (code)"

 private:
  int code_ = 0;
  std::string message_;
};

// Builds a status from errno with the operation and path as context:
// ENOSPC/EDQUOT become kErrStorage/kErrQuota, ENOENT kErrNotFound,
// EACCES/EPERM kErrPermission, anything else kErrStorage.
Status ErrnoStatus(const std::string& op, const std::string& path, int err);

}  // namespace orvel

// Passes an error status up in one line.
#define ORVEL_RETURN_IF_ERROR(expr)         \
  do {                                      \
    ::orvel::Status _st = (expr);           \
    if (!_st.ok()) return _st;              \
  } while (0)
