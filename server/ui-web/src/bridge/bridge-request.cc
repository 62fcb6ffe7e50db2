// WebAPIRequest over the framework request (see bridge-request.h).
#include "bridge-request.h"

#include <string>

#include "module-log.h"
#include "zemo/webapi.h"

namespace {
constexpr const char kLogSource[] = "webapi-bridge";
}  // namespace

WebAPIRequest::WebAPIRequest(ZEMO::APIRequest* request) : request_(request) {
  DropClientFileTmp();
  if (request_->IsUploadRequest() && !request_->HasParam("file_tmp")) GetUploadFile();
}

void WebAPIRequest::DropClientFileTmp() {
  if (!request_->HasParam("file_tmp")) return;
  ORVEL_LOG_ERROR("parameter file_tmp from %s dropped: only the upload sets it\n",
                  request_->GetRemoteIP().c_str());
  Json::Value params = request_->GetParams();
  params.removeMember("file_tmp");
  request_->InitParam(params);
}

Json::Value WebAPIRequest::GetParamRef(const std::string& name, const Json::Value& def) const {
  return request_->GetParamRef(name, def);
}

bool WebAPIRequest::HasParam(const std::string& name) const { return request_->HasParam(name); }

std::string WebAPIRequest::GetRemoteIP() const { return request_->GetRemoteIP(); }

std::string WebAPIRequest::GetUrlProto() const { return request_->GetURLProto("http"); }

std::string WebAPIRequest::GetQueryString() const { return request_->GetQueryString(); }

void WebAPIRequest::GetUploadFile() {
  ZEMO::APIUpload upload(request_);
  Json::Value post_param(Json::objectValue);
  int err = upload.GetUploadParam(post_param);
  if (err != 0) {
    ORVEL_LOG_ERROR("Failed to get upload params, err: [%d]\n", err);
    return;
  }
  std::string file_tmp;
  err = upload.GetUploadFile(file_tmp);
  if (err != 0) {
    ORVEL_LOG_ERROR("Failed to get upload file, err: [%d]\n", err);
    return;
  }
  // Query-string parameters stay; form fields win over them.
  Json::Value params = request_->GetParams();
  if (!params.isObject()) params = Json::Value(Json::objectValue);
  if (post_param.isObject()) {
    for (const std::string& name : post_param.getMemberNames()) params[name] = post_param[name];
  }
  params["file_tmp"] = file_tmp;
  request_->InitParam(params);
}
