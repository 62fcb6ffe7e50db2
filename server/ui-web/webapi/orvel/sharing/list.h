// SharingListHandler: "list": the shares and links of one of the caller's items by "path", with
// the item. One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class SharingListHandler : public RequestHandler {
 public:
  SharingListHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
