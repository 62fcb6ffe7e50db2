// "search" through entry.cgi against the daemon's full-text index: words in
// names and in text files' content with a marked snippet, the criteria,
// sorting and paging, an index kept current as items change, and the
// failure rows.
#include <gtest/gtest.h>

#include "nimbard/platform.h"
#include "pdf_maker.h"
#include "stack.h"

namespace orvel::test {
namespace {

class SearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    stack_->AddUser("bob");
    Make("/mydrive/notes", "");
    Make("/mydrive/notes/meeting.txt", "We agreed on the zeppelin budget for spring.\n");
    Make("/mydrive/notes/todo.md", "buy milk\n");
    Make("/mydrive/zeppelin-photo.jpg", std::string(3000, 'x'));
    Make("/mydrive/other.txt", "nothing to see\n");
  }
  std::string Make(const std::string& path, const std::string& content, const std::string& user = "alice") {
    Json::Value p;
    p["path"] = path;
    p["type"] = content.empty() ? "folder" : "file";
    if (!content.empty()) p["file_content"] = EncBase64Enc(content);
    Json::Value r = stack_->Call(user, "create", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["file_id"].asString();
  }
  std::vector<std::string> Names(const Json::Value& r) {
    std::vector<std::string> out;
    for (const auto& i : r["data"]["items"]) out.push_back(i["name"].asString());
    return out;
  }
  Json::Value Search(Json::Value q, const std::string& user = "alice") { return stack_->Call(user, "search", q); }
  std::unique_ptr<TestStack> stack_;
};

TEST_F(SearchTest, FindsAWordInsideATextFileWithAMarkedSnippet) {
  Json::Value q;
  q["keyword"] = "budget";
  q["content_snippet"] = true;
  Json::Value r = Search(q);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  const Json::Value& hit = r["data"]["items"][0];
  EXPECT_EQ(hit["path"].asString(), "/mydrive/notes/meeting.txt");
  EXPECT_NE(hit["content_snippet"].asString().find("<b>budget</b>"), std::string::npos) << hit;
  EXPECT_TRUE(r["data"]["search_time"].isDouble() || r["data"]["search_time"].isNumeric());
}

TEST_F(SearchTest, NameAndContentMatchesRankNameFirstAndCriteriaNarrow) {
  Json::Value q;
  q["keyword"] = "zeppelin";
  Json::Value r = Search(q);
  ASSERT_EQ(Names(r), (std::vector<std::string>{"zeppelin-photo.jpg", "meeting.txt"})) << r;

  q["file_type"] = "image";
  EXPECT_EQ(Names(Search(q)), std::vector<std::string>{"zeppelin-photo.jpg"});
  q.removeMember("file_type");
  q["location"] = "custom";
  q["custom_location"] = "/mydrive/notes";
  EXPECT_EQ(Names(Search(q)), std::vector<std::string>{"meeting.txt"});
  q.removeMember("location");
  q.removeMember("custom_location");
  q["min_size"] = 1000;
  EXPECT_EQ(Names(Search(q)), std::vector<std::string>{"zeppelin-photo.jpg"});
  q.removeMember("min_size");
  q["time"] = "yesterday";
  EXPECT_EQ(Search(q)["data"]["total"].asUInt(), 0u);
  q["time"] = "today";
  EXPECT_EQ(Search(q)["data"]["total"].asUInt(), 2u);
  q.removeMember("time");
  q["owner"] = "others";
  EXPECT_EQ(Search(q)["data"]["total"].asUInt(), 0u);
  q["owner"] = "custom";
  q["custom_owner"]["name"] = "alice";
  q["custom_owner"]["uid"] = 1;
  EXPECT_EQ(Search(q)["data"]["total"].asUInt(), 2u);

  // Sorting and paging without a keyword.
  Json::Value all;
  all["file_type"] = "file";
  all["sort_by"] = "name";
  all["limit"] = 2;
  all["offset"] = 1;
  r = Search(all);
  EXPECT_EQ(r["data"]["total"].asUInt(), 4u);
  EXPECT_EQ(Names(r), (std::vector<std::string>{"other.txt", "todo.md"})) << r;
  // Nobody else's items.
  EXPECT_EQ(Search(q, "bob")["data"]["total"].asUInt(), 0u);
}

TEST_F(SearchTest, IndexFollowsUpdatesAndLabels) {
  Json::Value q;
  q["keyword"] = "milk";
  Json::Value r = Search(q);
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u);
  const std::string id = r["data"]["items"][0]["file_id"].asString();

