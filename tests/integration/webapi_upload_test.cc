// entry.cgi uploads end to end: the file part reaches the module as a temp
// file beside the form fields, is removed afterwards, and a part over the
// configured limit or a malformed body is refused with 400.
#include <gtest/gtest.h>

#include "webapi_harness.h"

namespace webapi_test {
namespace {

const char kBoundary[] = "----zemo-test-7MA4YWxkTrZu0gW";

std::string Part(const std::string& disposition, const std::string& content) {
  return std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; " + disposition +
         "\r\n\r\n" + content + "\r\n";
}

std::string Close() { return std::string("--") + kBoundary + "--\r\n"; }

CgiCall Upload(const std::string& body) {
  CgiCall call;
  call.method = "POST";
  call.query = "api=ZEMO.Test.Echo&method=echo&version=1";
  call.content_type = std::string("multipart/form-data; boundary=") + kBoundary;
  call.body = body;
  return call;
}

class EntryUpload : public ::testing::Test {
 protected:
  static Json::Value Conf() {
    Json::Value conf(Json::objectValue);
    conf["upload_max_bytes"] = 1000;
    return conf;
  }
  CgiRoot root_{Conf()};
};

TEST_F(EntryUpload, FileReachesModuleAndIsRemovedAfter) {
  std::string body = Part("name=\"path\"", "/mydrive/a.txt") +
                     Part("name=\"file\"; filename=\"a;b.txt\"", "hello\r\nworld") +
                     Part("name=\"overwrite\"", "true") + Close();
  CgiOutput out = root_.Run(Upload(body));
  ASSERT_TRUE(out.json["success"].asBool()) << out.raw << out.err;
  const Json::Value& data = out.json["data"];
  EXPECT_TRUE(data["is_upload"].asBool());
  const Json::Value& upload = data["upload"];
  EXPECT_EQ(0, upload["param_rc"].asInt());
  EXPECT_EQ(0, upload["file_rc"].asInt());
  EXPECT_EQ("hello\r\nworld", upload["content"].asString());
  EXPECT_EQ("a;b.txt", upload["name"].asString());
  EXPECT_EQ(0u, upload["tmp"].asString().find(root_.TmpDir() + "/"));
  EXPECT_EQ("/mydrive/a.txt", upload["fields"]["path"].asString());
  EXPECT_TRUE(upload["fields"]["overwrite"].asBool());
  EXPECT_EQ("ZEMO.Test.Echo", upload["fields"]["api"].asString());
  EXPECT_TRUE(ListDir(root_.TmpDir()).empty());
}

// "file_tmp" is the framework's own: sent by a client in the query string,
// an urlencoded body or a multipart field, it never reaches the module.
TEST_F(EntryUpload, ClientFileTmpNeverReachesTheModule) {
  CgiCall query;
  query.query = "api=ZEMO.Test.Echo&method=echo&version=1&file_tmp=%2Fetc%2Fshadow&path=%2Fa";
  CgiCall form = query;
  form.query = "api=ZEMO.Test.Echo&method=echo&version=1";
  form.content_type = "application/x-www-form-urlencoded";
  form.body = "file_tmp=/etc/shadow&path=/a";
  CgiCall multipart = Upload(Part("name=\"file_tmp\"", "/etc/shadow") + Part("name=\"path\"", "/a") +
                             Part("name=\"file\"; filename=\"x.txt\"", "x") + Close());
  multipart.query += "&file_tmp=%2Fetc%2Fshadow";
  for (const CgiCall& call : {query, form, multipart}) {
    CgiOutput out = root_.Run(call);
    ASSERT_TRUE(out.json["success"].asBool()) << out.raw << out.err;
    const Json::Value& data = out.json["data"];
    SCOPED_TRACE(call.content_type);
    EXPECT_EQ("/a", data["params"]["path"].asString());
    EXPECT_FALSE(data["params"].isMember("file_tmp"));
    EXPECT_NE(std::string::npos,
              out.err.find("parameter 'file_tmp' sent by 192.0.2.7 dropped: the framework fills it in"));
  }
  CgiOutput out = root_.Run(multipart);
  EXPECT_FALSE(out.json["data"]["upload"]["fields"].isMember("file_tmp"));
  EXPECT_EQ(0u, out.json["data"]["upload"]["tmp"].asString().find(root_.TmpDir() + "/upload-"));
  EXPECT_EQ("x", out.json["data"]["upload"]["content"].asString());
}

TEST_F(EntryUpload, PartOverTheLimitIs400) {
  std::string body = Part("name=\"file\"; filename=\"big.bin\"", std::string(1001, 'x')) + Close();
  CgiOutput out = root_.Run(Upload(body));
  EXPECT_EQ(400, out.json["error"]["code"].asInt());
  EXPECT_EQ("upload over the size limit", out.json["error"]["errors"]["message"].asString());
  EXPECT_TRUE(ListDir(root_.TmpDir()).empty());
  // Exactly at the limit is fine.
  body = Part("name=\"file\"; filename=\"big.bin\"", std::string(1000, 'x')) + Close();
  EXPECT_EQ(1000u, root_.Run(Upload(body)).json["data"]["upload"]["size"].asUInt());
}

TEST_F(EntryUpload, MalformedOrTruncatedBodyIs400) {
  std::string body = Part("name=\"file\"; filename=\"a\"", "abc");  // no closing boundary
  CgiOutput out = root_.Run(Upload(body));
  EXPECT_EQ(400, out.json["error"]["code"].asInt());
  EXPECT_EQ("malformed multipart body: missing final boundary",
            out.json["error"]["errors"]["message"].asString());
  EXPECT_TRUE(ListDir(root_.TmpDir()).empty());

  CgiCall no_boundary = Upload(Close());
  no_boundary.content_type = "multipart/form-data";
  EXPECT_EQ("missing or bad boundary",
            root_.Run(no_boundary).json["error"]["errors"]["message"].asString());

  std::string full = Part("name=\"file\"; filename=\"a\"", "abc") + Close();
  CgiCall truncated = Upload(full);
  truncated.length = std::to_string(full.size() + 10);
  CgiOutput short_body = root_.Run(truncated);
  EXPECT_EQ(400, short_body.json["error"]["code"].asInt());
  EXPECT_EQ("request body truncated", short_body.json["error"]["errors"]["message"].asString());
  EXPECT_TRUE(ListDir(root_.TmpDir()).empty());
}

TEST_F(EntryUpload, BodyWithoutLengthIsReadToTheEnd) {
  CgiCall call = Upload(Part("name=\"file\"; filename=\"a\"", "abc") + Close());
  call.send_length = false;
  EXPECT_EQ("abc", root_.Run(call).json["data"]["upload"]["content"].asString());
}

}  // namespace
}  // namespace webapi_test
