// The browsing tables of the SQLite store (marks, labels, shares, links,
// recent items, access requests, the search index and its queue) and the
// pure helpers around them: keywords to match expressions, text
// extraction, thumbnail specs and roles.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "access.h"
#include "db/browse_store.h"
#include "db/store.h"
#include "search_index.h"
#include "thumbnail.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

class BrowseStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/browse-store-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    Status st = OpenSqliteStore(dir_ + "/sync.db", &store_);
    ASSERT_TRUE(st.ok()) << st.ToString();
    b_ = store_->browse();
    Add("", "alice", 1, "root");
    Add("root", "docs", 1, "docs");
    Add("docs", "a.txt", 0, "a");
    Add("docs", "B.txt", 0, "b");
  }
  void TearDown() override {
    store_.reset();
    RemoveTree(dir_);
  }
  Node Add(const std::string& parent, const std::string& name, int type, const std::string& id) {
    Node n;
    n.file_id = id;
    n.parent_id = parent;
    n.owner = "alice";
    n.name = name;
    n.type = type;
    n.ext = ExtensionOf(name);
    Status st = store_->Insert(&n);
    EXPECT_TRUE(st.ok()) << st.ToString();
    return n;
  }
  std::vector<std::string> Marked(MarkQuery q) {
    std::vector<Node> rows;
    uint64_t total = 0;
    Status st = b_->ListMarked(q, &rows, &total);
    EXPECT_TRUE(st.ok()) << st.ToString();
    std::vector<std::string> out;
    for (const Node& n : rows) out.push_back(n.name);
    EXPECT_GE(total, out.size());
    return out;
  }
  std::string dir_;
  std::unique_ptr<Store> store_;
  BrowseStore* b_ = nullptr;
};

TEST_F(BrowseStoreTest, StarsAreSortedPagedAndPerUser) {
  ASSERT_TRUE(b_->SetStar("alice", "b", true).ok());
  ASSERT_TRUE(b_->SetStar("alice", "a", true).ok());
  ASSERT_TRUE(b_->SetStar("alice", "a", true).ok());  // idempotent
  MarkQuery q;
  q.user = "alice";
  EXPECT_EQ(Marked(q), (std::vector<std::string>{"a.txt", "B.txt"}));  // names ignore case
  q.descending = true;
  q.limit = 1;
  EXPECT_EQ(Marked(q), std::vector<std::string>{"B.txt"});
  q.user = "bob";
  EXPECT_TRUE(Marked(q).empty());
  ASSERT_TRUE(b_->SetStar("alice", "a", false).ok());
  ItemMarks marks;
  ASSERT_TRUE(b_->MarksAmong("alice", {"a", "b", "docs"}, &marks).ok());
  EXPECT_EQ(marks.starred, (std::set<std::string>{"b"}));
}

TEST_F(BrowseStoreTest, LabelsAreUniquePerUserIgnoringCase) {
  ASSERT_TRUE(b_->CreateLabel(Label{"l1", "alice", "Work", "#ff0000"}).ok());
  EXPECT_EQ(b_->CreateLabel(Label{"l2", "alice", "work", "#00ff00"}).code(), kErrLabelExists);
  EXPECT_TRUE(b_->CreateLabel(Label{"l3", "bob", "Work", "#00ff00"}).ok());
  Label l;
  ASSERT_TRUE(b_->GetLabelByName("alice", "WORK", &l).ok());
  EXPECT_EQ(l.label_id, "l1");
  EXPECT_EQ(b_->GetLabel("alice", "l3", &l).code(), kErrLabelNotFound);
  ASSERT_TRUE(b_->SetItemLabel("alice", "l1", "a", true).ok());
  ItemMarks marks;
  ASSERT_TRUE(b_->MarksAmong("alice", {"a", "b"}, &marks).ok());
  ASSERT_EQ(marks.labels.count("a"), 1u);
  EXPECT_EQ(marks.labels.find("a")->second.color, "#ff0000");
  MarkQuery q;
  q.kind = MarkQuery::Kind::kLabelled;
  q.user = "alice";
  q.label_id = "l1";
  EXPECT_EQ(Marked(q), std::vector<std::string>{"a.txt"});
}

