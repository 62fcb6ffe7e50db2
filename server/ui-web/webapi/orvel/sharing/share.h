// SharingShareHandler: "share": shares one of the caller's items with a user or a group. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class SharingShareHandler : public RequestHandler {
 public:
  SharingShareHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
