// orvelctl task list|show|cancel: the daemon's asynchronous tasks through its
// admin ops (admin_task_list, admin_task_show, admin_task_cancel).
// Single-threaded.
#include <cstdio>
#include <ctime>
#include <string>

#include "nimbard/nimbard.h"
#include "orvelctl.h"

namespace orvelctl {
namespace {

int CallTaskOp(const std::string& op, const PObject& args, PObject* result) {
  Nimbard client;
  client.SetServer("unix:/tmp/cloud-syncservice", 0);
  client.SetServerVersion(11061);
  client.SetTimeout(60);
  if (client.Call(op, args, result) == 0) return 0;
  return Fail(op + " failed: " + client.GetLastErrorMessage() + " (" +
              std::to_string(client.GetLastError()) + ")");
}

std::string Progress(const PObject& t) {
  return std::to_string(t["progress"]["done"].asUInt64()) + "/" +
         std::to_string(t["progress"]["total"].asUInt64());
}

void PrintTask(const PObject& t) {
  printf("task:     %s\n", t["task_id"].asString().c_str());
  printf("kind:     %s\n", t["kind"].asString().c_str());
  printf("owner:    %s\n", t["owner"].asString().c_str());
  printf("state:    %s\n", t["state"].asString().c_str());
  printf("progress: %s\n", Progress(t).c_str());
  if (t["error"]["code"].asInt64() != 0)
    printf("error:    %s (%lld)\n", t["error"]["message"].asString().c_str(),
           static_cast<long long>(t["error"]["code"].asInt64()));
  printf("result:   %s\n", t["result"].toJsonString().c_str());
}

}  // namespace

int TaskCommand(const Args& args) {
  if (!args.empty() && args[0] == "list" && args.size() <= 2) {
    PObject a = PObject::MakeMap();
    if (args.size() == 2) a["owner"] = args[1];
    PObject r;
    if (CallTaskOp("admin_task_list", a, &r) != 0) return 1;
    printf("%-32s  %-15s  %-12s  %-9s  %s\n", "TASK", "KIND", "OWNER", "STATE", "PROGRESS");
    for (const PObject& t : r["tasks"].asArray()) {
      printf("%-32s  %-15s  %-12s  %-9s  %s\n", t["task_id"].asString().c_str(),
             t["kind"].asString().c_str(), t["owner"].asString().c_str(),
             t["state"].asString().c_str(), Progress(t).c_str());
    }
    return 0;
  }
  if (args.size() == 2 && (args[0] == "show" || args[0] == "cancel")) {
    PObject a = PObject::MakeMap();
    a["task_id"] = args[1];
    PObject r;
    if (CallTaskOp(args[0] == "show" ? "admin_task_show" : "admin_task_cancel", a, &r) != 0) return 1;
    PrintTask(r["task"]);
    return 0;
  }
  return Usage("task takes 'list [owner]', 'show <id>' or 'cancel <id>'");
}

}  // namespace orvelctl
