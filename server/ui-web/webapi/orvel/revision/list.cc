// "list": the older contents of one file, newest first, a page at a time.
#include "webapi/orvel/revision/list.h"

#include "orvel/client/client_common.h"
#include "webapi/orvel/revision/revision-params.h"

namespace {
constexpr const char kLogSource[] = "revision-list";
}  // namespace

RevisionListHandler::RevisionListHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(kAccountAppPrivilege | kAccountExpiry);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(kStatusEnabled);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Revision", "list", 1, 1);
}

int RevisionListHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  std::string path, unused;
  orvel::client::Paging paging;
  if (!orvel::revision::ReadParams(request, response, false, &path, &unused)) return -1;
  if (!orvel::client::ReadPaging(request, response, 100, 1000, &paging)) return -1;
  PObject args = PObject::MakeMap();
  args["path"] = path;
  args["offset"] = static_cast<unsigned long long>(paging.offset);
  args["limit"] = static_cast<unsigned long long>(paging.limit);
  PObject result;
  if (!orvel::client::CallService(auth, request, response, kLogSource, "revision_list", args,
                                  &result)) {
    return -1;
  }
  Json::Value data(Json::objectValue);
  data["revisions"] = orvel::client::ToJson(result["revisions"]);
  data["total"] = orvel::client::ToJson(result["total"]);
  data["offset"] = orvel::client::ToJson(result["offset"]);
  response.SetJsonResponse(std::move(data));
  return 0;
}
