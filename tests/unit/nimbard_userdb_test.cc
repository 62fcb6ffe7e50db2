// The user database: accounts, passwords, flags, groups, session time-outs,
// the sessions an account loses when it stops being usable, and the login
// throttle's records.
#include <gtest/gtest.h>
#include <unistd.h>

#include "nimbard/file.h"
#include "orvelcommon/user_db.h"

namespace {

class UserDbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/orvel-users-XXXXXX";
    dir_ = ::mkdtemp(tmpl);
    orvel::Status st = orvel::UserDb::Open(dir_ + "/users.db", &db_);
    ASSERT_TRUE(st.ok()) << st.ToString();
  }
  void TearDown() override {
    db_.reset();
    File::Remove(dir_);
  }
  std::string dir_;
  std::unique_ptr<orvel::UserDb> db_;
};

TEST_F(UserDbTest, AddsUsersWithIncreasingUidsAndRefusesDuplicates) {
  orvel::UserRecord a, b;
  ASSERT_TRUE(db_->AddUser("alice", "pw", true, &a).ok());
  ASSERT_TRUE(db_->AddUser("bob", "pw", false, &b).ok());
  EXPECT_EQ(a.uid, 1026u);
  EXPECT_EQ(b.uid, 1027u);
  EXPECT_TRUE(a.admin);
  EXPECT_EQ(db_->AddUser("alice", "x", false, nullptr).code(), orvel::kErrNameExists);
  EXPECT_EQ(db_->AddUser("anonymous", "x", false, nullptr).code(), orvel::kErrInvalidName);
  orvel::UserRecord byuid;
  ASSERT_TRUE(db_->GetUserByUid(1027, &byuid).ok());
  EXPECT_EQ(byuid.name, "bob");
}

// Statements are prepared once per connection and reused: each use must see
// only its own bindings, also after a failed look-up and between writes.
TEST_F(UserDbTest, ReusedStatementsAnswerEachLookUpForItsOwnArguments) {
  ASSERT_TRUE(db_->AddUser("alice", "pw", true, nullptr).ok());
  ASSERT_TRUE(db_->AddUser("bob", "pw", false, nullptr).ok());
  for (int round = 0; round < 3; ++round) {
    orvel::UserRecord r;
    ASSERT_TRUE(db_->GetUser("alice", &r).ok());
    EXPECT_TRUE(r.admin);
    EXPECT_EQ(db_->GetUser("carol", &r).code(), orvel::kErrNotFound);
    ASSERT_TRUE(db_->GetUser("bob", &r).ok());
    EXPECT_EQ(r.name, "bob");
    EXPECT_FALSE(r.admin);
    ASSERT_TRUE(db_->SetFlag("bob", "admin", round % 2 == 0).ok());
    ASSERT_TRUE(db_->GetUser("bob", &r).ok());
    EXPECT_EQ(r.admin, round % 2 == 0);
    ASSERT_TRUE(db_->SetFlag("bob", "admin", false).ok());
  }
}

TEST_F(UserDbTest, ChecksPasswordsAndFlags) {
  ASSERT_TRUE(db_->AddUser("alice", "right", false, nullptr).ok());
  orvel::UserRecord u;
  EXPECT_TRUE(db_->CheckPassword("alice", "right", &u).ok());
  EXPECT_EQ(db_->CheckPassword("alice", "wrong", &u).code(), orvel::kErrPermission);
  EXPECT_EQ(db_->CheckPassword("nobody", "right", &u).code(), orvel::kErrPermission);
  ASSERT_TRUE(db_->SetFlag("alice", "app_privilege", false).ok());
  ASSERT_TRUE(db_->GetUser("alice", &u).ok());
  EXPECT_FALSE(u.app_privilege);
  EXPECT_EQ(db_->SetFlag("alice", "uid", true).code(), orvel::kErrInvalidArgument);
  EXPECT_EQ(db_->SetFlag("ghost", "expired", true).code(), orvel::kErrNotFound);
  ASSERT_TRUE(db_->AddGroupMember("staff", "alice").ok());
  ASSERT_TRUE(db_->GetUser("alice", &u).ok());
  EXPECT_EQ(u.groups, std::vector<std::string>{"staff"});
}

TEST_F(UserDbTest, SessionsTimeOutWhenIdleOrTooOld) {
  ASSERT_TRUE(db_->AddUser("alice", "pw", false, nullptr).ok());
  orvel::SessionRecord s, found;
  ASSERT_TRUE(db_->CreateSession("alice", &s).ok());
  EXPECT_EQ(s.sid.size(), 64u);
  EXPECT_NE(s.sid, s.token);
  ASSERT_TRUE(db_->LookupSession(s.sid, 3600, 3600, &found).ok());
  EXPECT_FALSE(found.timed_out);
  EXPECT_EQ(found.token, s.token);
  ::sleep(2);
  ASSERT_TRUE(db_->LookupSession(s.sid, 1, 3600, &found).ok());
  EXPECT_TRUE(found.timed_out);
  ASSERT_TRUE(db_->DeleteSession(s.sid).ok());
  EXPECT_EQ(db_->LookupSession(s.sid, 3600, 3600, &found).code(), orvel::kErrNotFound);
}

