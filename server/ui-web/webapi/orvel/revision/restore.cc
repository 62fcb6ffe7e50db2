// "restore": an older content of a file becomes its current content (same
// file id, new version); the content it replaces becomes a revision.
#include "webapi/orvel/revision/restore.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/revision/revision-params.h"

namespace {
constexpr const char kLogSource[] = "revision-restore";
}  // namespace

RevisionRestoreHandler::RevisionRestoreHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodWrite);
  SetAPI("ZEMO.ZemoraOrvel.Revision", "restore", 1, 1);
}

int RevisionRestoreHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                   BridgeResponse& response) {
  std::string path, revision_id;
  if (!orvel::revision::ReadParams(request, response, true, &path, &revision_id)) return -1;
  PObject args = PObject::MakeMap();
  args["path"] = path;
  args["revision_id"] = revision_id;
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "revision_restore", args,
                                  &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["file"] = orvel::client::ItemJson(result["file"]);
  response.SetJsonResponse(std::move(data));
  return 0;
}
