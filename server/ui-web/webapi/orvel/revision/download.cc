// "download": the bytes of one older content of a file, sent like the Files
// API's one-file download: the service hard-links the kept content into a
// temp folder made here (the data folder's @tmp), the bridge streams it under
// the file's name, and the folder goes once the answer is out. Errors are
// answered as the JSON envelope.
#include "webapi/orvel/revision/download.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "bridge/module-log.h"
#include "bridge/run-as-root.h"
#include "orvel/client/client_common.h"
#include "webapi/orvel/revision/revision-params.h"

namespace {
constexpr const char kLogSource[] = "revision-download";
constexpr const char kSourcePath[] = "server/ui-web/webapi/orvel/revision/download";

// A fresh folder under the data folder's @tmp, given to the service's
// account (the owner of @tmp) so that the service can link into it; "" on
// failure.
std::string MakeStagingFolder(const std::string& parent) {
  if (parent.empty()) return "";
  std::string dir = parent + "/revision-XXXXXX";
  if (mkdtemp(&dir[0]) == nullptr) {
    orvel::module::Log(Logger::kError, kLogSource, __LINE__, "mkdtemp(%s): %m", dir.c_str());
    return "";
  }
  struct stat st;
  if (stat(parent.c_str(), &st) == 0 && chown(dir.c_str(), st.st_uid, st.st_gid) != 0) {
    orvel::module::Log(Logger::kError, kLogSource, __LINE__, "chown(%s): %m", dir.c_str());
  }
  return dir;
}
}  // namespace

RevisionDownloadHandler::RevisionDownloadHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Revision", "download", 1, 1);
}

int RevisionDownloadHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                    BridgeResponse& response) {
  std::string path, revision_id;
  if (!orvel::revision::ReadParams(request, response, true, &path, &revision_id)) return -1;
  ORVEL_RUN_AS_ROOT(root, kSourcePath);
  if (!root.ok()) {
    response.SetError(401, "failed to get privilege", __LINE__);
    return -1;
  }
  const std::string temp_dir = MakeStagingFolder(CreateAndGetSysVolumeTempDirectory());
  if (temp_dir.empty()) {
    response.SetError(401, "failed to create temp path", __LINE__);
    return -1;
  }
  // The staging folder goes once the answer is out, whatever it was.
  response.AddAutoRemovePath(temp_dir);
  PObject args = PObject::MakeMap();
  args["path"] = path;
  args["revision_id"] = revision_id;
  args["temp_dir"] = temp_dir;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "revision_download", args,
                                  &result)) {
    return -1;
  }
  response.SetFileResponse(result["file_name"].asString(), result["file_path"].asString(), true,
                           true);
  return 0;
}
