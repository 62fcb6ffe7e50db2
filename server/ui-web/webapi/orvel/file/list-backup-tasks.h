// ListBackupTasksHandler: the "list_backup_tasks" method of the Files API; lists the target folders
// of the caller's backup tasks. One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ListBackupTasksHandler : public RequestHandler {
 public:
  ListBackupTasksHandler();
  ~ListBackupTasksHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
