// orvelctl: entry point and usage. See orvelctl.h.
#include "orvelctl.h"

#include <cstdio>

namespace orvelctl {

int Fail(const std::string& text) {
  fprintf(stderr, "orvelctl: %s\n", text.c_str());
  return 1;
}

int Usage(const std::string& error) {
  if (!error.empty()) fprintf(stderr, "orvelctl: %s\n", error.c_str());
  fprintf(stderr,
          "usage:\n"
          "  orvelctl user add <name> [--password P] [--admin]\n"
          "  orvelctl user list\n"
          "  orvelctl user delete <name>\n"
          "  orvelctl user set <name> [--password P] [--admin on|off] [--enabled on|off]\n"
          "                           [--system-enabled on|off] [--expired on|off]\n"
          "                           [--app-privilege on|off]\n"
          "  orvelctl service status\n"
          "  orvelctl service set-state enabled|disabled|moving_db\n"
          "  orvelctl freeze on|off\n"
          "  orvelctl status\n"
          "  orvelctl share <owner> <path> --user|--group NAME [--role viewer|commenter|editor]\n"
          "  orvelctl unshare <owner> <path> --user|--group NAME\n"
          "  orvelctl link create <owner> <path> [--role R] [--expires-in SECONDS]\n"
          "  orvelctl link remove <token>\n"
          "  orvelctl backup add <user> <name> <folder path>\n"
          "  orvelctl backup remove <user> <task id>\n"
          "  orvelctl access-requests <owner>\n"
          "  orvelctl label list <user>\n"
          "  orvelctl label set-color <user> <label name or id> <#rrggbb>\n"
          "  orvelctl label rename <user> <label name or id> <new name>\n"
          "  orvelctl task list [owner] | task show <id> | task cancel <id>\n"
          "Paths are resolved under ZEMO_ROOT. Without --password, \"user add\" reads the\n"
          "password from standard input (prompting on a terminal).\n");
  return 2;
}

}  // namespace orvelctl

int main(int argc, char** argv) {
  using namespace orvelctl;
  Args args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
    Usage();
    return args.empty() ? 2 : 0;
  }
  std::string group = args[0];
  Args rest(args.begin() + 1, args.end());
  if (group == "user") return UserCommand(rest);
  if (group == "service") return ServiceCommand(rest);
  if (group == "freeze") return FreezeCommand(rest);
  if (group == "status") return StatusCommand(rest);
  if (group == "share") return ShareCommand(rest);
  if (group == "unshare") return UnshareCommand(rest);
  if (group == "link") return LinkCommand(rest);
  if (group == "backup") return BackupCommand(rest);
  if (group == "access-requests") return AccessRequestsCommand(rest);
  if (group == "task") return TaskCommand(rest);
  if (group == "label") return LabelCommand(rest);
  return Usage("unknown command '" + group + "'");
}
