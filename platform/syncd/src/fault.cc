// See fault.h.
#include "fault.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log.h"

namespace orvel::syncd::fault {

std::atomic<bool> g_armed{false};

namespace {

enum class Action { kNone, kEio, kEnospc, kKill };

struct Plan {
  unsigned long long at = 0;
  Action action = Action::kNone;
  std::string prefix;
};

Plan g_plan;                              // written by Configure before any thread starts
std::atomic<unsigned long long> g_count{0};

const char* ActionName(Action a) {
  return a == Action::kEio ? "eio" : a == Action::kEnospc ? "enospc" : "kill";
}

bool Matches(const char* name, bool is_point) {
  if (g_plan.prefix.empty()) return !is_point;
  return strncmp(name, g_plan.prefix.c_str(), g_plan.prefix.size()) == 0;
}

// Counts a matching step; true when it is the Nth.
bool Hit(const char* name) {
  unsigned long long n = g_count.fetch_add(1) + 1;
  if (n != g_plan.at) return false;
  SLOG_WARN("fault injected at %s (#%llu): %s", name, n, ActionName(g_plan.action));
  if (g_plan.action == Action::kKill) kill(getpid(), SIGKILL);
  return true;
}

}  // namespace

Status Configure(const char* setting) {
  g_plan = Plan();
  if (!setting || !*setting) return Status::OK();
  std::string rest = setting;
  Plan s;
  while (!rest.empty()) {
    size_t comma = rest.find(',');
    std::string item = rest.substr(0, comma);
    rest = comma == std::string::npos ? "" : rest.substr(comma + 1);
    size_t eq = item.find('=');
    std::string key = item.substr(0, eq), value = eq == std::string::npos ? "" : item.substr(eq + 1);
    if (key == "at") {
      char* end = nullptr;
      s.at = strtoull(value.c_str(), &end, 10);
      if (value.empty() || *end || s.at == 0) return Status(kErrInvalidArgument, "ORVEL_FAULT: bad at=" + value);
    } else if (key == "action") {
      s.action = value == "eio" ? Action::kEio : value == "enospc" ? Action::kEnospc
                 : value == "kill" ? Action::kKill : Action::kNone;
      if (s.action == Action::kNone) return Status(kErrInvalidArgument, "ORVEL_FAULT: bad action=" + value);
    } else if (key == "step") {
      s.prefix = value;
    } else {
      return Status(kErrInvalidArgument, "ORVEL_FAULT: unknown key \"" + key + "\"");
    }
  }
  if (s.at == 0 || s.action == Action::kNone)
    return Status(kErrInvalidArgument, "ORVEL_FAULT needs at=N and action=eio|enospc|kill");
  g_plan = s;
  return Status::OK();
}

void Arm() {
  if (g_plan.action == Action::kNone) return;
  g_count = 0;
  g_armed = true;
}

int CheckSlow(const char* step) {
  if (!Matches(step, false) || !Hit(step)) return 0;
  return g_plan.action == Action::kEnospc ? ENOSPC : EIO;
}

void PointSlow(const char* name) {
  if (Matches(name, true)) Hit(name);
}

}  // namespace orvel::syncd::fault
