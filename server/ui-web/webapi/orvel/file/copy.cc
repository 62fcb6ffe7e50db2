// "copy": copies items into a folder as a service task, or a dry run of it (orvel_transfer.h).
#include "copy.h"

#include "orvel/common/orvel_transfer.h"

FileCopyHandler::FileCopyHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Files", "copy", 0, 0);
}

FileCopyHandler::~FileCopyHandler() = default;

int FileCopyHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                            BridgeResponse& response) {
  return orvel::module::HandleTransfer(orvel::module::kCopyTransfer, auth, GetSudoUser(), request,
                                       response);
}
