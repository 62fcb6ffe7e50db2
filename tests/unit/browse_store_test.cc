// The browsing tables of the SQLite store (marks, labels, shares, links,
// recent items, access requests, the search index and its queue) and the
// pure helpers around them: keywords to match expressions, text
// extraction, thumbnail specs and roles.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include <sqlite3.h>

#include "access.h"
#include "db/browse_store.h"
#include "db/schema.h"
#include "db/store.h"
#include "ops_browse.h"
#include "pdf_maker.h"
#include "pdf_text.h"
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
  // Every mark, share, link, recent entry and access request of file_id,
  // for two users.
  void MarkEverything(const std::string& id) {
    for (const char* user : {"alice", "bob"}) {
      ASSERT_TRUE(b_->SetStar(user, id, true).ok());
      ASSERT_TRUE(b_->SetMute(user, id, true).ok());
      ASSERT_TRUE(b_->SetItemLabel(user, "l-" + std::string(user), id, true).ok());
      ASSERT_TRUE(b_->TouchRecent(user, id, 1).ok());
    }
    ASSERT_TRUE(b_->AddShare(Share{0, id, "alice", "user", "bob", "viewer"}).ok());
    ASSERT_TRUE(b_->CreateLink(SharingLink{"tok-" + id, id, "alice", "viewer", 1, 0, ""}).ok());
    ASSERT_TRUE(b_->AddAccessRequest(AccessRequest{id, "carol", "alice", 1}).ok());
  }
  // Rows of file_id in each table that names items, through a second connection.
  static int RowsOf(const std::string& db_path, const std::string& id) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(db_path.c_str(), &db), SQLITE_OK);
    int total = 0;
    for (const char* table : {"stars", "mutes", "item_labels", "shares", "links", "recent", "access_requests"}) {
      sqlite3_stmt* st = nullptr;
      std::string sql = std::string("SELECT COUNT(*) FROM ") + table + " WHERE file_id = ?1";
      EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr), SQLITE_OK) << table;
      sqlite3_bind_text(st, 1, id.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(st) == SQLITE_ROW) total += sqlite3_column_int(st, 0);
      sqlite3_finalize(st);
    }
    sqlite3_close(db);
    return total;
  }
  std::string dir_;
  std::unique_ptr<Store> store_;
  BrowseStore* b_ = nullptr;
};

TEST_F(BrowseStoreTest, PurgedRowsTakeTheirMarksSharesAndRecentEntries) {
  Add("docs", "sub", 1, "sub");
  Add("sub", "c.txt", 0, "c");
  for (const char* id : {"sub", "c", "a"}) MarkEverything(id);
  const std::string db = dir_ + "/sync.db";
  ASSERT_EQ(RowsOf(db, "c"), 11);  // 4 per user, a share, a link, a request

  // A rolled-back purge keeps everything.
  {
    Transaction tx(store_.get(), true);
    ASSERT_TRUE(tx.status().ok());
    ASSERT_TRUE(store_->Purge("sub").ok());
  }
  EXPECT_EQ(RowsOf(db, "sub"), 11);
  Transaction tx(store_.get(), true);
  ASSERT_TRUE(tx.status().ok());
  ASSERT_TRUE(store_->Purge("sub").ok());
  ASSERT_TRUE(tx.Commit().ok());
  EXPECT_EQ(RowsOf(db, "sub"), 0);
  EXPECT_EQ(RowsOf(db, "c"), 0);
  EXPECT_EQ(RowsOf(db, "a"), 11);  // a sibling keeps its own
  // Removal to the recycle bin or vanishing is not a purge.
  ASSERT_TRUE(store_->MarkVanished("a").ok());
  EXPECT_EQ(RowsOf(db, "a"), 11);
}

