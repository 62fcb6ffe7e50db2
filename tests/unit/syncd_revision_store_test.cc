// The revision rows of the SQLite store: the writer recorded for a content
// version goes with its revision, pages come newest first, a revision is
// found only through its own file, and retention by count and by age keeps
// the newest rows, sets the node's count and tells which hashes are still
// held.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "db/store.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

class RevisionStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/syncd-revision-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    Status st = OpenSqliteStore(dir_ + "/sync.db", &store_);
    ASSERT_TRUE(st.ok()) << st.ToString();
    Node root;
    root.file_id = "root";
    root.owner = root.name = "alice";
    root.type = 1;
    ASSERT_TRUE(store_->Insert(&root).ok());
    for (const char* id : {"f1", "f2"}) {
      Node n;
      n.file_id = n.name = id;
      n.parent_id = "root";
      n.owner = "alice";
      ASSERT_TRUE(store_->Insert(&n).ok());
    }
  }
  void TearDown() override {
    store_.reset();
    RemoveTree(dir_);
  }
  // A revision of file_id for content version sync_id written by writer.
  void Add(const std::string& file_id, uint64_t sync_id, const std::string& hash, const std::string& writer) {
    if (!writer.empty()) {
      ASSERT_TRUE(store_->SetContentWriter(file_id, sync_id, writer).ok());
    }
    ASSERT_TRUE(store_->AddRevision(Revision{file_id, sync_id, sync_id * 10, 0, hash}).ok());
  }
  std::vector<RevisionRow> Page(const std::string& file_id, uint64_t* total) {
    std::vector<RevisionRow> rows;
    Status st = store_->ListRevisionPage(file_id, 0, 100, &rows, total);
    EXPECT_TRUE(st.ok()) << st.ToString();
    return rows;
  }
  std::string dir_;
  std::unique_ptr<Store> store_;
};

TEST_F(RevisionStoreTest, WriterGoesWithItsContentVersionAndPagesAreNewestFirst) {
  Add("f1", 5, "aa", "bob");
  Add("f1", 6, "bb", "");  // no writer recorded for version 6
  Add("f1", 7, "cc", "carol");
  uint64_t total = 0;
  std::vector<RevisionRow> rows = Page("f1", &total);
  ASSERT_EQ(total, 3u);
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].hash, "cc");
  EXPECT_EQ(rows[0].writer, "carol");
  EXPECT_EQ(rows[1].writer, "");
  EXPECT_EQ(rows[2].writer, "bob");
  EXPECT_EQ(rows[2].size, 50u);
  EXPECT_GT(rows[0].created, 0);

  RevisionRow one;
  EXPECT_TRUE(store_->GetRevision("f1", rows[1].id, &one).ok());
  EXPECT_EQ(one.hash, "bb");
  Status other = store_->GetRevision("f2", rows[1].id, &one);
  EXPECT_EQ(other.code(), kErrNotFound);
  EXPECT_EQ(other.message(), "revision not found: " + std::to_string(rows[1].id));
}

TEST_F(RevisionStoreTest, RetentionKeepsTheNewestAndTellsWhichHashesAreStillHeld) {
  Add("f1", 1, "shared", "bob");
  Add("f1", 2, "old", "bob");
  Add("f1", 3, "new", "bob");
  Add("f2", 1, "shared", "bob");
  RevisionKeep keep;
  keep.keep_count = 1;
  std::vector<std::string> hashes;
  uint32_t remaining = 9;
  ASSERT_TRUE(store_->PruneRevisions("f1", keep, &hashes, &remaining).ok());
  EXPECT_EQ(remaining, 1u);
  EXPECT_EQ(hashes.size(), 2u);
  Node f1;
  ASSERT_TRUE(store_->GetById("f1", &f1).ok());
  EXPECT_EQ(f1.revisions, 1u);
  bool held = false;
  ASSERT_TRUE(store_->HashReferenced("shared", &held).ok());
  EXPECT_TRUE(held);  // f2 still holds it
  ASSERT_TRUE(store_->HashReferenced("old", &held).ok());
  EXPECT_FALSE(held);

  // By age: everything created before a time in the future goes.
  std::vector<std::string> files;
  ASSERT_TRUE(store_->FilesWithOldRevisions(time(nullptr) + 10, 10, &files).ok());
  EXPECT_EQ(files.size(), 2u);
  keep.keep_count = 32;
  keep.created_before = time(nullptr) + 10;
  ASSERT_TRUE(store_->PruneRevisions("f2", keep, &hashes, &remaining).ok());
  EXPECT_EQ(remaining, 0u);
  ASSERT_EQ(hashes.size(), 1u);
  ASSERT_TRUE(store_->HashReferenced("shared", &held).ok());
  EXPECT_FALSE(held);
}

}  // namespace
}  // namespace orvel::syncd
