// TaskGetHandler: "get" of the Task API; one of the caller's tasks by
// "task_id". One object per request; not thread-safe.
#pragma once

#include "bridge/request-handler.h"

class TaskGetHandler : public RequestHandler {
 public:
  TaskGetHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
