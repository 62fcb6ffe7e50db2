// orvelctl share/unshare/link/backup/access-requests/label: sharing with
// users and groups, sharing links, backup tasks, access requests and a user's
// labels, through the daemon's admin ops, or through the owner's own ops as
// the owner (sharing, links; docs/browse.md). Single-threaded.
#include <cstdio>
#include <ctime>
#include <string>

#include "nimbard/nimbard.h"
#include "orvelcommon/status.h"
#include "orvelcommon/sync_config.h"
#include "orvelctl.h"

namespace orvelctl {
namespace {

// Calls op; with `as` set, as that user ("sudo", which the daemon takes only
// from a root peer): the owner's own sharing ops serve the administrator too.
int Call(const std::string& op, const PObject& args, PObject* result, const std::string& as = "") {
  Nimbard client;
  client.SetServer("unix:/tmp/cloud-syncservice", 0);
  client.SetServerVersion(11061);
  client.SetTimeout(60);
  if (!as.empty()) client.SetSudoUser(as);
  if (client.Call(op, args, result) == 0) return 0;
  return Fail(op + " failed: " + client.GetLastErrorMessage() + " (" +
              std::to_string(client.GetLastError()) + ")");
}

// Reads "--user NAME" / "--group NAME" / "--role R" / "--expires-in S" from
// args[from..]; false on an unknown or incomplete option.
bool Options(const Args& args, size_t from, PObject* out, std::string* error) {
  for (size_t i = from; i < args.size(); i += 2) {
    if (i + 1 >= args.size()) {
      *error = "option " + args[i] + " needs a value";
      return false;
    }
    const std::string& opt = args[i];
    const std::string& val = args[i + 1];
    if (opt == "--user" || opt == "--group") {
      (*out)["kind"] = opt.substr(2);
      (*out)["name"] = val;
    } else if (opt == "--role") {
      (*out)["role"] = val;
    } else if (opt == "--expires-in") {
      // An expiry on the service clock (throttle_clock when set).
      SyncConfigMgr conf;
      conf.Init();
      (*out)["expires"] = static_cast<unsigned long long>(conf.ThrottleNow()) +
                          static_cast<unsigned long long>(std::strtoull(val.c_str(), nullptr, 10));
    } else {
      *error = "unknown option " + opt;
      return false;
    }
  }
  return true;
}

int Share(const Args& args, bool add) {
  if (args.size() < 4) return Usage(std::string(add ? "share" : "unshare") + " takes <owner> <path> --user|--group NAME");
  PObject a = PObject::MakeMap();
  a["path"] = args[1];
  std::string error;
  if (!Options(args, 2, &a, &error)) return Usage(error);
  if (!a.hasMember("name")) return Usage("name a member with --user or --group");
  if (Call(add ? "share" : "unshare", a, nullptr, args[0]) != 0) return 1;
  printf("%s %s %s %s\n", add ? "shared" : "unshared", args[1].c_str(), add ? "with" : "from",
         a["name"].asString().c_str());
  return 0;
}

int Link(const Args& args) {
  if (args.size() >= 3 && args[0] == "create") {
    PObject a = PObject::MakeMap();
    a["path"] = args[2];
    std::string error;
    if (!Options(args, 3, &a, &error)) return Usage(error);
    PObject r;
    if (Call("link_create", a, &r, args[1]) != 0) return 1;
    printf("%s\n", r["token"].asString().c_str());
    return 0;
  }
  if (args.size() == 2 && args[0] == "remove") {
    PObject a = PObject::MakeMap();
    a["token"] = args[1];
    if (Call("admin_link_remove", a, nullptr) != 0) return 1;
    printf("link removed\n");
    return 0;
  }
  return Usage("link takes 'create <owner> <path> [--role R] [--expires-in S]' or 'remove <token>'");
}

int Backup(const Args& args) {
  PObject a = PObject::MakeMap();
  PObject r;
  if (args.size() == 4 && args[0] == "add") {
    a["user"] = args[1];
    a["name"] = args[2];
    a["path"] = args[3];
    if (Call("admin_backup_add", a, &r) != 0) return 1;
    printf("%s\n", r["task_id"].asString().c_str());
    return 0;
  }
  if (args.size() == 3 && args[0] == "remove") {
    a["user"] = args[1];
    a["task_id"] = args[2];
    if (Call("admin_backup_remove", a, nullptr) != 0) return 1;
    printf("backup task removed\n");
    return 0;
  }
  return Usage("backup takes 'add <user> <name> <path>' or 'remove <user> <task_id>'");
}

// label list <user> | set-color <user> <label> <#rrggbb> | rename <user> <label> <name>
int Label(const Args& args) {
  PObject a = PObject::MakeMap();
  if (args.size() == 2 && args[0] == "list") {
    a["user"] = args[1];
    PObject r;
    if (Call("admin_label_list", a, &r) != 0) return 1;
    for (const PObject& l : r["labels"].asArray())
      printf("%s\t%s\t%s\n", l["label_id"].asString().c_str(), l["color"].asString().c_str(),
             l["name"].asString().c_str());
    return 0;
  }
  if (args.size() == 4 && (args[0] == "set-color" || args[0] == "rename")) {
    const bool colour = args[0] == "set-color";
    a["user"] = args[1];
    a["label"] = args[2];
    a[colour ? "color" : "name"] = args[3];
    if (Call(colour ? "admin_label_set_color" : "admin_label_rename", a, nullptr) != 0) return 1;
    printf("label %s %s %s\n", args[2].c_str(), colour ? "coloured" : "renamed to", args[3].c_str());
    return 0;
  }
  return Usage("label takes 'list <user>', 'set-color <user> <label> <#rrggbb>' or 'rename <user> <label> <name>'");
}

}  // namespace

int LabelCommand(const Args& args) { return Label(args); }

int ShareCommand(const Args& args) { return Share(args, true); }
int UnshareCommand(const Args& args) { return Share(args, false); }
int LinkCommand(const Args& args) { return Link(args); }
int BackupCommand(const Args& args) { return Backup(args); }

int AccessRequestsCommand(const Args& args) {
  if (args.size() != 1) return Usage("access-requests takes <owner>");
  PObject a = PObject::MakeMap();
  a["owner"] = args[0];
  PObject r;
  if (Call("admin_access_requests", a, &r) != 0) return 1;
  for (const PObject& q : r["requests"].asArray()) {
    time_t at = static_cast<time_t>(q["at"].asInt64());
    char when[32];
    struct tm tm;
    strftime(when, sizeof(when), "%Y-%m-%d %H:%M:%S", localtime_r(&at, &tm));
    printf("%s\t%s\t%s\t%s\n", when, q["requester"].asString().c_str(), q["path"].asString().c_str(),
           q["file_id"].asString().c_str());
  }
  return 0;
}

}  // namespace orvelctl
