// ListHandler: the "list" method of the Files API; lists one page of a folder of the caller's
// space. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListHandler : public RequestHandler {
 public:
  ListHandler();
  ~ListHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  int ListMyOrvel(const RequestAuthentication& auth, BridgeRequest& request,
                  BridgeResponse& response);
};
