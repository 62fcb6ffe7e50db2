// The bridge: the response record, handler look-up by version, and how an
// answer is written (framework JSON, raw download headers, files, archives,
// temp-path clean-up).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>

#include "bridge/webapi-bridge.h"
#include "module_test_util.h"
#include "zemo/webapi.h"

namespace {

using orvel::module::test::CaptureStdout;
using orvel::module::test::ParseJson;
using orvel::module::test::ScopedZemoRoot;

TEST(BridgeResponse, DefaultsToJsonWithoutError) {
  BridgeResponse response;
  EXPECT_EQ(response.GetType(), BridgeResponse::kJson);
  EXPECT_FALSE(response.IsErrorSet());
  EXPECT_EQ(response.GetErrorCode(), 0);
  EXPECT_EQ(response.GetErrorLine(), -1);
  EXPECT_TRUE(response.IsForceDownload());
  EXPECT_FALSE(response.IsOutputJsonError());
  EXPECT_FALSE(response.IsAutoRemove());
  EXPECT_TRUE(response.GetJsonObject().isNull());
}

TEST(BridgeResponse, ArchiveKeepsNoCodepageAndRegistersRemoval) {
  BridgeResponse response;
  response.SetArchiveResponse("a.zip", "/tmp/stage", "cp932", true);
  EXPECT_EQ(response.GetType(), BridgeResponse::kArchive);
  EXPECT_EQ(response.GetArchiveName(), "a.zip");
  EXPECT_EQ(response.GetArchivePath(), "/tmp/stage");
  EXPECT_EQ(response.GetArchiveCodepage(), "");
  EXPECT_EQ(response.GetAutoRemovePaths(), std::vector<std::string>{"/tmp/stage"});
}

TEST(BridgeResponse, FileResponseAndAutoRemove) {
  BridgeResponse response;
  response.SetFileResponse("t.jpg", "/c/t.jpg", false, false);
  EXPECT_EQ(response.GetType(), BridgeResponse::kFile);
  EXPECT_FALSE(response.IsForceDownload());
  EXPECT_FALSE(response.IsAutoRemove());
  response.AddAutoRemovePath("");
  EXPECT_FALSE(response.IsAutoRemove());
  response.SetJsonResponse(ParseJson(R"({"a": 1})"));
  EXPECT_EQ(response.GetType(), BridgeResponse::kJson);
}

TEST(BridgeResponse, HeadersKeepOrderAndDuplicatesAndCookiesAreEncoded) {
  BridgeResponse response;
  response.SetHeader("X-A", "1");
  response.SetHeader("X-A", "2");
  CookieOptions options;
  options.path = "/webapi";
  response.SetCookie("id", "a b", options);
  response.SetCookie("plain", "v");
  const auto& headers = response.GetHeaders();
  ASSERT_EQ(headers.size(), 4u);
  EXPECT_EQ(headers[0], (BridgeResponse::Header{"X-A", "1"}));
  EXPECT_EQ(headers[1], (BridgeResponse::Header{"X-A", "2"}));
  EXPECT_EQ(headers[2], (BridgeResponse::Header{"Set-Cookie", "id=a%20b; path=/webapi"}));
  EXPECT_EQ(headers[3], (BridgeResponse::Header{"Set-Cookie", "plain=v"}));
}

// A handler that only carries an API binding.
class BoundHandler : public RequestHandler {
 public:
  BoundHandler(const std::string& method, unsigned min, unsigned max) {
    SetAPI("ZEMO.ZemoraOrvel.Files", method, min, max);
  }
};

class BridgeTest : public ::testing::Test {
 protected:
  BridgeTest() : request_("ZEMO.ZemoraOrvel.Files", "list", 1, Json::Value(Json::objectValue)) {}
  std::unique_ptr<WebAPIBridge> MakeBridge() {
    return std::make_unique<WebAPIBridge>(&request_, &response_);
  }
  ScopedZemoRoot root_;
  ZEMO::APIRequest request_;
  ZEMO::APIResponse response_;
};

TEST_F(BridgeTest, FindsHandlersByVersionRange) {
  auto bridge = MakeBridge();
  auto* low = new BoundHandler("get", 1, 2);
  auto* high = new BoundHandler("get", 3, 5);
  bridge->AddHandler(low);
  bridge->AddHandler(high);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "get", 2), low);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "get", 4), high);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "get", 6), nullptr);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "put", 1), nullptr);
  EXPECT_FALSE(bridge->HasHandler("ZEMO.ZemoraOrvel.Other", "get", 1));
}

