// UploadFromTpxHandler: the "upload_from_tpx" method of the Files API; imports files from server
// folders as a task. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"
#include "orvelcommon/pobject.h"

class UploadFromTpxHandler : public RequestHandler {
 public:
  UploadFromTpxHandler();
  ~UploadFromTpxHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  bool PrepareRequest(BridgeRequest& request, PObject& out);
};
