// RecycleRestoreHandler: "restore" of the Recycle API; puts removed items back where they came from. One object per
// request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class RecycleRestoreHandler : public RequestHandler {
 public:
  RecycleRestoreHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
