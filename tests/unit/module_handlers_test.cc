// The 23 method handlers: their declared requirements, and the request
// checks each makes before it contacts the sync service (no service runs
// in these tests).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "module_test_util.h"
#include "orvelcommon/sync_config.h"
#include "webapi/orvel/file/convert-office.h"
#include "webapi/orvel/file/copy.h"
#include "webapi/orvel/file/create.h"
#include "webapi/orvel/file/delete.h"
#include "webapi/orvel/file/download.h"
#include "webapi/orvel/file/get-thumbnail.h"
#include "webapi/orvel/file/get.h"
#include "webapi/orvel/file/label.h"
#include "webapi/orvel/file/list-ancestor.h"
#include "webapi/orvel/file/list-backup-tasks.h"
#include "webapi/orvel/file/list-labelled.h"
#include "webapi/orvel/file/list-shared-with-me.h"
#include "webapi/orvel/file/list-shared-with-others.h"
#include "webapi/orvel/file/list-starred.h"
#include "webapi/orvel/file/list.h"
#include "webapi/orvel/file/move.h"
#include "webapi/orvel/file/recent.h"
#include "webapi/orvel/file/request-access.h"
#include "webapi/orvel/file/search.h"
#include "webapi/orvel/file/star.h"
#include "webapi/orvel/file/update.h"
#include "webapi/orvel/file/upload-from-tpx.h"
#include "webapi/orvel/file/upload.h"

