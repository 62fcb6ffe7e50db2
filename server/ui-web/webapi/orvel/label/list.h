// LabelListHandler: "list" of the Label API; the caller's own labels with
// their colours, by name. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class LabelListHandler : public RequestHandler {
 public:
  LabelListHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