  Json::Value upd;
  upd["path"] = "id:" + id;
  upd["file_content"] = EncBase64Enc("buy bread\n");
  upd["name"] = "groceries.md";
  ASSERT_TRUE(stack_->Call("alice", "update", upd)["success"].asBool());
  EXPECT_EQ(Search(q)["data"]["total"].asUInt(), 0u);
  q["keyword"] = "bread";
  EXPECT_EQ(Names(Search(q)), std::vector<std::string>{"groceries.md"});
  q["keyword"] = "groceries";
  EXPECT_EQ(Search(q)["data"]["total"].asUInt(), 1u);

  Json::Value label;
  label["files"].append("id:" + id);
  label["labels"].append("home");
  ASSERT_TRUE(stack_->Call("alice", "label", label)["success"].asBool());
  Json::Value get;
  get["path"] = "id:" + id;
  const std::string label_id = stack_->Call("alice", "get", get)["data"]["labels"][0]["label_id"].asString();
  Json::Value by_label;
  by_label["labels"].append(label_id);
  EXPECT_EQ(Names(Search(by_label)), std::vector<std::string>{"groceries.md"});
}

TEST_F(SearchTest, FindsAWordInsideAPdfAndFollowsItsContent) {
  const std::string id = Make("/mydrive/notes/report.pdf", MakePdf({"Cover page", "The marmalade forecast for June"}));
  Json::Value q;
  q["keyword"] = "marmalade";
  q["content_snippet"] = true;
  Json::Value r = Search(q);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/mydrive/notes/report.pdf");
  EXPECT_NE(r["data"]["items"][0]["content_snippet"].asString().find("<b>marmalade</b> forecast"), std::string::npos)
      << r["data"]["items"][0];
  q["file_type"] = "pdf";
  EXPECT_EQ(Names(Search(q)), std::vector<std::string>{"report.pdf"});
  q.removeMember("file_type");

  // New content replaces the indexed text.
  Json::Value upd;
  upd["path"] = "id:" + id;
  upd["file_content"] = EncBase64Enc(MakePdf({"Only apricots now"}));
  ASSERT_TRUE(stack_->Call("alice", "update", upd)["success"].asBool());
  EXPECT_EQ(Search(q)["data"]["total"].asUInt(), 0u);
  q["keyword"] = "apricots";
  EXPECT_EQ(Names(Search(q)), std::vector<std::string>{"report.pdf"});
  // Bytes that only claim to be a PDF are indexed by name alone.
  Make("/mydrive/broken.pdf", "%PDF-1.4 apricots");
  EXPECT_EQ(Names(Search(q)), std::vector<std::string>{"report.pdf"});
}

TEST_F(SearchTest, FailureRowsReportSearchingFileFailure) {
  for (const char* key : {"file_type", "location", "time", "owner", "sort_by"}) {
    Json::Value q;
    q[key] = "nonsense";
    Json::Value r = Search(q);
    EXPECT_FALSE(r["success"].asBool()) << key;
    EXPECT_EQ(r["error"]["code"].asInt(), 1022) << key << r;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), "searching file failure");
  }
  Json::Value q;
  q["labels"].append("no-such-label");
  Json::Value r = Search(q);
  EXPECT_EQ(r["error"]["code"].asInt(), 1002) << r;
  q = Json::Value();
  q["limit"] = 5000;
  EXPECT_EQ(Search(q)["error"]["code"].asInt(), 1035);
}

}  // namespace
}  // namespace orvel::test
