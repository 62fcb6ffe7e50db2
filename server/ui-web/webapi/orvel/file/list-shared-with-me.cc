// "shared_with_me": a member of the listing family (orvel_list.h).
#include "list-shared-with-me.h"

#include "orvel/common/orvel_list.h"

namespace {
const orvel::module::ListFamilyMember kSharedWithMe = {"list-shared-with-me", "ListSharedWithMehMe",
                                                       "list shared with me failed", false,
                                                       &Nimbard::ListSharedWithMe};
}  // namespace

ListSharedWithMeHandler::ListSharedWithMeHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "shared_with_me", 0, 0);
}

ListSharedWithMeHandler::~ListSharedWithMeHandler() = default;

int ListSharedWithMeHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                    BridgeResponse& response) {
  return orvel::module::HandleFilteredList(kSharedWithMe, auth, GetSudoUser(), request, response);
}
