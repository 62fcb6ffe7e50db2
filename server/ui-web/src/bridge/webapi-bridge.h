// WebAPIBridge: the per-request dispatcher of the module. Process() finds the
// handler registered for the request's api, method and version, runs it, and
// writes its BridgeResponse out: JSON through the framework's response
// object, files and zip archives as raw CGI output on stdout. When the
// bridge is destroyed, the paths the response registered for removal are
// handed to the package's job queue (deleted at once if it refuses).
//
// One bridge per request on one thread; it owns its handlers and its
// authentication service.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bridge-request.h"
#include "bridge-response.h"
#include "request-handler.h"

namespace ZEMO {
class APIRequest;
class APIResponse;
}  // namespace ZEMO

class WebAPIBridge {
 public:
  // request and response are not owned and must outlive the bridge.
  WebAPIBridge(ZEMO::APIRequest* request, ZEMO::APIResponse* response);
  ~WebAPIBridge();
  WebAPIBridge(const WebAPIBridge&) = delete;
  WebAPIBridge& operator=(const WebAPIBridge&) = delete;

  // Takes ownership. A handler with the same api and maximum version as one
  // already registered replaces (and destroys) it.
  void AddHandler(RequestHandler* handler);
  // The handler serving api.method at version, or null (logged).
  RequestHandler* FindHandler(const std::string& api, const std::string& method,
                              unsigned version) const;
  RequestHandler* FindHandler() const;
  bool HasHandler(const std::string& api, const std::string& method, unsigned version) const;

  // Serves the request and writes the answer: 0, or -1 on failure.
  int Process();
  // Writes response out (framework JSON, or raw CGI for files and archives)
  // and collects its auto-remove paths.
  void SetResponse(const BridgeResponse& response);
  // The same, taking over the JSON answer instead of copying it.
  void SetResponse(BridgeResponse&& response);

  // Raw CGI writers (stdout).
  void PrintDownloadHeader(const std::string& name, bool attachment);
  void SendFile(const std::string& name, const std::string& path, bool force_download);
  // Hands the file at path (below tmp_dir) to the web server by X-Sendfile,
  // or answers download error 117 when it is refused. Runs as root.
  void HandOverFile(const std::string& name, const std::string& path, const std::string& type,
                    bool force_download, const std::string& tmp_dir);
  // 0, or -1 after printing the download-error headers (code 117).
  int SendArchive(const std::string& name, const std::string& folder, const std::string& codepage);
  // True when folder holds nothing but "." and ".."; false also when it
  // cannot be opened.
  bool ArchiveFolderEmpty(const std::string& folder);
  void HandleAutoRemove();
  void DestroyJobDB();

  // Paths collected for removal so far.
  const std::vector<std::string>& GetAutoRemoveList() const { return auto_remove_; }

 private:
  void Deliver(const BridgeResponse& response, Json::Value* movable_data);
  void SetJsonOutput(const BridgeResponse& response, Json::Value* movable_data);
  void SetDownloadOutput(const BridgeResponse& response);
  void PrintDownloadError(const BridgeResponse& response);
  std::string ArchiveCodepage(const BridgeResponse& response) const;

  std::map<std::string, std::map<unsigned, std::unique_ptr<RequestHandler>>> registry_;
  ZEMO::APIRequest* request_;
  ZEMO::APIResponse* response_;
  std::unique_ptr<WebAPIAuthenticationService> auth_service_;
  std::string reserved_;
  std::vector<std::string> auto_remove_;
};

// Serves one request of a module's Process: a fresh bridge, the handlers
// that register_handlers adds, dispatch and the answer, then everything torn
// down, so nothing survives from one request to the next. Nothing unwinds
// into the framework: a failure that escapes the bridge (it writes the
// answer itself) becomes 401 "internal error".
void ServeWithFreshBridge(ZEMO::APIRequest* request, ZEMO::APIResponse* response,
                          void (*register_handlers)(WebAPIBridge&));
