// The listing family (see orvel_list.h).
#include "orvel_list.h"

#include <utility>

#include "bridge/module-log.h"
#include "item_json.h"
#include "orvel_utils.h"
#include "service_call.h"
#include "zemo/json_text.h"

namespace orvel::module {
namespace {

std::string Join(const std::vector<std::string>& parts, const char* separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += separator;
    out += parts[i];
  }
  return out;
}

// Logs a failed service call and sets the mapped error.
struct PagedParams {
  uint64_t offset = 0;
  uint64_t limit = 0;
  std::string sort_by;
  std::string sort_direction;
  std::string label_id;
};

PagedParams ReadPagedParams(const ListFamilyMember& member, BridgeRequest& request) {
  PagedParams p;
  p.offset = request.GetParamRef("offset", 0).asUInt();
  p.limit = request.GetParamRef("limit", 0).asUInt();
  p.sort_by = request.GetParamRef("sort_by", "name").asString();
  p.sort_direction = request.GetParamRef("sort_direction", "asc").asString();
  if (member.needs_label_id) p.label_id = request.GetParamRef("label_id", "").asString();
  return p;
}

int AppendItems(const std::vector<Nimbard::FileInfo>& records, bool skip_hidden,
                Json::Value& items) {
  for (const Nimbard::FileInfo& record : records) {
    if (skip_hidden && record.type == 2) continue;
    Json::Value item;
    if (ConvertFileInfoToJSon(record, item) < 0) return -1;
    items.append(std::move(item));
  }
  return 0;
}

// The text of {"items": [...], <rest>}. False when it cannot be the tree's
// text: a member of rest that sorts before "items", or an item that
// AppendItemText refuses.
bool ItemsAnswerText(const std::vector<Nimbard::FileInfo>& records, bool skip_hidden,
                     const Json::Value& rest, std::string* out) {
  if (!rest.isObject()) return false;
  for (const std::string& key : rest.getMemberNames()) {
    if (key <= "items") return false;
  }
  out->reserve(64 + records.size() * 1024);
  out->append("{\"items\":[");
  bool first = true;
  for (const Nimbard::FileInfo& record : records) {
    if (skip_hidden && record.type == 2) continue;
    if (!first) out->push_back(',');
    first = false;
    if (!AppendItemText(record, out)) return false;
  }
  out->push_back(']');
  for (auto it = rest.begin(); it != rest.end(); ++it) {
    out->push_back(',');
    zemo::AppendJsonString(it.name(), out);
    out->push_back(':');
    if (!zemo::AppendCompactJson(*it, out)) return false;
  }
  out->push_back('}');
  return true;
}

}  // namespace

ListFilter ReadListFilter(BridgeRequest& request) {
  ListFilter filter;
  const Json::Value value = request.GetParamRef("filter", Json::Value(Json::objectValue));
  ParseFileListFilter(value, filter.starred, filter.label_id, filter.types, filter.extensions);
  return filter;
}

Nimbard::SearchNodeFilter MakeSearchNodeFilter(const ListFilter& filter, const std::string& sort_by,
                                               const std::string& sort_direction, uint64_t limit,
                                               uint64_t offset, const std::string& label_id) {
  Nimbard::SearchNodeFilter out;
  out.sort_direction = sort_direction;
  out.type = Join(filter.types, ",");
  out.sort_by = sort_by;
  out.limit = limit;
  out.offset = offset;
  out.label_id = label_id;
  out.starred = filter.starred;
  out.extensions = filter.extensions;
  return out;
}

int SetItemsAnswer(const std::vector<Nimbard::FileInfo>& records, bool skip_hidden,
                   Json::Value rest, BridgeResponse& response) {
  std::string text;
  if (ItemsAnswerText(records, skip_hidden, rest, &text)) {
    response.SetJsonText(std::move(text));
    return 0;
  }
  Json::Value items(Json::arrayValue);
  if (AppendItems(records, skip_hidden, items) < 0) return -1;
  rest["items"] = std::move(items);
  response.SetJsonResponse(std::move(rest));
  return 0;
}

int HandleFilteredList(const ListFamilyMember& member, const RequestAuthentication& auth,
                       const std::string& sudo_user, BridgeRequest& request,
                       BridgeResponse& response) {
  const PagedParams params = ReadPagedParams(member, request);
  if (member.needs_label_id && params.label_id.empty()) {
    Log(Logger::kError, member.log_source, __LINE__, "label_id is required");
    response.SetError(114, "label_id is required", __LINE__);
    return -1;
  }
  const ListFilter filter = ReadListFilter(request);
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, sudo_user);
  const std::string label_id = member.needs_label_id ? params.label_id : filter.label_id;
  const Nimbard::SearchNodeFilter search = MakeSearchNodeFilter(
      filter, params.sort_by, params.sort_direction, params.limit, params.offset, label_id);
  std::vector<Nimbard::FileInfo> records;
  uint64_t total = 0;
  if ((client.*member.call)(search, records, total) < 0) {
    return ReportServiceFailure(
        client, response,
        {member.log_source, __LINE__, std::string(member.step_name) + " failed",
         member.failure_message});
  }
  Json::Value rest(Json::objectValue);
  rest["total"] = Json::UInt64(total);
  if (SetItemsAnswer(records, true, std::move(rest), response) < 0) {
    Log(Logger::kError, member.log_source, __LINE__, "build response failed\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  return 0;
}

int HandleRecentList(const RequestAuthentication& auth, const std::string& sudo_user,
                     BridgeRequest& request, BridgeResponse& response) {
  static const char kSource[] = "recent";
  const ListFilter filter = ReadListFilter(request);
  const int64_t limit = request.GetParamRef("limit", 200).asInt();
  Nimbard client;
  SetupNimbardSession(client, auth.user_name, request, sudo_user);
  Nimbard::SearchNodeFilter search;
  search.starred = filter.starred;
  search.label_id = filter.label_id;
  search.type = Join(filter.types, ",");
  search.extensions = filter.extensions;
  std::vector<Nimbard::FileInfo> records;
  if (client.ListRecent(limit, records, search) < 0) {
    return ReportServiceFailure(client, response,
                                {kSource, __LINE__, "ListRecent failed", "list recent failed"});
  }
  if (SetItemsAnswer(records, false, Json::Value(Json::objectValue), response) < 0) {
    Log(Logger::kError, kSource, __LINE__, "Failed to convert file info to json format\n");
    response.SetError(117, "build response failed", __LINE__);
    return -1;
  }
  return 0;
}

}  // namespace orvel::module
