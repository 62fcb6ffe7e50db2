// "ZEMO.ZemoraOrvel.Label" over HTTP through lighttpd: a caller's labels are
// listed by name with their colours, those on no item included, and never
// another user's; GET works for the read; anonymous callers are refused.
#include <gtest/gtest.h>

#include <string>

#include "http_client.h"
#include "stack.h"

namespace orvel::test {
namespace {

constexpr char kApi[] = "ZEMO.ZemoraOrvel.Label";
constexpr char kFiles[] = "ZEMO.ZemoraOrvel.Files";

class ClientLabelTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    for (const char* user : {"hana", "ivo"}) stack_->AddUser(user, false, std::string(user) + "-password");
    port_ = stack_->StartHttp();
  }
  static void TearDownTestSuite() { delete stack_; }
  static ApiClient As(const std::string& user) {
    ApiClient client(port_);
    EXPECT_TRUE(client.Login(user, user + "-password"));
    return client;
  }
  static void Create(ApiClient& client, const std::string& path) {
    Json::Value p(Json::objectValue);
    p["path"] = path;
    p["type"] = "folder";
    const Json::Value r = client.Call(kFiles, "create", p);
    ASSERT_TRUE(r["success"].asBool()) << r;
  }
  // The Files "label" method: one action on one item.
  static void Label(ApiClient& client, const std::string& path, const std::string& action,
                    const std::string& name) {
    Json::Value p(Json::objectValue);
    p["files"].append(path);
    Json::Value a(Json::objectValue);
    a["action"] = action;
    a["name"] = name;
    p["labels"].append(a);
    const Json::Value r = client.Call(kFiles, "label", p);
    ASSERT_TRUE(r["success"].asBool()) << r;
  }
  // [name, color] of each label in the answer, in order.
  static std::vector<std::string> Names(const Json::Value& r) {
    std::vector<std::string> out;
    for (const Json::Value& l : r["data"]["labels"]) {
      EXPECT_EQ(l["label_id"].asString().empty(), false) << l;
      out.push_back(l["name"].asString() + " " + l["color"].asString());
    }
    return out;
  }
  static TestStack* stack_;
  static int port_;
};

TestStack* ClientLabelTest::stack_ = nullptr;
int ClientLabelTest::port_ = 0;

TEST_F(ClientLabelTest, ListsTheCallersLabelsByNameWithTheirColours) {
  ApiClient hana = As("hana");
  const Json::Value empty = hana.Call(kApi, "list");
  ASSERT_TRUE(empty["success"].asBool()) << empty;
  EXPECT_EQ(empty["data"]["labels"], Json::Value(Json::arrayValue)) << empty;
  EXPECT_EQ(empty["data"]["total"].asUInt(), 0u) << empty;

  Create(hana, "/mydrive/Trips");
  Create(hana, "/mydrive/Bills");
  Label(hana, "/mydrive/Trips", "add", "travel");
  Label(hana, "/mydrive/Bills", "add", "Money");
  Label(hana, "/mydrive/Bills", "add", "Zeta");
  Label(hana, "/mydrive/Bills", "remove", "Zeta");  // on no item now, still a label
  ASSERT_EQ(stack_->Orvelctl({"label", "set-color", "hana", "money", "#D04A3A"}), 0);

  const Json::Value r = hana.Call(kApi, "list");
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(Names(r), (std::vector<std::string>{"Money #d04a3a", "travel #9e9e9e", "Zeta #9e9e9e"}));
  EXPECT_EQ(r["data"]["total"].asUInt(), 3u) << r;

  // The same by GET, the ids matching the labels on the items.
  const HttpAnswer get = hana.CallRaw(kApi, "list", Json::Value(Json::objectValue), 1, "GET");
  EXPECT_EQ(get.status, 200);
  EXPECT_EQ(get.Json()["data"], r["data"]) << get.body;
  Json::Value p(Json::objectValue);
  p["path"] = "/mydrive/Bills";
  const Json::Value item = hana.Call(kFiles, "get", p);
  ASSERT_EQ(item["data"]["labels"].size(), 1u) << item;
  EXPECT_EQ(item["data"]["labels"][0]["label_id"], r["data"]["labels"][0]["label_id"]) << item;

  // Another user sees none of them.
  ApiClient ivo = As("ivo");
  const Json::Value other = ivo.Call(kApi, "list");
  ASSERT_TRUE(other["success"].asBool()) << other;
  EXPECT_EQ(other["data"]["total"].asUInt(), 0u) << other;
}

TEST_F(ClientLabelTest, AnonymousCallersAndOtherVersionsAreRefused) {
  ApiClient anonymous(port_);
  ExpectError(anonymous.Call(kApi, "list"), 105, "permission denied by anonymous");
  ApiClient hana = As("hana");
  ExpectError(hana.Call(kApi, "list", Json::Value(Json::objectValue), 2), 104, "version not supported");
}

}  // namespace
}  // namespace orvel::test
