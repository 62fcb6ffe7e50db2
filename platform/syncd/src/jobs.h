// JobRunner: the daemon's background worker for the unlink job queue, plus
// the periodic cleaning of old temp files in @tmp.
//
// Design: jobs are rows of the unlink_jobs table (they survive a restart);
// PushUnlink validates the path, inserts the row and wakes the worker. The
// single worker thread sleeps until the next job is due (or a push, or stop),
// removes the due paths, deletes their rows, and every few hours removes @tmp
// entries older than a day. Stop() wakes it and joins; jobs not yet run stay
// queued for the next start. A caller learns nothing about completion: the
// path is gone some time after its due time.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "orvelcommon/status.h"

namespace orvel::syncd {

struct Daemon;

// True when path may be queued for removal: an absolute path strictly
// inside tmp_dir, without "." or ".." components, whose parent folder
// resolves (following links) inside the real tmp_dir.
Status CheckUnlinkPath(const std::string& path, const std::string& tmp_dir);

class JobRunner {
 public:
  explicit JobRunner(Daemon* daemon) : d_(daemon) {}
  ~JobRunner() { Stop(); }
  JobRunner(const JobRunner&) = delete;
  JobRunner& operator=(const JobRunner&) = delete;

  void Start();
  void Stop();
  // Queues path for removal after delay_seconds. kErrPermission when the
  // path is not allowed (CheckUnlinkPath), a store error otherwise.
  Status PushUnlink(const std::string& path, unsigned delay_seconds);
  // Runs every due job now (tests, shutdown); returns how many ran.
  int RunDue();

 private:
  void Loop();

  Daemon* d_;
  std::mutex mu_;
  std::condition_variable cv_;
  bool stop_ = false;
  bool kick_ = false;
  std::thread thread_;
};

}  // namespace orvel::syncd
