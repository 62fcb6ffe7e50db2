// "list_ancestor": the chain of folders above an item, for breadcrumbs.
#include "list-ancestor.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_list.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "list-ancestor";
}  // namespace

ListAncestorHandler::ListAncestorHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(7);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "list_ancestor", 0, 0);
}

ListAncestorHandler::~ListAncestorHandler() = default;

int ListAncestorHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                                BridgeResponse& response) {
  const std::string path = request.GetParamRef("path", "").asString();
  if (path.empty()) {
    ORVEL_LOG_ERROR("Missing path\n");
    response.SetError(117, "Missing path", __LINE__);
    return -1;
  }
  std::vector<Nimbard::FileInfo> records;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "ListAncestor failed", "list ancestor failed"},
                   [&](Nimbard& client) { return client.ListAncestorByPath(path, records); })) {
    return -1;
  }
  Json::Value rest(Json::objectValue);
  rest["total"] = static_cast<Json::UInt>(records.size());
  if (orvel::module::SetItemsAnswer(records, false, std::move(rest), response) < 0) {
    ORVEL_LOG_ERROR("build response failed\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  return 0;
}
