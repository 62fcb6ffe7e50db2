// "list_starred": a member of the listing family (orvel_list.h).
#include "list-starred.h"

#include "orvel/common/orvel_list.h"

namespace {
const orvel::module::ListFamilyMember kListStarred = {
    "list-starred", "ListStarredHandler", "list starred failed", false, &Nimbard::ListStarredNode};
}  // namespace

ListStarredHandler::ListStarredHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "list_starred", 0, 0);
}

ListStarredHandler::~ListStarredHandler() = default;

int ListStarredHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                               BridgeResponse& response) {
  return orvel::module::HandleFilteredList(kListStarred, auth, GetSudoUser(), request, response);
}
