// Nimbard: the client of the sync service (orvel-syncd). One object per
// request: configure it (SetServer, SetUser, ...), call operations, read
// GetLastError()/GetLastErrorMessage() after a negative result. Each operation
// is one request/answer exchange over the unix socket (docs/wire.md); the
// connection is opened lazily by the first operation and closed by the
// destructor. Not thread-safe: one object per thread.
//
// Operations return 0 (or a non-negative value) on success and -1 on failure;
// the last error is then the service's negative error code (docs/errors.md),
// or kErrBusy / kErrStorage when the daemon cannot be reached or times out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orvelcommon/item_record.h"
#include "orvelcommon/pobject.h"

class Nimbard {
 public:
  struct MemberSelector {
    uint32_t uid = 0;
    uint32_t gid = 0;
    std::string type;
    std::string name;
  };
  struct StarEditAction {
    bool starred = false;
    MemberSelector member;
  };
  struct LabelEditAction {
    std::string action;
    std::string label_id;
    std::string name;
    MemberSelector member;
  };
  // The item record and its parts (orvelcommon/item_record.h), under the
  // names the module uses.
  using LabelInfo = orvel::LabelInfo;
  using PermissionInfo = orvel::PermissionInfo;
  using Capabilities = orvel::Capabilities;
  using FileInfo = orvel::ItemRecord;
  struct RevisionInfo {
    uint64_t sync_id = 0;
    uint64_t size = 0;
    uint32_t modified_time = 0;
    std::string hash;
  };
  struct BackupInfo {
    std::string task_id;
    std::string name;
    std::string target;  // path of the target folder ("id:<file_id>")
  };
  struct ArchiveInfo {
    std::string path;  // staged folder or single file
    std::string name;
  };
  struct FileSelector {
    FileSelector() = default;
    explicit FileSelector(std::string p) : path(std::move(p)) {}
    std::string path;
  };
  struct SearchNodeFilter {
    std::string sort_direction = "asc";
    std::string type;  // comma-joined file types
    std::string sort_by = "name";
    uint64_t limit = 0;
    uint64_t offset = 0;
    std::string label_id;
    bool starred = false;
    std::vector<std::string> extensions;
  };
  struct FileInfoQueryParam {
    std::vector<std::string> extra;
  };
  // Answer of a download with a selection: either a file written into the
  // given folder, or an asynchronous staging task.
  struct DownloadResult {
    bool is_task = false;
    std::string task_id;
    std::string file_path;  // the file the service wrote
    std::string file_name;
  };

  Nimbard();
  ~Nimbard();
  Nimbard(const Nimbard&) = delete;
  Nimbard& operator=(const Nimbard&) = delete;

  // Set-up. None of these talks to the service.
  void SetSSL(bool enable, bool verify, const std::string& cert, const std::string& key);
  void SetServer(const std::string& address, unsigned int port);
  void SetForwardInfo(const std::string& ip, int port, const std::string& proto);
  void SetUser(const std::string& user, const std::string& second, const std::string& third);
  void SetSession(const std::string& session);
  void SetSharingToken(const std::string& token);
  void SetServerVersion(int version);
  void SetTimeout(unsigned int seconds);
  void SetSudoUser(std::string user);

  int GetLastError() const { return last_error_; }
  std::string GetLastErrorMessage() const { return last_error_message_; }

  // Service state.
  int GetServiceStatus(std::string& status);
  int GetFreeze(unsigned view_id, bool& frozen);

  // Browsing.
  int ListFile(const std::string& path, bool recursive, const SearchNodeFilter& filter,
               std::vector<FileInfo>& items, uint64_t& total,
               const std::vector<std::string>& extra);
  int ListStarredNode(const SearchNodeFilter& filter, std::vector<FileInfo>& items, uint64_t& total);
  int ListLabelledNode(const SearchNodeFilter& filter, std::vector<FileInfo>& items, uint64_t& total);
  int ListSharedWithMe(const SearchNodeFilter& filter, std::vector<FileInfo>& items, uint64_t& total);
  int ListSharedWithOthers(const SearchNodeFilter& filter, std::vector<FileInfo>& items, uint64_t& total);
  int ListRecent(int64_t limit, std::vector<FileInfo>& items, const SearchNodeFilter& filter);
  int ListAncestorByPath(const std::string& path, std::vector<FileInfo>& items);
  int ListBackups(std::vector<BackupInfo>& tasks);
  int SearchFile(const PObject& query, std::vector<FileInfo>& items, unsigned& total,
                 unsigned long long& search_time_us);

