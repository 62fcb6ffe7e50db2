// "search": finds items by keyword, type, place, labels, dates, size and
// owner. The criteria travel to the service as one query map.
#include "search.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bridge/module-log.h"
#include "orvel/common/orvel_list.h"
#include "orvel/common/orvel_utils.h"
#include "orvel/common/service_call.h"

namespace {
constexpr const char kLogSource[] = "search";

void CopyString(BridgeRequest& request, const char* name, PObject& query) {
  if (request.HasParam(name)) query[name] = request.GetParamRef(name, "").asString();
}

void CopyUInt64(BridgeRequest& request, const char* name, PObject& query) {
  if (request.HasParam(name)) query[name] = request.GetParamRef(name, 0).asUInt64();
}

}  // namespace

PObject BuildSearchQuery(BridgeRequest& request) {
  PObject query = PObject::MakeMap();
  for (const char* name :
       {"keyword", "file_type", "custom_file_type", "location", "custom_location"}) {
    CopyString(request, name, query);
  }
  if (request.HasParam("labels")) {
    PObject labels = PObject::MakeArray();
    for (const Json::Value& label : request.GetParamRef("labels", Json::Value())) {
      labels.push_back(label.asString());
    }
    query["labels"] = labels;
  }
  CopyString(request, "time", query);
  for (const char* name : {"start_date", "end_date", "min_size", "max_size"}) {
    CopyUInt64(request, name, query);
  }
  query["content_snippet"] = request.GetParamRef("content_snippet", false).asBool();
  query["offset"] = request.GetParamRef("offset", 0).asUInt();
  query["limit"] = request.GetParamRef("limit", 0).asUInt();
  query["sort_by"] = request.GetParamRef("sort_by", "score").asString();
  query["sort_direction"] = request.GetParamRef("sort_direction", "asc").asString();
  CopyString(request, "owner", query);
  if (request.HasParam("custom_owner")) {
    const Json::Value owner = request.GetParamRef("custom_owner", Json::Value());
    PObject custom = PObject::MakeMap();
    custom["type"] = "user";
    custom["name"] = owner["name"].asString();
    custom["uid"] = owner["uid"].asUInt();
    query["custom_owner"] = custom;
  }
  return query;
}

bool SearchTimeSeconds(unsigned long long micros, double& seconds) {
  char text[64];
  snprintf(text, sizeof(text), "%.3f", static_cast<double>(micros) / 1000000.0);
  char* end = nullptr;
  errno = 0;
  seconds = strtod(text, &end);
  return errno != ERANGE && end != text;
}

SearchHandler::SearchHandler() {
  SetRequiredDatabase(0);
  SetAccountOption(3);
  SetRequiredAccessPrivilege(0);
  SetStatusOption(3);
  SetAllowDemoMode(true);
  SetRequestMethod(kRequestMethodRead);
  SetAPI("ZEMO.ZemoraOrvel.Files", "search", 0, 0);
}

SearchHandler::~SearchHandler() = default;

int SearchHandler::Handle(const RequestAuthentication& auth, BridgeRequest& request,
                          BridgeResponse& response) {
  return SearchFile(auth, request, response);
}

int SearchHandler::SearchFile(const RequestAuthentication& auth, BridgeRequest& request,
                              BridgeResponse& response) {
  const PObject query = BuildSearchQuery(request);
  std::vector<Nimbard::FileInfo> records;
  unsigned total = 0;
  unsigned long long search_time = 0;
  // Search runs as the caller even when the request acts for another user.
  if (!orvel::module::CallService(
          auth, request, response, std::string(),
          {kLogSource, __LINE__, "searching file failure", "searching file failure",
           orvel::module::ServiceFailure::kPlain},
          [&](Nimbard& client) { return client.SearchFile(query, records, total, search_time); })) {
    return -1;
  }
  double seconds = 0;
  if (!SearchTimeSeconds(search_time, seconds)) {
    ORVEL_LOG_ERROR("search time %llu out of range", search_time);
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  Json::Value rest(Json::objectValue);
  rest["total"] = total;
  rest["search_time"] = seconds;
  if (orvel::module::SetItemsAnswer(records, false, std::move(rest), response) < 0) {
    ORVEL_LOG_ERROR("build response failed\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  return 0;
}
