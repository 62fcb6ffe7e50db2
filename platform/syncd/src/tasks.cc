// See tasks.h.
#include "tasks.h"

#include <chrono>
#include <cstring>
#include <ctime>

#include "daemon.h"
#include "hooks.h"
#include "log.h"
#include "orvelcommon/sha256.h"
#include "orvelcommon/wire.h"

namespace orvel::syncd {
namespace {

constexpr int64_t kProgressEveryMs = 250;
constexpr int64_t kKeepEndedSeconds = 7 * 24 * 3600;
constexpr char kVisitorOwnerPrefix[] = "visitor:";

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

const TaskKind* FindKind(const std::string& name) {
  for (const TaskKind& k : TaskKinds()) {
    if (name == k.name) return &k;
  }
  return nullptr;
}

bool Ended(const std::string& state) {
  return state == "finished" || state == "failed" || state == "cancelled";
}

PObject DecodeOr(const std::string& blob, PObject def) {
  PObject out;
  if (blob.empty() || !wire::Decode(blob.data(), blob.size(), &out).ok()) return def;
  return out;
}

}  // namespace

void TaskContext::Progress(uint64_t done, uint64_t total, uint64_t bytes_done, uint64_t bytes_total) {
  done_ = done;
  total_ = total;
  bytes_done_ = bytes_done;
  bytes_total_ = bytes_total;
  const bool half = !half_hook_ran_ && total > 1 && done < total && done * 2 >= total;
  int64_t now = NowMs();
  if (!half && done < total && now - last_progress_ms_ < kProgressEveryMs) return;
  last_progress_ms_ = now;
  runner_->SaveProgress(row.task_id, done, total, bytes_done, bytes_total);
  if (half) {
    half_hook_ran_ = true;
    RunHook("task-progress-" + row.kind);  // a test reads or cancels the task here
  }
}

void TaskContext::FlushProgress() {
  runner_->SaveProgress(row.task_id, done_, total_, bytes_done_, bytes_total_);
}

bool TaskContext::Cancelled() const { return runner_->CancelRequested(row.task_id); }

bool TaskContext::CancelledByRequest() const { return runner_->CancelAsked(row.task_id); }

std::string TaskContext::TempName(const std::string& suffix) const {
  return "task-" + row.task_id + "-" + suffix;
}

std::string TaskContext::TempPath(const std::string& suffix) const {
  return d->layout.tmp + "/" + TempName(suffix);
}

std::string VisitorTaskOwner(const std::string& sharing_token) {
  Sha256 hash;
  hash.Update(sharing_token.data(), sharing_token.size());
  return kVisitorOwnerPrefix + hash.HexDigest().substr(0, 32);
}

bool IsVisitorTaskOwner(const std::string& owner) {
  return owner.compare(0, sizeof(kVisitorOwnerPrefix) - 1, kVisitorOwnerPrefix) == 0;
}

void RemoveTaskTemps(const Daemon& d, const std::string& task_id) {
  std::vector<DirEntryAt> entries;
  if (!ReadDirAt(d.dirs.tmp(), d.layout.tmp, &entries).ok()) return;
  const std::string prefix = "task-" + task_id + "-";
  for (const DirEntryAt& e : entries) {
    if (e.name.compare(0, prefix.size(), prefix) != 0) continue;
    Status st = RemoveAt(d.dirs.tmp(), e.name, d.layout.tmp + "/" + e.name);
    if (!st.ok()) SLOG_WARN("task %s: removing %s: %s", task_id.c_str(), e.name.c_str(), st.ToString().c_str());
  }
}

PObject TaskToPObject(const TaskRow& r) {
  PObject p = PObject::MakeMap();
  p["task_id"] = r.task_id;
  p["kind"] = r.kind;
  p["owner"] = r.owner;
  p["state"] = r.state;
  p["progress"]["done"] = static_cast<unsigned long long>(r.done);
  p["progress"]["total"] = static_cast<unsigned long long>(r.total);
  p["progress"]["bytes_done"] = static_cast<unsigned long long>(r.bytes_done);
  p["progress"]["bytes_total"] = static_cast<unsigned long long>(r.bytes_total);
  p["result"] = DecodeOr(r.result, PObject::MakeMap());
  p["error"]["code"] = r.error_code;
  p["error"]["message"] = r.error_message;
  p["created"] = static_cast<long long>(r.created);
  p["started"] = static_cast<long long>(r.started);
  p["finished"] = static_cast<long long>(r.finished);
  p["attempts"] = r.attempts;
  return p;
}

Status TaskRunner::Open() {
  std::lock_guard<std::mutex> lock(store_mu_);
  ORVEL_RETURN_IF_ERROR(OpenSqliteTaskStore(d_->config.GetSyncDbPath(), &store_));
  std::vector<TaskRow> running;
  ORVEL_RETURN_IF_ERROR(store_->ListRunning(&running));
  int64_t now = time(nullptr);
  for (const TaskRow& r : running) {
    RemoveTaskTemps(*d_, r.task_id);
    const TaskKind* kind = FindKind(r.kind);
    if (kind && kind->restartable && !r.cancel_requested) {
      SLOG_INFO("task %s (%s) was interrupted; starting it again", r.task_id.c_str(), r.kind.c_str());
      ORVEL_RETURN_IF_ERROR(store_->Requeue(r.task_id));
      continue;
    }
    std::string msg = r.cancel_requested
                          ? "task cancelled"
                          : "task interrupted by a service restart after " + std::to_string(r.done) +
                                " of " + std::to_string(r.total) + " items; finished items are kept, the item in progress was taken back";
    SLOG_INFO("task %s (%s): %s", r.task_id.c_str(), r.kind.c_str(), msg.c_str());
    ORVEL_RETURN_IF_ERROR(store_->Finish(r.task_id, r.cancel_requested ? "cancelled" : "failed",
                                         r.result, r.cancel_requested ? kErrTaskCancelled : kErrTaskFailed,
                                         msg, now));
  }
  uint64_t pruned = 0;
  ORVEL_RETURN_IF_ERROR(store_->PruneEnded(now - kKeepEndedSeconds, &pruned));
  return Status::OK();
}

void TaskRunner::Start() {
  std::lock_guard<std::mutex> lock(mu_);
  stop_ = false;
  for (unsigned i = 0; i < thread_count_; ++i) threads_.emplace_back([this] { Worker(); });
}

void TaskRunner::Stop() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    stop_ = true;
  }
  work_cv_.notify_all();
  ended_cv_.notify_all();
  for (std::thread& t : threads_) t.join();
  threads_.clear();
}

