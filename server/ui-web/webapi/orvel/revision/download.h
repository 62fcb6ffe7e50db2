// RevisionDownloadHandler: "download" of the Revision API (docs/api-revision.md).
// One object per request; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class RevisionDownloadHandler : public RequestHandler {
 public:
  RevisionDownloadHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
