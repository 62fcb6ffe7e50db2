// ListStarredHandler: the "list_starred" method of the Files API; lists the caller's starred items.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListStarredHandler : public RequestHandler {
 public:
  ListStarredHandler();
  ~ListStarredHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
