// TaskStore: the asynchronous tasks table behind one interface (SQL stays in
// this folder). A task row holds its kind, owner, state, arguments and result
// (msgpack blobs), progress, error and times.
//
// States: "queued" -> "running" -> "finished" | "failed" | "cancelled";
// "queued" -> "cancelled" when cancelled before a worker took it.
//
// Threading: one TaskStore is one database connection; the TaskRunner
// serialises its use with a mutex. Every method returns kErrNotFound for a
// missing task, kErrStorage/kErrBusy for database failures.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orvelcommon/status.h"

namespace orvel::syncd {

struct TaskRow {
  std::string task_id, kind, owner, state;
  std::string args, result;  // msgpack
  uint64_t done = 0, total = 0;              // items
  uint64_t bytes_done = 0, bytes_total = 0;  // 0/0 where the kind counts items only
  int error_code = 0;
  std::string error_message;
  int64_t created = 0, started = 0, finished = 0;
  int attempts = 0;
  bool cancel_requested = false;
};

class TaskStore {
 public:
  virtual ~TaskStore() = default;
  virtual Status Insert(const TaskRow& row) = 0;
  virtual Status Get(const std::string& task_id, TaskRow* out) = 0;
  // Newest first; owner "" means every owner.
  virtual Status List(const std::string& owner, size_t limit, std::vector<TaskRow>* out) = 0;
  // One owner's tasks, newest first, from offset, at most limit; states
  // empty means every state. *total counts every match. Reads only the
  // owner's rows (index tasks_owner).
  virtual Status ListOwned(const std::string& owner, const std::vector<std::string>& states,
                           uint64_t offset, uint64_t limit, std::vector<TaskRow>* out,
                           uint64_t* total) = 0;
  // Takes the oldest queued task: marks it running (started = now,
  // attempts + 1) and returns it. *found is false when none is queued.
  virtual Status ClaimNext(int64_t now, TaskRow* out, bool* found) = 0;
  virtual Status SetProgress(const std::string& task_id, uint64_t done, uint64_t total,
                             uint64_t bytes_done, uint64_t bytes_total) = 0;
  // Ends a task: state is "finished", "failed" or "cancelled".
  virtual Status Finish(const std::string& task_id, const std::string& state,
                        const std::string& result, int error_code, const std::string& message,
                        int64_t now) = 0;
  // Marks the cancel request; a queued task is cancelled at once
  // (*was_queued true).
  virtual Status RequestCancel(const std::string& task_id, int64_t now, bool* was_queued) = 0;
  // Tasks left "running" by a previous daemon.
  virtual Status ListRunning(std::vector<TaskRow>* out) = 0;
  // Puts a running task back in the queue (restart recovery).
  virtual Status Requeue(const std::string& task_id) = 0;
  // Removes ended tasks that ended before `before`; *removed counts them.
  virtual Status PruneEnded(int64_t before, uint64_t* removed) = 0;
};

// Opens the tasks table of the SQLite database at path (already migrated by
// the node store's pool).
Status OpenSqliteTaskStore(const std::string& path, std::unique_ptr<TaskStore>* out);

// The SQL of the migration that creates the tasks table.
extern const char kTasksMigrationSql[];
// The SQL of the migration that adds the byte counts of progress.
extern const char kTaskBytesMigrationSql[];

}  // namespace orvel::syncd
