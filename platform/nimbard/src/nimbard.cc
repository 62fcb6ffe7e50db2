// Nimbard client: request building, the socket exchange and record decoding.
#include "nimbard/nimbard.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <strings.h>

#include "connection_cache.h"
#include "nimbard/platform.h"
#include "orvelcommon/status.h"
#include "orvelcommon/wire.h"
#include "orvelcommon/zemo_root.h"

namespace {

PObject FilterToPObject(const Nimbard::SearchNodeFilter& f) {
  PObject p = PObject::MakeMap();
  p["sort_direction"] = f.sort_direction;
  p["type"] = f.type;
  p["sort_by"] = f.sort_by;
  p["limit"] = static_cast<unsigned long long>(f.limit);
  p["offset"] = static_cast<unsigned long long>(f.offset);
  p["label_id"] = f.label_id;
  p["starred"] = f.starred;
  PObject ext = PObject::MakeArray();
  for (const auto& e : f.extensions) ext.push_back(e);
  p["extensions"] = ext;
  return p;
}

PObject StringsToPObject(const std::vector<std::string>& v) {
  PObject a = PObject::MakeArray();
  for (const auto& s : v) a.push_back(s);
  return a;
}

PObject SelectorsToPObject(const std::vector<Nimbard::FileSelector>& v) {
  PObject a = PObject::MakeArray();
  for (const auto& s : v) a.push_back(s.path);
  return a;
}

PObject MemberToPObject(const Nimbard::MemberSelector& m) {
  PObject p = PObject::MakeMap();
  p["uid"] = m.uid;
  p["gid"] = m.gid;
  p["type"] = m.type;
  p["name"] = m.name;
  return p;
}

}  // namespace

Nimbard::Nimbard() = default;

// A connection still open here sits between two answers: it goes back to the
// process's cache for the next client.
Nimbard::~Nimbard() {
  if (fd_ >= 0) orvel::client::ReturnConnection(conn_key_, fd_);
}

void Nimbard::SetSSL(bool, bool, const std::string&, const std::string&) {}
void Nimbard::SetServer(const std::string& address, unsigned int) { address_ = address; }
void Nimbard::SetForwardInfo(const std::string& ip, int port, const std::string& proto) {
  forward_ip_ = ip;
  forward_port_ = port;
  forward_proto_ = proto;
}
void Nimbard::SetUser(const std::string& user, const std::string&, const std::string&) { user_ = user; }
void Nimbard::SetSession(const std::string& session) { session_ = session; }
void Nimbard::SetSharingToken(const std::string& token) { sharing_token_ = token; }
void Nimbard::SetServerVersion(int version) { server_version_ = version; }
void Nimbard::SetTimeout(unsigned int seconds) { timeout_ = seconds; }
void Nimbard::SetSudoUser(std::string user) { sudo_user_ = std::move(user); }

int Nimbard::Fail(int code, const std::string& message) {
  last_error_ = code;
  last_error_message_ = message;
  return -1;
}

int Nimbard::Connect() {
  if (fd_ >= 0) return 0;
  const std::string path = orvel::ResolveSocketAddress(address_);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof(addr.sun_path)) {
    return Fail(orvel::kErrInvalidArgument, "socket path too long: " + path);
  }
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  conn_key_ = orvel::client::ConnectionKey(path, timeout_);
  fd_ = orvel::client::TakeConnection(conn_key_);
  if (fd_ >= 0) return 0;
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return Fail(orvel::kErrBusy, std::string("socket: ") + std::strerror(errno));
  timeval tv{};
  tv.tv_sec = timeout_;
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
  int rc;
  do {
    rc = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) {
    int err = errno;
    ::close(fd);
    return Fail(orvel::kErrBusy,
                "sync service is not running (connect " + path + ": " + std::strerror(err) + ")");
  }
  fd_ = fd;
  return 0;
}

