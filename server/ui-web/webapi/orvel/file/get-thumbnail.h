// GetThumbnailHandler: the "get_thumbnail" method of the Files API; sends the thumbnail image of
// one item. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class GetThumbnailHandler : public RequestHandler {
 public:
  GetThumbnailHandler();
  ~GetThumbnailHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  int GetThumbnail(const RequestAuthentication& auth, BridgeRequest& request,
                   BridgeResponse& response);
};
