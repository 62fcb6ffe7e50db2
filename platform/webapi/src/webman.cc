// WebMan: each user's personal settings of the web desktop, one JSON object
// per user in <working_dir>/usersettings/<user>.json. Saving replaces the
// file atomically (temp file, fsync, rename, fsync of the folder). One call
// at a time per user; concurrent writers of the same user: the last wins.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdlib>

#include "internal/io.h"
#include "internal/log.h"
#include "orvelcommon/sync_config.h"
#include "zemo/nas.h"
#include "zemo/webapi.h"

namespace {

static constexpr char kLogSource[] = "webman";

// A user name becomes a file name: refuse anything that could leave the folder.
bool SafeUserName(const std::string& user) {
  return !user.empty() && user != "." && user != ".." && user.find('/') == std::string::npos &&
         user.find('\0') == std::string::npos;
}

std::string SettingsDir() {
  SyncConfigMgr conf;
  if (conf.Init() != 0) return "";
  return conf.GetWorkingDirPath() + "/usersettings";
}

// Removes a temp file unless Keep() was called.
class TempFileGuard {
 public:
  explicit TempFileGuard(std::string path) : path_(std::move(path)) {}
  ~TempFileGuard() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  TempFileGuard(const TempFileGuard&) = delete;
  TempFileGuard& operator=(const TempFileGuard&) = delete;
  void Keep() { path_.clear(); }

 private:
  std::string path_;
};

orvel::Status SyncDir(const std::string& dir) {
  zemo::io::ScopedFd fd;
  ORVEL_RETURN_IF_ERROR(zemo::io::Open(dir, O_RDONLY | O_DIRECTORY, 0, &fd));
  if (::fsync(fd.get()) != 0) return zemo::io::LastError("fsync", dir);
  return orvel::Status::OK();
}

orvel::Status WriteAtomically(const std::string& dir, const std::string& path,
                              const std::string& text) {
  ORVEL_RETURN_IF_ERROR(zemo::io::MakeDirs(dir, 0700));
  std::string tmpl = path + ".XXXXXX";
  int raw = ::mkostemp(&tmpl[0], O_CLOEXEC);
  if (raw < 0) return zemo::io::LastError("mkstemp", tmpl);
  zemo::io::ScopedFd fd(raw);
  TempFileGuard guard(tmpl);
  ORVEL_RETURN_IF_ERROR(zemo::io::WriteAll(fd.get(), text.data(), text.size(), tmpl));
  if (::fsync(fd.get()) != 0) return zemo::io::LastError("fsync", tmpl);
  if (::rename(tmpl.c_str(), path.c_str()) != 0) return zemo::io::LastError("rename", path);
  guard.Keep();
  return SyncDir(dir);
}

}  // namespace

int WebMan::loadUserJsonSettings(const std::string& user, Json::Value& settings) {
  (void)flags_;
  std::string dir = SettingsDir();
  if (!SafeUserName(user) || dir.empty()) return -1;
  std::string path = dir + "/" + user + ".json";
  std::string text;
  orvel::Status st = zemo::io::ReadFile(path, &text);
  if (st.code() == orvel::kErrNotFound) {
    settings = Json::Value(Json::objectValue);
    return 0;
  }
  Json::Value parsed;
  if (!st.ok() || !ZEMO::WebAPIUtil::ParseJson(text, parsed) || !parsed.isObject()) {
    WEBAPI_LOG(Logger::kError, "cannot load settings %s: %s", path.c_str(),
               st.ok() ? "not a JSON object" : st.ToString().c_str());
    return -1;
  }
  settings = parsed;
  return 0;
}

int WebMan::saveUserJsonSettings(const std::string& user, const Json::Value& settings) {
  std::string dir = SettingsDir();
  if (!SafeUserName(user) || dir.empty() || !settings.isObject()) return -1;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  std::string path = dir + "/" + user + ".json";
  orvel::Status st = WriteAtomically(dir, path, Json::writeString(builder, settings));
  if (!st.ok()) {
    WEBAPI_LOG(Logger::kError, "cannot save settings %s: %s", path.c_str(), st.ToString().c_str());
    return -1;
  }
  return 0;
}
