// "move": moves items into a folder as a service task, or a dry run of it (orvel_transfer.h).
#include "move.h"

#include "orvel/common/orvel_transfer.h"

MoveHandler::MoveHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "move", 0, 0);
}

MoveHandler::~MoveHandler() = default;

int MoveHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                        BridgeResponse& response) {
  return orvel::module::HandleTransfer(orvel::module::kMoveTransfer, auth, GetSudoUser(), request,
                                       response);
}
