// Request builders shared by several methods: the upload request of "create"
// and "upload", the service filter and item list of the listing family.
#include <gtest/gtest.h>

#include <fstream>

#include "module_test_util.h"
#include "orvel/common/orvel_list.h"
#include "orvel/common/orvel_upload_request.h"
#include "webapi/orvel/file/search.h"

namespace {

using orvel::module::kCreateRequestOptions;
using orvel::module::kUploadRequestOptions;
using orvel::module::PrepareUploadRequest;
using orvel::module::test::JsonRequest;
using orvel::module::test::ParseJson;

class UploadRequestBuilder : public ::testing::Test {
 protected:
  PObject Build(const orvel::module::UploadRequestOptions& options, const std::string& params,
                const File& file, int expect_rc = 0) {
    JsonRequest request(ParseJson(params));
    PObject out = PObject::MakeMap();
    EXPECT_EQ(PrepareUploadRequest(options, request, file, out), expect_rc);
    return out;
  }
  // A real file with known content.
  File ContentFile(const std::string& content) {
    path_ = root_.Write("content.bin", content);
    File file(path_);
    file.Stat();
    return file;
  }
  orvel::module::test::ScopedZemoRoot root_;
  std::string path_;
};

TEST_F(UploadRequestBuilder, FolderOfCreateCarriesTheFixedKeys) {
  const PObject req =
      Build(kCreateRequestOptions, R"({"path": "/mydrive/new", "type": "folder"})", File(""));
  EXPECT_EQ(req["path"].asString(), "/mydrive/new");
  EXPECT_EQ(req["conflict_policy"].asString(), "stop");
  EXPECT_TRUE(req["is_dir"].asBool());
  EXPECT_EQ(req["file_type"].asString(), "dir");
  EXPECT_EQ(req["sync_id"].asInt64(), 0);
  EXPECT_EQ(req["max_id"].asInt64(), 0);
  EXPECT_TRUE(req.hasMember("removed"));
  EXPECT_FALSE(req["removed"].asBool());
  EXPECT_FALSE(req.hasMember("mtime"));
  EXPECT_FALSE(req.hasMember("file"));
  EXPECT_FALSE(req.hasMember("file_data_path"));
}

TEST_F(UploadRequestBuilder, UploadNeverSetsRemovedOrPermanentLink) {
  const PObject req = Build(kUploadRequestOptions,
                            R"({"path": "/mydrive/new", "type": "folder", "removed": true,
                                "permanent_link": "abc"})",
                            File(""));
  EXPECT_FALSE(req.hasMember("removed"));
  EXPECT_FALSE(req.hasMember("permanent_link"));
  const PObject created = Build(kCreateRequestOptions,
                                R"({"path": "/mydrive/new", "type": "folder", "removed": true,
                                    "permanent_link": "abc"})",
                                File(""));
  EXPECT_TRUE(created["removed"].asBool());
  EXPECT_EQ(created["permanent_link"].asString(), "abc");
}

TEST_F(UploadRequestBuilder, VersionPolicyIsRewrittenOthersPass) {
  EXPECT_EQ(Build(kCreateRequestOptions, R"({"path": "/p", "type": "folder",
                                            "conflict_action": "version"})",
                  File(""))["conflict_policy"]
                .asString(),
            "overwrite_server");
  EXPECT_EQ(Build(kUploadRequestOptions, R"({"path": "/p", "type": "folder",
                                            "conflict_action": "whatever"})",
                  File(""))["conflict_policy"]
                .asString(),
            "whatever");
}

TEST_F(UploadRequestBuilder, ModifiedTimeGoesIntoTheMtimeBlock) {
  const PObject req = Build(kCreateRequestOptions,
                            R"({"path": "/p", "type": "folder", "modified_time": 1234,
                                "created_time": 5, "access_time": 6})",
                            File(""));
  ASSERT_TRUE(req["mtime"].isMap());
  EXPECT_EQ(req["mtime"]["mtime"].asUInt64(), 1234u);
  EXPECT_FALSE(req["mtime"]["refer"].asBool());
  EXPECT_FALSE(req.hasMember("modified_time"));
  EXPECT_EQ(req["created_time"].asUInt64(), 5u);
  EXPECT_EQ(req["access_time"].asUInt64(), 6u);
}

TEST_F(UploadRequestBuilder, FileRequestHasFileBlockAndFileMtime) {
  const File file = ContentFile("hello");
  const PObject req =
      Build(kUploadRequestOptions, R"({"path": "/mydrive/h.txt", "type": "file"})", file);
  EXPECT_FALSE(req["is_dir"].asBool());
  EXPECT_EQ(req["file_type"].asString(), "file");
  EXPECT_EQ(req["file_data_path"].asString(), path_);
  EXPECT_EQ(req["file"]["size"].asUInt64(), 5u);
  EXPECT_EQ(req["file"]["real_size"].asUInt64(), 5u);
  EXPECT_EQ(req["file"]["hash"].asString(),
            "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824");
  EXPECT_FALSE(req["file"]["refer"].asBool());
  EXPECT_FALSE(req["file"]["is_delta"].asBool());
  EXPECT_EQ(req["mtime"]["mtime"].asUInt64(), file.GetLastModifiedTime());
}

TEST_F(UploadRequestBuilder, UnreadableFileFailsTheRequest) {
  Build(kUploadRequestOptions, R"({"path": "/p", "type": "file"})", File(root_.path() + "/missing"),
        -1);
}

