// CgiRoot; see webapi_harness.h.
#include "webapi_harness.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <fstream>
#include <sstream>

#include "orvelcommon/sync_config.h"

extern char** environ;

namespace webapi_test {

namespace {

void MakeDirs(const std::string& path) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos == path.size() || path[pos] == '/') ::mkdir(path.substr(0, pos).c_str(), 0755);
  }
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

void SplitAnswer(CgiOutput* out) {
  size_t end = out->raw.find("\r\n\r\n");
  if (end == std::string::npos) {
    out->headers = out->raw;
    return;
  }
  out->headers = out->raw.substr(0, end);
  out->body = out->raw.substr(end + 4);
  Json::CharReaderBuilder b;
  std::string errs;
  std::istringstream in(out->body);
  if (!Json::parseFromStream(b, in, &out->json, &errs)) out->json = Json::Value();
}

// The child's environment: the CGI variables and the sanitizer options.
std::vector<std::string> ChildEnv(const std::string& root, const CgiCall& call) {
  std::vector<std::string> env = {
      "ZEMO_ROOT=" + root,
      "PATH=/usr/bin:/bin",
      "REQUEST_METHOD=" + call.method,
      "QUERY_STRING=" + call.query,
      "REMOTE_ADDR=" + call.remote_addr,
      "SERVER_NAME=nas.example",
      "HTTP_HOST=files.example:8443",
      "SERVER_PORT=8443",
  };
  if (!call.content_type.empty()) env.push_back("CONTENT_TYPE=" + call.content_type);
  if (!call.length.empty()) {
    env.push_back("CONTENT_LENGTH=" + call.length);
  } else if (call.send_length) {
    env.push_back("CONTENT_LENGTH=" + std::to_string(call.body.size()));
  }
  if (!call.cookie.empty()) env.push_back("HTTP_COOKIE=" + call.cookie);
  if (!call.token.empty()) env.push_back("HTTP_X_ZEMO_TOKEN=" + call.token);
  if (call.https) env.push_back("HTTPS=on");
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* v = ::getenv(name)) env.push_back(std::string(name) + "=" + v);
  }
  return env;
}

}  // namespace

std::vector<std::string> CgiOutput::Headers(const std::string& name) const {
  std::vector<std::string> values;
  std::istringstream lines(headers);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t colon = line.find(':');
    if (colon == std::string::npos || Lower(line.substr(0, colon)) != Lower(name)) continue;
    size_t v = line.find_first_not_of(' ', colon + 1);
    values.push_back(v == std::string::npos ? "" : line.substr(v));
  }
  return values;
}

std::string CgiOutput::Header(const std::string& name) const {
  std::vector<std::string> values = Headers(name);
  return values.empty() ? "" : values.front();
}

CgiRoot::CgiRoot(const Json::Value& conf) {
  char tmpl[] = "/tmp/webapi-test-XXXXXX";
  root_ = ::mkdtemp(tmpl);
  ::chmod(root_.c_str(), 0755);
  ::setenv("ZEMO_ROOT", root_.c_str(), 1);
  conf_["web_account"] = "";
  MakeDirs(root_ + "/var/packages/ZemoraOrvel/target/etc");
  SetConf(conf);
  SyncConfigMgr mgr;
  EXPECT_EQ(0, mgr.Init());
  data_dir_ = mgr.GetDataDirPath();
  MakeDirs(mgr.GetDbConnectParam());
  orvel::Status st = orvel::UserDb::Open(mgr.GetUserDbPath(), &users_);
  EXPECT_TRUE(st.ok()) << st.ToString();
  MakeDirs(ModulesDir());
  EXPECT_EQ(0, ::symlink(WEBAPI_ECHO_MODULE, (ModulesDir() + "/echo.so").c_str()));
}

void CgiRoot::SetConf(const Json::Value& keys) {
  for (const std::string& key : keys.getMemberNames()) conf_[key] = keys[key];
  WriteFile(root_ + "/var/packages/ZemoraOrvel/target/etc/orvel.conf", conf_.toStyledString());
}

CgiRoot::~CgiRoot() {
  users_.reset();
  std::string cmd = "rm -rf '" + root_ + "'";
  EXPECT_EQ(0, std::system(cmd.c_str()));
  ::unsetenv("ZEMO_ROOT");
}

std::string CgiRoot::TmpDir() const { return data_dir_ + "/@tmp"; }
std::string CgiRoot::ModulesDir() const { return root_ + "/usr/lib/zemo/webapi"; }

orvel::UserRecord CgiRoot::AddUser(const std::string& name, const std::string& password,
                                   bool admin) {
  orvel::UserRecord rec;
  orvel::Status st = users_->AddUser(name, password, admin, &rec);
  EXPECT_TRUE(st.ok()) << st.ToString();
  return rec;
}

CgiOutput CgiRoot::Run(const CgiCall& call) const {
  std::string in_path = root_ + "/.stdin", out_path = root_ + "/.stdout",
              err_path = root_ + "/.stderr";
  WriteFile(in_path, call.body);
  std::vector<std::string> env = ChildEnv(root_, call);
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(&e[0]);
  envp.push_back(nullptr);
  pid_t pid = ::fork();
  if (pid == 0) {
    int in = ::open(in_path.c_str(), O_RDONLY);
    int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(err, 2);
    char* argv[] = {const_cast<char*>(WEBAPI_ENTRY_CGI), nullptr};
    ::execve(WEBAPI_ENTRY_CGI, argv, envp.data());
    ::_exit(127);
  }
  CgiOutput result;
  int status = 0;
  ::waitpid(pid, &status, 0);
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.raw = ReadFile(out_path);
  result.err = ReadFile(err_path);
  SplitAnswer(&result);
  // Under the sanitizer build a report from the child fails the test.
  EXPECT_EQ(std::string::npos, result.err.find("Sanitizer")) << result.err;
  EXPECT_EQ(std::string::npos, result.err.find("runtime error:")) << result.err;
  EXPECT_EQ(0, result.exit_code) << result.err;
  return result;
}

CgiOutput CgiRoot::Get(const std::string& api, const std::string& method,
                       const std::string& version, const std::string& extra) const {
  CgiCall call;
  call.query = "api=" + api + "&method=" + method + "&version=" + version;
  if (!extra.empty()) call.query += "&" + extra;
  return Run(call);
}

std::vector<std::string> ListDir(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = ::opendir(dir.c_str());
  if (d == nullptr) return names;
  while (struct dirent* e = ::readdir(d)) {
    std::string name = e->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(d);
  return names;
}

}  // namespace webapi_test