TEST_F(BrowseStoreTest, SharesLinksAndRequests) {
  ASSERT_TRUE(b_->AddShare(Share{0, "docs", "alice", "user", "bob", "viewer"}).ok());
  ASSERT_TRUE(b_->AddShare(Share{0, "docs", "alice", "user", "bob", "editor"}).ok());  // replaces
  ASSERT_TRUE(b_->AddShare(Share{0, "a", "alice", "group", "staff", "viewer"}).ok());
  std::vector<Share> shares;
  ASSERT_TRUE(b_->SharesOf("docs", &shares).ok());
  ASSERT_EQ(shares.size(), 1u);
  EXPECT_EQ(shares[0].role, "editor");
  MarkQuery q;
  q.kind = MarkQuery::Kind::kSharedWithMe;
  q.user = "bob";
  EXPECT_EQ(Marked(q), std::vector<std::string>{"docs"});
  q.groups = {"staff"};
  EXPECT_EQ(Marked(q), (std::vector<std::string>{"a.txt", "docs"}));
  q.kind = MarkQuery::Kind::kSharedWithOthers;
  q.user = "alice";
  EXPECT_EQ(Marked(q), (std::vector<std::string>{"a.txt", "docs"}));
  EXPECT_EQ(b_->RemoveShare("docs", "user", "carol").code(), kErrNotFound);

  SharingLink link;
  EXPECT_EQ(b_->GetLink("nope", &link).code(), kErrSharingToken);
  ASSERT_TRUE(b_->CreateLink(SharingLink{"tok", "b", "alice", "viewer", 1, 0}).ok());
  ASSERT_TRUE(b_->GetLink("tok", &link).ok());
  EXPECT_EQ(link.file_id, "b");

  AccessRequest req{"a", "bob", "alice", 5};
  ASSERT_TRUE(b_->AddAccessRequest(req).ok());
  EXPECT_EQ(b_->AddAccessRequest(req).code(), kErrAlreadyRequested);
}

TEST_F(BrowseStoreTest, RecentKeepsTheNewestThousand) {
  for (int i = 0; i < 1300; ++i) Add("docs", "f" + std::to_string(i), 0, "f" + std::to_string(i));
  std::vector<Node> rows;
  ASSERT_TRUE(b_->ListRecent("alice", 5000, &rows).ok());
  ASSERT_GE(rows.size(), 1000u);
  EXPECT_LT(rows.size(), 1300u);
  EXPECT_EQ(rows.front().name, "f1299");
  ASSERT_TRUE(b_->TouchRecent("alice", "a", 1).ok());
  ASSERT_TRUE(b_->ListRecent("alice", 1, &rows).ok());
  EXPECT_EQ(rows.front().name, "a.txt");
}

TEST_F(BrowseStoreTest, IndexQueueFollowsRenamesAndSearchFindsNames) {
  std::vector<PendingIndex> pending;
  ASSERT_TRUE(b_->PendingForIndex(100, &pending).ok());
  EXPECT_EQ(pending.size(), 3u);  // every row but the root
  for (const PendingIndex& p : pending) {
    Node n;
    ASSERT_TRUE(b_->NodeByRow(p.node_row, &n).ok());
    ASSERT_TRUE(b_->IndexRow(p, true, n.name, n.name == "a.txt" ? "orange juice" : "").ok());
  }
  SearchQuery q;
  q.user = "alice";
  q.match = KeywordToMatch("juice");
  q.snippet = true;
  std::vector<SearchHit> hits;
  uint64_t total = 0;
  ASSERT_TRUE(b_->Search(q, &hits, &total).ok());
  ASSERT_EQ(total, 1u);
  EXPECT_EQ(hits[0].snippet, "orange <b>juice</b>");

  Node a;
  ASSERT_TRUE(store_->GetById("a", &a).ok());
  a.name = "c.txt";
  ASSERT_TRUE(store_->Update(a).ok());
  ASSERT_TRUE(b_->PendingForIndex(100, &pending).ok());
  ASSERT_EQ(pending.size(), 1u);
  EXPECT_EQ(pending[0].node_row, a.row_id);
  a.max_id = 99;  // other columns do not queue the row
  ASSERT_TRUE(store_->Update(a).ok());
  ASSERT_TRUE(b_->PendingForIndex(100, &pending).ok());
  EXPECT_EQ(pending.size(), 1u);
}

