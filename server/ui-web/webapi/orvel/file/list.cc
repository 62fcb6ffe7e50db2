// "list": one page of the items inside a folder of the caller's space.
#include "list.h"

#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_list.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

using orvel::module::CallService;
using orvel::module::ServiceFailure;

namespace {
constexpr const char kLogSource[] = "list";
}  // namespace

ListHandler::ListHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(7);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "list", 0, 0);
}

ListHandler::~ListHandler() = default;

int ListHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                        BridgeResponse& response) {
  return ListMyOrvel(auth, request, response);
}

int ListHandler::ListMyOrvel(const RequestAuthentication& auth, BridgeRequest& request,
                             BridgeResponse& response) {
  using orvel::module::ListFilter;
  const std::string path = request.GetParamRef("path", "").asString();
  const Json::Value filter_value = request.GetParamRef("filter", Json::Value(Json::objectValue));
  const uint64_t offset = request.GetParamRef("offset", 0).asUInt();
  const uint64_t limit = request.GetParamRef("limit", 0).asUInt();
  const std::string sort_by = request.GetParamRef("sort_by", "name").asString();
  const std::string sort_direction = request.GetParamRef("sort_direction", "asc").asString();
  std::vector<std::string> extra;
  try {
    extra << request.GetParamRef("extra", Json::Value(Json::arrayValue));
  } catch (const Json::Exception&) {
    response.SetError(114, "invalid extra", __LINE__);
    return -1;
  }
  ListFilter filter;
  ParseFileListFilter(filter_value, filter.starred, filter.label_id, filter.types,
                      filter.extensions);

  const Nimbard::SearchNodeFilter search = orvel::module::MakeSearchNodeFilter(
      filter, sort_by, sort_direction, limit, offset, filter.label_id);
  std::vector<Nimbard::FileInfo> records;
  uint64_t total = 0;
  if (!CallService(auth, request, response, GetSudoUser(),
                   {kLogSource, __LINE__, "ListMyOrvel failed", "list node failed"},
                   [&](Nimbard& client) {
                     return client.ListFile(path, false, search, records, total, extra);
                   })) {
    return -1;
  }
  Json::Value rest(Json::objectValue);
  rest["total"] = Json::UInt64(total);
  if (orvel::module::SetItemsAnswer(records, true, std::move(rest), response) < 0) {
    ORVEL_LOG_ERROR("build response failed\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  return 0;
}