Status TaskRunner::Submit(const std::string& kind, const std::string& owner, const PObject& args,
                          std::string* task_id) {
  if (!FindKind(kind)) return Status(kErrInternal, "unknown task kind " + kind);
  TaskRow r;
  r.task_id = NewFileId();
  r.kind = kind;
  r.owner = owner;
  r.state = "queued";
  r.args = wire::Encode(args);
  r.created = time(nullptr);
  {
    std::lock_guard<std::mutex> lock(store_mu_);
    if (!store_) return Status(kErrBusy, "tasks are not available");
    ORVEL_RETURN_IF_ERROR(store_->Insert(r));
  }
  work_cv_.notify_one();
  *task_id = r.task_id;
  return Status::OK();
}

Status TaskRunner::Get(const std::string& task_id, TaskRow* out) {
  std::lock_guard<std::mutex> lock(store_mu_);
  if (!store_) return Status(kErrBusy, "tasks are not available");
  Status st = store_->Get(task_id, out);
  if (st.code() == kErrNotFound) return Status(kErrTaskNotFound, "task not found: " + task_id);
  return st;
}

Status TaskRunner::List(const std::string& owner, size_t limit, std::vector<TaskRow>* out) {
  std::lock_guard<std::mutex> lock(store_mu_);
  if (!store_) return Status(kErrBusy, "tasks are not available");
  return store_->List(owner, limit, out);
}

Status TaskRunner::ListOwned(const std::string& owner, const std::vector<std::string>& states,
                             uint64_t offset, uint64_t limit, std::vector<TaskRow>* out, uint64_t* total) {
  std::lock_guard<std::mutex> lock(store_mu_);
  if (!store_) return Status(kErrBusy, "tasks are not available");
  return store_->ListOwned(owner, states, offset, limit, out, total);
}

Status TaskRunner::Cancel(const std::string& task_id) {
  TaskRow row;
  ORVEL_RETURN_IF_ERROR(Get(task_id, &row));
  if (Ended(row.state)) return Status::OK();
  bool was_queued = false;
  {
    std::lock_guard<std::mutex> lock(store_mu_);
    ORVEL_RETURN_IF_ERROR(store_->RequestCancel(task_id, time(nullptr), &was_queued));
  }
  std::lock_guard<std::mutex> lock(mu_);
  if (was_queued) ended_cv_.notify_all();
  else cancel_.insert(task_id);
  return Status::OK();
}

