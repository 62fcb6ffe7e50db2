// Status formatting and the errno-to-status helper of the platform layer.
#include "orvelcommon/status.h"

#include <cerrno>
#include <cstring>

namespace orvel {

std::string Status::ToString() const {
  if (ok()) return "OK";
  return message_ + " (" + std::to_string(code_) + ")";
}

Status ErrnoStatus(const std::string& op, const std::string& path, int err) {
  int code = kErrStorage;
  switch (err) {
    case ENOENT: code = kErrNotFound; break;
    case EACCES:
    case EPERM: code = kErrPermission; break;
    case EDQUOT: code = kErrQuota; break;
    case EEXIST: code = kErrNameExists; break;
    case ENOTDIR: code = kErrNotFolder; break;
    case EISDIR: code = kErrIsFolder; break;
    case EFBIG: code = kErrTooLarge; break;
    case ENAMETOOLONG: code = kErrInvalidName; break;
    default: break;
  }
  std::string msg = op;
  if (!path.empty()) msg += " " + path;
  msg += ": ";
  msg += std::strerror(err);
  return Status(code, msg);
}

}  // namespace orvel
