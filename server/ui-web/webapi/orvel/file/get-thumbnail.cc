// "get_thumbnail": sends one item's thumbnail image as a file. A missing
// thumbnail is routine, so its failure is logged at DEBUG only.
#include "get-thumbnail.h"

#include "bridge/module-log.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "get-thumbnail";
}  // namespace

GetThumbnailHandler::GetThumbnailHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(7);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "get_thumbnail", 0, 0);
}

GetThumbnailHandler::~GetThumbnailHandler() = default;

int GetThumbnailHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  if (request.GetParamRef("path", "").asString().empty()) {
    ORVEL_LOG_ERROR("path is required");
    response.SetError(114, "request node id is empty", __LINE__);
    return -1;
  }
  return GetThumbnail(auth, request, response);
}

int GetThumbnailHandler::GetThumbnail(const RequestAuthentication& auth, BridgeRequest& request,
                                      BridgeResponse& response) {
  const std::string path = request.GetParamRef("path", "").asString();
  const std::string format = request.GetParamRef("format", "jpg").asString();
  const std::string size = request.GetParamRef("size", "small").asString();
  const bool animate = request.GetParamRef("animate", false).asBool();
  response.SetType(BridgeResponse::kFile);
  std::string thumbnail_path;
  std::string file_name;
  ServiceFailure failure(kLogSource, __LINE__, "GetThumbnail failed", "get image thumbnail failed");
  failure.level = Logger::kDebug;
  if (!CallService(auth, request, response, GetSudoUser(), failure, [&](Nimbard& client) {
        return client.GetThumbnail(path, format, size, animate, thumbnail_path, file_name);
      })) {
    return -1;
  }
  response.SetFileResponse(file_name, thumbnail_path, false, false);
  return 0;
}