Status TaskRunner::Wait(const std::string& task_id, int64_t timeout_ms, TaskRow* out) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    ORVEL_RETURN_IF_ERROR(Get(task_id, out));
    if (Ended(out->state)) return Status::OK();
    std::unique_lock<std::mutex> lock(mu_);
    if (stop_ || std::chrono::steady_clock::now() >= deadline) return Status::OK();
    // Re-read at least every half second: ended_cv_ is a hint, the row is the truth.
    ended_cv_.wait_for(lock, std::chrono::milliseconds(500));
  }
}

bool TaskRunner::CancelRequested(const std::string& task_id) {
  std::lock_guard<std::mutex> lock(mu_);
  return stop_ || cancel_.count(task_id) > 0;
}

bool TaskRunner::CancelAsked(const std::string& task_id) {
  std::lock_guard<std::mutex> lock(mu_);
  return cancel_.count(task_id) > 0;
}

void TaskRunner::SaveProgress(const std::string& task_id, uint64_t done, uint64_t total, uint64_t bytes_done,
                              uint64_t bytes_total) {
  std::lock_guard<std::mutex> lock(store_mu_);
  Status st = store_->SetProgress(task_id, done, total, bytes_done, bytes_total);
  if (!st.ok()) SLOG_WARN("task %s: progress: %s", task_id.c_str(), st.ToString().c_str());
}

void TaskRunner::Worker() {
  for (;;) {
    TaskRow row;
    bool found = false;
    {
      std::unique_lock<std::mutex> lock(mu_);
      if (stop_) return;
    }
    {
      std::lock_guard<std::mutex> lock(store_mu_);
      Status st = store_->ClaimNext(time(nullptr), &row, &found);
      if (!st.ok()) SLOG_ERROR("tasks: claim: %s", st.ToString().c_str());
    }
    if (found) {
      RunOne(std::move(row));
      continue;
    }
    std::unique_lock<std::mutex> lock(mu_);
    if (stop_) return;
    // Submit() wakes one worker; the time-out covers a wake-up that raced.
    work_cv_.wait_for(lock, std::chrono::seconds(2));
  }
}

void TaskRunner::RunOne(TaskRow row) {
  const TaskKind* kind = FindKind(row.kind);
  TaskContext ctx(d_, this, row);
  ctx.args = DecodeOr(row.args, PObject::MakeMap());
  Status st;
  if (!kind) st = Status(kErrTaskFailed, "unknown task kind " + row.kind);
  // A visitor's task runs as a caller without an account (see VisitorTaskOwner).
  if (st.ok() && !IsVisitorTaskOwner(row.owner)) st = d_->users->Lookup(row.owner, &ctx.caller.user);
  if (st.ok() && row.cancel_requested) st = Status(kErrTaskCancelled, "task cancelled");
  SLOG_DEBUG("task %s (%s) for %s: start", row.task_id.c_str(), row.kind.c_str(), row.owner.c_str());
  if (st.ok()) {
    RunHook("task-start-" + row.kind);  // between the op's checks and the task's work
    try {
      st = kind->fn(ctx);
    } catch (const std::exception& e) {
      st = Status(kErrInternal, std::string("task ") + row.kind + ": " + e.what());
    }
  }
  bool stopping;
  {
    std::lock_guard<std::mutex> lock(mu_);
    stopping = stop_ && !cancel_.count(row.task_id);
  }
  if (stopping && !st.ok()) {
    // Shutdown interrupted it: the next start requeues or fails it.
    RemoveTaskTemps(*d_, row.task_id);
    return;
  }
  End(row, st, ctx.result);
}

void TaskRunner::End(const TaskRow& row, const Status& st, const PObject& result) {
  std::string state = st.ok() ? "finished" : st.code() == kErrTaskCancelled ? "cancelled" : "failed";
  if (!st.ok()) RemoveTaskTemps(*d_, row.task_id);
  {
    std::lock_guard<std::mutex> lock(store_mu_);
    Status w = store_->Finish(row.task_id, state, wire::Encode(result), st.code(),
                              st.ok() ? "" : st.message(), time(nullptr));
    if (!w.ok()) SLOG_ERROR("task %s: recording its end: %s", row.task_id.c_str(), w.ToString().c_str());
  }
  SLOG_INFO("task %s (%s) for %s: %s%s%s", row.task_id.c_str(), row.kind.c_str(), row.owner.c_str(),
            state.c_str(), st.ok() ? "" : ": ", st.ok() ? "" : st.ToString().c_str());
  std::lock_guard<std::mutex> lock(mu_);
  cancel_.erase(row.task_id);
  ended_cv_.notify_all();
}

}  // namespace orvel::syncd
