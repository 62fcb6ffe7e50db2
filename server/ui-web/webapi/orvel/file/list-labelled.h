// ListLabelledHandler: the "list_labelled" method of the Files API; lists the items carrying one
// label. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListLabelledHandler : public RequestHandler {
 public:
  ListLabelledHandler();
  ~ListLabelledHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
