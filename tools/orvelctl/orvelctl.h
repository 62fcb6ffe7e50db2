// orvelctl's commands. Each takes the words after its group name and
// returns the process exit code: 0 success, 1 failure (message on stderr),
// 2 usage error. Single-threaded.
#pragma once

#include <string>
#include <vector>

namespace orvelctl {

using Args = std::vector<std::string>;

int UserCommand(const Args& args);     // user add|list|set|delete
int ServiceCommand(const Args& args);  // service status|set-state
int FreezeCommand(const Args& args);   // freeze on|off
int StatusCommand(const Args& args);   // status
int ShareCommand(const Args& args);    // share <owner> <path> --user|--group NAME [--role R]
int UnshareCommand(const Args& args);  // unshare <owner> <path> --user|--group NAME
int LinkCommand(const Args& args);     // link create|remove
int BackupCommand(const Args& args);   // backup add|remove
int AccessRequestsCommand(const Args& args);  // access-requests <owner>
int TaskCommand(const Args& args);     // task list|show|cancel
int LabelCommand(const Args& args);    // label list|set-color|rename

// Prints "orvelctl: <text>" to stderr and returns 1.
int Fail(const std::string& text);
// Prints the usage to stderr (with an optional error first) and returns 2.
int Usage(const std::string& error = "");

}  // namespace orvelctl
