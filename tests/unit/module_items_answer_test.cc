// The listings' answer written as text straight from the records: it must be
// byte for byte the text of the tree the other answers build, for every kind
// of string and member a record can hold.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bridge/bridge-response.h"
#include "orvel/common/item_json.h"
#include "orvel/common/orvel_list.h"
#include "zemo/json_text.h"

namespace {

using orvel::module::SetItemsAnswer;
using orvel::module::WriteItemTree;

Nimbard::FileInfo Full() {
  Nimbard::FileInfo f;
  f.sync_id = 18446744073709551615ULL;
  f.max_id = 7;
  f.size = 5000000000ULL;
  f.created_time = 1;
  f.access_time = 4294967295u;
  f.modified_time = 1700000000;
  f.change_time = 3;
  f.parent_id = "12";
  f.file_id = "882";
  f.permanent_link = "AbC";
  f.display_path = "/mydrive/caf\xc3\xa9 \xf0\x9f\x98\x80";
  f.original_path = "/mydrive/old \"quoted\" \\ name";
  f.path = "/mydrive/tab\there\nnl\x01";
  f.tpx_path = "/data/homes/alice/bad \xff\xfe utf8 \xc3";
  f.name = std::string("nul\0inside", 10);
  f.hash = "abc";
  f.removed = true;
  f.starred = true;
  f.shared = true;
  f.sync_to_device = true;
  f.type = 1;
  f.properties = R"({"z": [1, 2.5, null, true], "a": {"b": "c"}})";
  f.app_properties = "[1, \"x\"]";
  f.permissions.push_back({"5", "user", "bob", "editor", false});
  f.permissions.push_back({"link:abcd", "link", "", "viewer", true});
  f.labels.push_back({"3", "red \xe2\x9c\x93", "#ff0000"});
  f.owner_name = "alice";
  f.owner_display_name = "Alice A.";
  f.owner_uid = 1026;
  f.capabilities.can_read = true;
  f.capabilities.can_organize = true;
  f.content_snippet = "<b>x</b>";
  f.revisions = 3;
  f.content_type = "text/plain";
  return f;
}

// The text the answer must have: the tree as the framework writes it.
std::string TreeText(const std::vector<Nimbard::FileInfo>& records, bool skip_hidden,
                     Json::Value rest) {
  Json::Value items(Json::arrayValue);
  for (const Nimbard::FileInfo& r : records) {
    if (skip_hidden && r.type == 2) continue;
    Json::Value item;
    WriteItemTree(r, item);
    items.append(item);
  }
  rest["items"] = items;
  return zemo::CompactJson(rest);
}

TEST(ItemsAnswer, TextIsTheTreesTextForEveryKindOfRecord) {
  Nimbard::FileInfo plain;  // every member at its default
  Nimbard::FileInfo hidden = Full();
  hidden.type = 2;
  Nimbard::FileInfo bad_properties = Full();
  bad_properties.properties = "not json";
  bad_properties.app_properties = "{\"unterminated\": ";
  const std::vector<Nimbard::FileInfo> records = {Full(), plain, hidden, bad_properties};
  Json::Value rest(Json::objectValue);
  rest["total"] = Json::UInt64(100001);
  rest["search_time"] = 0.25;
  for (bool skip_hidden : {true, false}) {
    BridgeResponse response;
    ASSERT_EQ(SetItemsAnswer(records, skip_hidden, rest, response), 0);
    EXPECT_TRUE(response.GetJsonObject().isNull());
    EXPECT_EQ(response.GetJsonText(), TreeText(records, skip_hidden, rest)) << skip_hidden;
  }
}

TEST(ItemsAnswer, EmptyListingAndNoOtherMembers) {
  BridgeResponse response;
  ASSERT_EQ(SetItemsAnswer({}, true, Json::Value(Json::objectValue), response), 0);
  EXPECT_EQ(response.GetJsonText(), "{\"items\":[]}");
}

TEST(ItemsAnswer, FallsBackToTheTreeWhereTextCouldDiffer) {
  // Comments kept by the properties reader are written only by the tree's
  // writer; a member sorting before "items" would need reordering.
  Nimbard::FileInfo commented = Full();
  commented.properties = "{\"k\": \"v\"} // note";
  BridgeResponse with_comment;
  ASSERT_EQ(SetItemsAnswer({commented}, false, Json::Value(Json::objectValue), with_comment), 0);
  EXPECT_TRUE(with_comment.GetJsonText().empty());
  ASSERT_EQ(with_comment.GetJsonObject()["items"].size(), 1u);
  EXPECT_EQ(with_comment.GetJsonObject()["items"][0]["properties"]["k"].asString(), "v");

  Json::Value rest(Json::objectValue);
  rest["count"] = 1;
  BridgeResponse early_key;
  ASSERT_EQ(SetItemsAnswer({Full()}, false, rest, early_key), 0);
  EXPECT_TRUE(early_key.GetJsonText().empty());
  EXPECT_EQ(early_key.GetJsonObject()["count"].asInt(), 1);
  EXPECT_EQ(early_key.GetJsonObject()["items"][0]["file_id"].asString(), "882");
}

}  // namespace
