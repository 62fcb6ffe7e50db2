// DeleteHandler: the "delete" method of the Files API; deletes items (recycle bin or for good) as a
// task. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class DeleteHandler : public RequestHandler {
 public:
  DeleteHandler();
  ~DeleteHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