namespace {

using orvel::module::test::JsonRequest;
using orvel::module::test::ParseJson;
using orvel::module::test::ScopedZemoRoot;

struct Settings {
  std::unique_ptr<RequestHandler> handler;
  const char* method;
  unsigned database, account;
  bool demo;
  unsigned request_method;
};

TEST(HandlerSettings, EachHandlerDeclaresItsRequirements) {
  Settings table[] = {
      {std::make_unique<ListAncestorHandler>(), "list_ancestor", 0, 7, true, 1},
      {std::make_unique<ListBackupTasksHandler>(), "list_backup_tasks", 0, 3, true, 1},
      {std::make_unique<UpdateInfoHandler>(), "update", 0, 7, true, 1},
      {std::make_unique<StarHandler>(), "star", 0, 3, false, 2},
      {std::make_unique<DeleteHandler>(), "delete", 0, 3, true, 2},
      {std::make_unique<UploadHandler>(), "upload", 0, 3, true, 2},
      {std::make_unique<ListLabelledHandler>(), "list_labelled", 0, 3, true, 1},
      {std::make_unique<CreateHandler>(), "create", 0, 3, true, 2},
      {std::make_unique<UploadFromTpxHandler>(), "upload_from_tpx", 1, 3, true, 2},
      {std::make_unique<DownloadHandler>(), "download", 0, 7, true, 2},
      {std::make_unique<GetThumbnailHandler>(), "get_thumbnail", 0, 7, true, 1},
      {std::make_unique<FileCopyHandler>(), "copy", 0, 3, true, 2},
      {std::make_unique<SearchHandler>(), "search", 0, 3, true, 1},
      {std::make_unique<GetInfoHandler>(), "get", 0, 7, true, 1},
      {std::make_unique<ListSharedWithOthersHandler>(), "shared_with_others", 0, 3, true, 1},
      {std::make_unique<ListSharedWithMeHandler>(), "shared_with_me", 0, 3, true, 1},
      {std::make_unique<ConvertOfficeHandler>(), "convert_office", 0, 3, false, 2},
      {std::make_unique<ListHandler>(), "list", 0, 7, true, 1},
      {std::make_unique<ListStarredHandler>(), "list_starred", 0, 3, true, 1},
      {std::make_unique<MoveHandler>(), "move", 0, 3, true, 2},
      {std::make_unique<LabelHandler>(), "label", 0, 3, false, 2},
      {std::make_unique<ListRecentHandler>(), "recent", 0, 3, true, 1},
      {std::make_unique<RequestAccessHandler>(), "request_access", 0, 3, false, 2},
  };
  for (const Settings& s : table) {
    SCOPED_TRACE(s.method);
    EXPECT_EQ(s.handler->GetAPI(), std::string("ZEMO.ZemoraOrvel.Files.") + s.method);
    EXPECT_EQ(s.handler->GetVersionMin(), 0u);
    EXPECT_EQ(s.handler->GetVersionMax(), 0u);
    EXPECT_EQ(s.handler->GetRequiredDatabase(), s.database);
    EXPECT_EQ(s.handler->GetAccountOption(), s.account);
    EXPECT_EQ(s.handler->GetRequiredAccessPrivilege(), 0u);
    EXPECT_EQ(s.handler->GetStatusOption(), 3u);
    EXPECT_EQ(s.handler->IsAllowDemoMode(), s.demo);
    EXPECT_EQ(static_cast<unsigned>(s.handler->GetRequestMethod()), s.request_method);
  }
}

// Runs a handler's Handle directly, as a signed-in user.
class HandlerChecks : public ::testing::Test {
 protected:
  int Run(RequestHandler& handler, const std::string& params) {
    RequestAuthentication auth;
    auth.user_name = "alice";
    auth.uid = 1026;
    auth.expired = false;
    JsonRequest request(ParseJson(params));
    response_ = BridgeResponse();
    return handler.Handle(auth, request, response_);
  }
  void ExpectError(int code, const std::string& message) {
    EXPECT_EQ(response_.GetErrorCode(), code);
    EXPECT_EQ(response_.GetErrorMessage(), message);
  }
  ScopedZemoRoot root_;
  BridgeResponse response_;
};

TEST_F(HandlerChecks, GetAndThumbnailNeedAPath) {
  GetInfoHandler get;
  EXPECT_EQ(Run(get, R"({"path": ""})"), -1);
  ExpectError(114, "request node id is empty");
  EXPECT_EQ(Run(get, R"({"path": "/mydrive/a", "extra": [{"x": 1}]})"), -1);
  ExpectError(114, "invalid extra");
  GetThumbnailHandler thumbnail;
  EXPECT_EQ(Run(thumbnail, "{}"), -1);
  ExpectError(114, "request node id is empty");
}

TEST_F(HandlerChecks, ListRefusesExtraThatIsNotAList) {
  ListHandler list;
  EXPECT_EQ(Run(list, R"({"path": "/mydrive", "extra": "x"})"), -1);
  ExpectError(114, "invalid extra");
}

TEST_F(HandlerChecks, ListingParameterChecks) {
  ListLabelledHandler labelled;
  EXPECT_EQ(Run(labelled, R"({"label_id": ""})"), -1);
  ExpectError(114, "label_id is required");
  ListAncestorHandler ancestor;
  EXPECT_EQ(Run(ancestor, "{}"), -1);
  ExpectError(117, "Missing path");
}

TEST_F(HandlerChecks, TaskMethodsNeedFiles) {
  DeleteHandler remove;
  EXPECT_EQ(Run(remove, R"({"files": []})"), -1);
  ExpectError(114, "no file seleted");
  FileCopyHandler copy;
  EXPECT_EQ(Run(copy, R"({"files": ["/mydrive/a"]})"), -1);
  ExpectError(114, "no file seleted or parent folder does not choose");
  MoveHandler move;
  EXPECT_EQ(Run(move, R"({"to_parent_folder": "/mydrive/b"})"), -1);
  ExpectError(114, "no file seleted or parent folder does not choose");
  ConvertOfficeHandler convert;
  EXPECT_EQ(Run(convert, R"({"to_parent_folder": "/mydrive"})"), -1);
  ExpectError(114, "no file seleted");
}

TEST_F(HandlerChecks, StarAndLabelCheckTheirLists) {
  StarHandler star;
  EXPECT_EQ(Run(star, R"({"files": ["/mydrive/a", 5], "starred": true})"), -1);
  ExpectError(114, "file is expected as string");
  EXPECT_EQ(Run(star, R"({"files": ["/mydrive/a"], "starred": [true, "no"]})"), -1);
  ExpectError(114, "invalid starred format");
  LabelHandler label;
  EXPECT_EQ(Run(label, R"({"files": [1]})"), -1);
  ExpectError(114, "file is expected as string");
  EXPECT_EQ(Run(label, R"({"files": ["/mydrive/a"], "labels": [{"action": "add"}]})"), -1);
  ExpectError(114, "invalid label format");
}

TEST_F(HandlerChecks, CreateChecksPathTypeAndContent) {
  CreateHandler create;
  EXPECT_EQ(Run(create, R"({"path": "/mydrive/a"})"), -1);
  ExpectError(114, "path and type are both required");
  EXPECT_EQ(Run(create, R"({"path": "/mydrive/a", "type": "file"})"), -1);
  ExpectError(114, "file content is required");
  EXPECT_EQ(Run(create, R"({"path": "/mydrive/a", "type": "link"})"), -1);
  ExpectError(401, "known file type");
}

class CreateContent : public HandlerChecks {
 protected:
  void SetUp() override {
    SyncConfigMgr conf;
    ASSERT_EQ(conf.Init(), 0);
    tmp_ = conf.GetSysShareBin() + "/@tmp";
    ASSERT_EQ(system(("mkdir -p '" + tmp_ + "'").c_str()), 0);
  }
  // The message the request ends with for this base64 content.
  std::string MessageFor(const std::string& content) {
    CreateHandler create;
    Json::Value params(Json::objectValue);
    params["path"] = "/mydrive/f.bin";
    params["type"] = "file";
    params["file_content"] = content;
    Run(create, Json::FastWriter().write(params));
    return response_.GetErrorMessage();
  }
  bool TempFolderIsEmpty() { return system(("test -z \"$(ls -A '" + tmp_ + "')\"").c_str()) == 0; }
  std::string tmp_;
};

TEST_F(CreateContent, RefusesBadLengthsAndOversizedContent) {
  EXPECT_EQ(MessageFor("QUJDR"), "write file failed");
  EXPECT_EQ(response_.GetErrorCode(), 1000);
  // 1 MiB + 1 byte announced: refused before decoding.
  std::string over((1048577 + 2) / 3 * 4, 'A');
  over[over.size() - 1] = '=';
  EXPECT_EQ(MessageFor(over), "write file failed");
  EXPECT_TRUE(TempFolderIsEmpty());
}

TEST_F(CreateContent, ExactlyOneMebibyteGetsPastTheWrite) {
  std::string exact((1048576 + 2) / 3 * 4, 'A');
  exact[exact.size() - 1] = '=';
  exact[exact.size() - 2] = '=';
  // No service runs here, so the request fails at the upload itself.
  EXPECT_EQ(MessageFor(exact), "create file failed");
  EXPECT_TRUE(TempFolderIsEmpty());
}

TEST_F(HandlerChecks, UploadNeedsTheReceivedFile) {
  UploadHandler upload;
  EXPECT_EQ(Run(upload, R"({"path": "/mydrive/a", "type": "file"})"), -1);
  ExpectError(1003, "file doesn't exist");
  EXPECT_EQ(Run(upload, R"({"type": "folder"})"), -1);
  ExpectError(114, "path and type are both required");
}

TEST_F(HandlerChecks, UploadRemovesTheReceivedFileEvenOnFailure) {
  const std::string received = root_.Write("volume1/ZemoraOrvel/@tmp/upload-1", "data");
  UploadHandler upload;
  Json::Value params = ParseJson(R"({"path": "/mydrive/a", "type": "file", "labels": [7]})");
  params["file_tmp"] = received;
  EXPECT_EQ(Run(upload, Json::FastWriter().write(params)), -1);
  ExpectError(1000, "prepare upload request failed");
  EXPECT_FALSE(File(received).Exists());
}

// Whatever reaches "file_tmp", the handler removes only a regular file of
// its own lying directly in the temp folder.
TEST_F(HandlerChecks, UploadRemovesNothingButAReceivedFile) {
  const std::string tmp = root_.path() + "/volume1/ZemoraOrvel/@tmp";
  const std::string victim = root_.Write("etc/victim", "keep");
  const std::string nested = root_.Write("volume1/ZemoraOrvel/@tmp/sub/upload-2", "keep");
  const std::string foreign = root_.Write("volume1/ZemoraOrvel/@tmp/upload-3", "keep");
  ASSERT_EQ(chown(foreign.c_str(), 4242, 4242), 0);
  ASSERT_EQ(symlink(victim.c_str(), (tmp + "/upload-4").c_str()), 0);
  UploadHandler upload;
  for (const std::string& path : {victim, nested, foreign, tmp + "/upload-4"}) {
    SCOPED_TRACE(path);
    Json::Value params = ParseJson(R"({"path": "/mydrive/a", "type": "file", "labels": [7]})");
    params["file_tmp"] = path;
    EXPECT_EQ(Run(upload, Json::FastWriter().write(params)), -1);
    struct stat st;
    EXPECT_EQ(lstat(path.c_str(), &st), 0);
  }
  EXPECT_TRUE(File(victim).Exists());
}

TEST_F(HandlerChecks, UploadFromServerPathsNeedsPathAndList) {
  UploadFromTpxHandler handler;
  EXPECT_EQ(Run(handler, R"({"path": "/mydrive", "tpx_paths": "/volume1/public/a"})"), -1);
  ExpectError(1000, "prepare upload request failed");
  EXPECT_EQ(Run(handler, R"({"tpx_paths": []})"), -1);
  ExpectError(1000, "prepare upload request failed");
}

TEST_F(HandlerChecks, UpdateRefusesTwoContentsAndEndsSilentlyOnBadLabels) {
  UpdateInfoHandler update;
  EXPECT_EQ(Run(update, R"({"path": "/mydrive/a", "file_content": "QQ==", "file_tmp": "/x"})"), -1);
  ExpectError(117, "invalid duplicated file");
  EXPECT_EQ(Run(update, R"({"path": "/mydrive/a", "labels": [3]})"), -1);
  EXPECT_FALSE(response_.IsErrorSet());
  EXPECT_EQ(Run(update, R"({"path": "/mydrive/a", "file_tmp": "/nonexistent/tmp"})"), -1);
  ExpectError(1003, "file doesn't exist");
}

TEST_F(HandlerChecks, DownloadAnswersAsAFileAndNeedsASelection) {
  DownloadHandler download;
  EXPECT_EQ(Run(download, R"({"json_error": true})"), -1);
  ExpectError(114, "no file seleted");
  EXPECT_EQ(response_.GetType(), BridgeResponse::kFile);
  EXPECT_TRUE(response_.IsOutputJsonError());
  EXPECT_EQ(Run(download, R"({"files": [{"name": "x"}]})"), -1);
  ExpectError(114, "path is required");
  EXPECT_FALSE(response_.IsOutputJsonError());
}

}  // namespace
