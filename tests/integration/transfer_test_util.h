// TaskHelpers: shared helpers of the transfer tests: argument maps of the
// transfer ops, a raw op call that keeps the error, and waiting for a task
// through the daemon's task_get op. Mixed into a fixture that says how to
// make a client for a user. Not thread-safe.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "nimbard/nimbard.h"
#include "orvelcommon/wire.h"

namespace orvel::test {

class TaskHelpers {
 public:
  virtual ~TaskHelpers() = default;
  // A client of the daemon as user, over the socket of the stack this
  // process set up (ZEMO_ROOT); tests that start the daemon themselves
  // override it.
  virtual std::unique_ptr<Nimbard> TaskClient(const std::string& user) {
    auto n = std::make_unique<Nimbard>();
    n->SetServer("unix:/tmp/cloud-syncservice", 0);
    n->SetUser(user, "", "");
    n->SetServerVersion(11061);
    n->SetTimeout(60);
    return n;
  }

  static PObject Strings(const std::vector<std::string>& v) {
    PObject a = PObject::MakeArray();
    for (const auto& s : v) a.push_back(s);
    return a;
  }
  static PObject ItemArgs(const std::vector<std::string>& files, const std::string& dest,
                          const std::string& conflict = "") {
    PObject a = PObject::MakeMap();
    a["files"] = Strings(files);
    a["dest"] = dest;
    if (!conflict.empty()) a["conflict"] = conflict;
    return a;
  }
  static PObject DeleteArgs(const std::vector<std::string>& files, bool permanent) {
    PObject a = PObject::MakeMap();
    a["files"] = Strings(files);
    a["permanent"] = permanent;
    return a;
  }

  // Calls op as user; returns 0 or the error code (message in last_message_).
  int Call(const std::string& user, const std::string& op, const PObject& args, PObject* result) {
    auto c = TaskClient(user);
    PObject scratch;
    if (c->Call(op, args, result ? result : &scratch) == 0) return 0;
    last_message_ = c->GetLastErrorMessage();
    return c->GetLastError();
  }

  // Polls task_get until the task has ended (30 s at most); user "": polls
  // admin_task_show (a link visitor's task is no user's).
  PObject WaitTask(const std::string& user, const std::string& id) {
    PObject args = PObject::MakeMap();
    args["task_id"] = id;
    PObject r;
    for (int i = 0; i < 3000; ++i) {
      if (Call(user, user.empty() ? "admin_task_show" : "task_get", args, &r) != 0) {
        ADD_FAILURE() << "task_get " << id << ": " << last_message_;
        return PObject();
      }
      const std::string state = r["task"]["state"].asString();
      if (state == "finished" || state == "failed" || state == "cancelled") return r["task"];
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "task " << id << " did not end: " << r.toJsonString();
    return r["task"];
  }

  // Submits op and waits for its task.
  PObject RunTask(const std::string& user, const std::string& op, const PObject& args) {
    PObject r;
    int code = Call(user, op, args, &r);
    EXPECT_EQ(code, 0) << op << ": " << last_message_;
    if (code != 0) return PObject();
    return WaitTask(user, r["task_id"].asString());
  }

  std::string last_message_;
};

// Runs a program, returning its exit status and stdout+stderr.
inline int RunCaptured(const std::vector<std::string>& argv, std::string* out) {
  std::string cmd;
  for (const auto& a : argv) {
    cmd += "'";
    for (char c : a) cmd += c == '\'' ? std::string("'\\''") : std::string(1, c);
    cmd += "' ";
  }
  cmd += "2>&1";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return -1;
  out->clear();
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), p)) > 0) out->append(buf, n);
  int st = pclose(p);
  return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

}  // namespace orvel::test
