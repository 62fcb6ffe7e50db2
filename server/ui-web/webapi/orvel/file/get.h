// GetInfoHandler: the "get" method of the Files API; returns the item object of one item.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class GetInfoHandler : public RequestHandler {
 public:
  GetInfoHandler();
  ~GetInfoHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  int GetFileInfo(const RequestAuthentication& auth, BridgeRequest& request,
                  BridgeResponse& response);
};
