// The listing family of the Files API, written once: the paged listings by
// one criterion (starred, labelled, shared with me, shared with others), the
// recent listing, and the pieces the folder listing shares with them (the
// service filter and the conversion of records into "items").
//
// A member is described by a ListFamilyMember row; its handler's Handle is a
// single call of HandleFilteredList. Each call opens its own client; nothing
// is shared between requests. Not thread-safe per request (nothing is).
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bridge/request-handler.h"
#include "nimbard/nimbard.h"

namespace orvel::module {

// A filter object as read from the request.
struct ListFilter {
  bool starred = false;
  std::string label_id;
  std::vector<std::string> types;
  std::vector<std::string> extensions;
};

// Reads the "filter" parameter (default {}).
ListFilter ReadListFilter(BridgeRequest& request);

// The service filter: paging and sorting, the joined type list, label id,
// starred flag and extensions.
Nimbard::SearchNodeFilter MakeSearchNodeFilter(const ListFilter& filter, const std::string& sort_by,
                                               const std::string& sort_direction, uint64_t limit,
                                               uint64_t offset, const std::string& label_id);

// Answers {"items": [the item object of each record], <the members of
// rest>}, leaving out type-2 records when skip_hidden. The answer is written
// as text straight from the records (a listing builds no tree per item),
// byte for byte the text of the tree. 0, or -1 when a record cannot be
// converted (nothing is set then).
int SetItemsAnswer(const std::vector<Nimbard::FileInfo>& records, bool skip_hidden,
                   Json::Value rest, BridgeResponse& response);

using PagedListCall = int (Nimbard::*)(const Nimbard::SearchNodeFilter&,
                                       std::vector<Nimbard::FileInfo>&, uint64_t&);

struct ListFamilyMember {
  const char* log_source;       // the handler's log name, e.g. "list-starred"
  const char* step_name;        // the failed step as logged
  const char* failure_message;  // the API message of a service failure
  bool needs_label_id;          // reads a required "label_id" parameter
  PagedListCall call;
};

// Serves a paged member: {"items", "total"}. 0 or -1 (error set).
int HandleFilteredList(const ListFamilyMember& member, const RequestAuthentication& auth,
                       const std::string& sudo_user, BridgeRequest& request,
                       BridgeResponse& response);

// Serves "recent": {"items"} of at most "limit" (default 200) records.
int HandleRecentList(const RequestAuthentication& auth, const std::string& sudo_user,
                     BridgeRequest& request, BridgeResponse& response);

}  // namespace orvel::module
