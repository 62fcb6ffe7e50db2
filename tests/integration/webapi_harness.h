// CgiRoot: a private ZEMO_ROOT for running the real entry.cgi the way the
// web server does (CGI environment, body on stdin), with the configuration,
// a user database and the test echo module installed. Removed on destruction.
// Sets ZEMO_ROOT in the test process for its lifetime. Not thread-safe.
#pragma once

#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include "orvelcommon/user_db.h"

namespace webapi_test {

struct CgiCall {
  // POST by default: a GET may only call the methods on the framework's
  // reading list (the echo module's are not).
  std::string method = "POST";
  std::string query;         // QUERY_STRING, raw
  std::string content_type;
  std::string body;
  bool send_length = true;   // CONTENT_LENGTH = body size
  std::string length;        // CONTENT_LENGTH to send instead, if not empty
  std::string cookie;        // HTTP_COOKIE
  std::string token;         // HTTP_X_ZEMO_TOKEN
  std::string remote_addr = "192.0.2.7";
  bool https = false;
};

struct CgiOutput {
  int exit_code = -1;
  std::string raw;      // all of stdout
  std::string headers;  // header block without the blank line
  std::string body;
  std::string err;      // stderr (log lines)
  Json::Value json;     // body parsed (null when not JSON)
  // Values of every header with that name (case-insensitive), in order.
  std::vector<std::string> Headers(const std::string& name) const;
  std::string Header(const std::string& name) const;
};

class CgiRoot {
 public:
  // conf: orvel.conf keys on top of {"web_account": ""}.
  explicit CgiRoot(const Json::Value& conf = Json::Value(Json::objectValue));
  ~CgiRoot();
  CgiRoot(const CgiRoot&) = delete;
  CgiRoot& operator=(const CgiRoot&) = delete;

  const std::string& root() const { return root_; }
  // Sets orvel.conf keys (the others stay as they are).
  void SetConf(const Json::Value& keys);
  std::string TmpDir() const;  // <data>/@tmp
  std::string ModulesDir() const;
  orvel::UserDb& Users() { return *users_; }
  orvel::UserRecord AddUser(const std::string& name, const std::string& password,
                            bool admin = false);

  CgiOutput Run(const CgiCall& call) const;
  // A call with api/method/version and extra query text ("a=1&b=2") in the
  // query string and no body (sent as POST; see CgiCall::method).
  CgiOutput Get(const std::string& api, const std::string& method, const std::string& version,
                const std::string& extra = "") const;

 private:
  std::string root_;
  std::string data_dir_;
  Json::Value conf_{Json::objectValue};
  std::unique_ptr<orvel::UserDb> users_;
};

// Entries of a folder, without "." and "..".
std::vector<std::string> ListDir(const std::string& dir);

}  // namespace webapi_test
