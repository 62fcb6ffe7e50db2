// Browsing over HTTP through lighttpd, as curl would do it: stars and
// labels, sharing between two users and with an anonymous link visitor,
// search in file content, a JPEG thumbnail and updates with a revision.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vips/vips.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "nimbard/platform.h"
#include "stack.h"

namespace orvel::test {
namespace {

class BrowseHttpTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    stack_ = TestStack::Start().release();
    stack_->AddUser("carol", false, "carol-password");
    stack_->AddUser("dave", false, "dave-password");
    port_ = stack_->StartHttp();
  }
  static void TearDownTestSuite() {
    delete stack_;
  }
  static std::string Url(const std::string& path) { return "http://127.0.0.1:" + std::to_string(port_) + path; }
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
  static std::string Sid(const std::string& user) {
    ProcessOutput r = Curl({Url("/webapi/entry.cgi?api=ZEMO.API.Auth&version=1&method=login&account=" + user +
                                "&passwd=" + user + "-password")});
    return ParseJson(r.out)["data"]["sid"].asString();
  }
  // The raw answer of a method called with form fields ("name=value").
  static ProcessOutput Raw(const std::string& sid, const std::vector<std::string>& fields) {
    std::vector<std::string> args = {Url("/webapi/entry.cgi"), "-d", "api=ZEMO.ZemoraOrvel.Files",
                                     "-d", "version=1"};
    if (!sid.empty()) args.insert(args.end(), {"-d", "_sid=" + sid});
    for (const auto& f : fields) args.insert(args.end(), {"--data-urlencode", f});
    return Curl(args);
  }
  static Json::Value Files(const std::string& sid, const std::vector<std::string>& fields) {
    ProcessOutput r = Raw(sid, fields);
    Json::Value v = ParseJson(r.out);
    EXPECT_TRUE(v.isObject()) << r.out << r.err;
    return v;
  }
  static std::string Create(const std::string& sid, const std::string& path, const std::string& content) {
    std::vector<std::string> f = {"method=create", "path=" + path, std::string("type=") + (content.empty() ? "folder" : "file")};
    if (!content.empty()) f.push_back("file_content=" + EncBase64Enc(content));
    Json::Value r = Files(sid, f);
    EXPECT_TRUE(r["success"].asBool()) << r;
    return r["data"]["file_id"].asString();
  }
  static TestStack* stack_;
  static int port_;
};

TestStack* BrowseHttpTest::stack_ = nullptr;
int BrowseHttpTest::port_ = 0;

std::string Jpeg(int width, int height) {
  static bool inited = VIPS_INIT("browse_http_test") == 0;
  EXPECT_TRUE(inited);
  VipsImage* x = nullptr;
  VipsImage* img = nullptr;
  vips_xyz(&x, width, height, nullptr);
  vips_cast(x, &img, VIPS_FORMAT_UCHAR, nullptr);
  g_object_unref(x);
  void* buf = nullptr;
  size_t len = 0;
  vips_image_write_to_buffer(img, ".jpg", &buf, &len, nullptr);
  g_object_unref(img);
  std::string out(static_cast<const char*>(buf), len);
  g_free(buf);
  return out;
}

TEST_F(BrowseHttpTest, MarksSharingLinksSearchThumbnailsAndUpdates) {
  const std::string carol = Sid("carol"), dave = Sid("dave");
  ASSERT_FALSE(carol.empty());
  Create(carol, "/mydrive/Trip", "");
  const std::string note = Create(carol, "/mydrive/Trip/notes.txt", "The glacier walk starts at dawn.\n");
  const std::string photo = Create(carol, "/mydrive/Trip/view.jpg", Jpeg(1200, 900));
  const std::string outside = Create(carol, "/mydrive/private.txt", "mine\n");

  // Stars and labels, then the filtered listings.
  Json::Value r = Files(carol, {"method=star", "files=[\"id:" + note + "\",\"id:" + photo + "\"]", "starred=true"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  r = Files(carol, {"method=label", "files=[\"id:" + photo + "\"]", "labels=[\"Best\"]"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  r = Files(carol, {"method=list_starred"});
  EXPECT_EQ(r["data"]["total"].asUInt(), 2u) << r;
  r = Files(carol, {"method=get", "path=id:" + photo});
  const std::string label_id = r["data"]["labels"][0]["label_id"].asString();
  r = Files(carol, {"method=list_labelled", "label_id=" + label_id});
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "view.jpg");

  // A share with dave: both sides see it.
  std::string out;
  ASSERT_EQ(stack_->Orvelctl({"share", "carol", "/mydrive/Trip", "--user", "dave"}, &out), 0) << out;
  r = Files(dave, {"method=shared_with_me"});
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["owner"]["name"].asString(), "carol");
  r = Files(carol, {"method=shared_with_others"});
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  EXPECT_EQ(r["data"]["items"][0]["name"].asString(), "Trip");

  // An anonymous visitor with the link's token.
  ASSERT_EQ(stack_->Orvelctl({"link", "create", "carol", "/mydrive/Trip"}, &out), 0) << out;
  const std::string token = out.substr(0, 64);
  r = Files("", {"method=get", "path=/", "sharing_token=" + token});
  ASSERT_TRUE(r["success"].asBool()) << r;
  r = Files("", {"method=list", "path=id:" + r["data"]["file_id"].asString(), "sharing_token=" + token});
  EXPECT_EQ(r["data"]["total"].asUInt(), 2u) << r;
  r = Files("", {"method=get", "path=id:" + note, "sharing_token=" + token});
  EXPECT_TRUE(r["success"].asBool()) << r;
  r = Files("", {"method=get", "path=id:" + outside, "sharing_token=" + token});
  EXPECT_EQ(r["error"]["code"].asInt(), 1006) << r;

  // Search in content, with the snippet.
  r = Files(carol, {"method=search", "keyword=glacier", "content_snippet=true"});
  ASSERT_EQ(r["data"]["total"].asUInt(), 1u) << r;
  EXPECT_NE(r["data"]["items"][0]["content_snippet"].asString().find("<b>glacier</b>"), std::string::npos) << r;

  // A medium thumbnail of the JPEG.
  ProcessOutput img = Raw(carol, {"method=get_thumbnail", "path=id:" + photo, "size=medium"});
  VipsImage* thumb = vips_image_new_from_buffer(img.out.data(), img.out.size(), "", nullptr);
  ASSERT_NE(thumb, nullptr) << img.out.substr(0, 200);
  EXPECT_EQ(vips_image_get_width(thumb), 320);
  EXPECT_EQ(vips_image_get_height(thumb), 240);
  g_object_unref(thumb);

  // Rename, then new content: one revision.
  r = Files(carol, {"method=update", "path=id:" + note, "name=journal.txt"});
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["path"].asString(), "/mydrive/Trip/journal.txt");
  r = Files(carol, {"method=update", "path=id:" + note, "file_content=" + EncBase64Enc("Day two.\n")});
  ASSERT_TRUE(r["success"].asBool()) << r;
  EXPECT_EQ(r["data"]["revisions"].asUInt(), 1u);
}

}  // namespace
}  // namespace orvel::test