// The sessions of alice that are still there, among the given ids.
std::vector<std::string> Live(orvel::UserDb* db, const std::vector<std::string>& sids) {
  std::vector<std::string> live;
  for (const auto& sid : sids) {
    orvel::SessionRecord rec;
    if (db->LookupSession(sid, 3600, 3600, &rec).ok()) live.push_back(sid);
  }
  return live;
}

TEST_F(UserDbTest, AccountsOutOfUseLoseTheirSessions) {
  ASSERT_TRUE(db_->AddUser("alice", "pw", false, nullptr).ok());
  ASSERT_TRUE(db_->AddUser("bob", "pw", false, nullptr).ok());
  orvel::SessionRecord bob;
  ASSERT_TRUE(db_->CreateSession("bob", &bob).ok());
  struct Change {
    const char* field;
    bool value;
    bool ends;
  } changes[] = {{"admin", true, false},        {"app_privilege", false, false},
                 {"enabled", true, false},      {"expired", false, false},
                 {"enabled", false, true},      {"system_enabled", false, true},
                 {"expired", true, true}};
  for (const Change& c : changes) {
    SCOPED_TRACE(std::string(c.field) + (c.value ? " on" : " off"));
    orvel::SessionRecord s;
    ASSERT_TRUE(db_->CreateSession("alice", &s).ok());
    ASSERT_TRUE(db_->SetFlag("alice", c.field, c.value).ok());
    EXPECT_EQ(Live(db_.get(), {s.sid}).size(), c.ends ? 0u : 1u);
    ASSERT_TRUE(db_->DeleteSession(s.sid).ok());
  }
  EXPECT_EQ(Live(db_.get(), {bob.sid}).size(), 1u);
}

TEST_F(UserDbTest, PasswordChangeKeepsOnlyTheNamedSession) {
  ASSERT_TRUE(db_->AddUser("alice", "old", false, nullptr).ok());
  orvel::SessionRecord a, b, c;
  ASSERT_TRUE(db_->CreateSession("alice", &a).ok());
  ASSERT_TRUE(db_->CreateSession("alice", &b).ok());
  ASSERT_TRUE(db_->CreateSession("alice", &c).ok());
  ASSERT_TRUE(db_->SetPassword("alice", "new", b.sid).ok());
  EXPECT_EQ(Live(db_.get(), {a.sid, b.sid, c.sid}), std::vector<std::string>{b.sid});
  ASSERT_TRUE(db_->SetPassword("alice", "newer").ok());
  EXPECT_TRUE(Live(db_.get(), {b.sid}).empty());
  orvel::UserRecord u;
  EXPECT_TRUE(db_->CheckPassword("alice", "newer", &u).ok());
  EXPECT_EQ(db_->SetPassword("ghost", "x").code(), orvel::kErrNotFound);
}

TEST_F(UserDbTest, DeletedAccountTakesGroupsAndSessionsAlong) {
  ASSERT_TRUE(db_->AddUser("alice", "pw", false, nullptr).ok());
  ASSERT_TRUE(db_->AddGroupMember("staff", "alice").ok());
  orvel::SessionRecord s;
  ASSERT_TRUE(db_->CreateSession("alice", &s).ok());
  ASSERT_TRUE(db_->DeleteUser("alice").ok());
  orvel::UserRecord u;
  EXPECT_EQ(db_->GetUser("alice", &u).code(), orvel::kErrNotFound);
  EXPECT_TRUE(Live(db_.get(), {s.sid}).empty());
  ASSERT_TRUE(db_->AddUser("alice", "pw", false, &u).ok());
  EXPECT_TRUE(u.groups.empty());
  EXPECT_EQ(db_->DeleteUser("ghost").code(), orvel::kErrNotFound);
}

TEST_F(UserDbTest, ThrottleRecordsAreStoredClearedAndPruned) {
  orvel::ThrottleRecord r;
  ASSERT_TRUE(db_->GetThrottle("account:alice", &r).ok());
  EXPECT_EQ(r.failures, 0);
  r = orvel::ThrottleRecord{3, 1, 5000, 4000};
  ASSERT_TRUE(db_->PutThrottle("account:alice", r).ok());
  ASSERT_TRUE(db_->PutThrottle("address:10.0.0.1", orvel::ThrottleRecord{1, 0, 0, 100}).ok());
  orvel::ThrottleRecord back;
  ASSERT_TRUE(db_->GetThrottle("account:alice", &back).ok());
  EXPECT_EQ(back.failures, 3);
  EXPECT_EQ(back.lockouts, 1);
  EXPECT_EQ(back.blocked_until, 5000);
  EXPECT_EQ(back.last_failure, 4000);
  orvel::ThrottlePolicy policy;
  ASSERT_TRUE(db_->PruneThrottle(policy, 100 + policy.forget_lockouts + 1).ok());
  ASSERT_TRUE(db_->GetThrottle("address:10.0.0.1", &back).ok());
  EXPECT_EQ(back.last_failure, 0);  // pruned: reads as fresh
  ASSERT_TRUE(db_->GetThrottle("account:alice", &back).ok());
  EXPECT_EQ(back.failures, 3);  // blocked until 5000: kept
  ASSERT_TRUE(db_->ClearThrottle("account:alice").ok());
  ASSERT_TRUE(db_->GetThrottle("account:alice", &back).ok());
  EXPECT_EQ(back.failures, 0);
}

}  // namespace