TEST(BrowseHelpersTest, KeywordsBecomeQuotedPrefixTerms) {
  EXPECT_EQ(KeywordToMatch("annual report_2024"), "\"annual\"* \"report\"* \"2024\"*");
  EXPECT_EQ(KeywordToMatch("\"quoted\" OR x*"), "\"quoted\"* \"OR\"* \"x\"*");
  EXPECT_EQ(KeywordToMatch("--- ..."), "");
  EXPECT_EQ(KeywordToMatch("café"), "\"café\"*");
}

TEST(BrowseHelpersTest, IndexedTextIsValidUtf8) {
  char tmpl[] = "/tmp/browse-text-XXXXXX";
  int fd = mkstemp(tmpl);
  ASSERT_GE(fd, 0);
  const std::string bytes = std::string("ok \xff\xfe caf\xc3\xa9\x01 end", 16);
  ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
  EXPECT_EQ(ReadIndexableText(tmpl, 1 << 20), "ok    café  end");
  EXPECT_EQ(ReadIndexableText(tmpl, 2), "ok");
  unlink(tmpl);
  EXPECT_EQ(ReadIndexableText("/nonexistent/file", 10), "");
}

TEST(BrowseHelpersTest, ThumbnailSpecs) {
  ThumbRequest s;
  ASSERT_TRUE(ParseThumbRequest(&s).ok());
  EXPECT_EQ(s.box, 120);
  s.size = "xlarge";
  s.format = "jpeg";
  s.animate = true;
  ASSERT_TRUE(ParseThumbRequest(&s).ok());
  EXPECT_EQ(s.box, 1280);
  EXPECT_EQ(s.format, "jpg");
  EXPECT_FALSE(s.animate);  // only WebP keeps frames
  s.size = "tiny";
  Status st = ParseThumbRequest(&s);
  EXPECT_EQ(st.code(), kErrThumbnailSpec);
  EXPECT_EQ(st.message(), "unsupported thumbnail size: \"tiny\"");
  s.size = "small";
  s.format = "gif";
  EXPECT_EQ(ParseThumbRequest(&s).code(), kErrThumbnailSpec);
}

TEST(BrowseHelpersTest, CapabilitiesFollowTheRole) {
  auto c = CapabilitiesFor(ParseRole("viewer"));
  EXPECT_TRUE(c.can_read && c.can_preview);
  EXPECT_FALSE(c.can_comment || c.can_write || c.can_share);
  c = CapabilitiesFor(ParseRole("commenter"));
  EXPECT_TRUE(c.can_comment);
  EXPECT_FALSE(c.can_write);
  c = CapabilitiesFor(ParseRole("editor"));
  EXPECT_TRUE(c.can_write && c.can_rename && c.can_delete && c.can_organize);
  EXPECT_FALSE(c.can_share || c.can_encrypt);
  c = CapabilitiesFor(Role::kOwner);
  EXPECT_TRUE(c.can_share && c.can_encrypt);
  EXPECT_EQ(ParseRole("admin"), Role::kNone);
}

}  // namespace
}  // namespace orvel::syncd
