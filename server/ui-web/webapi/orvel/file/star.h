// StarHandler: the "star" method of the Files API; sets or clears the star on items.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class StarHandler : public RequestHandler {
 public:
  StarHandler();
  ~StarHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