int Nimbard::Call(const std::string& op, const PObject& args, PObject* result,
                  std::vector<FileInfo>* items) {
  last_error_ = 0;
  last_error_message_.clear();
  if (Connect() < 0) return -1;
  PObject req = PObject::MakeMap();
  req["protocol"] = server_version_;
  req["op"] = op;
  req["user"] = user_;
  req["session"] = session_;
  req["sharing_token"] = sharing_token_;
  req["link_grant"] = RequestLinkGrant();
  req["sudo"] = sudo_user_;
  req["forward"]["ip"] = forward_ip_;
  req["forward"]["port"] = forward_port_;
  req["forward"]["proto"] = forward_proto_;
  req["args"] = args;
  orvel::Status st = orvel::wire::WriteFrame(fd_, req);
  PObject answer;
  if (st.ok()) {
    st = items ? orvel::wire::ReadItemsFrame(fd_, &answer, items) : orvel::wire::ReadFrame(fd_, &answer);
  }
  if (!st.ok()) {
    ::close(fd_);
    fd_ = -1;
    return Fail(st.code(), op + ": " + st.message());
  }
  if (!answer["ok"].asBool()) {
    const PObject& err = answer["error"];
    int code = static_cast<int>(err["code"].asInt64(orvel::kErrInternal));
    return Fail(code == 0 ? orvel::kErrInternal : code, err["message"].asString());
  }
  if (result) *result = std::move(answer["result"]);  // no deep copy of large answers
  return 0;
}

int Nimbard::CallList(const std::string& op, const PObject& args, std::vector<FileInfo>& items,
                      uint64_t* total) {
  PObject result;
  if (Call(op, args, &result, &items) < 0) {
    items.clear();
    return -1;
  }
  if (total) *total = result["total"].asUInt64(items.size());
  return 0;
}

int Nimbard::CallTask(const std::string& op, const PObject& args, std::string& task_id) {
  PObject result;
  if (Call(op, args, &result) < 0) return -1;
  task_id = result["task_id"].asString();
  return 0;
}

int Nimbard::GetServiceStatus(std::string& status) {
  PObject result;
  if (Call("status", PObject::MakeMap(), &result) < 0) return -1;
  status = result["status"].asString();
  return 0;
}

int Nimbard::GetFreeze(unsigned view_id, bool& frozen) {
  PObject args = PObject::MakeMap();
  args["view_id"] = view_id;
  PObject result;
  if (Call("freeze_get", args, &result) < 0) return -1;
  frozen = result["frozen"].asBool();
  return 0;
}

int Nimbard::ListFile(const std::string& path, bool recursive, const SearchNodeFilter& filter,
                      std::vector<FileInfo>& items, uint64_t& total,
                      const std::vector<std::string>& extra) {
  PObject args = PObject::MakeMap();
  args["path"] = path;
  args["recursive"] = recursive;
  args["filter"] = FilterToPObject(filter);
  args["extra"] = StringsToPObject(extra);
  return CallList("list_file", args, items, &total);
}

namespace {
PObject FilterArgs(const Nimbard::SearchNodeFilter& filter) {
  PObject args = PObject::MakeMap();
  args["filter"] = FilterToPObject(filter);
  return args;
}
}  // namespace

int Nimbard::ListStarredNode(const SearchNodeFilter& f, std::vector<FileInfo>& items, uint64_t& total) {
  return CallList("list_starred", FilterArgs(f), items, &total);
}
int Nimbard::ListLabelledNode(const SearchNodeFilter& f, std::vector<FileInfo>& items, uint64_t& total) {
  return CallList("list_labelled", FilterArgs(f), items, &total);
}
int Nimbard::ListSharedWithMe(const SearchNodeFilter& f, std::vector<FileInfo>& items, uint64_t& total) {
  return CallList("list_shared_with_me", FilterArgs(f), items, &total);
}
int Nimbard::ListSharedWithOthers(const SearchNodeFilter& f, std::vector<FileInfo>& items,
                                  uint64_t& total) {
  return CallList("list_shared_with_others", FilterArgs(f), items, &total);
}
int Nimbard::ListRecent(int64_t limit, std::vector<FileInfo>& items, const SearchNodeFilter& f) {
  PObject args = FilterArgs(f);
  args["limit"] = static_cast<long long>(limit);
  return CallList("list_recent", args, items, nullptr);
}
int Nimbard::ListAncestorByPath(const std::string& path, std::vector<FileInfo>& items) {
  PObject args = PObject::MakeMap();
  args["path"] = path;
  return CallList("list_ancestor", args, items, nullptr);
}

