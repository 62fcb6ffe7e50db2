// SharingUnshareHandler: "unshare": ends the share of one of the caller's items with a user or a
// group. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class SharingUnshareHandler : public RequestHandler {
 public:
  SharingUnshareHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
