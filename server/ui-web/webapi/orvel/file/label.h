// LabelHandler: the "label" method of the Files API; adds or removes labels on items.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class LabelHandler : public RequestHandler {
 public:
  LabelHandler();
  ~LabelHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
