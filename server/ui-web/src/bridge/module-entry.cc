// Process, the per-request entry of the module, and the parameter check of
// "convert_office". Each call builds a fresh bridge and fresh handlers, so
// nothing survives from one request to the next.
#include "module-entry.h"

#include <exception>
#include <string>

#include "module-log.h"
#include "webapi-bridge.h"
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
constexpr const char kAllowedConflicts[] =
    "[\"skip\", \"stop\", \"version\", \"overwrite\", \"autorename\"]";

// Registers the 23 handlers in the method table's order.
void RegisterHandlers(WebAPIBridge& bridge) {
  bridge.AddHandler(new ListHandler());
  bridge.AddHandler(new ListSharedWithMeHandler());
  bridge.AddHandler(new ListSharedWithOthersHandler());
  bridge.AddHandler(new GetInfoHandler());
  bridge.AddHandler(new UpdateInfoHandler());
  bridge.AddHandler(new DownloadHandler());
  bridge.AddHandler(new CreateHandler());
  bridge.AddHandler(new ConvertOfficeHandler());
  bridge.AddHandler(new UploadHandler());
  bridge.AddHandler(new UploadFromTpxHandler());
  bridge.AddHandler(new DeleteHandler());
  bridge.AddHandler(new FileCopyHandler());
  bridge.AddHandler(new MoveHandler());
  bridge.AddHandler(new SearchHandler());
  bridge.AddHandler(new ListRecentHandler());
  bridge.AddHandler(new LabelHandler());
  bridge.AddHandler(new StarHandler());
  bridge.AddHandler(new ListLabelledHandler());
  bridge.AddHandler(new ListStarredHandler());
  bridge.AddHandler(new RequestAccessHandler());
  bridge.AddHandler(new GetThumbnailHandler());
  bridge.AddHandler(new ListAncestorHandler());
  bridge.AddHandler(new ListBackupTasksHandler());
}

int Reject(ZEMO::APIResponse* response, const char* name, const char* reason) {
  Json::Value details(Json::objectValue);
  details["name"] = name;
  details["reason"] = reason;
  response->SetError(120, details);
  return 0;
}
}  // namespace

extern "C" void Process(ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  ServeWithFreshBridge(request, response, RegisterHandlers);
}

int ConvertOfficeParamCheck(ZEMO::APIRequest* request, ZEMO::APIResponse* response) {
  const ZEMO::APIParameter<std::string> conflict =
      request->GetAndCheckString("conflict_action", 1, nullptr);
  const ZEMO::APIParameter<Json::Value> files = request->GetAndCheckUnitArray("files", 0, nullptr);
  if (conflict.IsInvalid()) {
    return Reject(response, "conflict_action",
                  request->HasParam("conflict_action") ? "type" : "required");
  }
  if (files.IsInvalid()) {
    return Reject(response, "files", request->HasParam("files") ? "type" : "required");
  }
  if (files.IsSet()) {
    for (const Json::Value& element : files.Get()) {
      if (!element.isString()) return Reject(response, "files", "type");
    }
  }
  if (!conflict.IsSet()) return 1;
  Json::Value allowed;
  ZEMO::WebAPIUtil::ParseJson(kAllowedConflicts, allowed);
  if (ZEMO::APIValidator::IsBelong(Json::Value(conflict.Get()), allowed)) return 1;
  return Reject(response, "conflict_action", "condition");
}
