// Shared conversions of the module: item objects, request parsing, path
// safety and the service error mapping.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "module_test_util.h"
#include "orvel/common/orvel_utils.h"

namespace {

using orvel::module::test::ParseJson;

TEST(OrvelErrCode, MapsTheTable) {
  const std::pair<int, int> table[] = {
      {-402, 1006},  {-403, 1007},  {-502, 1002},  {-503, 1002},  {-505, 1002},  {-506, 1002},
      {-507, 1002},  {-508, 1003},  {-601, 1031},  {-602, 1031},  {-703, 1027},  {-705, 1002},
      {-712, 1002},  {-800, 1016},  {-801, 1014},  {-803, 1017},  {-804, 1025},  {-901, 1012},
      {-902, 1013},  {-903, 1026},  {-905, 1030},  {-906, 1039},  {-1101, 1022}, {-1102, 1023},
      {-1103, 1024}, {-1104, 1009}, {-1105, 1010}, {-1106, 1004}, {-1109, 1028}, {-1110, 1029},
      {-1111, 1032}, {-1112, 1033}, {-1113, 1034}, {-1114, 1035}, {-1115, 1036}, {-1116, 1037},
      {-1117, 1038}};
  for (const auto& [backend, api] : table) {
    EXPECT_EQ(OrvelErrCodeGetFromBackend(backend), api) << backend;
  }
  EXPECT_EQ(OrvelErrCodeGetFromBackend(0), 0);
}

TEST(OrvelErrCode, GapsAndUnknownCodesBecomeGeneric) {
  for (int code : {-504, -509, -550, -600,  -603,  -702, -704, -706,  -711,  -713,
                   -799, -802, -904, -1107, -1108, -1,   1,    -1118, 57343, 61440}) {
    EXPECT_EQ(OrvelErrCodeGetFromBackend(code), 1000) << code;
  }
}

TEST(OrvelErrCode, PlatformRangePassesThrough) {
  EXPECT_EQ(OrvelErrCodeGetFromBackend(57344), 57344);
  EXPECT_EQ(OrvelErrCodeGetFromBackend(0xE123), 0xE123);
  EXPECT_EQ(OrvelErrCodeGetFromBackend(61439), 61439);
}

class ConvertFileInfo : public ::testing::Test {
 protected:
  Json::Value Convert() {
    Json::Value out;
    EXPECT_GE(ConvertFileInfoToJSon(info_, out), 0);
    return out;
  }
  Nimbard::FileInfo info_;
};

TEST_F(ConvertFileInfo, WritesEveryKeyWithItsType) {
  info_.file_id = "882";
  info_.name = "a.txt";
  info_.path = "/mydrive/a.txt";
  info_.size = 5000000000ULL;
  info_.modified_time = 1700000000;
  info_.owner_uid = 1026;
  info_.owner_name = "alice";
  info_.capabilities.can_read = true;
  info_.properties = "{\"k\": \"v\"} // note";
  info_.app_properties = "[1, 2]";
  info_.revisions = 3;
  const Json::Value out = Convert();
  EXPECT_EQ(out["file_id"].asString(), "882");
  EXPECT_EQ(out["type"].asString(), "file");
  EXPECT_TRUE(out["size"].isUInt64());
  EXPECT_EQ(out["size"].asUInt64(), 5000000000ULL);
  EXPECT_EQ(out["modified_time"].asUInt(), 1700000000u);
  EXPECT_EQ(out["image_metadata"]["time"].asUInt(), 1700000000u);
  EXPECT_TRUE(out["capabilities"]["can_read"].asBool());
  EXPECT_FALSE(out["capabilities"]["can_organize"].asBool());
  EXPECT_EQ(out["capabilities"].size(), 9u);
  EXPECT_EQ(out["properties"]["k"].asString(), "v");
  EXPECT_EQ(out["app_properties"][1].asInt(), 2);
  EXPECT_EQ(out["owner"]["uid"].asUInt(), 1026u);
  EXPECT_EQ(out["owner"]["name"].asString(), "alice");
  EXPECT_EQ(out["revisions"].asUInt(), 3u);
  for (const char* key : {"tpx_path", "display_path", "parent_id", "created_time", "access_time",
                          "change_time", "version_id", "sync_id", "max_id", "removed", "encrypted",
                          "starred", "shared", "adv_shared", "sync_to_device", "permanent_link",
                          "hash", "content_snippet", "content_type"}) {
    EXPECT_TRUE(out.isMember(key)) << key;
  }
  EXPECT_TRUE(out["removed"].isBool());
  EXPECT_TRUE(out["version_id"].isString());
}

TEST_F(ConvertFileInfo, TypeNames) {
  info_.type = 1;
  EXPECT_EQ(Convert()["type"].asString(), "dir");
  info_.type = 2;
  EXPECT_EQ(Convert()["type"].asString(), "");
  info_.type = -7;
  EXPECT_EQ(Convert()["type"].asString(), "");
}

TEST_F(ConvertFileInfo, VersionIdIsTheFullUnsignedDecimal) {
  info_.sync_id = std::numeric_limits<uint64_t>::max();
  const Json::Value out = Convert();
  EXPECT_EQ(out["version_id"].asString(), "18446744073709551615");
  EXPECT_EQ(out["sync_id"].asUInt64(), std::numeric_limits<uint64_t>::max());
  info_.sync_id = 0;
  EXPECT_EQ(Convert()["version_id"].asString(), "0");
}

TEST_F(ConvertFileInfo, OriginalPathOnlyWhenSet) {
  EXPECT_FALSE(Convert().isMember("original_path"));
  info_.original_path = "/mydrive/old";
  EXPECT_EQ(Convert()["original_path"].asString(), "/mydrive/old");
}

TEST_F(ConvertFileInfo, EmptyListsAreEmptyArrays) {
  const Json::Value out = Convert();
  EXPECT_TRUE(out["shared_with"].isArray());
  EXPECT_EQ(out["shared_with"].size(), 0u);
  EXPECT_TRUE(out["labels"].isArray());
  EXPECT_EQ(out["labels"].size(), 0u);
}

TEST_F(ConvertFileInfo, PermissionsAndLabels) {
  info_.permissions.push_back({"p1", "user", "bob", "editor", true});
  info_.labels.push_back({"l1", "work", "#ff0000"});
  const Json::Value out = Convert();
  ASSERT_EQ(out["shared_with"].size(), 1u);
  EXPECT_EQ(out["shared_with"][0]["permission_id"].asString(), "p1");
  EXPECT_EQ(out["shared_with"][0]["role"].asString(), "editor");
  EXPECT_TRUE(out["shared_with"][0]["inherited"].asBool());
  ASSERT_EQ(out["labels"].size(), 1u);
  EXPECT_EQ(out["labels"][0]["label_id"].asString(), "l1");
  EXPECT_EQ(out["labels"][0]["name"].asString(), "work");
  EXPECT_EQ(out["labels"][0]["color"].asString(), "#ff0000");
}

TEST_F(ConvertFileInfo, BadPropertiesDoNotFailTheConversion) {
  info_.properties = "{";
  info_.app_properties = "not json";
  info_.name = "kept";
  Json::Value out;
  EXPECT_GE(ConvertFileInfoToJSon(info_, out), 0);
  EXPECT_EQ(out["name"].asString(), "kept");
  EXPECT_TRUE(out.isMember("properties"));
  EXPECT_TRUE(out.isMember("app_properties"));
  EXPECT_TRUE(out["image_metadata"].isObject());
}

TEST(MemberSelector, ReadsPresentMembersOnly) {
  Nimbard::MemberSelector member;
  member.gid = 99;
  ASSERT_EQ(
      JsonReqToMemberSelector(ParseJson(R"({"type": "user", "name": "bob", "uid": 1027})"), member),
      0);
  EXPECT_EQ(member.type, "user");
  EXPECT_EQ(member.name, "bob");
  EXPECT_EQ(member.uid, 1027u);
  EXPECT_EQ(member.gid, 99u);
}

TEST(MemberSelector, RefusesMalformedMembers) {
  Nimbard::MemberSelector member;
  for (const char* text :
       {R"({"name": "bob"})", R"({"type": 1})", R"({"type": "user", "name": ""})",
        R"({"type": "user", "name": 5})", R"({"type": "user", "uid": 1.5})",
        R"({"type": "user", "gid": "100"})", "null", "[]"}) {
    EXPECT_EQ(JsonReqToMemberSelector(ParseJson(text), member), -1) << text;
  }
}

TEST(StarAction, BooleanOrObject) {
  Nimbard::StarEditAction action;
  action.member.name = "untouched";
  ASSERT_EQ(JsonReqToStarAction(Json::Value(true), action), 0);
  EXPECT_TRUE(action.starred);
  EXPECT_EQ(action.member.name, "untouched");
  ASSERT_EQ(JsonReqToStarAction(
                ParseJson(R"({"starred": false, "member": {"type": "group", "gid": 7}})"), action),
            0);
  EXPECT_FALSE(action.starred);
  EXPECT_EQ(action.member.type, "group");
  EXPECT_EQ(action.member.gid, 7u);
}

TEST(StarAction, RefusesOtherShapes) {
  Nimbard::StarEditAction action;
  EXPECT_EQ(JsonReqToStarAction(Json::Value(), action), -1);
  EXPECT_EQ(JsonReqToStarAction(Json::Value("yes"), action), -1);
  EXPECT_EQ(JsonReqToStarAction(ParseJson(R"({"starred": "true"})"), action), -1);
  EXPECT_EQ(JsonReqToStarAction(ParseJson(R"({"starred": true, "member": {"name": "x"}})"), action),
            -1);
}

TEST(LabelAction, StringIsShorthandForAdd) {
  Nimbard::LabelEditAction action;
  ASSERT_EQ(JsonReqToLabelAction(Json::Value("urgent"), action), 0);
  EXPECT_EQ(action.action, "add");
  EXPECT_EQ(action.name, "urgent");
  EXPECT_EQ(action.label_id, "");
}

TEST(LabelAction, ObjectNeedsActionAndNameOrId) {
  Nimbard::LabelEditAction action;
  ASSERT_EQ(JsonReqToLabelAction(ParseJson(R"({"action": "remove", "label_id": "7"})"), action), 0);
  EXPECT_EQ(action.action, "remove");
  EXPECT_EQ(action.label_id, "7");
  EXPECT_EQ(JsonReqToLabelAction(ParseJson(R"({"action": "add"})"), action), -1);
  EXPECT_EQ(JsonReqToLabelAction(ParseJson(R"({"name": "x"})"), action), -1);
  EXPECT_EQ(JsonReqToLabelAction(Json::Value(true), action), -1);
  EXPECT_EQ(
      JsonReqToLabelAction(
          ParseJson(R"({"action": "add", "name": "x", "member": {"type": "user", "uid": -0.5}})"),
          action),
      -1);
}

TEST(ListFilter, ReadsKnownMembers) {
  bool starred = false;
  std::string label_id;
  std::vector<std::string> types, extensions;
  ParseFileListFilter(
      ParseJson(
          R"({"starred": true, "label_id": "3", "type": ["file", "dir"], "extensions": ["pdf"]})"),
      starred, label_id, types, extensions);
  EXPECT_TRUE(starred);
  EXPECT_EQ(label_id, "3");
  EXPECT_EQ(types, (std::vector<std::string>{"file", "dir"}));
  EXPECT_EQ(extensions, (std::vector<std::string>{"pdf"}));
}

TEST(ListFilter, NonObjectLeavesOutputsAndStringTypeAddsNothing) {
  bool starred = true;
  std::string label_id = "keep";
  std::vector<std::string> types{"x"}, extensions;
  ParseFileListFilter(Json::Value("starred"), starred, label_id, types, extensions);
  EXPECT_TRUE(starred);
  EXPECT_EQ(label_id, "keep");
  ParseFileListFilter(ParseJson(R"({"type": "file"})"), starred, label_id, types, extensions);
  EXPECT_FALSE(starred);
  EXPECT_EQ(label_id, "");
  EXPECT_EQ(types, (std::vector<std::string>{"x"}));
}

TEST(SafePath, RefusesDotComponentsAndBackslashes) {
  EXPECT_FALSE(IsSafePath("/mydrive/../etc"));
  EXPECT_FALSE(IsSafePath("/mydrive/./a"));
  EXPECT_FALSE(IsSafePath(".."));
  EXPECT_FALSE(IsSafePath("/mydrive/a\\b"));
  EXPECT_TRUE(IsSafePath("/mydrive//a///b/"));
  EXPECT_TRUE(IsSafePath(""));
  EXPECT_TRUE(IsSafePath("///"));
  EXPECT_TRUE(IsSafePath("/mydrive/a..b/...x"));
}

TEST(ExtraList, AppendsStringsAndRefusesContainers) {
  std::vector<std::string> extra;
  extra << ParseJson(R"(["a", "a"])");
  EXPECT_EQ(extra, (std::vector<std::string>{"a", "a"}));
  std::vector<std::string> none;
  none << Json::Value();
  EXPECT_TRUE(none.empty());
  EXPECT_THROW(none << ParseJson(R"([{"x": 1}])"), Json::Exception);
  EXPECT_THROW(none << Json::Value("x"), Json::Exception);
}

}  // namespace
