// SyncConfigMgr: the package configuration, read from
// $ZEMO_ROOT/var/packages/ZemoraOrvel/target/etc/orvel.conf (a JSON object).
// Every key is optional; docs/configuration.md lists keys and defaults.
// Paths in the file may start with "$ZEMO_ROOT", which is expanded.
// Objects are plain values; reading is not cached across processes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvel {
struct TpxShare {
  std::string name;                 // e.g. "public"
  std::string path;                 // absolute path on the server
  std::vector<std::string> users;   // who may import from it; "*" = everyone
};
}  // namespace orvel

class SyncConfigMgr {
 public:
  // Reads the configuration file; a missing file gives the defaults.
  // Returns 0, or -1 when the file exists but is not a valid JSON object.
  int Init();

  std::string GetConfigPath() const;       // the orvel.conf path
  std::string GetWorkingDirPath() const;   // <target>/var
  std::string GetDataDirPath() const;      // $ZEMO_ROOT/volume1/ZemoraOrvel
  std::string GetDbConnectParam() const;   // sqlite: folder of the databases (<data>/@db)
  std::string GetDBBackendString() const;  // "sqlite" or "postgresql"
  std::string GetSystemRepoLocation() const;  // = data folder
  std::string GetSysShareBin() const;         // = data folder (its @tmp is the temp dir)
  std::string GetSocketPath() const;          // resolved "/tmp/cloud-syncservice"
  std::string GetWebAccount() const;          // "www-data"; "" = do not switch
  uint64_t GetUploadMaxBytes() const;         // 0 = unlimited
  // Downloads of one file are handed to the web server by X-Sendfile
  // (true) instead of streamed through entry.cgi.
  bool GetDownloadXSendfile() const { return download_x_sendfile_; }
  uint64_t GetRevisionKeepCount() const;      // 32 older contents per file; 0 = keep none
  uint64_t GetRevisionKeepDays() const;       // 0 = no age limit
  unsigned GetSessionIdleSeconds() const;     // 3600
  unsigned GetSessionMaxSeconds() const;      // 604800
  unsigned GetWorkerThreads() const;          // 2
  std::string GetOfficeConverter() const;     // "soffice" (looked up in PATH) or an absolute path
  unsigned GetRecycleKeepDays() const;        // 30: removed items older than this go for good; 0 = never
  // The service clock: the time the login and sharing-link throttles, the
  // expiry of sharing links and of password-link grants go by. The system
  // clock, or the fixed Unix time of the key "throttle_clock" (tests set it).
  int64_t ThrottleNow() const;
  // How long the grant of an unlocked password link lasts (43200 seconds).
  unsigned GetLinkGrantSeconds() const;
  // Limits of every decoder the daemon runs (thumbnails, PDF text, office
  // conversion); a key that is absent, zero or not a number keeps its default.
  uint64_t GetDecodeMaxInputBytes() const;    // 256 MiB: larger files are not decoded
  uint64_t GetDecodeMaxPixels() const;        // 268435456: larger images are not decoded
  uint64_t GetRenderMemoryBytes() const;      // 1 GiB of address space per render
  unsigned GetRenderSeconds() const;          // 30: a render is stopped after this
  uint64_t GetConvertMemoryBytes() const;     // 4 GiB of address space per conversion
  unsigned GetConvertSeconds() const;         // 300: a conversion is stopped after this
  const std::vector<orvel::TpxShare>& GetTpxShares() const { return tpx_shares_; }

  // The database files of the sqlite back-end.
  std::string GetSyncDbPath() const;   // <connect>/sync.db
  std::string GetUserDbPath() const;   // <connect>/users.db
  std::string GetLogDbPath() const;    // <connect>/log.db

 private:
  std::string working_dir_, data_dir_, db_connect_, db_backend_ = "sqlite", web_account_ = "www-data";
  uint64_t upload_max_ = 0;
  bool download_x_sendfile_ = true;
  uint64_t revision_keep_count_ = 32, revision_keep_days_ = 0;
  unsigned idle_ = 3600, max_ = 604800, workers_ = 2;
  int64_t throttle_clock_ = 0;
  unsigned link_grant_seconds_ = 43200;
  std::vector<orvel::TpxShare> tpx_shares_;
  std::string office_converter_ = "soffice";
  uint64_t decode_max_input_ = 256ull << 20, decode_max_pixels_ = 1ull << 28;
  uint64_t render_memory_ = 1ull << 30, convert_memory_ = 4ull << 30;
  unsigned render_seconds_ = 30, convert_seconds_ = 300;
  unsigned recycle_keep_days_ = 30;
};

// Reads the configuration into *conf; 0 or -1 as SyncConfigMgr::Init.
int SyncGetConf(SyncConfigMgr* conf);
