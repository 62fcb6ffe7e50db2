// The user database: accounts, passwords, flags, groups and session time-outs.
#include <gtest/gtest.h>
#include <unistd.h>

#include "nimbard/file.h"
#include "nimbard/user_db.h"

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

}  // namespace
