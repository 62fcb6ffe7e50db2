// UpdateInfoHandler: the "update" method of the Files API; changes an item's information and
// optionally its content. One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"
#include "orvelcommon/pobject.h"

class UpdateInfoHandler : public RequestHandler {
 public:
  UpdateInfoHandler();
  ~UpdateInfoHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  int UpdateFileInfo(const RequestAuthentication& auth, BridgeRequest& request,
                     BridgeResponse& response);
  int HandleFileRequest(const std::string& file_tmp, PObject& request, BridgeResponse& response);
};
