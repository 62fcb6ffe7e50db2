// Stars, labels and recent items through entry.cgi against the daemon:
// "star", "label", "list_starred", "list_labelled", "recent", and the marks
// in "list" and "get" records; the failure rows of these methods.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

class MarksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    stack_->AddUser("bob");
    Make("/mydrive/Docs", "");
    a_ = Make("/mydrive/Docs/a.txt", "alpha");
    b_ = Make("/mydrive/Docs/b.txt", "beta");
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
  static Json::Value Files(std::initializer_list<std::string> ids) {
    Json::Value files(Json::arrayValue);
    for (const auto& id : ids) files.append("id:" + id);
    return files;
  }
  static void ExpectError(const Json::Value& r, int code, const std::string& message) {
    EXPECT_FALSE(r["success"].asBool()) << r;
    EXPECT_EQ(r["error"]["code"].asInt(), code) << r;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), message) << r;
  }
  std::unique_ptr<TestStack> stack_;
  std::string a_, b_;
};

TEST_F(MarksTest, StarredItemsAreListedAndMarkedInRecords) {
  Json::Value p;
  p["files"] = Files({a_, b_});
  p["starred"] = true;
  Json::Value r = stack_->Call("alice", "star", p);
  ASSERT_TRUE(r["success"].asBool()) << r;

  r = stack_->Call("alice", "list_starred");
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 2u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "a.txt");
  EXPECT_EQ(r["data"]["items"][0]["path"].asString(), "/mydrive/Docs/a.txt");
  EXPECT_TRUE(r["data"]["items"][1]["starred"].asBool());

  // One item, two actions: the last one wins.
  Json::Value actions(Json::arrayValue);
  actions.append(true);
  Json::Value off;
  off["starred"] = false;
  actions.append(off);
  p["files"] = Files({b_});
  p["starred"] = actions;
  ASSERT_TRUE(stack_->Call("alice", "star", p)["success"].asBool());

  Json::Value list;
  list["path"] = "/mydrive/Docs";
  r = stack_->Call("alice", "list", list);
  ASSERT_EQ(r["data"]["items"].size(), 2u) << r;
  EXPECT_TRUE(r["data"]["items"][0]["starred"].asBool());
  EXPECT_FALSE(r["data"]["items"][1]["starred"].asBool());
  // Stars are per user.
  EXPECT_EQ(stack_->Call("bob", "list_starred")["data"]["total"].asUInt(), 0u);
}

TEST_F(MarksTest, LabelByNameCreatesItAndListLabelledFindsTheItems) {
  Json::Value p;
  p["files"] = Files({a_});
  Json::Value labels(Json::arrayValue);
  labels.append("Urgent");
  p["labels"] = labels;
  ASSERT_TRUE(stack_->Call("alice", "label", p)["success"].asBool());

  Json::Value get;
  get["path"] = "id:" + a_;
  Json::Value r = stack_->Call("alice", "get", get);
  ASSERT_EQ(r["data"]["labels"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["labels"][0]["name"].asString(), "Urgent");
  const std::string label_id = r["data"]["labels"][0]["label_id"].asString();
  ASSERT_FALSE(label_id.empty());

  // The same name (any case) names the same label.
  p["files"] = Files({b_});
  labels[0] = "urgent";
  p["labels"] = labels;
  ASSERT_TRUE(stack_->Call("alice", "label", p)["success"].asBool());

  Json::Value q;
  q["label_id"] = label_id;
  r = stack_->Call("alice", "list_labelled", q);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["total"].asUInt(), 2u);

  // Remove by id.
  Json::Value remove;
  remove["action"] = "remove";
  remove["label_id"] = label_id;
  Json::Value actions(Json::arrayValue);
  actions.append(remove);
  p["files"] = Files({a_});
  p["labels"] = actions;
  ASSERT_TRUE(stack_->Call("alice", "label", p)["success"].asBool());
  r = stack_->Call("alice", "list_labelled", q);
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "b.txt");

  // A folder listing filtered by the label.
  Json::Value list;
  list["path"] = "/mydrive/Docs";
  list["filter"]["label_id"] = label_id;
  r = stack_->Call("alice", "list", list);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["total"].asUInt(), 1u);
}

