// Delivery of one staged file by X-Sendfile (HTTPFileHandOver): the file is
// staged for the hand-over before any header goes out, so a refusal (a path
// outside the temp folder, a symbolic link or another file put in place of
// the download's link) still answers a clean download error.
#include <cerrno>
#include <cstdio>
#include <string>

#include "module-log.h"
#include "webapi-bridge.h"
#include "zemo/nas.h"

namespace {
constexpr const char kLogSource[] = "webapi-bridge";
constexpr int kDownloadStartError = 117;

void PrintHandOverError() {
  printf("Cache-control: no-store\r\n");
  printf("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE: %d\r\n", kDownloadStartError);
  printf("Status: 400 Bad Request\r\n");
  printf("\r\n");
  fflush(stdout);
}
}  // namespace

void WebAPIBridge::HandOverFile(const std::string& name, const std::string& path,
                                const std::string& type, bool force_download,
                                const std::string& tmp_dir) {
  HTTPFileHandOver handover(tmp_dir);
  if (handover.Stage(path) < 0) {
    ORVEL_LOG_ERROR("hand-over of %s refused: %m", path.c_str());
    PrintHandOverError();
    return;
  }
  PrintDownloadHeader(name, force_download);
  fflush(stdout);
  if (handover.Output(type) < 0) {
    ORVEL_LOG_ERROR("hand-over of %s refused at the last check: %m", path.c_str());
    PrintHandOverError();
  }
}
