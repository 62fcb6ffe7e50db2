// "list_backup_tasks": the target folders of the caller's backup tasks,
// sorted by name.
#include "list-backup-tasks.h"

#include <algorithm>
#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_list.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

namespace {
constexpr const char kLogSource[] = "list-backup-tasks";

// Case-insensitive by name; descending unless direction is exactly "asc".
void SortByName(std::vector<Nimbard::FileInfo>& records, const std::string& direction) {
  const bool ascending = (direction == "asc");
  std::stable_sort(records.begin(), records.end(),
                   [ascending](const Nimbard::FileInfo& a, const Nimbard::FileInfo& b) {
                     return ascending ? CaseCmp(a.name, b.name) < 0 : CaseCmp(b.name, a.name) < 0;
                   });
}
}  // namespace

ListBackupTasksHandler::ListBackupTasksHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "list_backup_tasks", 0, 0);
}

ListBackupTasksHandler::~ListBackupTasksHandler() = default;

int ListBackupTasksHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                   BridgeResponse& response) {
  // Only the name orders the answer, whatever "sort_by" says.
  const std::string sort_by = request.GetParamRef("sort_by", "name").asString();
  const std::string sort_direction = request.GetParamRef("sort_direction", "asc").asString();
  (void)sort_by;
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, GetSudoUser());
  std::vector<Nimbard::BackupInfo> tasks;
  if (client.ListBackups(tasks) < 0) {
    return orvel::module::ReportServiceFailure(
        client, response,
        {kLogSource, __LINE__, "", nullptr, orvel::module::ServiceFailure::kNoLog});
  }
  std::vector<Nimbard::FileInfo> records;
  for (const Nimbard::BackupInfo& task : tasks) {
    Nimbard::FileInfo info;
    if (client.GetFileInfo(task.target, info, Nimbard::FileInfoQueryParam()) < 0) {
      return orvel::module::ReportServiceFailure(
          client, response,
          {kLogSource, __LINE__, "GetFileInfo failed", "get file infomation failed"});
    }
    records.push_back(std::move(info));
  }
  SortByName(records, sort_direction);
  Json::Value rest(Json::objectValue);
  rest["total"] = static_cast<Json::UInt>(records.size());
  if (orvel::module::SetItemsAnswer(records, false, std::move(rest), response) < 0) {
    ORVEL_LOG_ERROR("build response failed\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  return 0;
}
