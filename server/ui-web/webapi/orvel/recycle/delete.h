// RecycleDeleteHandler: "delete" of the Recycle API; deletes removed items for good, as a task. One object per
// request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class RecycleDeleteHandler : public RequestHandler {
 public:
  RecycleDeleteHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
