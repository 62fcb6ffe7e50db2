// search: finds the caller's items (own and shared with the caller) by
// keyword in names and text, file type, location, labels, time, size and
// owner; sorts by score, name, size or time; pages; marks the matched words
// of a content snippet; reports its own time in microseconds. The index is
// brought up to date first (search_index.h).
#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>

#include "access.h"
#include "ops_browse.h"
#include "search_index.h"

namespace orvel::syncd {
namespace {

constexpr uint64_t kDefaultLimit = 100, kMaxLimit = 1000;

const std::map<std::string, std::vector<std::string>>& TypeExtensions() {
  static const std::map<std::string, std::vector<std::string>> kTypes = {
      {"document", {"doc", "docx", "odt", "rtf", "txt", "md", "pdf", "xls", "xlsx", "ods", "ppt", "pptx", "odp", "csv"}},
      {"image", {"jpg", "jpeg", "png", "gif", "webp", "bmp", "tif", "tiff", "heic", "svg"}},
      {"video", {"mp4", "mkv", "mov", "avi", "webm", "m4v", "wmv"}},
      {"audio", {"mp3", "wav", "flac", "ogg", "m4a", "aac", "opus"}},
      {"pdf", {"pdf"}},
      {"archive", {"zip", "tar", "gz", "tgz", "bz2", "xz", "7z", "rar"}},
      {"text", {"txt", "md", "csv", "log", "json", "xml"}},
  };
  return kTypes;
}

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

int64_t Seconds(uint64_t v) { return static_cast<int64_t>(v > 100000000000ULL ? v / 1000 : v); }

Status ParseFileType(const PObject& q, SearchQuery* s) {
  std::string type, custom;
  ORVEL_RETURN_IF_ERROR(ArgString(q, "file_type", &type));
  ORVEL_RETURN_IF_ERROR(ArgString(q, "custom_file_type", &custom));
  type = Lower(type);
  if (type.empty() && !custom.empty()) type = "custom";
  if (type.empty() || type == "all" || type == "any") return Status::OK();
  if (type == "folder" || type == "dir") {
    s->files = false;
    return Status::OK();
  }
  if (type == "file") {
    s->dirs = false;
    return Status::OK();
  }
  s->dirs = false;
  if (type == "custom") {
    size_t start = 0;
    while (start <= custom.size()) {
      size_t comma = std::min(custom.find(',', start), custom.size());
      std::string e = Lower(custom.substr(start, comma - start));
      e.erase(0, e.find_first_not_of(" ."));
      e.erase(e.find_last_not_of(' ') + 1);
      if (!e.empty()) s->extensions.push_back(e);
      start = comma + 1;
    }
    if (s->extensions.empty()) return Status(kErrInvalidArgument, "custom_file_type names no extension");
    return Status::OK();
  }
  auto it = TypeExtensions().find(type);
  if (it == TypeExtensions().end()) return Status(kErrInvalidArgument, "unknown file_type: \"" + type + "\"");
  s->extensions = it->second;
  return Status::OK();
}

Status ParseLocation(RequestContext& ctx, const PObject& q, SearchQuery* s) {
  std::string loc, custom;
  ORVEL_RETURN_IF_ERROR(ArgString(q, "location", &loc));
  ORVEL_RETURN_IF_ERROR(ArgString(q, "custom_location", &custom));
  loc = Lower(loc);
  if (loc.empty() && !custom.empty()) loc = "custom";
  if (loc == "mydrive") {
    s->scope = SearchQuery::Scope::kMine;
    return Status::OK();
  }
  if (loc.empty() || loc == "all" || loc == "shared_with_me") {
    s->scope = loc == "shared_with_me" ? SearchQuery::Scope::kShared : SearchQuery::Scope::kAll;
    return ctx.store->browse()->SharedRootIds(ctx.caller.user.name, ctx.caller.user.groups, &s->shared_roots);
  }
  if (loc != "custom") return Status(kErrInvalidArgument, "unknown location: \"" + loc + "\"");
  Access folder;
  ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, custom, &folder));
  if (!folder.node.is_dir()) return Status(kErrNotFolder, "not a folder: " + folder.view_path);
  s->scope = SearchQuery::Scope::kFolder;
  return ctx.store->browse()->SubtreeFolders(folder.node.file_id, &s->folders);
}

// Local midnight `days_back` days before today.
int64_t DayStart(int days_back) {
  time_t now = time(nullptr);
  struct tm tm;
  localtime_r(&now, &tm);
  tm.tm_hour = tm.tm_min = tm.tm_sec = 0;
  tm.tm_mday -= days_back;
  tm.tm_isdst = -1;
  return static_cast<int64_t>(mktime(&tm));
}

Status ParseTime(const PObject& q, SearchQuery* s) {
  std::string word;
  uint64_t start = 0, end = 0;
  ORVEL_RETURN_IF_ERROR(ArgString(q, "time", &word));
  ORVEL_RETURN_IF_ERROR(ArgUInt(q, "start_date", &start));
  ORVEL_RETURN_IF_ERROR(ArgUInt(q, "end_date", &end));
  s->start_time = Seconds(start);
  s->end_time = Seconds(end);
  word = Lower(word);
  int64_t now = time(nullptr);
  if (word.empty() || word == "any" || word == "custom") return Status::OK();
  if (word == "today") s->start_time = DayStart(0);
  else if (word == "yesterday") s->start_time = DayStart(1), s->end_time = DayStart(0) - 1;
  else if (word == "last_7_days" || word == "week") s->start_time = now - 7 * 86400;
  else if (word == "last_30_days" || word == "month") s->start_time = now - 30 * 86400;
  else if (word == "last_year" || word == "year") s->start_time = now - 365 * 86400;
  else return Status(kErrInvalidArgument, "unknown time: \"" + word + "\"");
  return Status::OK();
}

