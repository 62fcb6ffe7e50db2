// SharingUnlockLinkHandler: "unlock_link": a link visitor gives a password link's password and gets
// the link's grant as a cookie. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class SharingUnlockLinkHandler : public RequestHandler {
 public:
  SharingUnlockLinkHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
