// Helpers for the module's unit tests: a BridgeRequest over a JSON object, a
// private ZEMO_ROOT folder, and capture of what the module prints on stdout.
// Not thread-safe (tests run one at a time).
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "bridge/bridge-request.h"
#include "nimbard/file.h"

namespace orvel::module::test {

// Parameters from a JSON object; the client's origin is fixed.
class JsonRequest : public BridgeRequest {
 public:
  explicit JsonRequest(Json::Value params = Json::Value(Json::objectValue))
      : params_(std::move(params)) {}
  Json::Value GetParamRef(const std::string& name, const Json::Value& def) const override {
    return params_.isMember(name) ? params_[name] : def;
  }
  bool HasParam(const std::string& name) const override { return params_.isMember(name); }
  std::string GetRemoteIP() const override { return "10.0.0.7"; }
  std::string GetUrlProto() const override { return "https"; }
  std::string GetQueryString() const override { return query_; }
  Json::Value& params() { return params_; }
  void set_query(std::string query) { query_ = std::move(query); }

 private:
  Json::Value params_;
  std::string query_;
};

inline Json::Value ParseJson(const std::string& text) {
  Json::Value out;
  Json::Reader reader;
  EXPECT_TRUE(reader.parse(text, out)) << text;
  return out;
}

// A temp folder that becomes ZEMO_ROOT for the test and is removed after.
class ScopedZemoRoot {
 public:
  ScopedZemoRoot() {
    char tmpl[] = "/tmp/orvel-module-XXXXXX";
    root_ = mkdtemp(tmpl);
    const char* old = getenv("ZEMO_ROOT");
    had_old_ = old != nullptr;
    if (had_old_) old_ = old;
    setenv("ZEMO_ROOT", root_.c_str(), 1);
  }
  ~ScopedZemoRoot() {
    if (had_old_) {
      setenv("ZEMO_ROOT", old_.c_str(), 1);
    } else {
      unsetenv("ZEMO_ROOT");
    }
    File::Remove(root_);
  }
  ScopedZemoRoot(const ScopedZemoRoot&) = delete;
  ScopedZemoRoot& operator=(const ScopedZemoRoot&) = delete;

  const std::string& path() const { return root_; }
  // Writes a file under the root, making its folders.
  std::string Write(const std::string& rel, const std::string& content, mode_t mode = 0644) const {
    const std::string full = root_ + "/" + rel;
    std::string cmd = "mkdir -p '" + full.substr(0, full.rfind('/')) + "'";
    EXPECT_EQ(system(cmd.c_str()), 0);
    std::ofstream(full) << content;
    chmod(full.c_str(), mode);
    return full;
  }

 private:
  std::string root_;
  std::string old_;
  bool had_old_ = false;
};

// Runs fn and returns what it printed on stdout.
template <class Fn>
std::string CaptureStdout(Fn fn) {
  fflush(stdout);
  ::testing::internal::CaptureStdout();
  fn();
  fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

}  // namespace orvel::module::test
