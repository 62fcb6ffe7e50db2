// TestStack: a private ZEMO_ROOT with the real daemon, and runners for the
// real entry.cgi and orvelctl. Used by integration and end-to-end tests.
#include "stack.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "fcgi_client.h"
#include "nimbard/file.h"

namespace orvel::test {
namespace {

const char* kTarget = "/var/packages/ZemoraOrvel/target";

// Creates path and its missing parents; parents get 0755, path gets mode.
void MakeDirs(const std::string& path, mode_t mode = 0755) {
  std::string cur;
  std::stringstream ss(path);
  std::string part;
  while (std::getline(ss, part, '/')) {
    if (part.empty()) continue;
    cur += "/" + part;
    const mode_t m = cur.size() == path.size() ? mode : 0755;
    if (::mkdir(cur.c_str(), m) == 0) ::chmod(cur.c_str(), m);
  }
}

std::string Encode(const std::string& in) {
  static const char* kHex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : in) {
    if (isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

std::string JsonText(const Json::Value& v) {
  Json::StreamWriterBuilder b;
  b["indentation"] = "";
  return Json::writeString(b, v);
}

bool CanConnect(const std::string& path) {
  int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
  bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

WebapiMode WebapiModeFromEnv() {
  const char* mode = std::getenv("ORVEL_TEST_WEBAPI_MODE");
  return mode != nullptr && std::strcmp(mode, "fastcgi") == 0 ? WebapiMode::kFastCgi
                                                              : WebapiMode::kCgi;
}

std::vector<std::string> BaseEnv(const std::string& root) {
  std::vector<std::string> env = {"ZEMO_ROOT=" + root, "PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "HOME", "ORVEL_SYNCD_HOOKS"}) {
    if (const char* v = std::getenv(name)) env.push_back(std::string(name) + "=" + v);
  }
  return env;
}

ProcessOutput RunProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         const std::string& input) {
  int in[2], out[2], err[2];
  if (::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC)) return {};
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    std::vector<char*> a, e;
    for (const auto& s : argv) a.push_back(const_cast<char*>(s.c_str()));
    for (const auto& s : env) e.push_back(const_cast<char*>(s.c_str()));
    a.push_back(nullptr);
    e.push_back(nullptr);
    ::execve(a[0], a.data(), e.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  ::fcntl(in[1], F_SETFL, O_NONBLOCK);
  ProcessOutput result;
  size_t written = 0;
  int in_fd = in[1];
  if (input.empty()) {
    ::close(in_fd);
    in_fd = -1;
  }
  bool out_open = true, err_open = true;
  char buf[65536];
  while (out_open || err_open) {
    pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {in_fd, POLLOUT, 0}};
    ::poll(fds, in_fd >= 0 ? 3 : 2, 1000);
    if (in_fd >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
      ssize_t n = ::write(in_fd, input.data() + written, input.size() - written);
      if (n > 0) written += static_cast<size_t>(n);
      if (n < 0 && errno != EAGAIN) written = input.size();
      if (written >= input.size()) {
        ::close(in_fd);
        in_fd = -1;
      }
    }
    for (int i = 0; i < 2; ++i) {
      if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      ssize_t n = ::read(fds[i].fd, buf, sizeof(buf));
      if (n > 0) {
        (i == 0 ? result.out : result.err).append(buf, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        (i == 0 ? out_open : err_open) = false;
      }
    }
  }
  if (in_fd >= 0) ::close(in_fd);
  ::close(out[0]);
  ::close(err[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

int FreePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
  socklen_t len = sizeof(addr);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(fd);
  return ntohs(addr.sin_port);
}

std::string EntryCgiPath() { return std::string(ORVEL_BUILD_DIR) + "/platform/webapi/entry.cgi"; }
std::string SyncdPath() { return std::string(ORVEL_BUILD_DIR) + "/platform/syncd/orvel-syncd"; }
std::string ModulePath() {
  return std::string(ORVEL_BUILD_DIR) + "/server/ui-web/libZemoraOrvelFiles.so";
}
std::string ClientModulePath() {
  return std::string(ORVEL_BUILD_DIR) + "/server/ui-web/libZemoraOrvelClient.so";
}
std::string OrvelctlPath() { return std::string(ORVEL_BUILD_DIR) + "/tools/orvelctl/orvelctl"; }

Json::Value CgiResult::Json() const {
  Json::Value v;
  Json::CharReaderBuilder b;
  std::string errs;
  std::istringstream s(body);
  if (!Json::parseFromStream(b, s, &v, &errs)) return Json::Value();
  return v;
}

std::string CgiResult::Header(const std::string& name) const {
  std::istringstream s(headers);
  std::string line;
  while (std::getline(s, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    if (strcasecmp(line.substr(0, colon).c_str(), name.c_str()) != 0) continue;
    size_t v = line.find_first_not_of(' ', colon + 1);
    return v == std::string::npos ? "" : line.substr(v);
  }
  return "";
}

std::unique_ptr<TestStack> TestStack::Start() {
  std::unique_ptr<TestStack> stack(new TestStack());
  char tmpl[] = "/tmp/orvel-test-XXXXXX";
  const char* dir = ::mkdtemp(tmpl);
  EXPECT_NE(dir, nullptr);
  if (dir == nullptr) return nullptr;
  stack->root_ = dir;
  ::chmod(dir, 0755);  // the web account must be able to traverse it
  ::setenv("ZEMO_ROOT", dir, 1);
  const std::string target = stack->root_ + kTarget;
  MakeDirs(target + "/etc");
  MakeDirs(target + "/var");
  MakeDirs(stack->root_ + "/tmp");
  ::chmod((stack->root_ + "/tmp").c_str(), 01777);
  MakeDirs(stack->root_ + "/usr/lib/zemo/webapi");
  MakeDirs(stack->root_ + "/usr/bin");
  MakeDirs(stack->DataDir() + "/@db", 0700);
  {
    Json::Value conf(Json::objectValue);
    conf["web_account"] = ::geteuid() == 0 ? "www-data" : "";
    conf["upload_max_bytes"] = Json::UInt64(4ull << 30);
    conf["download_x_sendfile"] = false;  // no web server in front until StartHttp
    std::ofstream(target + "/etc/orvel.conf") << JsonText(conf);
  }
  ::symlink(ModulePath().c_str(), (stack->root_ + "/usr/lib/zemo/webapi/libZemoraOrvelFiles.so").c_str());
  ::symlink(ClientModulePath().c_str(),
            (stack->root_ + "/usr/lib/zemo/webapi/libZemoraOrvelClient.so").c_str());
  const std::string archiver = std::string(ORVEL_BUILD_DIR) + "/platform/archiver/zip";
  if (::access(archiver.c_str(), X_OK) == 0) {
    ::symlink(archiver.c_str(), (stack->root_ + "/usr/bin/zip").c_str());
  }
  Status st = UserDb::Open(stack->DataDir() + "/@db/users.db", &stack->users_);
  EXPECT_TRUE(st.ok()) << st.ToString();
  stack->StartDaemon();
  if (WebapiModeFromEnv() == WebapiMode::kFastCgi) stack->StartWorker();
  return stack;
}

TestStack::~TestStack() {
  if (lighttpd_pid_ > 0) {
    ::kill(lighttpd_pid_, SIGTERM);
    ::waitpid(lighttpd_pid_, nullptr, 0);
  }
  StopWorker();
  StopDaemon();
  users_.reset();
  if (!root_.empty() && std::getenv("ORVEL_KEEP_TEST_ROOT") == nullptr) File::Remove(root_);
}

std::string TestStack::DataDir() const { return root_ + "/volume1/ZemoraOrvel"; }
std::string TestStack::HomeDir(const std::string& user) const { return DataDir() + "/homes/" + user; }
std::string TestStack::SocketPath() const { return root_ + "/tmp/cloud-syncservice"; }
orvel::UserDb& TestStack::Users() { return *users_; }

UserRecord TestStack::AddUser(const std::string& name, bool admin, const std::string& password) {
  UserRecord rec;
  Status st = users_->AddUser(name, password, admin, &rec);
  EXPECT_TRUE(st.ok()) << st.ToString();
  return rec;
}

SessionRecord TestStack::Login(const std::string& user) {
  SessionRecord s;
  Status st = users_->CreateSession(user, &s);
  EXPECT_TRUE(st.ok()) << st.ToString();
  sessions_[user] = s;
  return s;
}

void TestStack::SetConf(const Json::Value& keys) const {
  const std::string path = root_ + kTarget + "/etc/orvel.conf";
  Json::Value conf;
  {
    std::ifstream in(path);
    in >> conf;
  }
  for (const std::string& k : keys.getMemberNames()) conf[k] = keys[k];
  std::ofstream(path) << JsonText(conf);
}

int TestStack::StartHttp(const std::string& extra_conf) {
  if (lighttpd_pid_ > 0) return http_port_;
  Json::Value handover(Json::objectValue);
  handover["download_x_sendfile"] = true;
  SetConf(handover);
  http_port_ = FreePort();
  const std::string conf = root_ + "/lighttpd.conf";
  std::vector<std::string> render_env = BaseEnv(root_);
  render_env.push_back(std::string("WEBAPI_MODE=") +
                       (mode_ == WebapiMode::kFastCgi ? "fastcgi" : "cgi"));
  ProcessOutput r = RunProcess(
      {std::string(ORVEL_SOURCE_DIR) + "/scripts/render-lighttpd-conf.sh", root_,
       std::to_string(http_port_), std::string(ORVEL_SOURCE_DIR) + "/web", EntryCgiPath(), conf,
       root_ + kTarget + "/var"},
      render_env);
  EXPECT_EQ(r.exit_code, 0) << r.err;
  if (!extra_conf.empty()) std::ofstream(conf, std::ios::app) << extra_conf;
  lighttpd_pid_ = ::fork();
  if (lighttpd_pid_ == 0) {
    ::execl("/usr/sbin/lighttpd", "lighttpd", "-D", "-f", conf.c_str(), nullptr);
    ::_exit(127);
  }
  const std::string url = "http://127.0.0.1:" + std::to_string(http_port_) + "/";
  for (int i = 0; i < 200; ++i) {
    if (RunProcess({"/usr/bin/curl", "-s", "-o", "/dev/null", url}, BaseEnv(root_)).exit_code == 0) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  return http_port_;
}

std::string TestStack::WorkerSocketPath() const { return root_ + "/webapi-fcgi.sock"; }
std::string TestStack::WorkerLogPath() const { return root_ + kTarget + "/var/webapi-worker.log"; }

void TestStack::StartWorker(const std::vector<std::string>& extra_env) {
  StopWorker();
  mode_ = WebapiMode::kFastCgi;
  const std::string path = WorkerSocketPath();
  ::unlink(path.c_str());
  int listen_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
  if (::bind(listen_fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
      ::listen(listen_fd, 16) != 0) {
    ADD_FAILURE() << "worker socket " << path << ": " << std::strerror(errno);
    ::close(listen_fd);
    return;
  }
  std::vector<std::string> env = BaseEnv(root_);
  env.insert(env.end(), extra_env.begin(), extra_env.end());
  const std::string log = WorkerLogPath();
  pid_t pid = ::fork();
  if (pid == 0) {
    // As lighttpd starts a FastCGI program: the listening socket is fd 0.
    ::dup2(listen_fd, 0);
    int null_fd = ::open("/dev/null", O_WRONLY);
    int log_fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (null_fd >= 0) ::dup2(null_fd, 1);
    if (log_fd >= 0) ::dup2(log_fd, 2);
    std::vector<char*> e;
    for (auto& s : env) e.push_back(s.data());
    e.push_back(nullptr);
    std::string prog = EntryCgiPath();
    char* argv[] = {prog.data(), nullptr};
    ::execve(argv[0], argv, e.data());
    ::_exit(127);
  }
  ::close(listen_fd);
  worker_pid_ = pid;
}

void TestStack::StopWorker() {
  if (worker_pid_ <= 0) return;
  ::kill(worker_pid_, SIGTERM);
  ::waitpid(worker_pid_, nullptr, 0);
  worker_pid_ = -1;
}

int TestStack::WaitWorkerExit() {
  if (worker_pid_ <= 0) return -1;
  int status = 0;
  ::waitpid(worker_pid_, &status, 0);
  worker_pid_ = -1;
  return status;
}

void TestStack::StartDaemon(const std::vector<std::string>& extra_env) {
  if (daemon_pid_ > 0) return;
  const std::string log = root_ + kTarget + "/var/syncd-test.log";
  pid_t pid = ::fork();
  if (pid == 0) {
    int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) {
      ::dup2(fd, 1);
      ::dup2(fd, 2);
    }
    std::vector<std::string> env = BaseEnv(root_);
    env.insert(env.end(), extra_env.begin(), extra_env.end());
    std::vector<char*> e;
    for (auto& s : env) e.push_back(s.data());
    e.push_back(nullptr);
    std::string prog = SyncdPath();
    char* argv[] = {prog.data(), nullptr};
    ::execve(argv[0], argv, e.data());
    ::_exit(127);
  }
  daemon_pid_ = pid;
  for (int i = 0; i < 400; ++i) {
    if (CanConnect(SocketPath())) return;
    int status;
    if (::waitpid(pid, &status, WNOHANG) == pid) {
      daemon_pid_ = -1;
      ADD_FAILURE() << "orvel-syncd exited at start-up; see " << log;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  ADD_FAILURE() << "orvel-syncd did not open its socket in 10 s";
}

int TestStack::WaitDaemonExit() {
  if (daemon_pid_ <= 0) return -1;
  int status = 0;
  ::waitpid(daemon_pid_, &status, 0);
  daemon_pid_ = -1;
  return status;
}

void TestStack::StopDaemon() {
  if (daemon_pid_ <= 0) return;
  ::kill(daemon_pid_, SIGTERM);
  int status;
  ::waitpid(daemon_pid_, &status, 0);
  daemon_pid_ = -1;
}

void TestStack::KillDaemon() {
  if (daemon_pid_ <= 0) return;
  ::kill(daemon_pid_, SIGKILL);
  int status;
  ::waitpid(daemon_pid_, &status, 0);
  daemon_pid_ = -1;
}

CgiResult TestStack::Cgi(const CgiRequest& request) const {
  std::vector<std::string> env;
  std::string query, body = request.body;
  for (const auto& [k, v] : request.params) {
    if (!query.empty()) query += "&";
    query += Encode(k) + "=" + Encode(v);
  }
  env.push_back("REQUEST_METHOD=" + request.method);
  env.push_back("GATEWAY_INTERFACE=CGI/1.1");
  env.push_back("SCRIPT_NAME=/webapi/entry.cgi");
  env.push_back("SERVER_NAME=localhost");
  env.push_back("SERVER_PORT=80");
  env.push_back("REMOTE_ADDR=" + request.remote_addr);
  if (!request.cookie.empty()) env.push_back("HTTP_COOKIE=" + request.cookie);
  if (!request.token_header.empty()) env.push_back("HTTP_X_ZEMO_TOKEN=" + request.token_header);
  if (!request.content_type.empty()) {
    env.push_back("CONTENT_TYPE=" + request.content_type);
    if (!query.empty()) env.push_back("QUERY_STRING=" + query);
  } else if (request.method == "GET") {
    env.push_back("QUERY_STRING=" + query);
  } else {
    env.push_back("CONTENT_TYPE=application/x-www-form-urlencoded");
    body = query;
  }
  env.push_back("CONTENT_LENGTH=" + std::to_string(body.size()));
  ProcessOutput p;
  if (mode_ == WebapiMode::kFastCgi) {
    FcgiReply reply = FcgiCall(WorkerSocketPath(), env, body);
    p.exit_code = reply.complete ? static_cast<int>(reply.app_status) : -1;
    p.out = reply.out;
    p.err = reply.err + reply.error;
  } else {
    std::vector<std::string> process_env = BaseEnv(root_);
    process_env.insert(process_env.end(), env.begin(), env.end());
    p = RunProcess({EntryCgiPath()}, process_env, body);
  }
  CgiResult r;
  r.exit_code = p.exit_code;
  r.err = p.err;
  size_t split = p.out.find("\r\n\r\n");
  size_t skip = 4;
  if (split == std::string::npos) {
    split = p.out.find("\n\n");
    skip = 2;
  }
  if (split == std::string::npos) {
    r.headers = p.out;
  } else {
    r.headers = p.out.substr(0, split);
    r.body = p.out.substr(split + skip);
  }
  return r;
}

CgiResult TestStack::CallRaw(const std::string& user, const std::string& method,
                             const Json::Value& params, unsigned version) const {
  return CallApiRaw(user, "ZEMO.ZemoraOrvel.Files", method, params, version);
}

Json::Value TestStack::CallApi(const std::string& user, const std::string& api,
                               const std::string& method, const Json::Value& params,
                               unsigned version) const {
  CgiResult r = CallApiRaw(user, api, method, params, version);
  Json::Value v = r.Json();
  if (v.isNull()) ADD_FAILURE() << "not JSON: " << r.headers << "\n\n" << r.body << "\n" << r.err;
  return v;
}

CgiResult TestStack::CallApiRaw(const std::string& user, const std::string& api,
                                const std::string& method, const Json::Value& params,
                                unsigned version) const {
  CgiRequest req;
  req.params = {{"api", api},
                {"method", method},
                {"version", std::to_string(version)}};
  for (const auto& name : params.getMemberNames()) {
    req.params.emplace_back(name, JsonText(params[name]));
  }
  if (!user.empty()) {
    auto it = sessions_.find(user);
    if (it == sessions_.end()) {
      SessionRecord s;
      Status st = users_->CreateSession(user, &s);
      EXPECT_TRUE(st.ok()) << st.ToString();
      it = sessions_.emplace(user, s).first;
    }
    req.params.emplace_back("_sid", it->second.sid);
  }
  return Cgi(req);
}

Json::Value TestStack::Call(const std::string& user, const std::string& method,
                            const Json::Value& params, unsigned version) const {
  CgiResult r = CallRaw(user, method, params, version);
  Json::Value v = r.Json();
  if (v.isNull()) ADD_FAILURE() << "not JSON: " << r.headers << "\n\n" << r.body << "\n" << r.err;
  return v;
}

int TestStack::Orvelctl(const std::vector<std::string>& args, std::string* out) const {
  std::vector<std::string> argv = {OrvelctlPath()};
  argv.insert(argv.end(), args.begin(), args.end());
  ProcessOutput p = RunProcess(argv, BaseEnv(root_), "");
  if (out) *out = p.out + p.err;
  return p.exit_code;
}

}  // namespace orvel::test
