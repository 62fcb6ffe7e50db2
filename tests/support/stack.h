// TestStack: a private, complete stack for one test binary: a temp ZEMO_ROOT
// with the configuration, the data folder, the module linked into the
// framework's modules folder and the archiver at usr/bin/zip, the real
// orvel-syncd on its socket, and helpers to run the real entry.cgi as lighttpd
// would (CGI environment, body on stdin), or, in FastCGI mode, one
// persistent entry.cgi worker on a unix socket that every request goes to.
// The mode comes from ORVEL_TEST_WEBAPI_MODE ("cgi", the default, or
// "fastcgi"); ctest runs the stack's tests in both. Everything is removed
// when the stack is destroyed. Not thread-safe.
#pragma once

#include <json/json.h>
#include <sys/types.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "orvelcommon/user_db.h"

namespace orvel::test {

struct ProcessOutput {
  int exit_code = -1;
  std::string out, err;
};
// Runs argv (argv[0] an absolute path) with env, feeding input to stdin;
// collects stdout and stderr.
ProcessOutput RunProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         const std::string& input = "");
// ZEMO_ROOT=root, PATH and the sanitizer options of this process.
std::vector<std::string> BaseEnv(const std::string& root);
// A TCP port on 127.0.0.1 that was free a moment ago.
int FreePort();

// Paths of the built programs (from the build tree).
std::string EntryCgiPath();
std::string SyncdPath();
std::string ModulePath();
std::string ClientModulePath();
std::string OrvelctlPath();

enum class WebapiMode { kCgi, kFastCgi };
// The mode ORVEL_TEST_WEBAPI_MODE asks for.
WebapiMode WebapiModeFromEnv();

struct CgiResult {
  // CGI: the exit code. FastCGI: END_REQUEST's application status, or -1
  // when the worker did not end the request.
  int exit_code = -1;
  std::string headers;  // the CGI header block as printed (without the blank line)
  std::string body;
  std::string err;      // stderr (log lines); FastCGI: the STDERR records
  // Parses body as JSON (null when it is not JSON).
  Json::Value Json() const;
  // Value of the first header with that name (case-insensitive), "" if none.
  std::string Header(const std::string& name) const;
};

struct CgiRequest {
  std::string method = "POST";         // GET puts params in the query string
  std::vector<std::pair<std::string, std::string>> params;  // raw text values
  std::string content_type;            // set to send `body` as is
  std::string body;
  std::string cookie;                  // HTTP_COOKIE
  std::string token_header;            // HTTP_X_ZEMO_TOKEN
  std::string remote_addr = "127.0.0.1";
};

class TestStack {
 public:
  // Creates the root and starts the daemon; gtest-fails (fatal) on error.
  static std::unique_ptr<TestStack> Start();
  ~TestStack();

  const std::string& root() const { return root_; }
  std::string DataDir() const;     // <root>/volume1/ZemoraOrvel
  std::string HomeDir(const std::string& user) const;  // <data>/homes/<user>
  std::string SocketPath() const;

  // Adds a user (password "secret" unless given) and returns its record.
  UserRecord AddUser(const std::string& name, bool admin = false,
                     const std::string& password = "secret");
  // A fresh session for the user (sid and token).
  SessionRecord Login(const std::string& user);
  orvel::UserDb& Users();

  // Merges keys into orvel.conf (entry.cgi reads it per request, the
  // daemon when it starts).
  void SetConf(const Json::Value& keys) const;

  // Runs entry.cgi once (CGI mode) or sends the request to the worker.
  CgiResult Cgi(const CgiRequest& request) const;

  WebapiMode mode() const { return mode_; }
  // Starts the FastCGI worker (stopping a running one first) with
  // extra_env added to its environment (e.g. ORVEL_FAULT), and switches the
  // stack to FastCGI mode. Its stderr goes to WorkerLogPath().
  void StartWorker(const std::vector<std::string>& extra_env = {});
  void StopWorker();  // SIGTERM and wait
  // Waits for a worker that ends by itself; its wait status.
  int WaitWorkerExit();
  pid_t worker_pid() const { return worker_pid_; }
  std::string WorkerSocketPath() const;
  std::string WorkerLogPath() const;
  // Calls ZEMO.ZemoraOrvel.Files `method` (version 1) as `user` ("" = no
  // session). `params` values are JSON and are sent as JSON text. Returns
  // the parsed envelope.
  Json::Value Call(const std::string& user, const std::string& method,
                   const Json::Value& params = Json::Value(Json::objectValue),
                   unsigned version = 1) const;
  // The same, returning the raw CGI result.
  CgiResult CallRaw(const std::string& user, const std::string& method,
                    const Json::Value& params = Json::Value(Json::objectValue),
                    unsigned version = 1) const;

  // The same for any API served by entry.cgi (the client APIs, say).
  Json::Value CallApi(const std::string& user, const std::string& api, const std::string& method,
                      const Json::Value& params = Json::Value(Json::objectValue),
                      unsigned version = 1) const;
  CgiResult CallApiRaw(const std::string& user, const std::string& api, const std::string& method,
                       const Json::Value& params = Json::Value(Json::objectValue),
                       unsigned version = 1) const;

  // Runs orvelctl with the stack's ZEMO_ROOT; returns the exit code and
  // fills *out with stdout+stderr.
  int Orvelctl(const std::vector<std::string>& args, std::string* out = nullptr) const;

  // Starts lighttpd on a free 127.0.0.1 port with the project's rendered
  // configuration, running the real entry.cgi; waits until it answers and
  // returns the port. Turns on X-Sendfile downloads (without lighttpd in
  // front they are off: entry.cgi streams). Stopped with the stack.
  // extra_conf is appended to the rendered configuration (the benches add
  // their own anchors there).
  int StartHttp(const std::string& extra_conf = "");
  int http_port() const { return http_port_; }

  // extra_env: "NAME=value" entries added to the daemon's environment
  // (e.g. ORVEL_FAULT, see docs/daemon.md).
  void StartDaemon(const std::vector<std::string>& extra_env = {});
  void StopDaemon();  // SIGTERM and wait
  void KillDaemon();  // SIGKILL and wait
  // Waits for a daemon that ends by itself (a fault point); its wait status.
  int WaitDaemonExit();
  pid_t daemon_pid() const { return daemon_pid_; }

 private:
  TestStack() = default;
  std::string root_;
  pid_t daemon_pid_ = -1;
  pid_t lighttpd_pid_ = -1;
  pid_t worker_pid_ = -1;
  WebapiMode mode_ = WebapiMode::kCgi;
  int http_port_ = 0;
  std::unique_ptr<orvel::UserDb> users_;
  mutable std::map<std::string, SessionRecord> sessions_;
};

}  // namespace orvel::test
