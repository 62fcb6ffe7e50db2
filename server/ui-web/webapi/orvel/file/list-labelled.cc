// "list_labelled": a member of the listing family (orvel_list.h).
#include "list-labelled.h"

#include "orvel/common/orvel_list.h"

namespace {
const orvel::module::ListFamilyMember kListLabelled = {"list-labelled", "ListLabelledHandler",
                                                       "list labelled failed", true,
                                                       &Nimbard::ListLabelledNode};
}  // namespace

ListLabelledHandler::ListLabelledHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "list_labelled", 0, 0);
}

ListLabelledHandler::~ListLabelledHandler() = default;

int ListLabelledHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  return orvel::module::HandleFilteredList(kListLabelled, auth, GetSudoUser(), request, response);
}
