// Platform helpers of the client library that the web-API module names:
// service state, freeze mode, home service, app privileges, base64, the
// database managers, the job queue and files. Each is a thin, documented
// facade over the daemon or the local file system.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "orvelcommon/base64.h"

// Asks the daemon for its state ("enabled", "disabled", "moving_db", ...).
// Returns 0 and fills status, or -1 when the daemon cannot be asked.
int ServiceStatusGet(std::string& status, int flags);
// The state and whether view 0 is frozen, with one round trip. A daemon
// whose answer has no freeze flag is asked for it separately. Returns 0, or
// -1 when the daemon cannot be asked.
int ServiceStateGet(std::string& status, bool& frozen);
// Whether view view_id is frozen (read-only). A daemon that cannot be asked
// counts as not frozen (the status check already refuses that request).
bool IsViewIdFreeze(int view_id);
// Application privileges are supported by this platform (always true).
bool ServiceSupportAppPrivilege();
// Whether the home service of the user kind is enabled (0 local, 2 directory,
// 3 domain). Local homes are always enabled here.
bool ServiceIsHomeServiceEnabled(int kind);

// The grant of a password link that the current web request carries (the
// "link_grant" cookie). entry.cgi sets it once per request, "" first, and
// every Nimbard::Call of that request sends it to the daemon as "link_grant"
// beside "sharing_token". Per process; entry.cgi serves one request each.
void SetRequestLinkGrant(const std::string& grant);
const std::string& RequestLinkGrant();

// Base64: EncBase64Dec and EncBase64Enc (orvelcommon/base64.h).

namespace db {
// The sync, log and job databases of the package, opened per request by the
// module when a handler declares them. Initialize returns 0 or -1.
class Manager {
 public:
  static int InitTempFolder(const std::string& working_dir);
  static int Initialize(const std::string& conn, const std::string& backend);
  static void Destroy();
};
class LogManager {
 public:
  static int Initialize(const std::string& conn, const std::string& backend,
                        const std::string& repo_location);
  static void Destroy();
};
}  // namespace db

namespace zemoorvel::core::job_queue {
namespace jobs {
// Deletes a path (file or tree) later, in the daemon's job queue.
class UnlinkJob {
 public:
  explicit UnlinkJob(std::string path) : path_(std::move(path)) {}
  const std::string& path() const { return path_; }
 private:
  std::string path_;
};
}  // namespace jobs
struct PushOption {
  int priority = 0;
  unsigned delay_seconds = 0;
};
class JobQueueClient {
 public:
  // Hands the job to the daemon. 0 on success, non-zero when refused.
  int PushJob(const jobs::UnlinkJob& job, const PushOption& option);
};
}  // namespace zemoorvel::core::job_queue

namespace zemoorvel::db::job {
class JobManagerHolder {
 public:
  static JobManagerHolder& Instance();
  void Destroy();
};
}  // namespace zemoorvel::db::job
