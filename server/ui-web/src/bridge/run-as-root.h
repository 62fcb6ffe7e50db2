// RunAsRoot: a scope guard that switches the process's effective user and
// group ids to root (0/0) and puts the previous effective ids back when it
// goes out of scope. Real and saved ids are never touched, so a process that
// lowered only its effective ids (the web framework does) can come back.
//
// Failures are written to the system log at facility auth as
//   "<source>:<line> ERROR: IF_RUN_AS(0, 0)"            (switch, level error)
//   "<source>:<line> ERROR: ~IF_RUN_AS(<uid>, <gid>)"   (restore, level crit)
// where source/line name the place that made the guard.
//
// Effective ids are process-wide: the module serves one request per process
// on one thread, and every guard is released before the step that made it
// returns. Not copyable.
#pragma once

#include <sys/types.h>

namespace orvel::module {

class RunAsRoot {
 public:
  RunAsRoot(const char* source, int line);
  ~RunAsRoot();
  RunAsRoot(const RunAsRoot&) = delete;
  RunAsRoot& operator=(const RunAsRoot&) = delete;

  // True when the effective ids are 0/0 inside the scope.
  bool ok() const { return ok_; }

 private:
  void Restore();

  const char* source_;
  int line_;
  uid_t saved_uid_;
  gid_t saved_gid_;
  bool ok_ = false;
};

}  // namespace orvel::module

// Declares a guard named `var` that reports failures against this line.
#define ORVEL_RUN_AS_ROOT(var, source) ::orvel::module::RunAsRoot var((source), __LINE__)
