// FileCopyHandler: the "copy" method of the Files API; copies items into a folder as a task.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class FileCopyHandler : public RequestHandler {
 public:
  FileCopyHandler();
  ~FileCopyHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
