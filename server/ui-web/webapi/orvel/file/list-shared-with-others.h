// ListSharedWithOthersHandler: the "shared_with_others" method of the Files API; lists the items
// the caller shares with others. One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListSharedWithOthersHandler : public RequestHandler {
 public:
  ListSharedWithOthersHandler();
  ~ListSharedWithOthersHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