TEST_F(BridgeTest, ZeroAtEitherEndMatchesAnyVersion) {
  auto bridge = MakeBridge();
  auto* any = new BoundHandler("list", 0, 0);
  bridge->AddHandler(any);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "list", 99), any);
  auto* open_min = new BoundHandler("get", 0, 2);
  bridge->AddHandler(open_min);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "get", 7), open_min);
  EXPECT_EQ(bridge->FindHandler(), any);  // the request is list v1
}

TEST_F(BridgeTest, LaterHandlerWithSameMaximumReplacesTheFirst) {
  auto bridge = MakeBridge();
  bridge->AddHandler(new BoundHandler("get", 1, 3));
  auto* second = new BoundHandler("get", 2, 3);
  bridge->AddHandler(second);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "get", 3), second);
  EXPECT_EQ(bridge->FindHandler("ZEMO.ZemoraOrvel.Files", "get", 1), nullptr);
}

TEST_F(BridgeTest, ProcessWithoutHandlerAnswers103) {
  auto bridge = MakeBridge();
  EXPECT_EQ(bridge->Process(), -1);
  EXPECT_EQ(response_.GetErrorCode(), 103);
  EXPECT_EQ(response_.GetErrorDetails()["message"].asString(), "no such API or method");
}

TEST_F(BridgeTest, JsonSuccessErrorAndHeadersGoThroughTheFramework) {
  auto bridge = MakeBridge();
  BridgeResponse ok;
  ok.SetHeader("X-Test", "1");
  ok.SetJsonResponse(ParseJson(R"({"items": []})"));
  bridge->SetResponse(ok);
  EXPECT_FALSE(response_.IsError());
  EXPECT_TRUE(response_.HasData());
  EXPECT_TRUE(response_.GetData()["items"].isArray());
  ASSERT_EQ(response_.GetHeaders().size(), 1u);
  EXPECT_EQ(response_.GetHeaders()[0].first, "X-Test");

  ZEMO::APIResponse plain;
  WebAPIBridge other(&request_, &plain);
  other.SetResponse(BridgeResponse());
  EXPECT_FALSE(plain.IsError());
  EXPECT_FALSE(plain.HasData());

  ZEMO::APIResponse failed;
  WebAPIBridge third(&request_, &failed);
  BridgeResponse error;
  error.SetError(1002, "get file infomation failed", 77);
  third.SetResponse(error);
  EXPECT_EQ(failed.GetErrorCode(), 1002);
  EXPECT_EQ(failed.GetErrorDetails()["message"].asString(), "get file infomation failed");
  EXPECT_EQ(failed.GetErrorDetails()["line"].asInt(), 77);
}

TEST_F(BridgeTest, MovedAnswerReachesTheFrameworkWhole) {
  auto bridge = MakeBridge();
  const Json::Value data = ParseJson(R"({"items": [{"name": "a"}, {"name": "b"}], "total": 2})");
  BridgeResponse kept;
  kept.SetJsonResponse(data);
  bridge->SetResponse(kept);
  EXPECT_EQ(response_.GetData(), data);
  EXPECT_EQ(kept.GetJsonObject(), data);  // a const response is copied, not emptied

  ZEMO::APIResponse moved_to;
  WebAPIBridge other(&request_, &moved_to);
  BridgeResponse moved;
  moved.SetHeader("X-Test", "2");
  moved.SetJsonResponse(data);
  other.SetResponse(std::move(moved));
  EXPECT_TRUE(moved_to.HasData());
  EXPECT_EQ(moved_to.GetData(), data);
  ASSERT_EQ(moved_to.GetHeaders().size(), 1u);
  EXPECT_EQ(moved_to.GetHeaders()[0].second, "2");
}

