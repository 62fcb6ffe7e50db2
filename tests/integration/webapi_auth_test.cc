// entry.cgi sessions end to end: login and logout, the cookie and token
// rules, rotation, disabled accounts, accounts that stop being usable while
// logged in, and timed-out sessions.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "orvelcommon/sync_config.h"
#include "webapi_harness.h"

namespace webapi_test {
namespace {

const char kEcho[] = "api=ZEMO.Test.Echo&method=echo&version=1";

class EntryAuth : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.AddUser("alice", "s3cret pass");
    root_.AddUser("bob", "12345678", true);
  }

  CgiOutput Login(const std::string& account, const std::string& passwd) {
    CgiCall call;
    call.method = "POST";
    call.query = "api=ZEMO.API.Auth&method=login&version=6";
    call.content_type = "application/x-www-form-urlencoded";
    call.body = "account=" + account + "&passwd=" + passwd;
    return root_.Run(call);
  }

  // Calls the echo method with the given session carriers.
  Json::Value Echo(const std::string& extra, const std::string& cookie = "",
                   const std::string& token = "") {
    CgiCall call;
    call.query = std::string(kEcho) + (extra.empty() ? "" : "&" + extra);
    call.cookie = cookie;
    call.token = token;
    return root_.Run(call).json["data"];
  }

  // Runs SQL on the user database behind the UserDb's back.
  void Sql(const std::string& sql) {
    SyncConfigMgr conf;
    ASSERT_EQ(0, conf.Init());
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(conf.GetUserDbPath().c_str(), &db));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr)) << sql;
    sqlite3_close(db);
  }
  int SessionRows(const std::string& user) {
    SyncConfigMgr conf;
    EXPECT_EQ(0, conf.Init());
    sqlite3* db = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_open(conf.GetUserDbPath().c_str(), &db));
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM sessions WHERE user = ?1", -1, &st, nullptr);
    sqlite3_bind_text(st, 1, user.c_str(), -1, SQLITE_TRANSIENT);
    int n = sqlite3_step(st) == SQLITE_ROW ? sqlite3_column_int(st, 0) : -1;
    sqlite3_finalize(st);
    sqlite3_close(db);
    return n;
  }

  // Moves a session's clock back by seconds (both its start and last use).
  void AgeSession(const std::string& sid, int seconds) {
    Sql("UPDATE sessions SET created = created - " + std::to_string(seconds) +
        ", last_seen = last_seen - " + std::to_string(seconds) + " WHERE sid = '" + sid + "'");
  }

  CgiRoot root_;
};

TEST_F(EntryAuth, LoginAnswersSessionAndCookie) {
  CgiOutput out = Login("alice", "s3cret+pass");
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw << out.err;
  std::string sid = out.json["data"]["sid"].asString();
  std::string token = out.json["data"]["token"].asString();
  EXPECT_EQ(64u, sid.size());
  EXPECT_FALSE(token.empty());
  EXPECT_EQ("id=" + sid + "; path=/; HttpOnly; SameSite=Lax", out.Header("Set-Cookie"));
  EXPECT_EQ("no-store", out.Header("Cache-Control"));
  Json::Value data = Echo("_sid=" + sid);
  EXPECT_EQ("alice", data["user"].asString());
  EXPECT_GE(data["uid"].asInt(), 1026);
  EXPECT_FALSE(data["admin"].asBool());
  EXPECT_FALSE(data["timed_out"].asBool());
}

TEST_F(EntryAuth, NumericPasswordStaysAString) {
  CgiOutput out = Login("bob", "12345678");
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw;
  EXPECT_TRUE(Echo("_sid=" + out.json["data"]["sid"].asString())["admin"].asBool());
}

TEST_F(EntryAuth, WrongPasswordAndUnknownAccountAre402) {
  for (const auto& [account, passwd] : {std::pair<std::string, std::string>{"alice", "nope"},
                                        {"nobody", "s3cret+pass"}}) {
    CgiOutput out = Login(account, passwd);
    EXPECT_EQ(402, out.json["error"]["code"].asInt());
    EXPECT_EQ("wrong account or password", out.json["error"]["errors"]["message"].asString());
    EXPECT_TRUE(out.Header("Set-Cookie").empty());
  }
  EXPECT_EQ(114, Login("", "x").json["error"]["code"].asInt());
}

TEST_F(EntryAuth, DisabledOrExpiredAccountIs403) {
  ASSERT_TRUE(root_.Users().SetFlag("alice", "enabled", false).ok());
  CgiOutput disabled = Login("alice", "s3cret+pass");
  EXPECT_EQ(403, disabled.json["error"]["code"].asInt());
  EXPECT_EQ("account disabled", disabled.json["error"]["errors"]["message"].asString());
  ASSERT_TRUE(root_.Users().SetFlag("alice", "enabled", true).ok());
  ASSERT_TRUE(root_.Users().SetFlag("alice", "expired", true).ok());
  CgiOutput expired = Login("alice", "s3cret+pass");
  EXPECT_EQ(403, expired.json["error"]["code"].asInt());
  EXPECT_EQ("account expired", expired.json["error"]["errors"]["message"].asString());
}

