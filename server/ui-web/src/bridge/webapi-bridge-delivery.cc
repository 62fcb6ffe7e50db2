// Raw CGI delivery of WebAPIBridge: download headers, one file, a folder as a
// zip stream from the platform archiver, and the removal of temp paths once
// the answer is out. Everything here writes to stdout and runs the file
// system work as root (RunAsRoot), giving the ids back before returning.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "module-log.h"
#include "nimbard/file.h"
#include "nimbard/platform.h"
#include "orvelcommon/sync_config.h"
#include "run-as-root.h"
#include "webapi-bridge.h"
#include "zemo/nas.h"

namespace {
constexpr const char kLogSource[] = "webapi-bridge";
constexpr const char kSourcePath[] = "server/ui-web/src/bridge/webapi-bridge";
constexpr const char kOctetStream[] = "application/octet-stream";
constexpr int kArchiveStartError = 117;

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// The type a browser may see for a download of that name.
std::string DownloadContentType(const std::string& name, bool force_download) {
  std::string type = HTTPFileOutputer::GetMimeType(name);
  const bool media = Contains(type, "audio") || Contains(type, "video") || Contains(type, "pdf") ||
                     Contains(type, "image");
  if (!media) {
    const bool text = type == "text/plain" || type == "text/html" || type == "application/xml" ||
                      type == "application/xhtml+xml" || type == "application/x-javascript";
    type = text ? "text/plain" : kOctetStream;
  }
  if (Contains(type, "image") && Contains(type, "svg+xml")) type = kOctetStream;
  if (force_download || type.empty()) type = kOctetStream;
  return type;
}

std::vector<std::string> ZipArguments(bool empty, const std::string& codepage) {
  std::vector<std::string> argv = {"/usr/bin/zip", "-q", "-0", "-r"};
  if (empty) argv.insert(argv.end(), {"-i", "."});
  argv.push_back("-yf");
  if (codepage == "unicode") {
    argv.push_back("-UN=UTF8");
  } else {
    argv.insert(argv.end(), {"-cp", codepage});
  }
  argv.insert(argv.end(), {"-", "./."});
  return argv;
}

void PrintArchiveStartError() {
  printf("Cache-control: no-store\r\n");
  printf("X-ZEMO-WEBAPI-DOWNLOAD-ERROR-CODE: %d\r\n", kArchiveStartError);
  printf("Status: 400 Bad Request\r\n");
  printf("\r\n");
  fflush(stdout);
}

// Keeps the current directory and returns to it when the scope ends.
class ScopedCwd {
 public:
  ScopedCwd() : fd_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~ScopedCwd() {
    if (fd_ >= 0) {
      if (fchdir(fd_) != 0) ORVEL_LOG_ERROR("fchdir back failed: %m");
      close(fd_);
    }
  }
  ScopedCwd(const ScopedCwd&) = delete;
  ScopedCwd& operator=(const ScopedCwd&) = delete;

 private:
  int fd_;
};

// Closes a DIR* on every way out.
class ScopedDir {
 public:
  explicit ScopedDir(DIR* dir) : dir_(dir) {}
  ~ScopedDir() {
    if (dir_ != nullptr) closedir(dir_);
  }
  ScopedDir(const ScopedDir&) = delete;
  ScopedDir& operator=(const ScopedDir&) = delete;
  DIR* get() const { return dir_; }

 private:
  DIR* dir_;
};
}  // namespace

void WebAPIBridge::PrintDownloadHeader(const std::string& name, bool attachment) {
  const char* disposition = attachment ? "attachment" : "inline";
  printf("X-Download-Options: noopen\r\n");
  if (!name.empty()) {
    const std::string encoded = UrlEncode(name);
    printf("Content-Disposition: %s; filename=\"%s\"; filename*=utf-8''%s\r\n", disposition,
           encoded.c_str(), encoded.c_str());
  } else {
    printf("Content-Disposition: %s\r\n", disposition);
  }
  printf("Accept-Ranges: none\r\n");
}

// Files the module staged in the temp folder (downloads, revisions) go to
// the web server by X-Sendfile unless the configuration turns it off; any
// other file (a cached thumbnail) is streamed.
void WebAPIBridge::SendFile(const std::string& name, const std::string& path, bool force_download) {
  const std::string type = DownloadContentType(name, force_download);
  ORVEL_RUN_AS_ROOT(root, kSourcePath);
  if (!root.ok()) ORVEL_LOG_ERROR("Fail to switch to root\n");
  SyncConfigMgr conf;
  const std::string tmp_dir = conf.Init() == 0 ? conf.GetDataDirPath() + "/@tmp" : "";
  if (conf.GetDownloadXSendfile() && !tmp_dir.empty() && path.rfind(tmp_dir + "/", 0) == 0) {
    HandOverFile(name, path, type, force_download, tmp_dir);
    return;
  }
  PrintDownloadHeader(name, force_download);
  fflush(stdout);
  HTTPFileOutputer outputer;
  if (outputer.Output(path, type) < 0) ORVEL_LOG_ERROR("fileOutputer: %m");
}

int WebAPIBridge::SendArchive(const std::string& name, const std::string& folder,
                              const std::string& codepage) {
  FILE* pipe = nullptr;
  {
    ORVEL_RUN_AS_ROOT(root, kSourcePath);
    ScopedCwd cwd;
    if (chdir(folder.c_str()) != 0) {
      ORVEL_LOG_ERROR("chdir(%s): %m", folder.c_str());
      PrintArchiveStartError();
      return -1;
    }
    const bool empty = ArchiveFolderEmpty(folder);
    pipe = TLIBCPopen(ZipArguments(empty, codepage), "r");
    if (pipe == nullptr) {
      ORVEL_LOG_ERROR("zip of '%s' cannot start: %m", folder.c_str());
      PrintArchiveStartError();
      return -1;
    }
    PrintDownloadHeader(name, true);
    fflush(stdout);
    HTTPFileOutputer outputer;
    if (outputer.Output(pipe, name, kOctetStream) < 0) ORVEL_LOG_ERROR("fileOutputer: %m");
  }
  TLIBCPclose(pipe);
  return 0;
}

bool WebAPIBridge::ArchiveFolderEmpty(const std::string& folder) {
  ScopedDir dir(opendir(folder.c_str()));
  if (dir.get() == nullptr) {
    const int err = errno;
    ORVEL_LOG_ERROR("opendir(%s): %s (%d)\n", folder.c_str(), strerror(err), err);
    return false;
  }
  while (const dirent* entry = readdir(dir.get())) {
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) return false;
  }
  return true;
}

void WebAPIBridge::HandleAutoRemove() {
  using zemoorvel::core::job_queue::JobQueueClient;
  using zemoorvel::core::job_queue::PushOption;
  using zemoorvel::core::job_queue::jobs::UnlinkJob;
  for (const std::string& path : auto_remove_) {
    ORVEL_RUN_AS_ROOT(root, kSourcePath);
    if (!root.ok()) {
      ORVEL_LOG_ERROR("Failed to get privilege.\n");
      continue;
    }
    JobQueueClient client;
    PushOption option;  // normal priority, no delay: the answer is already out
    if (client.PushJob(UnlinkJob(path), option) != 0) File::Remove(path);
  }
}

void WebAPIBridge::DestroyJobDB() { zemoorvel::db::job::JobManagerHolder::Instance().Destroy(); }
