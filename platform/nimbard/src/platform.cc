// Platform facades: service state and freeze mode (asked of the daemon),
// home-service and app-privilege support, database managers and the
// job-queue client.
#include "nimbard/platform.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <mutex>

#include "connection_cache.h"
#include "nimbard/nimbard.h"
#include "orvelcommon/state_page.h"
#include "orvelcommon/zemo_root.h"

namespace {

constexpr char kServiceAddress[] = "unix:/tmp/cloud-syncservice";

// A short-lived client for platform queries: no user, default time-out.
int AskDaemon(const std::string& op, const PObject& args, PObject* result) {
  Nimbard client;
  client.SetServer(kServiceAddress, 0);
  client.SetServerVersion(11061);
  client.SetTimeout(300);
  return client.Call(op, args, result);
}

// The state from the daemon's page, when this process holds a live
// connection to the daemon that wrote it (orvelcommon/state_page.h).
bool StateFromPage(std::string* status, bool* frozen) {
  const std::string path = orvel::ResolveSocketAddress(kServiceAddress);
  pid_t pid = 0;
  uid_t uid = 0;
  if (!orvel::client::LiveDaemon(path, &pid, &uid)) return false;
  return orvel::ReadStatePage(orvel::StatePagePath(path), pid, uid, status, frozen);
}

std::mutex g_db_mu;
sqlite3* g_sync_db = nullptr;
sqlite3* g_log_db = nullptr;

int OpenDb(const std::string& path, int flags, sqlite3** out) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return -1;
  }
  sqlite3_busy_timeout(db, 10000);
  std::lock_guard<std::mutex> lock(g_db_mu);
  sqlite3_close(*out);
  *out = db;
  return 0;
}

void CloseDb(sqlite3** db) {
  std::lock_guard<std::mutex> lock(g_db_mu);
  sqlite3_close(*db);
  *db = nullptr;
}

}  // namespace

int ServiceStatusGet(std::string& status, int /*flags*/) {
  bool frozen = false;
  if (StateFromPage(&status, &frozen)) return 0;
  PObject result;
  if (AskDaemon("status", PObject::MakeMap(), &result) < 0) return -1;
  status = result["status"].asString();
  return 0;
}

int ServiceStateGet(std::string& status, bool& frozen) {
  if (StateFromPage(&status, &frozen)) return 0;
  PObject result;
  if (AskDaemon("status", PObject::MakeMap(), &result) < 0) return -1;
  status = result["status"].asString();
  frozen = result.hasMember("frozen") ? result["frozen"].asBool() : IsViewIdFreeze(0);
  return 0;
}

bool IsViewIdFreeze(int view_id) {
  PObject args = PObject::MakeMap();
  args["view_id"] = view_id;
  PObject result;
  if (AskDaemon("freeze_get", args, &result) < 0) return false;
  return result["frozen"].asBool();
}

bool ServiceSupportAppPrivilege() { return true; }

bool ServiceIsHomeServiceEnabled(int kind) { return kind == 0; }

namespace {
std::string& LinkGrantSlot() {
  static std::string grant;
  return grant;
}
}  // namespace

void SetRequestLinkGrant(const std::string& grant) { LinkGrantSlot() = grant; }
const std::string& RequestLinkGrant() { return LinkGrantSlot(); }

namespace db {

int Manager::InitTempFolder(const std::string& working_dir) {
  std::string dir = working_dir + "/@dbtmp";
  if (::mkdir(working_dir.c_str(), 0755) != 0 && errno != EEXIST) return -1;
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return -1;
  return 0;
}

int Manager::Initialize(const std::string& conn, const std::string& backend) {
  if (backend != "sqlite") return -1;
  return OpenDb(conn + "/sync.db", SQLITE_OPEN_READONLY, &g_sync_db);
}

void Manager::Destroy() { CloseDb(&g_sync_db); }

int LogManager::Initialize(const std::string& conn, const std::string& backend,
                           const std::string& /*repo_location*/) {
  if (backend != "sqlite") return -1;
  return OpenDb(conn + "/log.db", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, &g_log_db);
}

void LogManager::Destroy() { CloseDb(&g_log_db); }

}  // namespace db

namespace zemoorvel::core::job_queue {

int JobQueueClient::PushJob(const jobs::UnlinkJob& job, const PushOption& option) {
  PObject args = PObject::MakeMap();
  args["path"] = job.path();
  args["priority"] = option.priority;
  args["delay_seconds"] = option.delay_seconds;
  PObject result;
  return AskDaemon("job_push_unlink", args, &result) < 0 ? 1 : 0;
}

}  // namespace zemoorvel::core::job_queue

namespace zemoorvel::db::job {

JobManagerHolder& JobManagerHolder::Instance() {
  static JobManagerHolder holder;
  return holder;
}

// The job database lives in the daemon; the module holds no connection.
void JobManagerHolder::Destroy() {}

}  // namespace zemoorvel::db::job
