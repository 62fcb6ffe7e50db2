// "recent": the items the caller used last (orvel_list.h).
#include "recent.h"

#include "orvel/common/orvel_list.h"

ListRecentHandler::ListRecentHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "recent", 0, 0);
}

ListRecentHandler::~ListRecentHandler() = default;

int ListRecentHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                              BridgeResponse& response) {
  return orvel::module::HandleRecentList(auth, GetSudoUser(), request, response);
}
