// Intent records (intent.h) on a real store and a temp tree: a failed write
// is taken back by the guard, a write whose daemon died is taken back by
// start-up recovery from its record (also a replace, with the old file put
// back), a committed write keeps its renames and leaves nothing aside; and
// the fault seam's setting parser (fault.h) refuses malformed values.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "db/store.h"
#include "fault.h"
#include "intent.h"

namespace orvel::syncd {
namespace {

class IntentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/syncd-intent-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    layout_ = Layout::ForDataDir(tmpl);
    ASSERT_TRUE(layout_.Create().ok());
    ASSERT_EQ(mkdir((layout_.homes + "/a").c_str(), 0750), 0);
    Status st = OpenSqliteStore(layout_.db + "/sync.db", &store_);
    ASSERT_TRUE(st.ok()) << st.ToString();
  }
  void TearDown() override {
    store_.reset();
    RemoveTree(layout_.data);
  }
  std::string Home(const std::string& name) const { return layout_.homes + "/a/" + name; }
  static void Write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }
  static std::string Read(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return in ? ss.str() : "<missing>";
  }
  size_t Records() {
    std::vector<std::pair<int64_t, std::string>> r;
    EXPECT_TRUE(store_->ListIntents(&r).ok());
    return r.size();
  }
  std::vector<std::string> TmpEntries() {
    std::vector<std::string> out;
    for (const char* p : {"intent-", ".syncd-copy-"}) {
      std::string cmd = "ls -A '" + layout_.tmp + "' | grep -c '^" + p + "' > /dev/null";
      if (system(cmd.c_str()) == 0) out.push_back(p);
    }
    return out;
  }

  Layout layout_;
  std::unique_ptr<Store> store_;
};

TEST_F(IntentTest, GuardTakesBackRenamesWhenTheWriteFails) {
  Write(Home("doc.txt"), "old");
  Write(Home("a.txt"), "a");
  Write(layout_.tmp + "/new", "new");
  {
    RenameIntent intent(layout_, store_.get());
    intent.Add(Home("a.txt"), Home("b.txt"));
    intent.Add(layout_.tmp + "/new", Home("doc.txt"), true);
    ASSERT_TRUE(intent.Record().ok());
    EXPECT_EQ(Records(), 1u);
    ASSERT_TRUE(intent.Apply().ok());
    EXPECT_EQ(Read(Home("doc.txt")), "new");
    EXPECT_EQ(Read(Home("b.txt")), "a");
  }  // no commit
  EXPECT_EQ(Read(Home("doc.txt")), "old");
  EXPECT_EQ(Read(Home("a.txt")), "a");
  EXPECT_EQ(Read(Home("b.txt")), "<missing>");
  EXPECT_EQ(Read(layout_.tmp + "/new"), "new");
  EXPECT_EQ(Records(), 0u);
  EXPECT_TRUE(TmpEntries().empty());
}

TEST_F(IntentTest, StartUpTakesBackWhatADeadWriteLeft) {
  Write(Home("doc.txt"), "old");
  Write(layout_.tmp + "/.syncd-copy-x", "new");
  ASSERT_EQ(mkdir(Home("dir").c_str(), 0750), 0);
  {
    // Never destroyed, as if the daemon died; held by a static so that the
    // leak checker sees it as still reachable.
    static RenameIntent* dead = nullptr;
    dead = new RenameIntent(layout_, store_.get());
    RenameIntent* intent = dead;
    intent->Add(Home("dir"), layout_.recycle + "/id1");
    intent->Add(layout_.tmp + "/.syncd-copy-x", Home("doc.txt"), true);
    ASSERT_TRUE(intent->Record().ok());
    ASSERT_TRUE(intent->Apply().ok());
  }
  struct stat st;
  EXPECT_EQ(stat((layout_.recycle + "/id1").c_str(), &st), 0);
  ASSERT_TRUE(RecoverIntents(layout_, store_.get()).ok());
  EXPECT_EQ(Read(Home("doc.txt")), "old");
  EXPECT_EQ(stat(Home("dir").c_str(), &st), 0);
  EXPECT_NE(stat((layout_.recycle + "/id1").c_str(), &st), 0);
  EXPECT_EQ(Records(), 0u);
  EXPECT_TRUE(TmpEntries().empty()) << "the aside link and the temp copy are swept";
  ASSERT_TRUE(RecoverIntents(layout_, store_.get()).ok()) << "a second start finds nothing to do";
  EXPECT_EQ(Read(Home("doc.txt")), "old");
}

