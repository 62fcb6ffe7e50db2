// Service-state and database gates of RequestHandler, the home-service
// question and the package temp folder. See request-handler.h.
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "module-log.h"
#include "nimbard/platform.h"
#include "orvelcommon/sync_config.h"
#include "orvelcommon/user_db.h"
#include "request-handler.h"
#include "run-as-root.h"

namespace {
constexpr const char kLogSource[] = "request-handler";
constexpr const char kSourcePath[] = "server/ui-web/src/bridge/request-handler";

// Opens one database; logs with `what` ("user db", "log db", "sync db").
template <class OpenFn>
int OpenDatabase(const char* what, const SyncConfigMgr& conf, OpenFn open) {
  const std::string conn = conf.GetDbConnectParam();
  const std::string backend = conf.GetDBBackendString();
  ORVEL_LOG_DEBUG("Try to initialize %s with '%s', backend = '%s'...", what, conn.c_str(),
                  backend.c_str());
  if (open(conn, backend) < 0) {
    ORVEL_LOG_ERROR("Fail to initialize %s with '%s', backend = '%s'", what, conn.c_str(),
                    backend.c_str());
    return -1;
  }
  return 0;
}
}  // namespace

int RequestHandler::CheckServiceStatus(const RequestAuthentication&, BridgeRequest&,
                                       BridgeResponse& response) {
  // The status answer carries the freeze flag: one round trip for both checks.
  bool frozen = false;
  if (status_option_ & kStatusEnabled) {
    std::string status;
    if (ServiceStateGet(status, frozen) < 0) {
      ORVEL_LOG_ERROR("Failed to get Nimbard status");
      response.SetError(401, "failed to get status", __LINE__);
      return -1;
    }
    if (status == "moving_db") {
      ORVEL_LOG_ERROR("Repo of Nimbard is moving and you shall not do any action!");
      response.SetError(503, "repository is moving", __LINE__);
      return -1;
    }
    if (status != "enabled") {
      ORVEL_LOG_ERROR("Nimbard is not ready (status = '%s')", status.c_str());
      response.SetError(501, "nimbard is not ready", __LINE__);
      return -1;
    }
  }
  if (!(status_option_ & kStatusEnabled)) frozen = (status_option_ & kStatusNotFrozen) && IsFreeze();
  if ((status_option_ & kStatusNotFrozen) && frozen) {
    ORVEL_LOG_ERROR("Nimbard is in freeze mode");
    response.SetError(502, "freeze mode", __LINE__);
    return -1;
  }
  return 0;
}

bool RequestHandler::IsFreeze() const { return IsViewIdFreeze(0); }

int RequestHandler::InitializeDatabase() {
  // The enabled-user rule reads the user database.
  if (required_access_privilege_ & kPrivilegeEnabledUser) required_database_ |= kUserDb;
  const unsigned bits = required_database_;
  if (bits == 0) {
    ORVEL_LOG_DEBUG("no database is required");
    return 0;
  }
  SyncConfigMgr conf;
  if (conf.Init() < 0) {
    ORVEL_LOG_ERROR("cannot get conf mgr");
    return -1;
  }
  ORVEL_RUN_AS_ROOT(root, kSourcePath);
  if (!root.ok()) {
    ORVEL_LOG_ERROR("Failed to switch to root");
    return -1;
  }
  if (db::Manager::InitTempFolder(conf.GetWorkingDirPath()) < 0) {
    ORVEL_LOG_ERROR("failed to InitTempFolder");
    return -1;
  }
  if (bits & kUserDb) {
    if (OpenDatabase("user db", conf, UserManager::Initialize) < 0) return -1;
    opened_databases_ |= kUserDb;
  }
  if (bits & kLogDb) {
    const std::string repo = conf.GetSystemRepoLocation();
    auto open_log = [&repo](const std::string& conn, const std::string& backend) {
      return db::LogManager::Initialize(conn, backend, repo);
    };
    if (OpenDatabase("log db", conf, open_log) < 0) return -1;
    opened_databases_ |= kLogDb;
  }
  if (bits & kSyncDb) {
    if (OpenDatabase("sync db", conf, db::Manager::Initialize) < 0) return -1;
    opened_databases_ |= kSyncDb;
  }
  return 0;
}

void RequestHandler::DestroyDatabase() {
  if (opened_databases_ & kSyncDb) db::Manager::Destroy();
  if (opened_databases_ & kLogDb) db::LogManager::Destroy();
  if (opened_databases_ & kUserDb) UserManager::Destroy();
  opened_databases_ = 0;
}

bool RequestHandler::IsUserHomeEnabled(const std::string& user_name) const {
  if (user_name.empty()) return false;
  if (user_name.find('\\') != std::string::npos) return ServiceIsHomeServiceEnabled(3);
  if (user_name.find('@') != std::string::npos) return ServiceIsHomeServiceEnabled(2);
  return ServiceIsHomeServiceEnabled(0);
}

std::string RequestHandler::CreateAndGetSysVolumeTempDirectory() {
  SyncConfigMgr conf;
  if (SyncGetConf(&conf) < 0) return std::string();
  char path[4096];
  snprintf(path, sizeof(path), "%s/%s", conf.GetSysShareBin().c_str(), "@tmp");
  if (mkdir(path, 0777) < 0 && errno != EEXIST) {
    const int err = errno;
    syslog(LOG_ERR, "%s:%d mkdir(%s): %s (%d)", kSourcePath, __LINE__, path, strerror(err), err);
  }
  return path;
}
