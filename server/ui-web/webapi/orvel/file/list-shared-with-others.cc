// "shared_with_others": a member of the listing family (orvel_list.h).
#include "list-shared-with-others.h"

#include "orvel/common/orvel_list.h"

namespace {
const orvel::module::ListFamilyMember kSharedWithOthers = {
    "list-shared-with-others", "ListSharedWithOthers", "list shared with me failed", false,
    &Nimbard::ListSharedWithOthers};
}  // namespace

ListSharedWithOthersHandler::ListSharedWithOthersHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "shared_with_others", 0, 0);
}

ListSharedWithOthersHandler::~ListSharedWithOthersHandler() = default;

int ListSharedWithOthersHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                        BridgeResponse& response) {
  return orvel::module::HandleFilteredList(kSharedWithOthers, auth, GetSudoUser(), request,
                                           response);
}
