// SharingUpdateLinkHandler: "update_link": role, expiry or password of one of the caller's links. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class SharingUpdateLinkHandler : public RequestHandler {
 public:
  SharingUpdateLinkHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
