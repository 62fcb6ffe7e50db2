// entry.cgi end to end: api/method/version checks, the Info API, module
// loading and dispatch (checks, raw answers, failures), the answer format.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "webapi_harness.h"

namespace webapi_test {
namespace {

class EntryCgi : public ::testing::Test {
 protected:
  static Json::Value Errors(const CgiOutput& out) { return out.json["error"]["errors"]; }
  CgiRoot root_;
};

TEST_F(EntryCgi, MissingOrMalformedTripleIs101) {
  struct Case {
    std::string query, name, reason;
  } cases[] = {
      {"method=echo&version=1", "api", "required"},
      {"api=ZEMO.Test.Echo&version=1", "method", "required"},
      {"api=ZEMO.Test.Echo&method=echo", "version", "required"},
      {"api=ZEMO.Test.Echo&method=echo&version=abc", "version", "type"},
      {"api=ZEMO.Test.Echo&method=echo&version=0", "version", "type"},
      {"api=ZEMO.Test.Echo&method=echo&version=-2", "version", "type"},
      {"api=42&method=echo&version=1", "api", "type"},
      {"api=ZEMO.Test.Echo&method=&version=1", "method", "type"},
  };
  for (const Case& c : cases) {
    CgiCall call;
    call.query = c.query;
    CgiOutput out = root_.Run(call);
    SCOPED_TRACE(c.query);
    EXPECT_EQ(false, out.json["success"].asBool());
    EXPECT_EQ(101, out.json["error"]["code"].asInt());
    EXPECT_EQ(c.name, Errors(out)["name"].asString());
    EXPECT_EQ(c.reason, Errors(out)["reason"].asString());
  }
}

TEST_F(EntryCgi, UnknownApiMethodVersionAre102To104) {
  CgiOutput no_api = root_.Get("ZEMO.No.Such", "echo", "1");
  EXPECT_EQ(102, no_api.json["error"]["code"].asInt());
  EXPECT_EQ("no such API", Errors(no_api)["message"].asString());
  CgiOutput no_method = root_.Get("ZEMO.Test.Echo", "nope", "1");
  EXPECT_EQ(103, no_method.json["error"]["code"].asInt());
  EXPECT_EQ("no such method", Errors(no_method)["message"].asString());
  CgiOutput no_version = root_.Get("ZEMO.Test.Echo", "echo", "3");
  EXPECT_EQ(104, no_version.json["error"]["code"].asInt());
  EXPECT_EQ("version not supported", Errors(no_version)["message"].asString());
  // A module cannot add to a built-in API.
  CgiOutput builtin = root_.Get("ZEMO.API.Info", "query", "2");
  EXPECT_EQ(104, builtin.json["error"]["code"].asInt());
  EXPECT_NE(std::string::npos, builtin.err.find("built-in api ZEMO.API.Info skipped"));
}

TEST_F(EntryCgi, AnswerIsJsonWithModuleHeaders) {
  CgiOutput out = root_.Get("ZEMO.Test.Echo", "echo", "2", "path=%2Fmydrive%2Fa&limit=100");
  EXPECT_EQ(0, out.exit_code);
  EXPECT_EQ(0u, out.headers.find("Content-Type: application/json; charset=utf-8\r\n"));
  EXPECT_EQ("yes", out.Header("X-Echo"));
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw;
  const Json::Value& data = out.json["data"];
  EXPECT_EQ(2u, data["version"].asUInt());
  EXPECT_EQ("/mydrive/a", data["params"]["path"].asString());
  EXPECT_TRUE(data["params"]["limit"].isInt());
  EXPECT_EQ("", data["user"].asString());
  EXPECT_EQ(-1, data["uid"].asInt());
  EXPECT_EQ("192.0.2.7", data["remote_ip"].asString());
  EXPECT_EQ("files.example", data["host"].asString());
  EXPECT_EQ(8443, data["port"].asInt());
  EXPECT_EQ("http", data["proto"].asString());
}

TEST_F(EntryCgi, PostFormFieldsOverrideQuery) {
  CgiCall call;
  call.method = "POST";
  call.query = "api=ZEMO.Test.Echo&method=echo&version=1&files=x";
  call.content_type = "application/x-www-form-urlencoded";
  call.body = "files=%5B%22%2Fmydrive%2Fa%22%5D&name=%22123%22";
  CgiOutput out = root_.Run(call);
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw;
  const Json::Value& params = out.json["data"]["params"];
  ASSERT_TRUE(params["files"].isArray());
  EXPECT_EQ("/mydrive/a", params["files"][0].asString());
  EXPECT_EQ("123", params["name"].asString());
}

// A value nested deeper than the JSON parser goes is text like any other
// value that does not parse (the parser throws there instead of failing).
TEST_F(EntryCgi, ParameterNestedTooDeepArrivesAsText) {
  const std::string deep = std::string(300, '[') + std::string(300, ']');
  std::string encoded;
  for (char c : deep) encoded += c == '[' ? "%5B" : "%5D";
  CgiOutput out = root_.Get("ZEMO.Test.Echo", "echo", "2", "deep=" + encoded);
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw;
  EXPECT_EQ(deep, out.json["data"]["params"]["deep"].asString());
}

TEST_F(EntryCgi, CheckFunctionRefusesBeforeProcess) {
  CgiOutput refused = root_.Get("ZEMO.Test.Echo", "check", "3", "bad=1");
  EXPECT_EQ(120, refused.json["error"]["code"].asInt());
  EXPECT_EQ("bad", Errors(refused)["name"].asString());
  EXPECT_EQ("condition", Errors(refused)["reason"].asString());
  EXPECT_TRUE(root_.Get("ZEMO.Test.Echo", "check", "3").json["success"].asBool());
}

TEST_F(EntryCgi, RawOutputIsLeftAlone) {
  CgiOutput out = root_.Get("ZEMO.Test.Echo", "raw", "1");
  EXPECT_EQ("Status: 200 OK\r\nContent-Type: text/plain\r\n\r\nraw body", out.raw);
}

TEST_F(EntryCgi, ModuleStreamsFileVerbatim) {
  std::string content;
  for (int i = 0; content.size() < 300000; ++i) content += static_cast<char>(i * 7 % 256);
  std::ofstream(root_.root() + "/a.bin", std::ios::binary) << content;
  CgiOutput out = root_.Get("ZEMO.Test.Echo", "file", "1", "path=" + root_.root() + "/a.bin");
  EXPECT_TRUE(out.raw == "Content-Type: application/octet-stream\r\nContent-Length: 300000\r\n"
                         "Status: 200 OK\r\n\r\n" + content);
}

TEST_F(EntryCgi, ModuleFailuresStillAnswerJson) {
  CgiOutput thrown = root_.Get("ZEMO.Test.Echo", "throw", "1");
  EXPECT_EQ(0, thrown.exit_code);
  EXPECT_EQ(401, thrown.json["error"]["code"].asInt());
  EXPECT_NE(std::string::npos, thrown.err.find("echo module failure"));
  CgiOutput silent = root_.Get("ZEMO.Test.Echo", "nothing", "1");
  EXPECT_EQ("{\"success\":true}\n", silent.body);
}

TEST_F(EntryCgi, InfoQueryListsBuiltinsAndModules) {
  CgiOutput out = root_.Get("ZEMO.API.Info", "query", "1");
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw;
  const Json::Value& data = out.json["data"];
  EXPECT_EQ(1u, data["ZEMO.API.Auth"]["min_version"].asUInt());
  EXPECT_EQ(7u, data["ZEMO.API.Auth"]["max_version"].asUInt());
  EXPECT_EQ("entry.cgi", data["ZEMO.API.Auth"]["path"].asString());
  EXPECT_EQ(1u, data["ZEMO.API.Info"]["max_version"].asUInt());
  EXPECT_EQ(1u, data["ZEMO.Test.Echo"]["min_version"].asUInt());
  EXPECT_EQ(3u, data["ZEMO.Test.Echo"]["max_version"].asUInt());
  CgiOutput one = root_.Get("ZEMO.API.Info", "query", "1", "query=ZEMO.Test.Echo");
  EXPECT_EQ(std::vector<std::string>{"ZEMO.Test.Echo"}, one.json["data"].getMemberNames());
}

TEST_F(EntryCgi, BrokenModuleIsSkippedAndLogged) {
  std::ofstream(root_.ModulesDir() + "/broken.so") << "not an ELF file";
  CgiOutput out = root_.Get("ZEMO.Test.Echo", "echo", "1");
  EXPECT_TRUE(out.json["success"].asBool());
  EXPECT_NE(std::string::npos, out.err.find("module not loaded: " + root_.ModulesDir() + "/broken.so"))
      << out.err;
}

TEST_F(EntryCgi, UnsupportedRequestMethodIs400) {
  CgiCall call;
  call.method = "PUT";
  call.query = "api=ZEMO.Test.Echo&method=echo&version=1";
  CgiOutput out = root_.Run(call);
  EXPECT_EQ(400, out.json["error"]["code"].asInt());
  EXPECT_EQ("request method not supported", Errors(out)["message"].asString());
}

TEST_F(EntryCgi, GetCallsOnlyReadingMethods) {
  for (const char* method : {"GET", "HEAD"}) {
    CgiCall call;
    call.method = method;
    call.query = "api=ZEMO.Test.Echo&method=echo&version=1";
    CgiOutput out = root_.Run(call);
    SCOPED_TRACE(method);
    EXPECT_EQ(400, out.json["error"]["code"].asInt());
    EXPECT_EQ("method needs POST", Errors(out)["message"].asString());
    EXPECT_TRUE(out.Header("X-Echo").empty());  // the module never ran
    EXPECT_NE(std::string::npos,
              out.err.find(std::string(method) + " of ZEMO.Test.Echo.echo from 192.0.2.7 refused"));
  }
  CgiCall info;
  info.method = "GET";
  info.query = "api=ZEMO.API.Info&method=query&version=1";
  EXPECT_TRUE(root_.Run(info).json["success"].asBool());
  // What is not served is still told apart from what needs POST.
  info.query = "api=ZEMO.Test.Echo&method=nope&version=1";
  EXPECT_EQ(103, root_.Run(info).json["error"]["code"].asInt());
}

TEST(EntryCgiIdentity, ModuleRunsAsWebAccountWithRootSaved) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  Json::Value conf(Json::objectValue);
  conf["web_account"] = "www-data";
  CgiRoot root(conf);
  CgiOutput out = root.Get("ZEMO.Test.Echo", "echo", "1");
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw << out.err;
  EXPECT_EQ(33u, out.json["data"]["euid"].asUInt());
  EXPECT_EQ(33u, out.json["data"]["egid"].asUInt());
  EXPECT_EQ(0u, out.json["data"]["ruid"].asUInt());
}

TEST(EntryCgiIdentity, UnknownWebAccountRefusesToRunModules) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  Json::Value conf(Json::objectValue);
  conf["web_account"] = "no-such-account-here";
  CgiRoot root(conf);
  CgiOutput out = root.Get("ZEMO.Test.Echo", "echo", "1");
  EXPECT_EQ(401, out.json["error"]["code"].asInt());
  EXPECT_EQ("web account unknown", out.json["error"]["errors"]["message"].asString());
}

}  // namespace
}  // namespace webapi_test
