// "create": makes a folder, or a small file whose whole content comes
// base64-encoded in the request (decoded into a temp file on the system
// volume, which is always removed before the handler returns).
#include "create.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bridge/module-log.h"
#include "nimbard/nimbard.h"
#include "nimbard/platform.h"
#include "orvel/common/orvel_upload_request.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "create";
constexpr uint32_t kMaxContentBytes = 0x100000;

// Removes the temp file, if it is still there, when the scope ends.
class TempFileRemover {
 public:
  explicit TempFileRemover(std::string path) : path_(std::move(path)) {}
  ~TempFileRemover() {
    if (File(path_).Exists()) File::Remove(path_);
  }
  TempFileRemover(const TempFileRemover&) = delete;
  TempFileRemover& operator=(const TempFileRemover&) = delete;

 private:
  std::string path_;
};

struct FreeDeleter {
  void operator()(char* p) const { free(p); }
};

struct FileCloser {
  void operator()(FILE* f) const { fclose(f); }
};

// The decoded size a base64 text announces: three quarters of its length,
// less everything from the first "=" on. 32-bit arithmetic on purpose.
uint32_t AnnouncedSize(const std::string& content) {
  const uint32_t len = static_cast<uint32_t>(content.size());
  uint32_t size = (len * 3) >> 2;
  const size_t pad = content.find('=');
  if (pad != std::string::npos) size = size + static_cast<uint32_t>(pad) - len;
  return size;
}
}  // namespace

CreateHandler::CreateHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "create", 0, 0);
}

CreateHandler::~CreateHandler() = default;

int CreateHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                          BridgeResponse& response) {
  const std::string path = request.GetParamRef("path", "").asString();
  const std::string type = request.GetParamRef("type", "").asString();
  if (path.empty() || type.empty()) {
    ORVEL_LOG_ERROR("path and type are both required\n");
    response.SetError(114, "path and type are both required", __LINE__);
    return -1;
  }
  const std::string content = request.GetParamRef("file_content", "").asString();
  if (type == "file" && content.empty()) {
    ORVEL_LOG_ERROR("file content is required\n");
    response.SetError(114, "file content is required", __LINE__);
    return -1;
  }
  if (type == "file") return CreateFile(auth, request, response);
  if (type == "folder") return CreateFolder(auth, request, response);
  ORVEL_LOG_ERROR("known file type '%s'\n", type.c_str());
  response.SetError(401, "known file type", __LINE__);
  return -1;
}

int CreateHandler::CreateFolder(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  PObject req = PObject::MakeMap();
  if (PrepareRequest(request, File(""), req) < 0) {
    ORVEL_LOG_ERROR("prepare create request failed\n");
    response.SetError(1000, "prepare create request failed", __LINE__);
    return -1;
  }
  Nimbard::FileInfo info;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "create folder failed", "create folder failed"},
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

int CreateHandler::CreateFile(const RequestAuthentication& auth, BridgeRequest& request,
                              BridgeResponse& response) {
  const std::string dir = CreateAndGetSysVolumeTempDirectory();
  if (dir.empty()) {
    ORVEL_LOG_ERROR("failed to crreate working directory.\n");
    response.SetError(1000, "failed to create working directory'", __LINE__);
    return -1;
  }
  File file = File::CreateTempFile(dir);
  if (!file.Exists()) {
    ORVEL_LOG_ERROR("failed to create temporary file at '%s'\n", dir.c_str());
    response.SetError(1000, "failed to create temporary file", __LINE__);
    return -1;
  }
  TempFileRemover remover(file.GetPath());
  if (WriteFile(file, request) < 0) {
    ORVEL_LOG_ERROR("write file failed\n");
    response.SetError(1000, "write file failed", __LINE__);
    return -1;
  }
  file.Stat();
  PObject req = PObject::MakeMap();
  if (PrepareRequest(request, file, req) < 0) {
    ORVEL_LOG_ERROR("prepare create request failed\n");
    response.SetError(1000, "prepare create request failed", __LINE__);
    return -1;
  }
  Nimbard::FileInfo info;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "create file failed", "create file failed",
                    ServiceFailure::kPlain},
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

int CreateHandler::WriteFile(const File& file, BridgeRequest& request) {
  const std::string content = request.GetParamRef("file_content", "").asString();
  const uint32_t len = static_cast<uint32_t>(content.size());
  if (len % 4 != 0) {
    ORVEL_LOG_ERROR("the length of file content is not multiple of 4\n");
    return -1;
  }
  uint32_t size = AnnouncedSize(content);
  if (size > kMaxContentBytes) {
    ORVEL_LOG_ERROR("file size exceeds %u bytes\n", kMaxContentBytes);
    return -1;
  }
  // Room for whatever the decoder may write, even when an "=" sits early
  // in the text and the announced size is smaller.
  const size_t capacity = std::max<size_t>(size, content.size() / 4 * 3) + 1;
  std::unique_ptr<char, FreeDeleter> buffer(static_cast<char*>(calloc(capacity, 1)));
  if (!buffer) {
    ORVEL_LOG_ERROR("malloc failed with size %u\n", size + 1);
    return -1;
  }
  if (!EncBase64Dec(content.data(), len, buffer.get(), &size)) {
    ORVEL_LOG_ERROR("failed to decode base64 string.\n");
    return -1;
  }
  std::unique_ptr<FILE, FileCloser> out(fopen(file.GetPath().c_str(), "w+"));
  if (!out) {
    ORVEL_LOG_ERROR("failed to open path '%s'\n", file.GetPath().c_str());
    return -1;
  }
  if (size > 0 && fwrite(buffer.get(), 1, size, out.get()) != size) {
    ORVEL_LOG_ERROR("failed to write '%s': %m\n", file.GetPath().c_str());
    return -1;
  }
  if (fclose(out.release()) != 0) {
    ORVEL_LOG_ERROR("failed to write '%s': %m\n", file.GetPath().c_str());
    return -1;
  }
  return 0;
}

int CreateHandler::PrepareRequest(BridgeRequest& request, const File& file, PObject& out) {
  return orvel::module::PrepareUploadRequest(orvel::module::kCreateRequestOptions, request, file,
                                             out);
}

int CreateHandler::PrepareFileRequest(const File& file, PObject& out) {
  return orvel::module::PrepareFileBlock(kLogSource, file, out);
}
