// BridgeRequest: the handlers' read-only view of one web request (parameters
// as JSON values, the caller's address and URL scheme). WebAPIRequest
// implements it over the framework's ZEMO::APIRequest; for an upload it first
// folds the form fields and the received file's temp path ("file_tmp") into
// the parameters, so handlers read upload fields like any other parameter.
// "file_tmp" comes only from the upload: a copy in the request's parameters
// is dropped first. One object per request; not thread-safe.
#pragma once

#include <json/json.h>

#include <string>

namespace ZEMO {
class APIRequest;
}

class BridgeRequest {
 public:
  virtual ~BridgeRequest() = default;
  // The parameter's value, or def when it was not sent.
  virtual Json::Value GetParamRef(const std::string& name, const Json::Value& def) const = 0;
  virtual bool HasParam(const std::string& name) const = 0;
  virtual std::string GetRemoteIP() const = 0;
  virtual std::string GetUrlProto() const = 0;
  // The query string of the request's URL, as sent.
  virtual std::string GetQueryString() const = 0;
};

class WebAPIRequest : public BridgeRequest {
 public:
  // request is not owned and must outlive this object.
  explicit WebAPIRequest(ZEMO::APIRequest* request);
  ~WebAPIRequest() override = default;

  Json::Value GetParamRef(const std::string& name, const Json::Value& def) const override;
  bool HasParam(const std::string& name) const override;
  std::string GetRemoteIP() const override;
  std::string GetUrlProto() const override;
  std::string GetQueryString() const override;

 private:
  // Reads an upload's form fields and received file into the parameters.
  // Failures are logged only; the parameters are then left as they were.
  void GetUploadFile();
  // Removes a "file_tmp" that the client sent (logged).
  void DropClientFileTmp();

  ZEMO::APIRequest* request_;
};
