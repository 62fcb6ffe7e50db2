// RecycleListHandler: "list" of the Recycle API; the caller's removed items, newest first by default. One object per
// request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class RecycleListHandler : public RequestHandler {
 public:
  RecycleListHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
