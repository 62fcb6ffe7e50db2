// ListAncestorHandler: the "list_ancestor" method of the Files API; lists the folders above an item
// (breadcrumbs). One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListAncestorHandler : public RequestHandler {
 public:
  ListAncestorHandler();
  ~ListAncestorHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