TEST_F(MarksTest, FailureRows) {
  ExpectError(stack_->Call("alice", "list_labelled"), 114, "label_id is required");
  Json::Value q;
  q["label_id"] = "no-such-label";
  ExpectError(stack_->Call("alice", "list_labelled", q), 1002, "list labelled failed");

  Json::Value p;
  p["files"] = Json::Value(Json::arrayValue);
  p["files"].append(7);
  p["starred"] = true;
  ExpectError(stack_->Call("alice", "star", p), 114, "file is expected as string");
  ExpectError(stack_->Call("alice", "label", p), 114, "file is expected as string");

  p["files"] = Files({a_});
  p["starred"] = Json::Value(Json::arrayValue);
  p["starred"].append("yes");
  ExpectError(stack_->Call("alice", "star", p), 114, "invalid starred format");
  p["labels"] = Json::Value(Json::arrayValue);
  p["labels"].append(5);
  ExpectError(stack_->Call("alice", "label", p), 114, "invalid label format");

  // The service refuses: an item of another user, no items, an unknown label id.
  p["starred"] = true;
  ExpectError(stack_->Call("bob", "star", p), 1006, "edit label on node failed");
  p["files"] = Json::Value(Json::arrayValue);
  ExpectError(stack_->Call("alice", "star", p), 1022, "edit label on node failed");
  Json::Value bad;
  bad["action"] = "remove";
  bad["label_id"] = "nope";
  p["files"] = Files({a_});
  p["labels"] = Json::Value(Json::arrayValue);
  p["labels"].append(bad);
  ExpectError(stack_->Call("alice", "label", p), 1002, "edit label on node failed");
}

TEST_F(MarksTest, CreateAppliesTheRequestsLabelsAndStar) {
  Json::Value p;
  p["path"] = "/mydrive/Docs/c.txt";
  p["type"] = "file";
  p["file_content"] = EncBase64Enc("gamma");
  p["labels"].append("Inbox");
  p["starred"] = true;
  p["mute"] = true;
  Json::Value r = stack_->Call("alice", "create", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_TRUE(r["data"]["starred"].asBool()) << r;
  ASSERT_EQ(r["data"]["labels"].size(), 1u) << r;
  EXPECT_EQ(r["data"]["labels"][0]["name"].asString(), "Inbox");
  const std::string c = r["data"]["file_id"].asString();
  const std::string inbox = r["data"]["labels"][0]["label_id"].asString();

  // A folder names the existing label by id and by name (any case).
  Json::Value f;
  f["path"] = "/mydrive/Later";
  f["type"] = "folder";
  Json::Value by_id;
  by_id["action"] = "add";
  by_id["label_id"] = inbox;
  f["labels"].append(by_id);
  f["labels"].append("inbox");
  ASSERT_TRUE(stack_->Call("alice", "create", f)["success"].asBool());

  r = stack_->Call("alice", "list_starred");
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["file_id"].asString(), c);
  Json::Value q;
  q["label_id"] = inbox;
  r = stack_->Call("alice", "list_labelled", q);
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["total"].asUInt(), 2u) << r;
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "c.txt");
  EXPECT_EQ(r["data"]["items"][1]["name"].asString(), "Later");
  // Without marks in the request nothing is marked; marks are the caller's own.
  Json::Value get;
  get["path"] = "id:" + a_;
  r = stack_->Call("alice", "get", get);
  EXPECT_FALSE(r["data"]["starred"].asBool());
  EXPECT_EQ(r["data"]["labels"].size(), 0u);
  EXPECT_EQ(stack_->Call("bob", "list_starred")["data"]["total"].asUInt(), 0u);

  // "skip" answers the existing item and leaves its marks alone.
  Json::Value again;
  again["path"] = "/mydrive/Docs/a.txt";
  again["type"] = "file";
  again["file_content"] = EncBase64Enc("other");
  again["conflict_action"] = "skip";
  again["starred"] = true;
  ASSERT_TRUE(stack_->Call("alice", "create", again)["success"].asBool());
  EXPECT_EQ(stack_->Call("alice", "list_starred")["data"]["total"].asUInt(), 1u);
  // "overwrite" marks the item it replaces.
  again["conflict_action"] = "overwrite";
  ASSERT_TRUE(stack_->Call("alice", "create", again)["success"].asBool());
  EXPECT_EQ(stack_->Call("alice", "list_starred")["data"]["total"].asUInt(), 2u);
}

TEST_F(MarksTest, CreateWithAnUnknownLabelStoresNothing) {
  Json::Value bad;
  bad["action"] = "remove";
  bad["label_id"] = "no-such-label";
  Json::Value p;
  p["path"] = "/mydrive/Docs/d.txt";
  p["type"] = "file";
  p["file_content"] = EncBase64Enc("delta");
  p["labels"].append(bad);
  ExpectError(stack_->Call("alice", "create", p), 1002, "create file failed");
  p["path"] = "/mydrive/Docs/Sub";
  p["type"] = "folder";
  ExpectError(stack_->Call("alice", "create", p), 1002, "create folder failed");

  Json::Value list;
  list["path"] = "/mydrive/Docs";
  Json::Value r = stack_->Call("alice", "list", list);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["total"].asUInt(), 2u) << r;
  struct stat st;
  EXPECT_NE(lstat((stack_->HomeDir("alice") + "/Docs/d.txt").c_str(), &st), 0);
  EXPECT_NE(lstat((stack_->HomeDir("alice") + "/Docs/Sub").c_str(), &st), 0);
}