TEST_F(BrowseStoreTest, MigrationDropsRowsOfItemsPurgedBefore) {
  store_.reset();
  const std::string old_db = dir_ + "/old.db";
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(old_db.c_str(), &db), SQLITE_OK);
  ASSERT_TRUE(MigrateSqlite(db, 20).ok());
  ASSERT_EQ(sqlite3_exec(db,
                         "INSERT INTO nodes (file_id, parent_id, owner, name, type) VALUES"
                         " ('r', '', 'alice', 'alice', 1), ('kept', 'r', 'alice', 'k.txt', 0);"
                         " INSERT INTO stars VALUES ('alice', 'kept', 1), ('alice', 'gone', 1);"
                         " INSERT INTO shares (file_id, owner, kind, name, role, created) VALUES"
                         " ('gone', 'alice', 'user', 'bob', 'viewer', 1);",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  ASSERT_TRUE(OpenSqliteStore(old_db, &store_).ok());
  EXPECT_EQ(RowsOf(old_db, "gone"), 0);
  EXPECT_EQ(RowsOf(old_db, "kept"), 2);  // its star and the recent entry of its insert
}

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

// The marks of a listing page: the caller's own stars and labels (labels in
// name order), and shared for a share or a link by anyone.
TEST_F(BrowseStoreTest, MarksAmongAPageAreTheCallersAndAnyonesShares) {
  Add("docs", "c.txt", 0, "c");
  ASSERT_TRUE(b_->SetStar("alice", "a", true).ok());
  ASSERT_TRUE(b_->SetStar("bob", "b", true).ok());
  ASSERT_TRUE(b_->CreateLabel(Label{"l1", "alice", "Work", "#ff0000"}).ok());
  ASSERT_TRUE(b_->CreateLabel(Label{"l2", "alice", "home", "#00ff00"}).ok());
  ASSERT_TRUE(b_->CreateLabel(Label{"l3", "bob", "Play", "#0000ff"}).ok());
  for (const char* label : {"l1", "l2"}) ASSERT_TRUE(b_->SetItemLabel("alice", label, "a", true).ok());
  ASSERT_TRUE(b_->SetItemLabel("bob", "l3", "b", true).ok());
  ASSERT_TRUE(b_->AddShare(Share{0, "b", "alice", "user", "bob", "viewer"}).ok());
  ASSERT_TRUE(b_->CreateLink(SharingLink{"tok-c", "c", "alice", "viewer", 1, 0, ""}).ok());

  ItemMarks marks;
  ASSERT_TRUE(b_->MarksAmong("alice", {"a", "b", "c", "docs"}, &marks).ok());
  EXPECT_EQ(marks.starred, (std::set<std::string>{"a"}));
  EXPECT_EQ(marks.shared, (std::set<std::string>{"b", "c"}));
  std::vector<std::string> labels;
  for (const auto& [id, label] : marks.labels) labels.push_back(id + ":" + label.name);
  EXPECT_EQ(labels, (std::vector<std::string>{"a:home", "a:Work"}));
  ASSERT_TRUE(b_->MarksAmong("alice", {"docs"}, &marks).ok());
  EXPECT_TRUE(marks.starred.empty() && marks.shared.empty() && marks.labels.empty());
  // A caller with no stars or labels of their own, then a space with links
  // and no shares: each table is looked at only when it may hold a mark.
  ASSERT_TRUE(b_->MarksAmong("carol", {"a", "b", "c"}, &marks).ok());
  EXPECT_TRUE(marks.starred.empty() && marks.labels.empty());
  EXPECT_EQ(marks.shared, (std::set<std::string>{"b", "c"}));
  ASSERT_TRUE(b_->RemoveShare("b", "user", "bob").ok());
  ASSERT_TRUE(b_->MarksAmong("alice", {"a", "b", "c"}, &marks).ok());
  EXPECT_EQ(marks.starred, (std::set<std::string>{"a"}));
  EXPECT_EQ(marks.shared, (std::set<std::string>{"c"}));
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

TEST_F(BrowseStoreTest, LabelsAreRenamedAndRecolouredInPlace) {
  ASSERT_TRUE(b_->CreateLabel(Label{"l1", "alice", "Work", "#ff0000"}).ok());
  ASSERT_TRUE(b_->CreateLabel(Label{"l2", "alice", "Home", "#00ff00"}).ok());
  ASSERT_TRUE(b_->CreateLabel(Label{"l3", "bob", "Play", "#0000ff"}).ok());
  ASSERT_TRUE(b_->SetItemLabel("alice", "l1", "a", true).ok());

  Status st = b_->UpdateLabel(Label{"l1", "alice", "Office", "#123abc"});
  ASSERT_TRUE(st.ok()) << st.ToString();
  Label l;
  ASSERT_TRUE(b_->GetLabel("alice", "l1", &l).ok());
  EXPECT_EQ(l.name, "Office");
  EXPECT_EQ(l.color, "#123abc");
  ItemMarks marks;
  ASSERT_TRUE(b_->MarksAmong("alice", {"a"}, &marks).ok());
  EXPECT_EQ(marks.labels.find("a")->second.name, "Office");  // items keep the label

  // Its own name in another case is no clash; another label's name is.
  EXPECT_TRUE(b_->UpdateLabel(Label{"l1", "alice", "OFFICE", "#123abc"}).ok());
  st = b_->UpdateLabel(Label{"l1", "alice", "home", "#123abc"});
  EXPECT_EQ(st.code(), kErrLabelExists);
  EXPECT_EQ(st.message(), "label name already exists: home");
  EXPECT_TRUE(b_->UpdateLabel(Label{"l1", "alice", "Play", "#123abc"}).ok());  // bob's name: no clash
  // Another user's label id is not found.
  st = b_->UpdateLabel(Label{"l3", "alice", "Mine", "#123abc"});
  EXPECT_EQ(st.code(), kErrLabelNotFound);
  EXPECT_EQ(st.message(), "label not found: l3");
}

TEST(BrowseHelpersTest, LabelColoursAreHashAndSixHexDigits) {
  for (const char* ok : {"#000000", "#9e9e9e", "#ABCDEF", "#aBc123"}) EXPECT_TRUE(CheckLabelColour(ok).ok()) << ok;
  for (const char* bad : {"", "red", "#fff", "#1234567", "123456#", "#12345g", "#12 456", "##12345"}) {
    Status st = CheckLabelColour(bad);
    EXPECT_EQ(st.code(), kErrLabelColour) << bad;
    EXPECT_EQ(st.message(), std::string("invalid label colour (want #rrggbb): \"") + bad + "\"");
  }
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
  ASSERT_TRUE(b_->CreateLink(SharingLink{"tok", "b", "alice", "viewer", 1, 0, ""}).ok());
  ASSERT_TRUE(b_->GetLink("tok", &link).ok());
  EXPECT_EQ(link.file_id, "b");

  AccessRequest req{"a", "bob", "alice", 5};
  ASSERT_TRUE(b_->AddAccessRequest(req).ok());
  EXPECT_EQ(b_->AddAccessRequest(req).code(), kErrAlreadyRequested);
}

// Grants open only their own link, only until they expire, and go with the
// link's removal; an item keeps the first permanent link it was given.
TEST_F(BrowseStoreTest, LinkGrantsAndPermanentLinks) {
  ASSERT_TRUE(b_->CreateLink(SharingLink{"tok", "a", "alice", "viewer", 1, 0, "hash"}).ok());
  ASSERT_TRUE(b_->CreateLink(SharingLink{"other", "b", "alice", "viewer", 1, 0, ""}).ok());
  ASSERT_TRUE(b_->AddLinkGrant("digest", "tok", 100, 200).ok());
  bool found = false;
  ASSERT_TRUE(b_->HasLinkGrant("digest", "tok", 199, &found).ok());
  EXPECT_TRUE(found);
  ASSERT_TRUE(b_->HasLinkGrant("digest", "tok", 200, &found).ok());
  EXPECT_FALSE(found) << "expired at its time";
  ASSERT_TRUE(b_->HasLinkGrant("digest", "other", 150, &found).ok());
  EXPECT_FALSE(found) << "a grant of another link";
  ASSERT_TRUE(b_->AddLinkGrant("second", "tok", 250, 900).ok());  // prunes the expired one
  ASSERT_TRUE(b_->HasLinkGrant("digest", "tok", 150, &found).ok());
  EXPECT_FALSE(found);
  ASSERT_TRUE(b_->RemoveLink("tok").ok());
  ASSERT_TRUE(b_->HasLinkGrant("second", "tok", 300, &found).ok());
  EXPECT_FALSE(found) << "removed with its link";

  SharingLink link{"other", "", "", "editor", 0, 500, "new"};
  ASSERT_TRUE(b_->UpdateLink(link).ok());
  ASSERT_TRUE(b_->GetLink("other", &link).ok());
  EXPECT_EQ(link.role + link.password_hash + std::to_string(link.expires), "editornew500");
  EXPECT_EQ(b_->UpdateLink(SharingLink{"gone", "", "", "viewer", 0, 0, ""}).code(), kErrNotFound);

  std::string permanent;
  ASSERT_TRUE(b_->EnsurePermanentLink("a", "first", &permanent).ok());
  ASSERT_TRUE(b_->EnsurePermanentLink("a", "second", &permanent).ok());
  EXPECT_EQ(permanent, "first");
  Node n;
  ASSERT_TRUE(store_->GetByLink("first", &n).ok());
  EXPECT_EQ(n.file_id, "a");
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

// Opens path as the daemon opens a file it indexes (never through a link).
ScopedFd OpenForText(const std::string& path) {
  return ScopedFd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
}

TEST(BrowseHelpersTest, IndexedTextIsValidUtf8) {
  char tmpl[] = "/tmp/browse-text-XXXXXX";
  int fd = mkstemp(tmpl);
  ASSERT_GE(fd, 0);
  const std::string bytes = std::string("ok \xff\xfe caf\xc3\xa9\x01 end", 16);
  ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
  EXPECT_EQ(ReadIndexableText(OpenForText(tmpl).get(), 1 << 20), "ok    café  end");
  EXPECT_EQ(ReadIndexableText(OpenForText(tmpl).get(), 2), "ok");
  unlink(tmpl);
  EXPECT_EQ(ReadIndexableText(-1, 10), "");
}

TEST(BrowseHelpersTest, PdfTextIsExtractedPageByPage) {
  char tmpl[] = "/tmp/browse-pdf-XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  const std::string dir = tmpl;
  auto write = [&](const std::string& name, const std::string& bytes) {
    std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
    return dir + "/" + name;
  };
  const std::string pdf = write("two.pdf", orvel::test::MakePdf({"Quarterly (draft) figures", "second page"}));
  Decoder decoder;
  decoder.program = ORVEL_DECODE_PATH;
  const std::string text = ReadPdfText(decoder, OpenForText(pdf).get(), 1 << 20);
  EXPECT_NE(text.find("Quarterly (draft) figures"), std::string::npos) << text;
  EXPECT_NE(text.find("second page"), std::string::npos) << text;
  EXPECT_LT(text.find("Quarterly"), text.find("second")) << text;
  for (unsigned char c : text) EXPECT_TRUE(c >= 0x20 || c == '\n' || c == '\t') << static_cast<int>(c);
  // The limit cuts the text.
  EXPECT_EQ(ReadPdfText(decoder, OpenForText(pdf).get(), 9), "Quarterly");

  // Not a PDF, no file (a missing one, a link not opened): no text, no failure.
  EXPECT_EQ(ReadPdfText(decoder, OpenForText(write("fake.pdf", "%PDF-1.4 garbage")).get(), 1 << 20), "");
  EXPECT_EQ(ReadPdfText(decoder, -1, 1 << 20), "");
  // Over the decoder's input limit: not parsed at all.
  Decoder small = decoder;
  small.max_input_bytes = 100;
  EXPECT_EQ(ReadPdfText(small, OpenForText(pdf).get(), 1 << 20), "");

  // Which files are indexed: PDFs by extension or content type.
  Node n;
  n.type = 0;
  n.size = 10;
  n.ext = "pdf";
  EXPECT_TRUE(HasIndexableText(n));
  n.ext = "bin";
  EXPECT_FALSE(HasIndexableText(n));
  n.content_type = "application/pdf";
  EXPECT_TRUE(HasIndexableText(n));
  EXPECT_NE(ExtractIndexableText(decoder, n, OpenForText(pdf).get()).find("second page"), std::string::npos);
  n.encrypted = true;
  EXPECT_FALSE(HasIndexableText(n));
  // A link item is never read, whatever its name.
  n.encrypted = false;
  n.content_type = kLinkContentType;
  EXPECT_FALSE(HasIndexableText(n));
  RemoveTree(dir);
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
