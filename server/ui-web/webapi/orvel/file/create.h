// CreateHandler: the "create" method of the Files API; makes a folder, or a small file from base64
// content. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"
#include "nimbard/file.h"
#include "orvelcommon/pobject.h"

class CreateHandler : public RequestHandler {
 public:
  CreateHandler();
  ~CreateHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  int CreateFolder(const RequestAuthentication& auth, BridgeRequest& request,
                   BridgeResponse& response);
  int CreateFile(const RequestAuthentication& auth, BridgeRequest& request,
                 BridgeResponse& response);
  int WriteFile(const File& file, BridgeRequest& request);
  int PrepareRequest(BridgeRequest& request, const File& file, PObject& out);
  int PrepareFileRequest(const File& file, PObject& out);
};
