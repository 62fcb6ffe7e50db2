// MoveHandler: the "move" method of the Files API; moves items into a folder as a task.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class MoveHandler : public RequestHandler {
 public:
  MoveHandler();
  ~MoveHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
