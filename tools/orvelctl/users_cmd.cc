// orvelctl user ...: users through the platform's user database
// (orvel::UserDb at SyncConfigMgr::GetUserDbPath()). Disabling, expiring or
// deleting an account, or setting its password, ends its sessions at once
// (UserDb does it in the same transaction). Single-threaded.
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "orvelcommon/sync_config.h"
#include "orvelcommon/user_db.h"
#include "orvelctl.h"

namespace orvelctl {
namespace {

// Opens the user database, creating its folder when needed.
int OpenUsers(std::unique_ptr<orvel::UserDb>* db) {
  SyncConfigMgr conf;
  if (conf.Init() != 0) return Fail("cannot read the configuration " + conf.GetConfigPath());
  std::string path = conf.GetUserDbPath();
  std::string dir = path.substr(0, path.find_last_of('/'));
  for (size_t pos = 1; pos <= dir.size(); ++pos) {
    if (pos == dir.size() || dir[pos] == '/') {
      std::string part = dir.substr(0, pos);
      if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
        return Fail("cannot create " + part + ": " + std::string(strerror(errno)));
    }
  }
  orvel::Status st = orvel::UserDb::Open(path, db);
  if (!st.ok()) return Fail("cannot open the user database " + path + ": " + st.ToString());
  return 0;
}

// Echo off while a terminal password is typed; restored on every way out.
class EchoOff {
 public:
  EchoOff() {
    if (tcgetattr(STDIN_FILENO, &saved_) == 0) {
      struct termios t = saved_;
      t.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      active_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &t) == 0;
    }
  }
  ~EchoOff() {
    if (active_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

 private:
  struct termios saved_;
  bool active_ = false;
};

int ReadPassword(std::string* out) {
  if (isatty(STDIN_FILENO)) {
    std::string again;
    {
      EchoOff guard;
      fprintf(stderr, "Password: ");
      std::getline(std::cin, *out);
      fprintf(stderr, "\nPassword again: ");
      std::getline(std::cin, again);
      fprintf(stderr, "\n");
    }
    if (*out != again) return Fail("the passwords differ");
  } else if (!std::getline(std::cin, *out)) {
    return Fail("no password given (use --password or standard input)");
  }
  if (out->empty()) return Fail("the password is empty");
  return 0;
}

int ParseOnOff(const std::string& opt, const std::string& v, bool* out) {
  if (v == "on" || v == "yes" || v == "true") *out = true;
  else if (v == "off" || v == "no" || v == "false") *out = false;
  else return Usage(opt + " takes on or off, not '" + v + "'");
  return 0;
}

int Add(const Args& a) {
  if (a.empty() || a[0].empty() || a[0][0] == '-') return Usage("user add needs a name");
  std::string name = a[0], password;
  bool admin = false, have_password = false;
  for (size_t i = 1; i < a.size(); ++i) {
    if (a[i] == "--admin") {
      admin = true;
    } else if (a[i] == "--password" && i + 1 < a.size()) {
      password = a[++i];
      have_password = true;
    } else {
      return Usage("unknown option for user add: '" + a[i] + "'");
    }
  }
  if (have_password && password.empty()) return Fail("the password is empty");
  if (!have_password && ReadPassword(&password) != 0) return 1;
  std::unique_ptr<orvel::UserDb> db;
  if (OpenUsers(&db) != 0) return 1;
  orvel::UserRecord rec;
  orvel::Status st = db->AddUser(name, password, admin, &rec);
  if (st.code() == orvel::kErrNameExists) return Fail("user '" + name + "' already exists");
  if (!st.ok()) return Fail("cannot add user '" + name + "': " + st.ToString());
  printf("added user %s (uid %u%s)\n", rec.name.c_str(), rec.uid, rec.admin ? ", administrator" : "");
  return 0;
}

int List(const Args& a) {
  if (!a.empty()) return Usage("user list takes no arguments");
  std::unique_ptr<orvel::UserDb> db;
  if (OpenUsers(&db) != 0) return 1;
  std::vector<orvel::UserRecord> users;
  orvel::Status st = db->ListUsers(&users);
  if (!st.ok()) return Fail("cannot list users: " + st.ToString());
  printf("%-6s %-20s %-20s %-5s %-7s %-6s %-7s %-8s %s\n", "UID", "NAME", "DISPLAY NAME", "ADMIN",
         "ENABLED", "SYSTEM", "EXPIRED", "APP-PRIV", "GROUPS");
  for (const auto& u : users) {
    std::string groups;
    for (const auto& g : u.groups) groups += (groups.empty() ? "" : ",") + g;
    printf("%-6u %-20s %-20s %-5s %-7s %-6s %-7s %-8s %s\n", u.uid, u.name.c_str(),
           u.display_name.c_str(), u.admin ? "yes" : "no", u.enabled ? "yes" : "no",
           u.system_enabled ? "yes" : "no", u.expired ? "yes" : "no",
           u.app_privilege ? "yes" : "no", groups.c_str());
  }
  return 0;
}

int Set(const Args& a) {
  if (a.empty() || a[0].empty() || a[0][0] == '-') return Usage("user set needs a name");
  const std::string& name = a[0];
  static const std::pair<const char*, const char*> kFlags[] = {
      {"--admin", "admin"}, {"--enabled", "enabled"}, {"--system-enabled", "system_enabled"},
      {"--expired", "expired"}, {"--app-privilege", "app_privilege"}};
  std::vector<std::pair<std::string, bool>> flags;
  std::string password;
  bool have_password = false;
  for (size_t i = 1; i < a.size(); ++i) {
    if (i + 1 >= a.size()) return Usage("option '" + a[i] + "' needs a value");
    if (a[i] == "--password") {
      password = a[++i];
      have_password = true;
      if (password.empty()) return Fail("the password is empty");
      continue;
    }
    const char* field = nullptr;
    for (const auto& f : kFlags) {
      if (a[i] == f.first) field = f.second;
    }
    if (!field) return Usage("unknown option for user set: '" + a[i] + "'");
    bool v = false;
    if (ParseOnOff(a[i], a[i + 1], &v) != 0) return 2;
    flags.emplace_back(field, v);
    ++i;
  }
  if (!have_password && flags.empty()) return Usage("user set needs at least one option");
  std::unique_ptr<orvel::UserDb> db;
  if (OpenUsers(&db) != 0) return 1;
  orvel::UserRecord rec;
  orvel::Status st = db->GetUser(name, &rec);
  if (st.code() == orvel::kErrNotFound) return Fail("no user named '" + name + "'");
  if (!st.ok()) return Fail("cannot read user '" + name + "': " + st.ToString());
  if (have_password) {
    st = db->SetPassword(name, password);
    if (!st.ok()) return Fail("cannot set the password of '" + name + "': " + st.ToString());
  }
  for (const auto& [field, value] : flags) {
    st = db->SetFlag(name, field, value);
    if (!st.ok()) return Fail("cannot set " + field + " of '" + name + "': " + st.ToString());
  }
  printf("updated user %s\n", name.c_str());
  return 0;
}

// Removes the account and its sessions; its home folder stays on disk.
int Delete(const Args& a) {
  if (a.size() != 1 || a[0].empty() || a[0][0] == '-') return Usage("user delete needs one name");
  const std::string& name = a[0];
  std::unique_ptr<orvel::UserDb> db;
  if (OpenUsers(&db) != 0) return 1;
  orvel::Status st = db->DeleteUser(name);
  if (st.code() == orvel::kErrNotFound) return Fail("no user named '" + name + "'");
  if (!st.ok()) return Fail("cannot delete user '" + name + "': " + st.ToString());
  printf("deleted user %s\n", name.c_str());
  return 0;
}

}  // namespace

int UserCommand(const Args& args) {
  if (args.empty()) return Usage("user needs a subcommand: add, list, set or delete");
  Args rest(args.begin() + 1, args.end());
  if (args[0] == "add") return Add(rest);
  if (args[0] == "list") return List(rest);
  if (args[0] == "set") return Set(rest);
  if (args[0] == "delete") return Delete(rest);
  return Usage("unknown user subcommand '" + args[0] + "'");
}

}  // namespace orvelctl
