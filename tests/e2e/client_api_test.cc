// What every client API shares, over HTTP: they are listed by ZEMO.API.Info,
// refuse callers without a session, keep GET for reading, and answer bad
// parameters and unknown ids with the API's codes.
#include <gtest/gtest.h>

#include "http_client.h"
#include "stack.h"

namespace orvel::test {
namespace {

class ClientApiTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("erin", false, "erin-password");
    port_ = stack_->StartHttp();
  }
  static void TearDownTestSuite() { delete stack_; }
  static ApiClient LoggedIn() {
    ApiClient client(port_);
    EXPECT_TRUE(client.Login("erin", "erin-password"));
    return client;
  }
  static TestStack* stack_;
  static int port_;
};

TestStack* ClientApiTest::stack_ = nullptr;
int ClientApiTest::port_ = 0;

TEST_F(ClientApiTest, InfoListsEveryClientApiBesideTheFilesApi) {
  ApiClient client(port_);
  Json::Value params(Json::objectValue);
  params["query"] = "all";
  const Json::Value info = client.Call("ZEMO.API.Info", "query", params);
  ASSERT_TRUE(info["success"].asBool()) << info;
  for (const char* api : {"ZEMO.ZemoraOrvel.Files", "ZEMO.ZemoraOrvel.Task", "ZEMO.ZemoraOrvel.Recycle",
                          "ZEMO.ZemoraOrvel.Revision", "ZEMO.ZemoraOrvel.Sharing"}) {
    EXPECT_TRUE(info["data"].isMember(api)) << api << " missing from " << info;
  }
  EXPECT_EQ(info["data"]["ZEMO.ZemoraOrvel.Task"]["min_version"].asInt(), 1) << info;
  EXPECT_EQ(info["data"]["ZEMO.ZemoraOrvel.Task"]["max_version"].asInt(), 1) << info;
}

TEST_F(ClientApiTest, TaskGetNeedsASessionAndAnIdAndAnswersNotFoundForUnknownIds) {
  ApiClient anonymous(port_);
  Json::Value params(Json::objectValue);
  params["task_id"] = "0123456789abcdef0123456789abcdef";
  Json::Value r = anonymous.Call("ZEMO.ZemoraOrvel.Task", "get", params);
  EXPECT_FALSE(r["success"].asBool());
  EXPECT_EQ(r["error"]["code"].asInt(), 105) << r;

  ApiClient erin = LoggedIn();
  r = erin.Call("ZEMO.ZemoraOrvel.Task", "get", params);
  EXPECT_EQ(r["error"]["code"].asInt(), 1002) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(),
            "task not found: 0123456789abcdef0123456789abcdef") << r;

  r = erin.Call("ZEMO.ZemoraOrvel.Task", "get", Json::Value(Json::objectValue));
  EXPECT_EQ(r["error"]["code"].asInt(), 114) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "task_id is required") << r;
}

}  // namespace
}  // namespace orvel::test