Status ParseOwner(RequestContext& ctx, const PObject& q, SearchQuery* s) {
  std::string owner;
  ORVEL_RETURN_IF_ERROR(ArgString(q, "owner", &owner));
  const PObject& custom = q["custom_owner"];
  owner = Lower(owner);
  if (owner.empty() && custom.isMap()) owner = "custom";
  if (owner.empty() || owner == "any" || owner == "anyone") return Status::OK();
  if (owner == "me") s->owner_is = ctx.caller.user.name;
  else if (owner == "others" || owner == "not_me") s->owner_not = ctx.caller.user.name;
  else if (owner == "custom") {
    s->owner_is = custom["name"].asString();
    if (s->owner_is.empty()) return Status(kErrInvalidArgument, "custom_owner names no user");
  } else {
    return Status(kErrInvalidArgument, "unknown owner: \"" + owner + "\"");
  }
  return Status::OK();
}

Status ParseSort(const PObject& q, SearchQuery* s) {
  std::string by = "score", dir = "asc";
  ORVEL_RETURN_IF_ERROR(ArgString(q, "sort_by", &by));
  ORVEL_RETURN_IF_ERROR(ArgString(q, "sort_direction", &dir));
  by = Lower(by);
  dir = Lower(dir);
  if (by.empty() || by == "score") s->sort = SearchQuery::Sort::kScore;
  else if (by == "name") s->sort = SearchQuery::Sort::kName;
  else if (by == "size") s->sort = SearchQuery::Sort::kSize;
  else if (by == "modified_time" || by == "mtime" || by == "time") s->sort = SearchQuery::Sort::kModified;
  else return Status(kErrInvalidArgument, "unknown sort key: \"" + by + "\"");
  if (dir != "asc" && dir != "desc" && !dir.empty())
    return Status(kErrInvalidArgument, "sort_direction must be asc or desc: \"" + dir + "\"");
  s->descending = dir == "desc";
  return Status::OK();
}

Status ParseQuery(RequestContext& ctx, const PObject& q, SearchQuery* s) {
  if (!q.isNull() && !q.isMap()) return Status(kErrInvalidArgument, "argument \"query\" must be a map");
  s->user = ctx.caller.user.name;
  std::string keyword;
  ORVEL_RETURN_IF_ERROR(ArgString(q, "keyword", &keyword));
  s->match = KeywordToMatch(keyword);
  ORVEL_RETURN_IF_ERROR(ParseFileType(q, s));
  ORVEL_RETURN_IF_ERROR(ParseLocation(ctx, q, s));
  std::vector<std::string> labels;
  ORVEL_RETURN_IF_ERROR(ArgStringList(q, "labels", &labels));
  for (const std::string& id : labels) {
    Label l;
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->GetLabel(s->user, id, &l));
    s->label_ids.push_back(id);
  }
  ORVEL_RETURN_IF_ERROR(ParseTime(q, s));
  ORVEL_RETURN_IF_ERROR(ArgUInt(q, "min_size", &s->min_size));
  ORVEL_RETURN_IF_ERROR(ArgUInt(q, "max_size", &s->max_size));
  if (s->max_size > 0 && s->min_size > s->max_size)
    return Status(kErrInvalidArgument, "min_size is over max_size");
  ORVEL_RETURN_IF_ERROR(ArgBool(q, "content_snippet", &s->snippet));
  ORVEL_RETURN_IF_ERROR(ArgUInt(q, "offset", &s->offset));
  uint64_t limit = 0;
  ORVEL_RETURN_IF_ERROR(ArgUInt(q, "limit", &limit));
  if (limit > kMaxLimit)
    return Status(kErrTooLargeToAnswer, "limit " + std::to_string(limit) + " is over " + std::to_string(kMaxLimit));
  s->limit = limit ? limit : kDefaultLimit;
  ORVEL_RETURN_IF_ERROR(ParseSort(q, s));
  return ParseOwner(ctx, q, s);
}

}  // namespace

Status OpSearch(RequestContext& ctx, const PObject& args, PObject* result) {
  auto started = std::chrono::steady_clock::now();
  const PObject& q = args["query"];
  std::string keyword;
  ORVEL_RETURN_IF_ERROR(ArgString(q.isMap() ? q : args, "keyword", &keyword));
  ORVEL_RETURN_IF_ERROR(DrainSearchQueue(*ctx.d, ctx.store.get()));
  SearchQuery s;
  ORVEL_RETURN_IF_ERROR(ParseQuery(ctx, q, &s));
  std::vector<SearchHit> hits;
  uint64_t total = 0;
  if (!keyword.empty() && s.match.empty()) {
    // Only punctuation: nothing can match.
  } else {
    Transaction tx(ctx.store.get(), false);
    ORVEL_RETURN_IF_ERROR(tx.status());
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->Search(s, &hits, &total));
  }
  std::vector<Access> items;
  std::vector<std::string> snippets;
  for (const SearchHit& h : hits) {
    Access a;
    Status st = AccessOfNode(ctx, h.node, &a);
    if (!st.ok()) continue;  // the item went away since the page was read
    items.push_back(std::move(a));
    snippets.push_back(h.snippet);
  }
  std::vector<ItemRecord> records;
  ORVEL_RETURN_IF_ERROR(AccessItemRecords(ctx, std::move(items), false, &records));
  for (size_t i = 0; i < snippets.size(); ++i) records[i].content_snippet = snippets[i];
  (*result)["items"] = PackedItemRecords(records);
  (*result)["total"] = static_cast<unsigned long long>(total);
  auto us = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started);
  (*result)["search_time"] = static_cast<unsigned long long>(us.count());
  return Status::OK();
}

}  // namespace orvel::syncd