// The account is checked on every request. The change is made behind the
// UserDb's back (which would end the sessions itself), so that only the
// framework's check can notice it.
TEST_F(EntryAuth, AccountOutOfUseEndsItsSessionsAtTheNextRequest) {
  struct Case {
    const char* change;
    const char* undo;
    const char* why;
  } cases[] = {
      {"UPDATE users SET enabled = 0", "UPDATE users SET enabled = 1", "disabled"},
      {"UPDATE users SET system_enabled = 0", "UPDATE users SET system_enabled = 1", "disabled"},
      {"UPDATE users SET expired = 1", "UPDATE users SET expired = 0", "expired"},
      {"DELETE FROM users", "", "deleted"},
  };
  Json::Value bob = Login("bob", "12345678").json["data"];
  for (const Case& c : cases) {
    SCOPED_TRACE(c.change);
    std::string first = Login("alice", "s3cret+pass").json["data"]["sid"].asString();
    std::string second = Login("alice", "s3cret+pass").json["data"]["sid"].asString();
    ASSERT_EQ("alice", Echo("_sid=" + first)["user"].asString());
    Sql(std::string(c.change) + " WHERE name = 'alice'");
    CgiCall call;
    call.query = std::string(kEcho) + "&_sid=" + second;
    CgiOutput out = root_.Run(call);
    EXPECT_EQ("", out.json["data"]["user"].asString());
    EXPECT_EQ(-1, out.json["data"]["uid"].asInt());
    EXPECT_NE(std::string::npos,
              out.err.find(std::string("sessions of 'alice' ended: account ") + c.why));
    EXPECT_EQ(0, SessionRows("alice"));
    if (*c.undo) Sql(std::string(c.undo) + " WHERE name = 'alice'");
  }
  EXPECT_EQ("bob", Echo("_sid=" + bob["sid"].asString())["user"].asString());
}

TEST_F(EntryAuth, CookieCountsOnlyWithToken) {
  Json::Value session = Login("alice", "s3cret+pass").json["data"];
  std::string cookie = "lang=en; id=" + session["sid"].asString();
  std::string token = session["token"].asString();
  EXPECT_EQ("", Echo("", cookie)["user"].asString());
  EXPECT_EQ(-1, Echo("", cookie, "wrong-token")["uid"].asInt());
  EXPECT_EQ("alice", Echo("", cookie, token)["user"].asString());
  EXPECT_EQ("alice", Echo("_token=" + token, cookie)["user"].asString());
}

TEST_F(EntryAuth, LoginRotatesAndLogoutEndsSession) {
  Json::Value first = Login("alice", "s3cret+pass").json["data"];
  CgiCall again;
  again.method = "POST";
  again.query = "api=ZEMO.API.Auth&method=login&version=1&_sid=" + first["sid"].asString();
  again.content_type = "application/x-www-form-urlencoded";
  again.body = "account=alice&passwd=s3cret%20pass";
  Json::Value second = root_.Run(again).json["data"];
  ASSERT_FALSE(second["sid"].asString().empty());
  EXPECT_NE(first["sid"], second["sid"]);
  EXPECT_EQ("", Echo("_sid=" + first["sid"].asString())["user"].asString());

  CgiCall logout;
  logout.query = "api=ZEMO.API.Auth&method=logout&version=7";
  logout.cookie = "id=" + second["sid"].asString();
  logout.token = second["token"].asString();
  CgiOutput out = root_.Run(logout);
  EXPECT_EQ("{\"success\":true}\n", out.body);
  EXPECT_EQ(0u, out.Header("Set-Cookie").find("id=; path=/; HttpOnly; SameSite=Lax; Max-Age=0"));
  EXPECT_EQ("", Echo("_sid=" + second["sid"].asString())["user"].asString());
}

TEST_F(EntryAuth, TimedOutSessionKeepsUserAndFlag) {
  std::string sid = Login("alice", "s3cret+pass").json["data"]["sid"].asString();
  AgeSession(sid, 7200);
  Json::Value data = Echo("_sid=" + sid);
  EXPECT_EQ("alice", data["user"].asString());
  EXPECT_GE(data["uid"].asInt(), 1026);
  EXPECT_TRUE(data["timed_out"].asBool());
}

TEST_F(EntryAuth, HttpsCookieIsSecure) {
  CgiCall call;
  call.method = "POST";
  call.query = "api=ZEMO.API.Auth&method=login&version=1";
  call.content_type = "application/x-www-form-urlencoded";
  call.body = "account=alice&passwd=s3cret+pass";
  call.https = true;
  CgiOutput out = root_.Run(call);
  std::string cookie = out.Header("Set-Cookie");
  EXPECT_EQ(cookie.size() - 8, cookie.find("; Secure")) << cookie;
}

}  // namespace
}  // namespace webapi_test