TEST_F(UploadRequestBuilder, StarredBooleanIsKeptByCreateOnly) {
  const PObject created = Build(kCreateRequestOptions,
                                R"({"path": "/p", "type": "folder", "starred": true})", File(""));
  EXPECT_TRUE(created["starred"].isBool());
  const PObject uploaded = Build(kUploadRequestOptions,
                                 R"({"path": "/p", "type": "folder", "starred": true})", File(""));
  ASSERT_TRUE(uploaded["starred"].isArray());
  EXPECT_EQ(uploaded["starred"].size(), 1u);
}

TEST_F(UploadRequestBuilder, LabelsPropertiesAndBadStars) {
  const PObject req = Build(kCreateRequestOptions,
                            R"({"path": "/p", "type": "folder", "labels": ["red", {"action": "add",
                                "label_id": "9"}], "properties": {"a": "1"}, "mute": true,
                                "encrypted": false})",
                            File(""));
  EXPECT_EQ(req["labels"].size(), 2u);
  EXPECT_EQ(req["properties"]["a"].asString(), "1");
  EXPECT_TRUE(req["mute"].asBool());
  EXPECT_TRUE(req.hasMember("encrypted"));
  Build(kCreateRequestOptions, R"({"path": "/p", "type": "folder", "labels": [5]})", File(""), -1);
  Build(kCreateRequestOptions, R"({"path": "/p", "type": "folder", "starred": "yes"})", File(""),
        -1);
}

TEST(ListFamily, SearchFilterJoinsTypesAndKeepsPaging) {
  orvel::module::ListFilter filter;
  filter.types = {"file", "dir"};
  filter.extensions = {"pdf", "doc"};
  filter.starred = true;
  const Nimbard::SearchNodeFilter out =
      orvel::module::MakeSearchNodeFilter(filter, "mtime", "desc", 50, 100, "l9");
  EXPECT_EQ(out.type, "file,dir");
  EXPECT_EQ(out.sort_by, "mtime");
  EXPECT_EQ(out.sort_direction, "desc");
  EXPECT_EQ(out.limit, 50u);
  EXPECT_EQ(out.offset, 100u);
  EXPECT_EQ(out.label_id, "l9");
  EXPECT_TRUE(out.starred);
  EXPECT_EQ(out.extensions, filter.extensions);
}

TEST(ListFamily, HiddenRecordsAreSkippedOnlyWhenAsked) {
  std::vector<Nimbard::FileInfo> records(3);
  records[0].name = "a";
  records[1].name = "hidden";
  records[1].type = 2;
  records[2].name = "c";
  BridgeResponse skipping, keeping;
  ASSERT_EQ(orvel::module::SetItemsAnswer(records, true, Json::Value(Json::objectValue), skipping), 0);
  const Json::Value items = orvel::module::test::ParseJson(skipping.GetJsonText())["items"];
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[1]["name"].asString(), "c");
  ASSERT_EQ(orvel::module::SetItemsAnswer(records, false, Json::Value(Json::objectValue), keeping), 0);
  const Json::Value all = orvel::module::test::ParseJson(keeping.GetJsonText())["items"];
  EXPECT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1]["type"].asString(), "");
}

TEST(SearchQuery, EmptyRequestCarriesOnlyPagingAndSorting) {
  JsonRequest request;
  const PObject query = BuildSearchQuery(request);
  EXPECT_EQ(query.size(), 5u);
  EXPECT_FALSE(query["content_snippet"].asBool());
  EXPECT_EQ(query["offset"].asUInt64(), 0u);
  EXPECT_EQ(query["limit"].asUInt64(), 0u);
  EXPECT_EQ(query["sort_by"].asString(), "score");
  EXPECT_EQ(query["sort_direction"].asString(), "asc");
}

TEST(SearchQuery, CopiesSentCriteriaAndRebuildsCustomOwner) {
  JsonRequest request(ParseJson(R"({"keyword": "plan", "labels": ["a", "b"], "min_size": 10,
      "start_date": 1700000000, "custom_owner": {"name": "alice", "uid": 1026, "x": 1}})"));
  const PObject query = BuildSearchQuery(request);
  EXPECT_EQ(query["keyword"].asString(), "plan");
  ASSERT_EQ(query["labels"].size(), 2u);
  EXPECT_EQ(query["labels"][1].asString(), "b");
  EXPECT_EQ(query["min_size"].asUInt64(), 10u);
  EXPECT_EQ(query["start_date"].asUInt64(), 1700000000u);
  EXPECT_FALSE(query.hasMember("max_size"));
  const PObject& owner = query["custom_owner"];
  EXPECT_EQ(owner.size(), 3u);
  EXPECT_EQ(owner["type"].asString(), "user");
  EXPECT_EQ(owner["name"].asString(), "alice");
  EXPECT_EQ(owner["uid"].asUInt64(), 1026u);
}

TEST(SearchQuery, SearchTimeIsSecondsRoundedToMilliseconds) {
  double seconds = 0;
  ASSERT_TRUE(SearchTimeSeconds(1234567, seconds));
  EXPECT_DOUBLE_EQ(seconds, 1.235);
  ASSERT_TRUE(SearchTimeSeconds(0, seconds));
  EXPECT_DOUBLE_EQ(seconds, 0.0);
}

}  // namespace
