// NAS-side helpers that modules use beside the request and response:
// user look-ups and application privileges (over the user database), the
// user's personal web settings, process pipes, URL encoding and the file
// outputer that streams a download to stdout. Not thread-safe.
#pragma once

#include <json/json.h>

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace SDK {

class User {
 public:
  User() = default;
  User(std::string name, uint32_t uid) : name_(std::move(name)), uid_(uid) {}
  const std::string& getName() const { return name_; }
  uint32_t getUid() const { return uid_; }

 private:
  std::string name_;
  uint32_t uid_ = 0;
};

class UserService {
 public:
  // 0 and *user filled, or -1 when the uid is unknown.
  int GetUserByUid(uint32_t uid, User* user);
  int GetUserByName(const std::string& name, User* user);
};

class UserAppPrivilege {
 public:
  // The package's application id, as NAS privilege rules name it.
  static constexpr const char* kAppName = "ZEMO.ZemoraOrvel";
  // 0 permitted; 1 not permitted (the user lacks the privilege); 2 not
  // permitted (the user is unknown); -1 the user database cannot be read.
  int Check(const std::string& user, const std::string& remote_ip);
};

}  // namespace SDK

// A user record of the NAS user library; allocated by ZEMOUserGet.
struct ZEMOUSER {
  char* name;
  uint32_t uid;
  uint32_t gid;
  int admin;
};
int ZEMOUserGet(const char* name, ZEMOUSER** out);  // 0 or -1
void ZEMOUserFree(ZEMOUSER* user);

// popen without a shell: argv[0] is the program path (resolved under
// ZEMO_ROOT like the other fixed paths). mode "r" reads the child's stdout.
// Returns null with errno set on failure.
FILE* TLIBCPopen(const std::vector<std::string>& argv, const char* mode);
// Waits for the child; its exit status, or -1.
int TLIBCPclose(FILE* pipe);

// Percent-encodes everything but unreserved characters (RFC 3986).
std::string UrlEncode(const std::string& in);
std::string UrlDecode(const std::string& in);

// The logged-in user's personal settings of the web desktop (a JSON object
// kept per user in the working folder).
class WebMan {
 public:
  explicit WebMan(int flags) : flags_(flags) {}
  // 0 and the settings of user (an object, empty when none), or -1.
  int loadUserJsonSettings(const std::string& user, Json::Value& settings);
  int saveUserJsonSettings(const std::string& user, const Json::Value& settings);

 private:
  int flags_;
};

// Streams a file or a pipe to stdout as the body of a CGI answer. Output
// writes its own "Content-Type", "Content-Length" (files) and "Status"
// headers and the blank line, then the bytes, in constant memory.
class HTTPFileOutputer {
 public:
  // The MIME type of a file name from /etc/mime.types (resolved under
  // ZEMO_ROOT first, then the system's); "" when unknown.
  static std::string GetMimeType(const std::string& name);
  // 0 on success, -1 with errno set.
  int Output(const std::string& path, const std::string& content_type);
  int Output(FILE* pipe, const std::string& name, const std::string& content_type);
};

// Hands a regular file to the web server instead of streaming it (the web
// server must take "X-Sendfile" from entry.cgi for the hand-over folder,
// docs/transfer.md "Downloads by hand-over"). Stage hard-links the file,
// which must lie below tmp_dir (the data folder's @tmp), into the hand-over
// folder <tmp_dir>/handover; Output checks that link right before the
// hand-over and writes "Content-Type", "X-Sendfile" (the link's path),
// "Status" and the blank line. The link outlives the object (the web server
// opens it later) and is swept after a few minutes.
class HTTPFileHandOver {
 public:
  explicit HTTPFileHandOver(std::string tmp_dir);
  ~HTTPFileHandOver();  // removes a link that was not handed over
  HTTPFileHandOver(const HTTPFileHandOver&) = delete;
  HTTPFileHandOver& operator=(const HTTPFileHandOver&) = delete;

  // 0, or -1 with errno: EPERM (not below tmp_dir, or a hand-over folder
  // that is not the effective user's), ELOOP (a symbolic link on the way),
  // EINVAL (not a regular file), or that of the failed call.
  int Stage(const std::string& path);
  // 0, or -1 with errno and nothing written: EPERM when the link is no
  // longer in the hand-over folder or no longer the staged file.
  int Output(const std::string& content_type, FILE* out = stdout);
  const std::string& link_path() const { return link_path_; }

 private:
  std::string tmp_dir_;
  std::string link_path_;
  struct stat staged_ = {};
  bool handed_over_ = false;
};
