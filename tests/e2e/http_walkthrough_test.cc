// End to end over HTTP: lighttpd runs entry.cgi, which runs the module
// against the daemon. Uses curl as a browser or a script would.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "stack.h"

namespace orvel::test {
namespace {

class HttpTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("demo", false, "demo-password");
    port_ = stack_->StartHttp();
  }
  static void TearDownTestSuite() {
    delete stack_;
  }
  static std::string Url(const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  static ProcessOutput Curl(std::vector<std::string> args) {
    args.insert(args.begin(), {"/usr/bin/curl", "-s", "--max-time", "60"});
    return RunProcess(args, BaseEnv(stack_->root()));
  }
  static Json::Value ParseJson(const std::string& text) {
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string errs;
    std::istringstream s(text);
    Json::parseFromStream(b, s, &v, &errs);
    return v;
  }
  // POSTs the module's method with form fields (each "name=value").
  static Json::Value Files(const std::vector<std::string>& fields, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {Url("/webapi/entry.cgi"), "-d", "api=ZEMO.ZemoraOrvel.Files",
                                     "-d", "version=1"};
    for (const auto& f : fields) {
      args.push_back("--data-urlencode");
      args.push_back(f);
    }
    args.insert(args.end(), extra.begin(), extra.end());
    ProcessOutput r = Curl(args);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v.isObject()) << r.out << r.err;
    return v;
  }
  static Json::Value Login(std::string* cookie_jar) {
    *cookie_jar = stack_->root() + "/cookies.txt";
    ProcessOutput r = Curl({"-c", *cookie_jar,
                            Url("/webapi/entry.cgi?api=ZEMO.API.Auth&version=1&method=login"
                                "&account=demo&passwd=demo-password")});
    return ParseJson(r.out);
  }
  static TestStack* stack_;
  static int port_;
};
TestStack* HttpTest::stack_ = nullptr;
int HttpTest::port_ = 0;

TEST_F(HttpTest, ReadmeWalkthrough) {
  std::string jar;
  Json::Value login = Login(&jar);
  ASSERT_TRUE(login["success"].asBool()) << login;
  const std::string sid = login["data"]["sid"].asString();
  ASSERT_FALSE(sid.empty());

  Json::Value r = Files({"_sid=" + sid, "method=create", "path=/mydrive/Projects", "type=folder"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  r = Files({"_sid=" + sid, "method=create", "path=/mydrive/Projects/hello.txt", "type=file",
             "file_content=SGVsbG8sIHdvcmxkCg=="});
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["size"].asUInt64(), 13u);

  r = Files({"_sid=" + sid, "method=list", "path=/mydrive/Projects", "limit=100"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  ASSERT_EQ(r["data"]["items"].size(), 1u);
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "hello.txt");

  r = Files({"_sid=" + sid, "method=get", "path=/mydrive/Projects/hello.txt"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["hash"].asString(),
            "37980c33951de6b0e450c3701b219bfeee930544705f637cd1158b63827bb390");
  std::ifstream on_disk(stack_->HomeDir("demo") + "/Projects/hello.txt");
  std::string content((std::istreambuf_iterator<char>(on_disk)), std::istreambuf_iterator<char>());
  EXPECT_EQ(content, "Hello, world\n");
}

TEST_F(HttpTest, CookieCountsOnlyWithTheSessionToken) {
  std::string jar;
  Json::Value login = Login(&jar);
  ASSERT_TRUE(login["success"].asBool()) << login;
  const std::string token = login["data"]["token"].asString();
  std::vector<std::string> create = {"method=create", "path=/mydrive/ViaCookie", "type=folder"};

  Json::Value r = Files(create, {"-b", jar});
  EXPECT_EQ(r["error"]["code"].asInt(), 105) << r;
  EXPECT_EQ(r["error"]["errors"]["message"].asString(), "permission denied by anonymous");

  r = Files(create, {"-b", jar, "-H", "X-ZEMO-Token: " + token});
  EXPECT_TRUE(r["success"].asBool()) << r;
}

}  // namespace
}  // namespace orvel::test
