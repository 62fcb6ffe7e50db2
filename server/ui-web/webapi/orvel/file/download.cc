// "download": sends one file, or a folder / several items as a zip archive
// prepared by the service, or the archive of an earlier download task; a dry
// run only asks the service whether the download would work. Errors go out
// as download errors (headers), or as JSON when "json_error" is set.
#include "download.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bridge/module-log.h"
#include "bridge/run-as-root.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

namespace {
constexpr const char kLogSource[] = "download";
constexpr const char kSourcePath[] = "server/ui-web/webapi/orvel/file/download";

// The path a selector names: a string, or an object's "path".
std::string SelectorPath(const Json::Value& selector) {
  if (selector.isObject()) return selector.get("path", "").asString();
  return selector.asString();
}

std::string BaseName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}
}  // namespace

DownloadHandler::DownloadHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(7);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "download", 0, 0);
}

DownloadHandler::~DownloadHandler() = default;

int DownloadHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                            BridgeResponse& response) {
  const Json::Value files = request.GetParamRef("files", Json::Value(Json::arrayValue));
  const std::string archive_name =
      request.GetParamRef("archive_name", "downloads").asString() + ".zip";
  const std::string task_id = request.GetParamRef("task_id", "").asString();
  const bool force_download = request.GetParamRef("force_download", true).asBool();
  const bool dry_run = request.GetParamRef("dry_run", false).asBool();
  const bool json_error = request.GetParamRef("json_error", false).asBool();
  const Json::Value decrypt = request.GetParamRef("decrypt", Json::Value());
  (void)decrypt;  // decryption is the service's business; nothing to pass yet

  response.SetType(BridgeResponse::kFile);
  response.SetOutputJsonError(json_error);
  if (files.empty() && task_id.empty()) {
    ORVEL_LOG_ERROR("no file seleted");
    response.SetError(114, "no file seleted", __LINE__);
    return -1;
  }
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, GetSudoUser());
  if (!task_id.empty()) return DownloadTask(client, task_id, archive_name, response);

  std::vector<Nimbard::FileSelector> selection;
  for (const Json::Value& selector : files) {
    const std::string path = SelectorPath(selector);
    if (path.empty()) {
      ORVEL_LOG_ERROR("path is required");
      response.SetError(114, "path is required", __LINE__);
      return -1;
    }
    selection.emplace_back(path);
  }
  if (dry_run) return DryRun(client, selection, response);
  return Download(client, selection, force_download, response);
}

int DownloadHandler::DownloadTask(Nimbard& client, const std::string& task_id,
                                  const std::string& archive_name, BridgeResponse& response) {
  std::string path;
  if (client.DownloadFile(task_id, path) < 0) {
    return orvel::module::ReportServiceFailure(client, response,
                                               {kLogSource, __LINE__,
                                                "DownloadFile"
                                                " failed",
                                                "download archive file failure"});
  }
  response.SetArchiveResponse(archive_name, path, "", true);
  return 0;
}

int DownloadHandler::DryRun(Nimbard& client, const std::vector<Nimbard::FileSelector>& selection,
                            BridgeResponse& response) {
  std::string answer;
  if (client.DownloadDryRun(selection, answer) < 0) {
    return orvel::module::ReportServiceFailure(client, response,
                                               {kLogSource, __LINE__,
                                                "DownloadDryRun"
                                                " failed",
                                                "download dry run failed"});
  }
  Json::Value parsed;
  Json::Reader reader;
  if (!reader.parse(answer, parsed, true)) {
    ORVEL_LOG_ERROR("Json reader parse '%s' failure.\n", answer.c_str());
    response.SetError(1000, "json reader parse failure", __LINE__);
    return -1;
  }
  Json::Value result(Json::objectValue);
  result["result"] = parsed;
  response.SetJsonResponse(result);
  return 0;
}

int DownloadHandler::Download(Nimbard& client, const std::vector<Nimbard::FileSelector>& selection,
                              bool force_download, BridgeResponse& response) {
  ORVEL_RUN_AS_ROOT(root, kSourcePath);
  if (!root.ok()) {
    ORVEL_LOG_ERROR("Failed to get privilege.\n");
    response.SetError(401, "failed to get privilege", __LINE__);
    return -1;
  }
  if (CreateTempDirectory() < 0) {
    ORVEL_LOG_ERROR("Failed to create temp path '%s'\n", temp_dir_.c_str());
    response.SetError(401, "failed to create temp path", __LINE__);
    return -1;
  }
  // The staging folder goes once the answer is out, whatever it was.
  response.AddAutoRemovePath(temp_dir_);
  Nimbard::DownloadResult result;
  if (client.DownloadFile(selection, temp_dir_, result) < 0) {
    return orvel::module::ReportServiceFailure(client, response,
                                               {kLogSource, __LINE__,
                                                "DownloadFile"
                                                " failed",
                                                "download file failed"});
  }
  if (result.is_task && !result.task_id.empty()) {
    Json::Value answer(Json::objectValue);
    answer["async_task_id"] = result.task_id;
    response.SetJsonResponse(answer);
    return 0;
  }
  std::string name, path;
  if (result.is_task || !GetFilename(result, name, path)) {
    ORVEL_LOG_ERROR("check download response type failure");
    response.SetError(1000, "check download response type failure", __LINE__);
    return -1;
  }
  response.SetFileResponse(name, path, force_download, true);
  return 0;
}

int DownloadHandler::CreateTempDirectory() {
  const std::string parent = CreateAndGetSysVolumeTempDirectory();
  temp_dir_ = parent + "/download-XXXXXX";
  if (parent.empty() || mkdtemp(&temp_dir_[0]) == nullptr) {
    ORVEL_LOG_ERROR("mkdtemp(%s): %m", temp_dir_.c_str());
    return -1;
  }
  // The service writes into the folder: give it to the owner of the temp
  // folder (the service's account).
  struct stat st;
  if (stat(parent.c_str(), &st) == 0 && chown(temp_dir_.c_str(), st.st_uid, st.st_gid) != 0) {
    ORVEL_LOG_ERROR("chown(%s): %m", temp_dir_.c_str());
  }
  return 0;
}

bool DownloadHandler::GetFilename(const Nimbard::DownloadResult& result, std::string& name,
                                  std::string& path) const {
  if (!result.file_path.empty()) {
    path = result.file_path;
    name = result.file_name.empty() ? BaseName(path) : result.file_name;
    return true;
  }
  DIR* dir = opendir(temp_dir_.c_str());
  if (dir == nullptr) return false;
  int found = 0;
  std::string entry_name;
  while (const dirent* entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    entry_name = entry->d_name;
    ++found;
  }
  closedir(dir);
  if (found != 1) return false;
  path = temp_dir_ + "/" + entry_name;
  name = result.file_name.empty() ? entry_name : result.file_name;
  return true;
}
