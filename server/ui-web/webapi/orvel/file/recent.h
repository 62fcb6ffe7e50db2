// ListRecentHandler: the "recent" method of the Files API; lists the items the caller used last.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListRecentHandler : public RequestHandler {
 public:
  ListRecentHandler();
  ~ListRecentHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
