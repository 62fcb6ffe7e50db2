// UploadHandler: the "upload" method of the Files API; stores an uploaded file, or makes a folder.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"
#include "nimbard/file.h"
#include "orvelcommon/pobject.h"

class UploadHandler : public RequestHandler {
 public:
  UploadHandler();
  ~UploadHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  int UploadFolder(const RequestAuthentication& auth, BridgeRequest& request,
                   BridgeResponse& response);
  int UploadFile(const RequestAuthentication& auth, BridgeRequest& request,
                 BridgeResponse& response);
  int PrepareRequest(BridgeRequest& request, const File& file, PObject& out);
  int PrepareFileRequest(const File& file, PObject& out);
};