int Nimbard::ListBackups(std::vector<BackupInfo>& tasks) {
  PObject result;
  if (Call("list_backups", PObject::MakeMap(), &result) < 0) return -1;
  tasks.clear();
  for (const PObject& t : result["tasks"].asArray()) {
    tasks.push_back(BackupInfo{t["task_id"].asString(), t["name"].asString(), t["target"].asString()});
  }
  return 0;
}

int Nimbard::SearchFile(const PObject& query, std::vector<FileInfo>& items, unsigned& total,
                        unsigned long long& search_time_us) {
  PObject args = PObject::MakeMap();
  args["query"] = query;
  PObject result;
  if (Call("search", args, &result) < 0) return -1;
  items.clear();
  for (const PObject& p : result["items"].asArray()) {
    items.emplace_back();
    FileInfoFromPObject(p, items.back());
  }
  total = static_cast<unsigned>(result["total"].asUInt64());
  search_time_us = result["search_time"].asUInt64();
  return 0;
}

int Nimbard::GetFileInfo(const std::string& path, FileInfo& info, const FileInfoQueryParam& query) {
  PObject args = PObject::MakeMap();
  args["path"] = path;
  args["extra"] = StringsToPObject(query.extra);
  PObject result;
  if (Call("get_file_info", args, &result) < 0) return -1;
  return FileInfoFromPObject(result["file"], info);
}

int Nimbard::GetThumbnail(const std::string& path, const std::string& format, const std::string& size,
                          bool animate, std::string& thumbnail_path, std::string& file_name) {
  PObject args = PObject::MakeMap();
  args["path"] = path;
  args["format"] = format;
  args["size"] = size;
  args["animate"] = animate;
  PObject result;
  if (Call("get_thumbnail", args, &result) < 0) return -1;
  thumbnail_path = result["path"].asString();
  file_name = result["name"].asString();
  return 0;
}

int Nimbard::UpdateFileInfo(const PObject& request, FileInfo& info) {
  PObject result;
  if (Call("update_file", request, &result) < 0) return -1;
  return FileInfoFromPObject(result["file"], info);
}

int Nimbard::EditStarOnNode(const std::vector<std::string>& files,
                            const std::vector<StarEditAction>& actions) {
  PObject args = PObject::MakeMap();
  args["files"] = StringsToPObject(files);
  PObject list = PObject::MakeArray();
  for (const auto& a : actions) {
    PObject p;
    StarActionToPObject(a, p);
    list.push_back(p);
  }
  args["actions"] = list;
  return Call("edit_star", args, nullptr);
}

int Nimbard::EditLabelOnNode(const std::vector<std::string>& files,
                             const std::vector<LabelEditAction>& actions) {
  PObject args = PObject::MakeMap();
  args["files"] = StringsToPObject(files);
  PObject list = PObject::MakeArray();
  for (const auto& a : actions) {
    PObject p;
    LabelActionToPObject(a, p);
    list.push_back(p);
  }
  args["actions"] = list;
  return Call("edit_label", args, nullptr);
}

int Nimbard::RequestFileAccess(const std::string& path) {
  PObject args = PObject::MakeMap();
  args["path"] = path;
  return Call("request_access", args, nullptr);
}

int Nimbard::UploadFile(const PObject& request, FileInfo& info) {
  PObject result;
  if (Call("upload_file", request, &result) < 0) return -1;
  return FileInfoFromPObject(result["file"], info);
}

int Nimbard::UploadFileFromTPX(const PObject& request, std::string& task_id) {
  return CallTask("upload_from_tpx", request, task_id);
}

int Nimbard::DownloadFile(const std::string& task_id, std::string& output_path) {
  PObject args = PObject::MakeMap();
  args["task_id"] = task_id;
  PObject result;
  if (Call("download_task_result", args, &result) < 0) return -1;
  output_path = result["path"].asString();
  return 0;
}