TEST_F(MarksTest, OrvelctlRecoloursAndRenamesLabels) {
  Json::Value p;
  p["files"] = Files({a_});
  p["labels"] = Json::Value(Json::arrayValue);
  p["labels"].append("Urgent");
  p["labels"].append("Later");
  ASSERT_TRUE(stack_->Call("alice", "label", p)["success"].asBool());
  Json::Value get;
  get["path"] = "id:" + a_;
  auto labels_of_a = [&] { return stack_->Call("alice", "get", get)["data"]["labels"]; };
  std::string urgent_id;
  for (const auto& l : labels_of_a())
    if (l["name"].asString() == "Urgent") urgent_id = l["label_id"].asString();
  ASSERT_FALSE(urgent_id.empty());

  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"label", "set-color", "alice", "urgent", "#FF8800"}, &out), 0) << out;
  EXPECT_EQ(out, "label urgent coloured #FF8800\n");
  ASSERT_EQ(stack_->Orvelctl({"label", "rename", "alice", urgent_id, "Critical"}, &out), 0) << out;
  Json::Value labels = labels_of_a();
  ASSERT_EQ(labels.size(), 2u) << labels;
  EXPECT_EQ(labels[0]["name"].asString(), "Critical");
  EXPECT_EQ(labels[0]["color"].asString(), "#ff8800");
  ASSERT_EQ(stack_->Orvelctl({"label", "list", "alice"}, &out), 0) << out;
  EXPECT_EQ(out, urgent_id + "\t#ff8800\tCritical\n" + labels[1]["label_id"].asString() + "\t#9e9e9e\tLater\n");

  // Refusals leave the label as it was.
  EXPECT_EQ(stack_->Orvelctl({"label", "set-color", "alice", "Critical", "orange"}, &out), 1);
  EXPECT_EQ(out, "orvelctl: admin_label_set_color failed: invalid label colour (want #rrggbb): \"orange\" (-1110)\n");
  EXPECT_EQ(stack_->Orvelctl({"label", "set-color", "alice", "Critical", "#ff88001"}, &out), 1);
  EXPECT_NE(out.find("(-1110)"), std::string::npos) << out;
  EXPECT_EQ(stack_->Orvelctl({"label", "rename", "alice", "Critical", "LATER"}, &out), 1);
  EXPECT_EQ(out, "orvelctl: admin_label_rename failed: label name already exists: LATER (-1109)\n");
  EXPECT_EQ(stack_->Orvelctl({"label", "rename", "alice", "Critical", std::string(65, 'x')}, &out), 1);
  EXPECT_EQ(out, "orvelctl: admin_label_rename failed: label name is over 64 bytes (-1101)\n");
  EXPECT_EQ(stack_->Orvelctl({"label", "rename", "bob", "Critical", "Mine"}, &out), 1);
  EXPECT_EQ(out, "orvelctl: admin_label_rename failed: label not found: Critical (-507)\n");
  EXPECT_EQ(stack_->Orvelctl({"label", "rename", "alice", "Critical"}, &out), 2);
  labels = labels_of_a();
  EXPECT_EQ(labels[0]["name"].asString(), "Critical");
  EXPECT_EQ(labels[0]["color"].asString(), "#ff8800");
}

TEST_F(MarksTest, RecentListsOpenedAndChangedFilesNewestFirst) {
  Json::Value get;
  get["path"] = "id:" + a_;
  ASSERT_TRUE(stack_->Call("alice", "get", get)["success"].asBool());
  Json::Value r = stack_->Call("alice", "recent");
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["items"].size(), 2u) << r;
  EXPECT_FALSE(r["data"].isMember("total"));
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "a.txt");
  EXPECT_EQ(r["data"]["items"][1]["name"].asString(), "b.txt");
  Json::Value one;
  one["limit"] = 1;
  EXPECT_EQ(stack_->Call("alice", "recent", one)["data"]["items"].size(), 1u);
  EXPECT_EQ(stack_->Call("bob", "recent")["data"]["items"].size(), 0u);
}

}  // namespace
}  // namespace orvel::test
