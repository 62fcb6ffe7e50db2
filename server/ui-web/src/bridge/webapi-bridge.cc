// WebAPIBridge: handler registry, dispatch and writing of the answer. The
// raw file and archive writers are in webapi-bridge-delivery.cc.
#include "webapi-bridge.h"

#include <cstdio>
#include <exception>
#include <utility>

#include "module-log.h"
#include "zemo/nas.h"
#include "zemo/webapi.h"

namespace {
constexpr const char kLogSource[] = "webapi-bridge";
constexpr const char kSettingsKey[] = "PLX.App.PersonalSettings.Instance";
constexpr const char kDebugSwitch[] = "/var/packages/ZemoraOrvel/target/etc/syncfolder.debug";

std::string CompactJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

Json::Value ErrorDetails(const BridgeResponse& response) {
  Json::Value details(Json::objectValue);
  details["message"] = response.GetErrorMessage();
  details["line"] = response.GetErrorLine();
  return details;
}
}  // namespace

WebAPIBridge::WebAPIBridge(ZEMO::APIRequest* request, ZEMO::APIResponse* response)
    : request_(request),
      response_(response),
      auth_service_(new WebAPIAuthenticationService(request, response)) {}

WebAPIBridge::~WebAPIBridge() {
  HandleAutoRemove();
  DestroyJobDB();
}

void WebAPIBridge::AddHandler(RequestHandler* handler) {
  std::unique_ptr<RequestHandler> owned(handler);
  owned->SetAuthenticationService(auth_service_.get());
  auto& versions = registry_[owned->GetAPI()];
  versions[owned->GetVersionMax()] = std::move(owned);
}

RequestHandler* WebAPIBridge::FindHandler(const std::string& api, const std::string& method,
                                          unsigned version) const {
  const std::string key = api + "." + method;
  auto found = registry_.find(key);
  if (found == registry_.end()) {
    ORVEL_LOG_ERROR("no such api : %s.\n", key.c_str());
    return nullptr;
  }
  for (const auto& [max, handler] : found->second) {
    const unsigned min = handler->GetVersionMin();
    if (max == 0 || min == 0 || (min <= version && version <= max)) return handler.get();
  }
  ORVEL_LOG_ERROR("no matched version(%u) for api(%s).\n", version, key.c_str());
  return nullptr;
}

RequestHandler* WebAPIBridge::FindHandler() const {
  return FindHandler(request_->GetAPIClass(), request_->GetAPIMethod(), request_->GetAPIVersion());
}

bool WebAPIBridge::HasHandler(const std::string& api, const std::string& method,
                              unsigned version) const {
  return FindHandler(api, method, version) != nullptr;
}

int WebAPIBridge::Process() {
  std::unique_ptr<WebAPIRequest> request(new WebAPIRequest(request_));
  std::unique_ptr<BridgeResponse> response(new BridgeResponse());
  int ret = -1;
  RequestHandler* handler = FindHandler();
  if (handler != nullptr) {
    // A parameter of an unexpected JSON type makes jsoncpp throw; it must
    // not leave the module, and the answer must still be written.
    try {
      ret = handler->HandleRequest(*request, *response) < 0 ? -1 : 0;
    } catch (const Json::Exception& e) {
      ORVEL_LOG_ERROR("invalid parameter: %s", e.what());
      response->SetError(114, "invalid parameter", __LINE__);
      ret = -1;
    } catch (const std::exception& e) {
      ORVEL_LOG_ERROR("unexpected failure: %s", e.what());
      response->SetError(401, "internal error", __LINE__);
      ret = -1;
    }
  } else {
    ORVEL_LOG_ERROR("Fail to find handler\n");
    response->SetError(103, "no such API or method", __LINE__);
  }
  SetResponse(std::move(*response));
  return ret;
}

void WebAPIBridge::SetResponse(const BridgeResponse& response) { Deliver(response, nullptr); }

