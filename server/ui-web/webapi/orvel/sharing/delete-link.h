// SharingDeleteLinkHandler: "delete_link": removes one of the caller's links. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class SharingDeleteLinkHandler : public RequestHandler {
 public:
  SharingDeleteLinkHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
