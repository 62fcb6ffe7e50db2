// ConvertOfficeHandler: the "convert_office" method of the Files API; converts office documents as
// a task. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"

class ConvertOfficeHandler : public RequestHandler {
 public:
  ConvertOfficeHandler();
  ~ConvertOfficeHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;
};