TEST_F(BridgeTest, DownloadErrorIsHeadersOnly) {
  auto bridge = MakeBridge();
  BridgeResponse response;
  response.SetType(BridgeResponse::kFile);
  response.SetHeader("X-Extra", "yes");
  response.SetError(1002, "download file failed", 12);
  const std::string out = CaptureStdout([&] { bridge->SetResponse(response); });
  EXPECT_EQ(out,
            "X-Extra: yes\r\n"
            "Cache-control: no-store\r\n"
            "X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE: 1002\r\n"
            "Status: 400 Bad Request\r\n"
            "\r\n");
  EXPECT_FALSE(response_.IsOutputEnabled());
}

TEST_F(BridgeTest, DownloadErrorAsJsonWhenAsked) {
  auto bridge = MakeBridge();
  BridgeResponse response;
  response.SetArchiveResponse("a.zip", "/nowhere", "", false);
  response.SetOutputJsonError(true);
  response.SetError(114, "no file seleted", 31);
  const std::string out = CaptureStdout([&] { bridge->SetResponse(response); });
  const std::string head =
      "Cache-control: no-store\r\n"
      "Content-Type: text/plain; charset=\"UTF-8\"\r\n"
      "Status: 200 OK\r\n"
      "\r\n";
  ASSERT_EQ(out.substr(0, head.size()), head);
  const Json::Value body = ParseJson(out.substr(head.size()));
  EXPECT_FALSE(body["success"].asBool());
  EXPECT_EQ(body["error"]["code"].asInt(), 114);
  EXPECT_EQ(body["error"]["errors"]["message"].asString(), "no file seleted");
  EXPECT_EQ(body["error"]["errors"]["line"].asInt(), 31);
}

TEST_F(BridgeTest, DownloadHeaderEncodesTheNameTwice) {
  auto bridge = MakeBridge();
  EXPECT_EQ(CaptureStdout([&] { bridge->PrintDownloadHeader("a b.txt", true); }),
            "X-Download-Options: noopen\r\n"
            "Content-Disposition: attachment; filename=\"a%20b.txt\"; "
            "filename*=utf-8''a%20b.txt\r\n"
            "Accept-Ranges: none\r\n");
  EXPECT_EQ(CaptureStdout([&] { bridge->PrintDownloadHeader("", false); }),
            "X-Download-Options: noopen\r\n"
            "Content-Disposition: inline\r\n"
            "Accept-Ranges: none\r\n");
}

class SendFileTest : public BridgeTest {
 protected:
  void SetUp() override {
    root_.Write("etc/mime.types",
                "text/html html\naudio/mpeg mp3\nimage/svg+xml svg\nimage/png png\n"
                "application/pdf pdf\napplication/zip zip\n");
    path_ = root_.Write("data/file", "payload");
  }
  // The content type SendFile announced for a download of `name`.
  std::string TypeOf(const std::string& name, bool force) {
    auto bridge = MakeBridge();
    const std::string out = CaptureStdout([&] { bridge->SendFile(name, path_, force); });
    EXPECT_NE(out.find("payload"), std::string::npos) << out;
    const size_t at = out.find("Content-Type: ");
    if (at == std::string::npos) return "<none>";
    return out.substr(at + 14, out.find("\r\n", at) - at - 14);
  }
  std::string path_;
};

TEST_F(SendFileTest, TypesFollowTheDownloadRules) {
  EXPECT_EQ(TypeOf("page.html", false), "text/plain");
  EXPECT_EQ(TypeOf("song.mp3", false), "audio/mpeg");
  EXPECT_EQ(TypeOf("pic.svg", false), "application/octet-stream");
  EXPECT_EQ(TypeOf("pic.png", false), "image/png");
  EXPECT_EQ(TypeOf("doc.pdf", false), "application/pdf");
  EXPECT_EQ(TypeOf("a.zip", false), "application/octet-stream");
  EXPECT_EQ(TypeOf("noext", false), "application/octet-stream");
  EXPECT_EQ(TypeOf("song.mp3", true), "application/octet-stream");
}

