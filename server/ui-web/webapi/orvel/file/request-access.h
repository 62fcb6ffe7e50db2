// RequestAccessHandler: the "request_access" method of the Files API; asks an item's owner for
// access. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class RequestAccessHandler : public RequestHandler {
 public:
  RequestAccessHandler();
  ~RequestAccessHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
