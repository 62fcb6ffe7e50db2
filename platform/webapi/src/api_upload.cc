// ZEMO::APIUpload: hands a module the form fields and the received file of a
// multipart request, which entry.cgi stored in the request before calling the
// module. One request per process; not thread-safe.
#include "zemo/webapi.h"

namespace ZEMO {

namespace {
// Returned when the request carried no file part.
constexpr int kErrNoUpload = 1;
}  // namespace

int APIUpload::GetUploadParam(Json::Value& params) {
  if (request_ == nullptr || !request_->IsUploadRequest()) return kErrNoUpload;
  params = request_->UploadFields();
  return 0;
}

int APIUpload::GetUploadFile(std::string& tmp_path) {
  if (request_ == nullptr || !request_->IsUploadRequest()) return kErrNoUpload;
  tmp_path = request_->UploadTmpPath();
  return 0;
}

}  // namespace ZEMO