TEST_F(SendFileTest, InlineUnlessForced) {
  auto bridge = MakeBridge();
  const std::string out = CaptureStdout([&] { bridge->SendFile("t.png", path_, false); });
  EXPECT_NE(out.find("Content-Disposition: inline; filename=\"t.png\""), std::string::npos);
}

class SendArchiveTest : public BridgeTest {
 protected:
  void SetUp() override {
    // Stands in for the platform archiver: prints its arguments and cwd.
    root_.Write("usr/bin/zip", "#!/bin/sh\necho \"$@\"\npwd\n", 0755);
    folder_ = root_.path() + "/stage";
    mkdir(folder_.c_str(), 0755);
  }
  std::string Run(const std::string& codepage) {
    auto bridge = MakeBridge();
    int rc = 1;
    const std::string out =
        CaptureStdout([&] { rc = bridge->SendArchive("d.zip", folder_, codepage); });
    EXPECT_EQ(rc, 0);
    return out;
  }
  std::string folder_;
};

TEST_F(SendArchiveTest, ArgumentsDependOnEmptinessAndCodepage) {
  std::string out = Run("unicode");
  EXPECT_NE(out.find("-q -0 -r -i . -yf -UN=UTF8 - ./.\n" + folder_), std::string::npos) << out;
  EXPECT_NE(out.find("Content-Disposition: attachment; filename=\"d.zip\""), std::string::npos);
  root_.Write("stage/a.txt", "x");
  out = Run("cp932");
  EXPECT_NE(out.find("-q -0 -r -yf -cp cp932 - ./.\n"), std::string::npos) << out;
  out = Run("unicode");
  EXPECT_NE(out.find("-q -0 -r -yf -UN=UTF8 - ./.\n"), std::string::npos) << out;
}

TEST_F(SendArchiveTest, MissingFolderAnswersAsAFailedStart) {
  auto bridge = MakeBridge();
  int rc = 0;
  const std::string out =
      CaptureStdout([&] { rc = bridge->SendArchive("d.zip", folder_ + "/gone", "unicode"); });
  EXPECT_EQ(rc, -1);
  EXPECT_EQ(out,
            "Cache-control: no-store\r\n"
            "X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE: 117\r\n"
            "Status: 400 Bad Request\r\n"
            "\r\n");
}

TEST_F(SendArchiveTest, ArchiveCodepageComesFromUserSettingsOrUnicode) {
  auto bridge = MakeBridge();
  BridgeResponse response;
  response.SetArchiveResponse("d.zip", folder_, "ignored", false);
  const std::string out = CaptureStdout([&] { bridge->SetResponse(response); });
  EXPECT_NE(out.find("-UN=UTF8"), std::string::npos) << out;
}

TEST_F(BridgeTest, FolderEmptiness) {
  auto bridge = MakeBridge();
  const std::string dir = root_.path() + "/empty";
  mkdir(dir.c_str(), 0755);
  EXPECT_TRUE(bridge->ArchiveFolderEmpty(dir));
  root_.Write("empty/.hidden", "");
  EXPECT_FALSE(bridge->ArchiveFolderEmpty(dir));
  EXPECT_FALSE(bridge->ArchiveFolderEmpty(dir + "/missing"));
}

TEST_F(BridgeTest, RegisteredPathsAreRemovedWhenTheBridgeEnds) {
  // No daemon listens in this root: the job queue refuses and the bridge
  // deletes the paths itself.
  const std::string file = root_.Write("volume1/ZemoraOrvel/@tmp/x/out.bin", "data");
  const std::string dir = file.substr(0, file.rfind('/'));
  {
    auto bridge = MakeBridge();
    BridgeResponse response;
    response.SetFileResponse("out.bin", file, true, true);
    response.AddAutoRemovePath(dir);
    response.SetError(1000, "check download response type failure", 1);
    CaptureStdout([&] { bridge->SetResponse(response); });
    EXPECT_EQ(bridge->GetAutoRemoveList(), (std::vector<std::string>{file, dir}));
  }
  EXPECT_FALSE(File(file).Exists());
  EXPECT_FALSE(File(dir).Exists());
}

}  // namespace
