// ListSharedWithMeHandler: the "shared_with_me" method of the Files API; lists the items others
// share with the caller. One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListSharedWithMeHandler : public RequestHandler {
 public:
  ListSharedWithMeHandler();
  ~ListSharedWithMeHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
