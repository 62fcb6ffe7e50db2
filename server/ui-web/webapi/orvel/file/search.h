// SearchHandler: the "search" method of the Files API; searches the caller's items by keyword and
// criteria. One object per request, built and run by the module entry; not thread-safe.
#pragma once

#include <string>

#include "bridge/request-handler.h"
#include "orvelcommon/pobject.h"

class SearchHandler : public RequestHandler {
 public:
  SearchHandler();
  ~SearchHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

  int SearchFile(const RequestAuthentication& auth, BridgeRequest& request,
                 BridgeResponse& response);
};

// The service query of a search request: the criteria that were sent, and
// paging, sorting and "content_snippet" always.
PObject BuildSearchQuery(BridgeRequest& request);
// The service's search time (microseconds) in seconds, rounded to
// milliseconds through a "%.3f" text; false when it does not read back.
bool SearchTimeSeconds(unsigned long long micros, double& seconds);
