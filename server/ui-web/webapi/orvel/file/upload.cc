// "upload": stores a file that the web server received as a multipart
// upload ("file_tmp"), or makes a folder. The received file is removed, as
// root, whatever the outcome, but only when it is one: a regular file in the
// framework's temp folder owned by the account the module runs as.
#include "upload.h"

#include <unistd.h>

#include "bridge/module-log.h"
#include "bridge/run-as-root.h"
#include "nimbard/nimbard.h"
#include "orvel/common/orvel_received_file.h"
#include "orvel/common/orvel_upload_request.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "upload";
constexpr const char kSourcePath[] = "server/ui-web/webapi/orvel/file/upload";

// Removes the received file as root when the scope ends. The file must
// belong to the identity the handler runs with (taken before the switch).
class ReceivedFileRemover {
 public:
  ReceivedFileRemover(std::string tmp_dir, std::string path)
      : tmp_dir_(std::move(tmp_dir)), path_(std::move(path)), owner_(geteuid()) {}
  ~ReceivedFileRemover() {
    ORVEL_RUN_AS_ROOT(root, kSourcePath);
    if (root.ok()) orvel::module::RemoveReceivedFile(tmp_dir_, path_, owner_);
  }
  ReceivedFileRemover(const ReceivedFileRemover&) = delete;
  ReceivedFileRemover& operator=(const ReceivedFileRemover&) = delete;

 private:
  std::string tmp_dir_, path_;
  uid_t owner_;
};
}  // namespace

UploadHandler::UploadHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "upload", 0, 0);
}

UploadHandler::~UploadHandler() = default;

int UploadHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                          BridgeResponse& response) {
  const std::string path = request.GetParamRef("path", "").asString();
  const std::string type = request.GetParamRef("type", "").asString();
  if (path.empty() || type.empty()) {
    ORVEL_LOG_ERROR("path and type are both required\n");
    response.SetError(114, "path and type are both required", __LINE__);
    return -1;
  }
  if (type == "folder") return UploadFolder(auth, request, response);
  return UploadFile(auth, request, response);
}

int UploadHandler::UploadFolder(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  PObject req = PObject::MakeMap();
  if (PrepareRequest(request, File(""), req) < 0) {
    ORVEL_LOG_ERROR("prepare upload request failed\n");
    response.SetError(1000, "prepare upload request failed", __LINE__);
    return -1;
  }
  Nimbard::FileInfo info;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "upload folder failed", "upload folder failed"},
                   [&](Nimbard& client) { return client.UploadFile(req, info); })) {
    return -1;
  }
  // The folder exists now: answer with whatever the conversion produced.
  Json::Value item;
  ConvertFileInfoToJSon(info, item);
  response.SetJsonResponse(item);
  return 0;
}

int UploadHandler::UploadFile(const RequestAuthentication& auth, BridgeRequest& request,
                              BridgeResponse& response) {
  const std::string file_tmp = request.GetParamRef("file_tmp", "").asString();
  File file(file_tmp);
  if (!file.Exists()) {
    ORVEL_LOG_ERROR("path '%s' cannot be uploaded. (vanish)\n", file.GetPath().c_str());
    response.SetError(1003, "file doesn't exist", __LINE__);
    return -1;
  }
  ReceivedFileRemover remover(CreateAndGetSysVolumeTempDirectory(), file_tmp);
  PObject req = PObject::MakeMap();
  if (PrepareRequest(request, file, req) < 0) {
    ORVEL_LOG_ERROR("prepare upload request failed\n");
    response.SetError(1000, "prepare upload request failed", __LINE__);
    return -1;
  }
  Nimbard::FileInfo info;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "upload file failed.", "upload file failed",
                    ServiceFailure::kCode},
                   [&](Nimbard& client) { return client.UploadFile(req, info); })) {
    return -1;
  }
  Json::Value item;
  if (ConvertFileInfoToJSon(info, item) < 0) {
    ORVEL_LOG_ERROR("build response failed\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  response.SetJsonResponse(item);
  return 0;
}

int UploadHandler::PrepareRequest(BridgeRequest& request, const File& file, PObject& out) {
  return orvel::module::PrepareUploadRequest(orvel::module::kUploadRequestOptions, request, file,
                                             out);
}

int UploadHandler::PrepareFileRequest(const File& file, PObject& out) {
  return orvel::module::PrepareFileBlock(kLogSource, file, out);
}
