// orvelctl service/freeze/status: the daemon's state through its admin ops
// (docs/wire.md), over the same client library the web module uses.
// Single-threaded.
#include <cstdio>
#include <string>

#include "nimbard/nimbard.h"
#include "orvelcommon/status.h"
#include "orvelctl.h"

namespace orvelctl {
namespace {

// One request to the daemon; prints the error and returns 1 on failure.
int CallDaemon(const std::string& op, const PObject& args, PObject* result) {
  Nimbard client;
  client.SetServer("unix:/tmp/cloud-syncservice", 0);
  client.SetServerVersion(11061);
  client.SetTimeout(60);
  if (client.Call(op, args, result) == 0) return 0;
  int code = client.GetLastError();
  std::string hint;
  if (code == orvel::kErrBusy || code == orvel::kErrStorage) hint = " (is orvel-syncd running?)";
  if (code == orvel::kErrPermission) hint = " (run as root or as the daemon's user)";
  return Fail(op + " failed: " + client.GetLastErrorMessage() + " (" + std::to_string(code) + ")" + hint);
}

}  // namespace

int ServiceCommand(const Args& args) {
  if (args.size() == 1 && args[0] == "status") {
    PObject result;
    if (CallDaemon("status", PObject::MakeMap(), &result) != 0) return 1;
    printf("%s\n", result["status"].asString().c_str());
    return 0;
  }
  if (args.size() == 2 && args[0] == "set-state") {
    const std::string& state = args[1];
    if (state != "enabled" && state != "disabled" && state != "moving_db")
      return Usage("service set-state takes enabled, disabled or moving_db, not '" + state + "'");
    PObject a = PObject::MakeMap();
    a["status"] = state;
    if (CallDaemon("admin_set_status", a, nullptr) != 0) return 1;
    printf("service state: %s\n", state.c_str());
    return 0;
  }
  return Usage("service takes 'status' or 'set-state <state>'");
}

int FreezeCommand(const Args& args) {
  if (args.size() != 1 || (args[0] != "on" && args[0] != "off"))
    return Usage("freeze takes on or off");
  PObject a = PObject::MakeMap();
  a["view_id"] = 0u;
  a["frozen"] = args[0] == "on";
  if (CallDaemon("admin_set_freeze", a, nullptr) != 0) return 1;
  printf("freeze mode: %s\n", args[0].c_str());
  return 0;
}

int StatusCommand(const Args& args) {
  if (!args.empty()) return Usage("status takes no arguments");
  PObject s;
  if (CallDaemon("admin_stats", PObject::MakeMap(), &s) != 0) return 1;
  auto u = [&s](const char* k) { return static_cast<unsigned long long>(s[k].asUInt64()); };
  printf("state:          %s\n", s["status"].asString().c_str());
  printf("freeze:         %s\n", s["frozen"].asBool() ? "on" : "off");
  printf("pid:            %lld\n", static_cast<long long>(s["pid"].asInt64()));
  printf("uptime:         %llu s\n", u("uptime"));
  printf("data folder:    %s\n", s["data_dir"].asString().c_str());
  printf("schema version: %llu\n", u("schema_version"));
  printf("homes:          %llu\n", u("homes"));
  printf("files:          %llu (%llu bytes)\n", u("files"), u("bytes"));
  printf("folders:        %llu\n", u("folders"));
  printf("vanished:       %llu\n", u("vanished"));
  printf("revisions:      %llu\n", u("revisions"));
  printf("unlink jobs:    %llu\n", u("unlink_jobs"));
  printf("last change:    %llu\n", u("max_id"));
  return 0;
}

}  // namespace orvelctl
