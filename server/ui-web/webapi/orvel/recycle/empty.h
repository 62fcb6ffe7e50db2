// RecycleEmptyHandler: "empty" of the Recycle API; deletes the caller's whole bin for good, as a task. One object per
// request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class RecycleEmptyHandler : public RequestHandler {
 public:
  RecycleEmptyHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