  // One item.
  int GetFileInfo(const std::string& path, FileInfo& info, const FileInfoQueryParam& query);
  int GetThumbnail(const std::string& path, const std::string& format, const std::string& size,
                   bool animate, std::string& thumbnail_path, std::string& file_name);
  int UpdateFileInfo(const PObject& request, FileInfo& info);
  int EditStarOnNode(const std::vector<std::string>& files, const std::vector<StarEditAction>& actions);
  int EditLabelOnNode(const std::vector<std::string>& files, const std::vector<LabelEditAction>& actions);
  int RequestFileAccess(const std::string& path);

  // Content.
  int UploadFile(const PObject& request, FileInfo& info);
  int UploadFileFromTPX(const PObject& request, std::string& task_id);
  int DownloadFile(const std::string& task_id, std::string& output_path);
  int DownloadFile(const std::vector<FileSelector>& selection, const std::string& temp_dir,
                   DownloadResult& result);
  int DownloadDryRun(const std::vector<FileSelector>& selection, std::string& answer_json);

  // Organising (asynchronous tasks).
  int CopyDryRun(const std::vector<FileSelector>& files, const std::string& dest, PObject& result);
  int CopyFile(const std::vector<FileSelector>& files, const std::string& dest,
               const std::string& conflict, std::string& task_id);
  int CopyFile(const std::vector<FileSelector>& files, const std::string& dest,
               const PObject& conflict, std::string& task_id);
  int MoveDryRun(const std::vector<FileSelector>& files, const std::string& dest, PObject& result);
  int MoveFile(const std::vector<FileSelector>& files, const std::string& dest,
               const std::string& conflict, const std::string& change_name, std::string& task_id);
  int MoveFile(const std::vector<FileSelector>& files, const std::string& dest,
               const PObject& conflict, const std::string& change_name, std::string& task_id);
  int DeleteFile(const std::vector<std::string>& paths, bool permanent, std::string& task_id);
  int ConvertOffice(const std::vector<std::string>& files, const std::string& dest,
                    const std::string& conflict, std::string& task_id);

  // Record conversions used by the module.
  static int LabelActionToPObject(const LabelEditAction& action, PObject& out);
  static int StarActionToPObject(const StarEditAction& action, PObject& out);
  static int FileInfoFromPObject(const PObject& in, FileInfo& out);
  static PObject FileInfoToPObject(const FileInfo& in);

  // Generic call used by the admin tool and by the operations above: sends
  // {"protocol", "op", "user", ..., "args": args}; on success fills *result.
  // One round trip; with items, the result's "items" (item records) are
  // decoded straight into *items instead of into *result.
  int Call(const std::string& op, const PObject& args, PObject* result,
           std::vector<FileInfo>* items = nullptr);

 private:
  int Fail(int code, const std::string& message);
  int Connect();
  int CallList(const std::string& op, const PObject& args, std::vector<FileInfo>& items,
               uint64_t* total);
  int CallTask(const std::string& op, const PObject& args, std::string& task_id);

  std::string address_ = "unix:/tmp/cloud-syncservice";
  std::string forward_ip_, forward_proto_;
  int forward_port_ = 0;
  std::string user_, session_, sharing_token_, sudo_user_;
  int server_version_ = 11061;
  unsigned timeout_ = 300;
  int fd_ = -1;
  std::string conn_key_;  // what the daemon judged when fd_ was accepted
  int last_error_ = 0;
  std::string last_error_message_;
};

// Case-insensitive comparison of two UTF-8 names: < 0, 0, > 0 like strcmp.
int CaseCmp(const std::string& a, const std::string& b);
