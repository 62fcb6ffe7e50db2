// TaskListHandler: "list" of the Task API; the caller's own tasks, newest
// first, paged, optionally of some states. One object per request; not
// thread-safe.
#pragma once

#include "bridge/request-handler.h"

class TaskListHandler : public RequestHandler {
 public:
  TaskListHandler();
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