int Nimbard::DownloadFile(const std::vector<FileSelector>& selection, const std::string& temp_dir,
                          DownloadResult& out) {
  PObject args = PObject::MakeMap();
  args["files"] = SelectorsToPObject(selection);
  args["temp_dir"] = temp_dir;
  PObject result;
  if (Call("download", args, &result) < 0) return -1;
  out.task_id = result["task_id"].asString();
  out.is_task = !out.task_id.empty();
  out.file_path = result["file_path"].asString();
  out.file_name = result["file_name"].asString();
  return 0;
}

int Nimbard::DownloadDryRun(const std::vector<FileSelector>& selection, std::string& answer_json) {
  PObject args = PObject::MakeMap();
  args["files"] = SelectorsToPObject(selection);
  PObject result;
  if (Call("download_dry_run", args, &result) < 0) return -1;
  answer_json = result.toJsonString();
  return 0;
}

namespace {
PObject MoveArgs(const std::vector<Nimbard::FileSelector>& files, const std::string& dest) {
  PObject args = PObject::MakeMap();
  args["files"] = SelectorsToPObject(files);
  args["dest"] = dest;
  return args;
}
}  // namespace

int Nimbard::CopyDryRun(const std::vector<FileSelector>& files, const std::string& dest, PObject& result) {
  return Call("copy_dry_run", MoveArgs(files, dest), &result);
}
int Nimbard::CopyFile(const std::vector<FileSelector>& files, const std::string& dest,
                      const std::string& conflict, std::string& task_id) {
  PObject args = MoveArgs(files, dest);
  args["conflict"] = conflict;
  return CallTask("copy", args, task_id);
}
int Nimbard::CopyFile(const std::vector<FileSelector>& files, const std::string& dest,
                      const PObject& conflict, std::string& task_id) {
  PObject args = MoveArgs(files, dest);
  args["conflict"] = conflict;
  return CallTask("copy", args, task_id);
}
int Nimbard::MoveDryRun(const std::vector<FileSelector>& files, const std::string& dest, PObject& result) {
  return Call("move_dry_run", MoveArgs(files, dest), &result);
}
int Nimbard::MoveFile(const std::vector<FileSelector>& files, const std::string& dest,
                      const std::string& conflict, const std::string& change_name,
                      std::string& task_id) {
  PObject args = MoveArgs(files, dest);
  args["conflict"] = conflict;
  args["change_name"] = change_name;
  return CallTask("move", args, task_id);
}
int Nimbard::MoveFile(const std::vector<FileSelector>& files, const std::string& dest,
                      const PObject& conflict, const std::string& change_name,
                      std::string& task_id) {
  PObject args = MoveArgs(files, dest);
  args["conflict"] = conflict;
  args["change_name"] = change_name;
  return CallTask("move", args, task_id);
}

int Nimbard::DeleteFile(const std::vector<std::string>& paths, bool permanent, std::string& task_id) {
  PObject args = PObject::MakeMap();
  args["files"] = StringsToPObject(paths);
  args["permanent"] = permanent;
  return CallTask("delete", args, task_id);
}

int Nimbard::ConvertOffice(const std::vector<std::string>& files, const std::string& dest,
                           const std::string& conflict, std::string& task_id) {
  PObject args = PObject::MakeMap();
  args["files"] = StringsToPObject(files);
  args["dest"] = dest;
  args["conflict"] = conflict;
  return CallTask("convert_office", args, task_id);
}

int Nimbard::LabelActionToPObject(const LabelEditAction& action, PObject& out) {
  out = PObject::MakeMap();
  out["action"] = action.action;
  out["label_id"] = action.label_id;
  out["name"] = action.name;
  out["member"] = MemberToPObject(action.member);
  return 0;
}

int Nimbard::StarActionToPObject(const StarEditAction& action, PObject& out) {
  out = PObject::MakeMap();
  out["starred"] = action.starred;
  out["member"] = MemberToPObject(action.member);
  return 0;
}

int Nimbard::FileInfoFromPObject(const PObject& p, FileInfo& f) { return orvel::ItemRecordFromPObject(p, f); }

PObject Nimbard::FileInfoToPObject(const FileInfo& f) { return orvel::ItemRecordToPObject(f); }

int CaseCmp(const std::string& a, const std::string& b) { return ::strcasecmp(a.c_str(), b.c_str()); }
