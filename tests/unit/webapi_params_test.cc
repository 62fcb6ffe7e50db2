// Request side of the framework: urlencoded parsing, the JSON-or-string rule,
// typed parameter fetchers and validators, the CGI environment and envelopes.
#include <gtest/gtest.h>

#include <map>

#include "cgi/cgi_env.h"
#include "cgi/cgi_output.h"
#include "cgi/form_params.h"
#include "zemo/webapi.h"

namespace zemo::cgi {
namespace {

TEST(UrlEncodedParams, DecodesPairs) {
  RawParams p;
  ParseUrlEncoded("a=1&b=x+y%2Fz&flag&=skipped&a=2&c=%zz&&d=", &p);
  EXPECT_EQ((RawParams{{"a", "2"}, {"b", "x y/z"}, {"flag", ""}, {"c", "%zz"}, {"d", ""}}), p);
}

TEST(UrlEncodedParams, ValueIsJsonWhenValidElseString) {
  EXPECT_EQ(Json::Value("/mydrive/a"), ParamValue("/mydrive/a"));
  EXPECT_EQ(Json::Value("/mydrive/a"), ParamValue("\"/mydrive/a\""));
  EXPECT_EQ(Json::Value(100), ParamValue("100"));
  EXPECT_EQ(Json::Value(true), ParamValue("true"));
  EXPECT_TRUE(ParamValue("[\"/a\",1]").isArray());
  EXPECT_TRUE(ParamValue("{\"k\":null}").isObject());
  // Near misses stay strings: trailing text, comments, single quotes, empty.
  for (const char* text : {"100abc", "[1,]", "{'a':1}", "1 // c", "", "NaN", "tru"}) {
    EXPECT_EQ(Json::Value(text), ParamValue(text)) << text;
  }
  // One parser serves every value: a parse that failed half-way (open
  // arrays, too deep) leaves nothing behind for the next one.
  EXPECT_EQ(Json::Value("[[{\"a\":["), ParamValue("[[{\"a\":["));
  EXPECT_TRUE(ParamValue(std::string(300, '[') + std::string(300, ']')).isString());
  EXPECT_EQ(Json::Value(7), ParamValue("7"));
  EXPECT_EQ(2u, ParamValue("[1,2]").size());
}

TEST(UrlEncodedParams, StringParamKeepsNumericText) {
  RawParams p{{"passwd", "12345678"}, {"quoted", "\"x y\""}, {"arr", "[1]"}};
  bool found = false;
  EXPECT_EQ("12345678", StringParam(p, "passwd", &found));
  EXPECT_TRUE(found);
  EXPECT_EQ("x y", StringParam(p, "quoted", &found));
  EXPECT_EQ("[1]", StringParam(p, "arr", &found));
  EXPECT_EQ("", StringParam(p, "none", &found));
  EXPECT_FALSE(found);
}

class ApiRequestFetch : public ::testing::Test {
 protected:
  ApiRequestFetch() {
    Json::Value params(Json::objectValue);
    params["conflict_action"] = "skip";
    params["files"] = ParamValue("[\"/a\",\"/b\"]");
    params["number"] = 7;
    request_ = ZEMO::APIRequest("ZEMO.X", "m", 1, params);
  }
  ZEMO::APIRequest request_;
};

TEST_F(ApiRequestFetch, StringNecessityAndType) {
  auto s = request_.GetAndCheckString("conflict_action", 1, nullptr);
  EXPECT_TRUE(s.IsSet());
  EXPECT_FALSE(s.IsInvalid());
  EXPECT_EQ("skip", s.Get());
  auto wrong_type = request_.GetAndCheckString("number", 1, nullptr);
  EXPECT_TRUE(wrong_type.IsSet());
  EXPECT_TRUE(wrong_type.IsInvalid());
  EXPECT_TRUE(request_.GetAndCheckString("absent", 0, nullptr).IsInvalid());
  EXPECT_FALSE(request_.GetAndCheckString("absent", 1, nullptr).IsInvalid());
  EXPECT_FALSE(request_.GetAndCheckString("absent", 1, nullptr).IsSet());
}

TEST_F(ApiRequestFetch, UnitArrayAndValidator) {
  auto files = request_.GetAndCheckUnitArray("files", 0, nullptr);
  ASSERT_FALSE(files.IsInvalid());
  EXPECT_EQ(2u, files.Get().size());
  EXPECT_TRUE(request_.GetAndCheckUnitArray("conflict_action", 0, nullptr).IsInvalid());
  EXPECT_TRUE(request_.GetAndCheckUnitArray("absent", 0, nullptr).IsInvalid());

  struct OnlyStop : ZEMO::APIValidator {
    bool Validate(const Json::Value& v) const override { return v == Json::Value("stop"); }
  } only_stop;
  EXPECT_TRUE(request_.GetAndCheckString("conflict_action", 1, &only_stop).IsInvalid());
}

TEST(ApiValidator, IsBelong) {
  Json::Value allowed;
  ASSERT_TRUE(ZEMO::WebAPIUtil::ParseJson(R"(["skip","stop","version","overwrite","autorename"])",
                                          allowed));
  EXPECT_TRUE(ZEMO::APIValidator::IsBelong(Json::Value("autorename"), allowed));
  EXPECT_FALSE(ZEMO::APIValidator::IsBelong(Json::Value("Skip"), allowed));
  EXPECT_FALSE(ZEMO::APIValidator::IsBelong(Json::Value(1), allowed));
  EXPECT_FALSE(ZEMO::APIValidator::IsBelong(Json::Value("skip"), Json::Value("skip")));
}

TEST(ApiResponse, EnvelopeShapes) {
  ZEMO::APIResponse r;
  EXPECT_EQ("{\"success\":true}\n", EnvelopeText(r));
  Json::Value data(Json::objectValue);
  data["items"] = Json::Value(Json::arrayValue);
  r.SetSuccess(data);
  EXPECT_EQ(data, r.Envelope()["data"]);
  Json::Value details(Json::objectValue);
  details["name"] = "files";
  details["reason"] = "type";
  r.SetError(120, details);
  Json::Value env = r.Envelope();
  EXPECT_EQ(false, env["success"].asBool());
  EXPECT_FALSE(env.isMember("data"));
  EXPECT_EQ(120, env["error"]["code"].asInt());
  EXPECT_EQ(details, env["error"]["errors"]);
  r.SetSuccess();
  EXPECT_EQ(std::vector<std::string>{"success"}, r.Envelope().getMemberNames());
}

TEST(CgiEnvironment, ReadsVariables) {
  std::map<std::string, std::string> vars = {
      {"REQUEST_METHOD", "POST"},   {"CONTENT_LENGTH", "12"},     {"HTTPS", "on"},
      {"HTTP_HOST", "[::1]:5001"},  {"SERVER_NAME", "fallback"},  {"SERVER_PORT", "5001"},
      {"HTTP_X_ZEMO_TOKEN", "tok"}, {"REMOTE_ADDR", "10.0.0.2"},
  };
  CgiEnv env = ReadCgiEnv([&](const char* name) -> const char* {
    auto it = vars.find(name);
    return it == vars.end() ? nullptr : it->second.c_str();
  });
  EXPECT_EQ("POST", env.method);
  EXPECT_TRUE(env.has_length);
  EXPECT_EQ(12u, env.content_length);
  EXPECT_TRUE(env.https);
  EXPECT_EQ("[::1]", env.host);
  EXPECT_EQ(5001, env.port);
  EXPECT_EQ("tok", env.token_header);
  vars["CONTENT_LENGTH"] = "12x";
  vars.erase("HTTP_HOST");
  env = ReadCgiEnv([&](const char* name) -> const char* {
    auto it = vars.find(name);
    return it == vars.end() ? nullptr : it->second.c_str();
  });
  EXPECT_TRUE(env.bad_length);
  EXPECT_EQ("fallback", env.host);
}

TEST(CgiEnvironment, CookieAndContentTypeParams) {
  bool found = false;
  EXPECT_EQ("abc", CookieValue("lang=en; id=abc; other=1", "id", &found));
  EXPECT_TRUE(found);
  EXPECT_EQ("", CookieValue("sid=abc; idx=2", "id", &found));
  EXPECT_FALSE(found);
  EXPECT_EQ("q v", CookieValue("id=\"q v\"", "id", &found));
  EXPECT_EQ("multipart/form-data", MediaType(" Multipart/Form-Data ; boundary=x"));
  EXPECT_EQ("a b", ContentTypeParam("multipart/form-data; charset=utf-8; BOUNDARY=\"a b\"",
                                    "boundary"));
  EXPECT_EQ("", ContentTypeParam("multipart/form-data", "boundary"));
}

}  // namespace
}  // namespace zemo::cgi
