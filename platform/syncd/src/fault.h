// fault: the fault-injection seam of the daemon's durable steps. Each step
// that makes the tree or the database durable (fsync, rename, link, mkdir,
// write of a temp copy, removal, database commit) calls fault::Check once
// with its name. When ORVEL_FAULT is set in the daemon's environment, one
// process-wide counter counts those calls and the Nth one fails with EIO or
// ENOSPC, or kills the process (SIGKILL) right there, as a crash would.
//
//   ORVEL_FAULT="at=N,action=eio|enospc|kill[,step=PREFIX]"
//
// With step=PREFIX only steps whose name starts with PREFIX are counted.
// Named points (fault::Point, names starting "point.") mark the places a
// test wants to die at exactly, such as "after the rename, before the
// commit"; they are counted only when PREFIX names them, and only kill.
//
// The variable is read once at start-up (Configure) and counting starts when
// the daemon starts serving (Arm), so start-up itself is never counted.
// Every fired fault is logged as "fault injected at <step> (#N): <action>",
// which a test reads to learn that its N was reached. Unset, each call costs
// one branch on a flag. Thread-safe.
#pragma once

#include <atomic>

#include "orvelcommon/status.h"

namespace orvel::syncd::fault {

extern std::atomic<bool> g_armed;

// Parses the setting (nullptr or "" leaves the seam off). kErrInvalidArgument
// for a malformed setting.
Status Configure(const char* setting);
// Starts counting (no effect when not configured).
void Arm();

int CheckSlow(const char* step);
void PointSlow(const char* name);

// Counts the durable step `step`: 0 to go on, or the errno to fail it with.
// Does not return when the action is kill.
inline int Check(const char* step) {
  return g_armed.load(std::memory_order_relaxed) ? CheckSlow(step) : 0;
}

// A named place ("point.<what>"): kills the process when it is the Nth
// counted step; otherwise does nothing.
inline void Point(const char* name) {
  if (g_armed.load(std::memory_order_relaxed)) PointSlow(name);
}

}  // namespace orvel::syncd::fault
