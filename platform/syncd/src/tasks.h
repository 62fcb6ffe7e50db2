// TaskRunner: the daemon's asynchronous tasks (copy, move, delete, download
// staging, server-path import, office conversion).
//
// Design: a task is a row of the tasks table (db/task_store.h), so its state,
// progress and result outlive the daemon. Submit() inserts a "queued" row and
// wakes the pool; each of the N worker threads claims the oldest queued row
// (atomically marking it "running"), runs the kind's function with a
// TaskContext, and ends the row "finished" (with its result), "failed" (with
// the error code and message) or "cancelled". Cancel() marks the row; a
// queued task ends at once, a running one sees Cancelled() between steps.
// Callers learn the outcome by reading the row (Get) or by Wait(), which
// sleeps until the task ends.
//
// Restart: Recover() runs before the workers start. A task that was
// "running" when the previous daemon stopped either goes back to the queue
// (kinds that can start over from nothing, such as download staging) or ends
// "failed" with -1115 and a message saying it was interrupted; its temp
// entries (@tmp/task-<id>-*) are removed. Work is always staged under such a
// temp name and renamed into place, so nothing half-made is ever visible
// under its final name. On shutdown (Stop) running tasks see Cancelled() and
// are handled the same way at the next start.
//
// Threading: every public method is thread-safe. The store connection is
// used under store_mu_; the cancel set and the wake-ups under mu_.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "db/task_store.h"
#include "orvelcommon/pobject.h"
#include "space.h"

namespace orvel::syncd {

struct Daemon;
class TaskRunner;

// What a task function sees.
class TaskContext {
 public:
  TaskContext(Daemon* d, TaskRunner* runner, TaskRow row)
      : d(d), row(std::move(row)), runner_(runner) {}
  Daemon* d;
  TaskRow row;
  PObject args;
  Caller caller;                         // the task's owner
  PObject result = PObject::MakeMap();   // stored when the task finishes

  // Records progress in items and, where the kind knows them, bytes
  // (written at most a few times a second, and always when done reaches
  // total). The first time done reaches half of total the progress is
  // written and the hook point "task-progress-<kind>" runs.
  void Progress(uint64_t done, uint64_t total, uint64_t bytes_done = 0, uint64_t bytes_total = 0);
  // Writes the last progress recorded, now (before a task ends early).
  void FlushProgress();
  // True once the task was cancelled or the daemon is stopping.
  bool Cancelled() const;
  // True once the task's owner (or an administrator) cancelled it; a daemon
  // that stops does not count.
  bool CancelledByRequest() const;
  // A temp path for this task: <@tmp>/task-<id>-<suffix> (removed by
  // recovery if the daemon dies).
  std::string TempPath(const std::string& suffix) const;
  // The same entry's name in @tmp (task-<id>-<suffix>).
  std::string TempName(const std::string& suffix) const;

 private:
  TaskRunner* runner_;
  int64_t last_progress_ms_ = 0;
  bool half_hook_ran_ = false;
  uint64_t done_ = 0, total_ = 0, bytes_done_ = 0, bytes_total_ = 0;  // the last recorded
};

using TaskFn = Status (*)(TaskContext& ctx);

struct TaskKind {
  const char* name;
  TaskFn fn;
  bool restartable;  // may run again from the start after an interruption
};

// Every kind of task (tasks_kinds.cc).
const std::vector<TaskKind>& TaskKinds();

class TaskRunner {
 public:
  TaskRunner(Daemon* d, unsigned threads) : d_(d), thread_count_(threads ? threads : 1) {}
  ~TaskRunner() { Stop(); }
  TaskRunner(const TaskRunner&) = delete;
  TaskRunner& operator=(const TaskRunner&) = delete;

  // Opens the task store and applies the restart rules above.
  Status Open();
  void Start();
  void Stop();

  // Queues a task for owner; *task_id is its id.
  Status Submit(const std::string& kind, const std::string& owner, const PObject& args,
                std::string* task_id);
  // kErrTaskNotFound when there is no such task.
  Status Get(const std::string& task_id, TaskRow* out);
  Status List(const std::string& owner, size_t limit, std::vector<TaskRow>* out);
  // One owner's tasks (TaskStore::ListOwned).
  Status ListOwned(const std::string& owner, const std::vector<std::string>& states, uint64_t offset,
                   uint64_t limit, std::vector<TaskRow>* out, uint64_t* total);
  // Cancels a queued or running task; an ended task is left as it is.
  Status Cancel(const std::string& task_id);
  // Waits up to timeout_ms for the task to end; *out is its last state.
  Status Wait(const std::string& task_id, int64_t timeout_ms, TaskRow* out);

  bool CancelRequested(const std::string& task_id);
  bool CancelAsked(const std::string& task_id);  // by a request, not by Stop()
  void SaveProgress(const std::string& task_id, uint64_t done, uint64_t total, uint64_t bytes_done,
                    uint64_t bytes_total);

 private:
  void Worker();
  void RunOne(TaskRow row);
  void End(const TaskRow& row, const Status& st, const PObject& result);

  Daemon* d_;
  unsigned thread_count_;
  std::mutex store_mu_;
  std::unique_ptr<TaskStore> store_;  // guarded by store_mu_
  std::mutex mu_;
  std::condition_variable work_cv_, ended_cv_;
  bool stop_ = false;                 // guarded by mu_
  std::set<std::string> cancel_;      // guarded by mu_
  std::vector<std::thread> threads_;
};

// The wire's view of a task row: {task_id, kind, owner, state, progress
// {done, total, bytes_done, bytes_total}, result, error {code, message},
// created, started, finished, attempts}.
PObject TaskToPObject(const TaskRow& row);

// A link visitor's task (download staging) belongs to no account: its owner
// is "visitor:" and the first 32 hex digits of the SHA-256 of the link's
// token, which no user name can be (user names never hold ':'). Only a
// caller presenting the same token reaches it; the token itself travels in
// the task's arguments ("sharing_token") so the task re-resolves its items
// through the link when it runs.
std::string VisitorTaskOwner(const std::string& sharing_token);
bool IsVisitorTaskOwner(const std::string& owner);

// Removes every @tmp entry named task-<task_id>-*.
void RemoveTaskTemps(const Daemon& d, const std::string& task_id);

}  // namespace orvel::syncd
