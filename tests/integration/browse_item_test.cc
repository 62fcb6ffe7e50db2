// "get_thumbnail" and "update" through entry.cgi against the daemon:
// thumbnails of real images made with libvips (sizes, formats, cache), and
// updates of names, times, properties, marks and content with revisions;
// the failure rows of both.
#include <gtest/gtest.h>
#include <vips/vips.h>

#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

// An encoded test image (a gradient) of the given size and format suffix.
std::string MakeImage(int width, int height, const char* suffix) {
  static bool inited = VIPS_INIT("browse_test") == 0;
  EXPECT_TRUE(inited);
  VipsImage* x = nullptr;
  VipsImage* img = nullptr;
  vips_xyz(&x, width, height, nullptr);
  vips_cast(x, &img, VIPS_FORMAT_UCHAR, nullptr);
  g_object_unref(x);
  void* buf = nullptr;
  size_t len = 0;
  EXPECT_EQ(vips_image_write_to_buffer(img, suffix, &buf, &len, nullptr), 0) << vips_error_buffer();
  g_object_unref(img);
  std::string out(static_cast<const char*>(buf), len);
  g_free(buf);
  return out;
}

// Width and height of an encoded image (0 when it does not decode).
std::pair<int, int> ImageSize(const std::string& bytes) {
  VipsImage* img = vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr);
  if (!img) return {0, 0};
  std::pair<int, int> wh{vips_image_get_width(img), vips_image_get_height(img)};
  g_object_unref(img);
  return wh;
}

class ItemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack_ = TestStack::Start();
    stack_->AddUser("alice");
    photo_ = Make("/mydrive/photo.jpg", MakeImage(800, 600, ".jpg"));
    note_ = Make("/mydrive/note.txt", "first\n");
  }
  std::string Make(const std::string& path, const std::string& content) {
    Json::Value p;
    p["path"] = path;
    p["type"] = "file";
    p["file_content"] = EncBase64Enc(content);
    Json::Value r = stack_->Call("alice", "create", p);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["file_id"].asString();
  }
  CgiResult Thumb(const std::string& path, const std::string& size, const std::string& format) {
    Json::Value p;
    p["path"] = path;
    if (!size.empty()) p["size"] = size;
    if (!format.empty()) p["format"] = format;
    return stack_->CallRaw("alice", "get_thumbnail", p);
  }
  static void ExpectError(const Json::Value& r, int code, const std::string& message) {
    EXPECT_FALSE(r["success"].asBool()) << r;
    EXPECT_EQ(r["error"]["code"].asInt(), code) << r;
    EXPECT_EQ(r["error"]["errors"]["message"].asString(), message) << r;
  }
  std::unique_ptr<TestStack> stack_;
  std::string photo_, note_;
};

TEST_F(ItemTest, ThumbnailsHaveTheRequestedSizeAndFormat) {
  CgiResult r = Thumb("id:" + photo_, "", "");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(ImageSize(r.body), std::make_pair(120, 90)) << r.headers;
  EXPECT_NE(r.Header("Content-Type").find("image/jpeg"), std::string::npos) << r.headers;

  r = Thumb("/mydrive/photo.jpg", "large", "png");
  EXPECT_EQ(ImageSize(r.body), std::make_pair(640, 480)) << r.headers;
  EXPECT_EQ(r.body.compare(1, 3, "PNG"), 0);
  r = Thumb("/mydrive/photo.jpg", "xlarge", "webp");  // never enlarged
  EXPECT_EQ(ImageSize(r.body), std::make_pair(800, 600)) << r.headers;

  // The second request is served from the cache: same bytes.
  CgiResult again = Thumb("id:" + photo_, "", "");
  CgiResult first = Thumb("id:" + photo_, "small", "jpg");
  EXPECT_EQ(again.body, first.body);
}

// Once the response is a file, an error is a bare 400 naming its code in a
// header (the message is only logged).
TEST_F(ItemTest, ThumbnailFailureRows) {
  ExpectError(Thumb("", "", "").Json(), 114, "request node id is empty");
  auto code = [](const CgiResult& r) {
    EXPECT_NE(r.Header("Status").find("400"), std::string::npos) << r.headers;
    return r.Header("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE");
  };
  EXPECT_EQ(code(Thumb("id:" + note_, "", "")), "1012");
  EXPECT_EQ(code(Thumb("/mydrive", "", "")), "1012");
  EXPECT_EQ(code(Thumb("id:" + photo_, "huge", "")), "1013");
  EXPECT_EQ(code(Thumb("id:" + photo_, "", "bmp")), "1013");
  EXPECT_EQ(code(Thumb("/mydrive/none.jpg", "", "")), "1002");
  // A file named like an image whose bytes are not one; only DEBUG lines.
  Make("/mydrive/fake.png", "not an image at all");
  CgiResult r = Thumb("/mydrive/fake.png", "", "");
  EXPECT_EQ(code(r), "1012");
  EXPECT_EQ(r.err.find("[ERROR] get-thumbnail"), std::string::npos) << r.err;
}

