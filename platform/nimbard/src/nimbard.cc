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

uint32_t U32(const PObject& v) { return static_cast<uint32_t>(v.asUInt64()); }

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

int Nimbard::Call(const std::string& op, const PObject& args, PObject* result) {
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
  if (st.ok()) st = orvel::wire::ReadFrame(fd_, &answer);
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
  if (Call(op, args, &result) < 0) return -1;
  items.clear();
  for (const PObject& p : result["items"].asArray()) {
    items.emplace_back();
    FileInfoFromPObject(p, items.back());
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

int Nimbard::FileInfoFromPObject(const PObject& p, FileInfo& f) {
  if (!p.isMap()) return -1;
  f = FileInfo();
  f.sync_id = p["sync_id"].asUInt64();
  f.max_id = p["max_id"].asUInt64();
  f.size = p["size"].asUInt64();
  f.created_time = U32(p["created_time"]);
  f.access_time = U32(p["access_time"]);
  f.modified_time = U32(p["modified_time"]);
  f.change_time = U32(p["change_time"]);
  f.parent_id = p["parent_id"].asString();
  f.file_id = p["file_id"].asString();
  f.permanent_link = p["permanent_link"].asString();
  f.display_path = p["display_path"].asString();
  f.original_path = p["original_path"].asString();
  f.path = p["path"].asString();
  f.tpx_path = p["tpx_path"].asString();
  f.name = p["name"].asString();
  f.hash = p["hash"].asString();
  f.removed = p["removed"].asBool();
  f.encrypted = p["encrypted"].asBool();
  f.starred = p["starred"].asBool();
  f.shared = p["shared"].asBool();
  f.adv_shared = p["adv_shared"].asBool();
  f.sync_to_device = p["sync_to_device"].asBool();
  f.type = static_cast<int>(p["type"].asInt64());
  f.properties = p["properties"].asString();
  f.app_properties = p["app_properties"].asString();
  for (const PObject& e : p["permissions"].asArray()) {
    f.permissions.push_back(PermissionInfo{e["permission_id"].asString(), e["type"].asString(),
                                           e["name"].asString(), e["role"].asString(),
                                           e["inherited"].asBool()});
  }
  for (const PObject& e : p["labels"].asArray()) {
    f.labels.push_back(LabelInfo{e["label_id"].asString(), e["name"].asString(), e["color"].asString()});
  }
  const PObject& owner = p["owner"];
  f.owner_name = owner["name"].asString();
  f.owner_display_name = owner["display_name"].asString();
  f.owner_uid = U32(owner["uid"]);
  const PObject& c = p["capabilities"];
  f.capabilities = Capabilities{c["can_preview"].asBool(), c["can_read"].asBool(),
                                c["can_write"].asBool(),   c["can_delete"].asBool(),
                                c["can_rename"].asBool(),  c["can_comment"].asBool(),
                                c["can_share"].asBool(),   c["can_encrypt"].asBool(),
                                c["can_organize"].asBool()};
  f.content_snippet = p["content_snippet"].asString();
  f.revisions = U32(p["revisions"]);
  f.content_type = p["content_type"].asString();
  return 0;
}

PObject Nimbard::FileInfoToPObject(const FileInfo& f) {
  PObject p = PObject::MakeMap();
  p["sync_id"] = static_cast<unsigned long long>(f.sync_id);
  p["max_id"] = static_cast<unsigned long long>(f.max_id);
  p["size"] = static_cast<unsigned long long>(f.size);
  p["created_time"] = f.created_time;
  p["access_time"] = f.access_time;
  p["modified_time"] = f.modified_time;
  p["change_time"] = f.change_time;
  p["parent_id"] = f.parent_id;
  p["file_id"] = f.file_id;
  p["permanent_link"] = f.permanent_link;
  p["display_path"] = f.display_path;
  p["original_path"] = f.original_path;
  p["path"] = f.path;
  p["tpx_path"] = f.tpx_path;
  p["name"] = f.name;
  p["hash"] = f.hash;
  p["removed"] = f.removed;
  p["encrypted"] = f.encrypted;
  p["starred"] = f.starred;
  p["shared"] = f.shared;
  p["adv_shared"] = f.adv_shared;
  p["sync_to_device"] = f.sync_to_device;
  p["type"] = f.type;
  p["properties"] = f.properties;
  p["app_properties"] = f.app_properties;
  PObject perms = PObject::MakeArray();
  for (const auto& e : f.permissions) {
    PObject q = PObject::MakeMap();
    q["permission_id"] = e.permission_id;
    q["type"] = e.type;
    q["name"] = e.name;
    q["role"] = e.role;
    q["inherited"] = e.inherited;
    perms.push_back(q);
  }
  p["permissions"] = perms;
  PObject labels = PObject::MakeArray();
  for (const auto& l : f.labels) {
    PObject q = PObject::MakeMap();
    q["label_id"] = l.label_id;
    q["name"] = l.name;
    q["color"] = l.color;
    labels.push_back(q);
  }
  p["labels"] = labels;
  p["owner"]["name"] = f.owner_name;
  p["owner"]["display_name"] = f.owner_display_name;
  p["owner"]["uid"] = f.owner_uid;
  const Capabilities& c = f.capabilities;
  PObject& cap = p["capabilities"];
  cap["can_preview"] = c.can_preview;
  cap["can_read"] = c.can_read;
  cap["can_write"] = c.can_write;
  cap["can_delete"] = c.can_delete;
  cap["can_rename"] = c.can_rename;
  cap["can_comment"] = c.can_comment;
  cap["can_share"] = c.can_share;
  cap["can_encrypt"] = c.can_encrypt;
  cap["can_organize"] = c.can_organize;
  p["content_snippet"] = f.content_snippet;
  p["revisions"] = f.revisions;
  p["content_type"] = f.content_type;
  return p;
}

int CaseCmp(const std::string& a, const std::string& b) { return ::strcasecmp(a.c_str(), b.c_str()); }