void WebAPIBridge::SetResponse(BridgeResponse&& response) {
  Deliver(response, &response.MutableJsonObject());
}

// movable_data, when not null, is the response's own JSON answer, handed on
// to the framework without a copy.
void WebAPIBridge::Deliver(const BridgeResponse& response, Json::Value* movable_data) {
  if (response.GetType() == BridgeResponse::kJson) {
    SetJsonOutput(response, movable_data);
  } else {
    SetDownloadOutput(response);
  }
  for (const std::string& path : response.GetAutoRemovePaths()) auto_remove_.push_back(path);
}

void WebAPIBridge::SetJsonOutput(const BridgeResponse& response, Json::Value* movable_data) {
  for (const auto& [name, value] : response.GetHeaders()) response_->SetHeader(name, value);
  if (response.IsErrorSet()) {
    response_->SetError(response.GetErrorCode(), ErrorDetails(response));
  } else if (!response.GetJsonText().empty()) {
    response_->SetSuccessText(response.GetJsonText());
  } else if (response.GetJsonObject().isNull()) {
    response_->SetSuccess();
  } else if (movable_data != nullptr) {
    response_->SetSuccess(std::move(*movable_data));
  } else {
    response_->SetSuccess(response.GetJsonObject());
  }
}

void WebAPIBridge::SetDownloadOutput(const BridgeResponse& response) {
  response_->SetEnableOutput(false);
  for (const auto& [name, value] : response.GetHeaders()) {
    printf("%s: %s\r\n", name.c_str(), value.c_str());
  }
  if (response.IsErrorSet()) {
    PrintDownloadError(response);
  } else if (response.GetType() == BridgeResponse::kFile) {
    SendFile(response.GetFileName(), response.GetFilePath(), response.IsForceDownload());
  } else {
    SendArchive(response.GetArchiveName(), response.GetArchivePath(), ArchiveCodepage(response));
  }
  fflush(stdout);
}

void WebAPIBridge::PrintDownloadError(const BridgeResponse& response) {
  if (!response.IsOutputJsonError()) {
    printf("Cache-control: no-store\r\n");
    printf("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE: %d\r\n", response.GetErrorCode());
    printf("Status: 400 Bad Request\r\n");
    printf("\r\n");
    return;
  }
  Json::Value envelope(Json::objectValue);
  envelope["success"] = false;
  envelope["error"]["code"] = response.GetErrorCode();
  envelope["error"]["errors"] = ErrorDetails(response);
  printf("Cache-control: no-store\r\n");
  printf("Content-Type: text/plain; charset=\"UTF-8\"\r\n");
  printf("Status: 200 OK\r\n");
  printf("\r\n");
  printf("%s", CompactJson(envelope).c_str());
}

std::string WebAPIBridge::ArchiveCodepage(const BridgeResponse& response) const {
  std::string codepage = response.GetArchiveCodepage();
  if (codepage.empty()) {
    Json::Value settings(Json::objectValue);
    if (WebMan(1).loadUserJsonSettings(request_->GetLoginUserName(), settings) == 0 &&
        settings.isObject()) {
      const Json::Value& instance = settings[kSettingsKey];
      if (instance.isObject() && instance["codepage"].isString()) {
        codepage = instance["codepage"].asString();
      }
    }
  }
  if (codepage.empty()) codepage = "unicode";
  return codepage;
}

void ServeWithFreshBridge(ZEMO::APIRequest* request, ZEMO::APIResponse* response,
                          void (*register_handlers)(WebAPIBridge&)) {
  try {
    WebAPIBridge bridge(request, response);
    Logger::Initialize(0, "", kDebugSwitch, 50, 1);
    register_handlers(bridge);
    bridge.Process();
  } catch (const std::exception& e) {
    ORVEL_LOG_ERROR("request failed: %s", e.what());
    if (response->IsOutputEnabled()) {
      Json::Value details(Json::objectValue);
      details["message"] = "internal error";
      response->SetError(401, details);
    }
  }
}
