// TaskCancelHandler: "cancel" of the Task API; cancels one of the caller's
// tasks by "task_id" and answers its record. One object per request; not
// thread-safe.
#pragma once

#include "bridge/request-handler.h"

class TaskCancelHandler : public RequestHandler {
 public:
  TaskCancelHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
