// DownloadHandler: the "download" method of the Files API; sends items as a file or a zip archive.
// One object per request, built and run by the module entry; not
// thread-safe.
#pragma once

#include <string>
#include <vector>

#include "bridge/request-handler.h"
#include "nimbard/nimbard.h"

class DownloadHandler : public RequestHandler {
 public:
  DownloadHandler();
  ~DownloadHandler() override;
  int Handle(const RequestAuthentication& auth, BridgeRequest& request,
             BridgeResponse& response) override;

 private:
  int DownloadTask(Nimbard& client, const std::string& task_id, const std::string& archive_name,
                   BridgeResponse& response);
  int DryRun(Nimbard& client, const std::vector<Nimbard::FileSelector>& selection,
             BridgeResponse& response);
  int Download(Nimbard& client, const std::vector<Nimbard::FileSelector>& selection,
               bool force_download, BridgeResponse& response);
  // Makes a fresh staging folder under the package temp folder; 0 or -1.
  int CreateTempDirectory();
  // The file the service wrote into the staging folder: result's own path
  // and name, else the single entry of the folder. false when none.
  bool GetFilename(const Nimbard::DownloadResult& result, std::string& name,
                   std::string& path) const;

  // The staging folder made for this download ("" until made).
  std::string temp_dir_;
};