TEST_F(ItemTest, UpdateRenamesAndNewContentLeavesARevision) {
  Json::Value p;
  p["path"] = "id:" + note_;
  p["name"] = "renamed.txt";
  p["modified_time"] = 1700000000;
  p["properties"]["colour"] = "blue";
  p["starred"] = true;
  Json::Value r = stack_->Call("alice", "update", p);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["path"].asString(), "/mydrive/renamed.txt");
  EXPECT_EQ(r["data"]["modified_time"].asUInt(), 1700000000u);
  EXPECT_EQ(r["data"]["properties"]["colour"].asString(), "blue");
  EXPECT_TRUE(r["data"]["starred"].asBool());
  EXPECT_EQ(r["data"]["revisions"].asUInt(), 0u);

  Json::Value c;
  c["path"] = "/mydrive/renamed.txt";
  c["file_content"] = EncBase64Enc("second version\n");
  r = stack_->Call("alice", "update", c);
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["size"].asUInt(), 15u);
  EXPECT_EQ(r["data"]["revisions"].asUInt(), 1u);
  EXPECT_EQ(r["data"]["file_id"].asString(), note_);

  Json::Value list;
  list["path"] = "/mydrive";
  r = stack_->Call("alice", "list", list);
  ASSERT_EQ(r["data"]["total"].asUInt(), 2u);
  EXPECT_EQ(r["data"]["items"][1]["name"].asString(), "renamed.txt");
}

TEST_F(ItemTest, UpdateFailureRows) {
  Json::Value p;
  p["path"] = "id:" + note_;
  p["name"] = "photo.jpg";
  ExpectError(stack_->Call("alice", "update", p), 1031, "update file information failed");
  p["name"] = "a/b";
  ExpectError(stack_->Call("alice", "update", p), 1027, "update file information failed");
  p.removeMember("name");
  p["file_content"] = "!!! not base64";
  ExpectError(stack_->Call("alice", "update", p), 1022, "update file information failed");
  p["path"] = "/mydrive/missing.txt";
  p["file_content"] = EncBase64Enc("x");
  ExpectError(stack_->Call("alice", "update", p), 1002, "update file information failed");
  p["path"] = "/mydrive";
  ExpectError(stack_->Call("alice", "update", p), 1010, "update file information failed");
  // A client's "file_tmp" is dropped by the framework: only the content counts.
  p["file_tmp"] = "/tmp/whatever";
  ExpectError(stack_->Call("alice", "update", p), 1010, "update file information failed");
}

// Marks of the wrong shape are refused before anything changes: the rename
// asked for in the same request does not happen either.
TEST_F(ItemTest, UpdateRefusesMarksOfTheWrongShapeAndChangesNothing) {
  Json::Value bad_verb, unknown_label, group_member;
  bad_verb["action"] = "tag";
  bad_verb["name"] = "Urgent";
  unknown_label["action"] = "remove";
  unknown_label["label_id"] = "no-such-label";
  group_member["starred"] = true;
  group_member["member"]["type"] = "group";
  group_member["member"]["name"] = "staff";
  auto list = [](const Json::Value& action) {
    Json::Value a(Json::arrayValue);
    a.append(action);
    return a;
  };
  const struct {
    const char* key;
    Json::Value value;
    int code;
  } rows[] = {
      {"labels", "Urgent", 1022},  // a bare name: no list of actions
      {"labels", Json::Value(Json::arrayValue), 1022},
      {"labels", list(bad_verb), 1022},
      {"labels", list(unknown_label), 1002},
      {"starred", group_member, 1022},
  };
  Json::Value get;
  get["path"] = "id:" + note_;
  for (const auto& row : rows) {
    Json::Value p;
    p["path"] = "id:" + note_;
    p["name"] = "moved.txt";
    p[row.key] = row.value;
    ExpectError(stack_->Call("alice", "update", p), row.code, "update file information failed");
    Json::Value r = stack_->Call("alice", "get", get);
    EXPECT_EQ(r["data"]["name"].asString(), "note.txt") << row.value;
    EXPECT_EQ(r["data"]["labels"].size(), 0u) << row.value;
    EXPECT_FALSE(r["data"]["starred"].asBool()) << row.value;
  }
  // A star or label the module cannot read at all ends the request before
  // the service is asked: nothing is set and nothing changes.
  Json::Value p;
  p["path"] = "id:" + note_;
  p["name"] = "moved.txt";
  p["starred"] = "yes";
  Json::Value r = stack_->Call("alice", "update", p);
  EXPECT_TRUE(r["success"].asBool()) << r;
  EXPECT_FALSE(r.isMember("data") && r["data"].isMember("file_id")) << r;
  EXPECT_EQ(stack_->Call("alice", "get", get)["data"]["name"].asString(), "note.txt");
}

}  // namespace
}  // namespace orvel::test