TEST_F(IntentTest, CommittedWriteKeepsItsRenamesAndNothingAside) {
  Write(Home("doc.txt"), "old");
  Write(layout_.tmp + "/new", "new");
  {
    RenameIntent intent(layout_, store_.get());
    intent.Add(layout_.tmp + "/new", Home("doc.txt"), true);
    ASSERT_TRUE(intent.Record().ok());
    ASSERT_TRUE(intent.Apply().ok());
    Transaction tx(store_.get(), true);
    ASSERT_TRUE(intent.Drop().ok());
    ASSERT_TRUE(tx.Commit().ok());
    intent.Committed();
  }
  EXPECT_EQ(Read(Home("doc.txt")), "new");
  EXPECT_EQ(Records(), 0u);
  EXPECT_TRUE(TmpEntries().empty());
}

TEST_F(IntentTest, RefusedRenameChangesNothing) {
  Write(Home("a.txt"), "a");
  Write(Home("b.txt"), "b");
  RenameIntent intent(layout_, store_.get());
  intent.Add(Home("a.txt"), Home("b.txt"));
  ASSERT_TRUE(intent.Record().ok());
  Status st = intent.Apply();
  EXPECT_EQ(st.code(), kErrNameExists);
  EXPECT_EQ(st.message(), "name already exists: " + Home("b.txt"));
  EXPECT_TRUE(intent.Undo().ok());
  EXPECT_EQ(Read(Home("a.txt")), "a");
  EXPECT_EQ(Read(Home("b.txt")), "b");
  EXPECT_EQ(Records(), 0u);
}

TEST(FaultSpec, RefusesMalformedValues) {
  struct Case {
    const char* setting;
    const char* message;
  } cases[] = {
      {"at=0,action=eio", "ORVEL_FAULT: bad at=0"},
      {"at=x,action=eio", "ORVEL_FAULT: bad at=x"},
      {"at=3,action=boom", "ORVEL_FAULT: bad action=boom"},
      {"at=3,actoin=eio", "ORVEL_FAULT: unknown key \"actoin\""},
      {"at=3", "ORVEL_FAULT needs at=N and action=eio|enospc|kill"},
  };
  for (const Case& c : cases) {
    Status st = fault::Configure(c.setting);
    EXPECT_EQ(st.code(), kErrInvalidArgument) << c.setting;
    EXPECT_EQ(st.message(), c.message) << c.setting;
  }
  EXPECT_TRUE(fault::Configure(nullptr).ok());
  fault::Arm();  // not configured: stays off
  EXPECT_EQ(fault::Check("fs.fsync"), 0);
}

TEST(FaultSpec, CountsOnlyStepsUnderThePrefixAndFiresOnce) {
  ASSERT_TRUE(fault::Configure("at=2,action=enospc,step=fs.").ok());
  fault::Arm();
  EXPECT_EQ(fault::Check("db.commit"), 0);
  fault::Point("point.place.renamed");  // points count only when named
  EXPECT_EQ(fault::Check("fs.fsync"), 0);
  EXPECT_EQ(fault::Check("fs.rename"), ENOSPC);
  EXPECT_EQ(fault::Check("fs.rename"), 0);
  ASSERT_TRUE(fault::Configure(nullptr).ok());
}

}  // namespace
}  // namespace orvel::syncd
