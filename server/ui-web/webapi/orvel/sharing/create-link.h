// SharingCreateLinkHandler: "create_link": a new sharing link to one of the caller's items. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class SharingCreateLinkHandler : public RequestHandler {
 public:
  SharingCreateLinkHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
