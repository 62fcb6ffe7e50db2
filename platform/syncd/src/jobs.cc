// See jobs.h.
#include "jobs.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "daemon.h"
#include "log.h"
#include "orvelcommon/handover.h"
#include "paths.h"
#include "recycle.h"
#include "reconcile.h"
#include "revisions.h"

namespace orvel::syncd {
namespace {

constexpr int64_t kTmpMaxAge = 24 * 3600;
constexpr int64_t kTmpCleanEvery = 6 * 3600;
constexpr int64_t kRecyclePurgeEvery = 3600;

std::string RealPath(const std::string& p) {
  char buf[PATH_MAX];
  return realpath(p.c_str(), buf) ? std::string(buf) : std::string();
}

}  // namespace

Status CheckUnlinkPath(const std::string& path, const std::string& tmp_dir) {
  Status refused(kErrPermission, "unlink refused outside the temp folder: " + path);
  if (path.empty() || path[0] != '/') return refused;
  std::vector<std::string> parts = SplitPath(path);
  for (const auto& c : parts) {
    if (c == "." || c == "..") return refused;
  }
  std::string norm;
  for (const auto& c : parts) norm += "/" + c;
  if (norm == tmp_dir || !PathIsInside(norm, tmp_dir)) return refused;
  // A folder that no longer exists holds nothing to remove (a download's
  // file queued after its folder's removal ran); the removal itself opens
  // beneath the temp folder without following links whatever comes later.
  std::string parent = norm.substr(0, norm.find_last_of('/'));
  const std::string real_parent = RealPath(parent);
  const bool parent_gone = real_parent.empty() && errno == ENOENT;
  const std::string real_tmp = RealPath(tmp_dir);
  if (real_tmp.empty()) return refused;
  if (parent_gone) return Status::OK();
  if (real_parent.empty() || !PathIsInside(real_parent, real_tmp)) return refused;
  return Status::OK();
}

void JobRunner::Start() {
  std::lock_guard<std::mutex> lock(mu_);
  if (thread_.joinable()) return;
  stop_ = false;
  thread_ = std::thread([this] { Loop(); });
}

void JobRunner::Stop() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    stop_ = true;
  }
  cv_.notify_all();
  if (thread_.joinable()) thread_.join();
}

Status JobRunner::PushUnlink(const std::string& path, unsigned delay_seconds) {
  ORVEL_RETURN_IF_ERROR(CheckUnlinkPath(path, d_->layout.tmp));
  StoreLease store;
  ORVEL_RETURN_IF_ERROR(d_->pool->Acquire(&store));
  ORVEL_RETURN_IF_ERROR(store->PushUnlink(path, time(nullptr) + delay_seconds));
  {
    std::lock_guard<std::mutex> lock(mu_);
    kick_ = true;
  }
  cv_.notify_all();
  return Status::OK();
}

int JobRunner::RunDue() {
  StoreLease store;
  Status st = d_->pool->Acquire(&store);
  if (!st.ok()) {
    SLOG_ERROR("unlink jobs: %s", st.ToString().c_str());
    return 0;
  }
  int ran = 0;
  for (;;) {
    std::vector<UnlinkJob> jobs;
    st = store->DueUnlinks(time(nullptr), 64, &jobs);
    if (!st.ok()) {
      SLOG_ERROR("unlink jobs: %s", st.ToString().c_str());
      return ran;
    }
    if (jobs.empty()) return ran;
    for (const UnlinkJob& job : jobs) {
      // The folders may have changed since the push: RemoveTmpPath opens
      // beneath the temp folder without following links, so none can lead it
      // out, and a path already gone (a download's file after its folder,
      // which is queued too) is done.
      Status rm = RemoveTmpPath(*d_, job.path);
      if (!rm.ok()) SLOG_WARN("unlink job %lld: %s", static_cast<long long>(job.id), rm.ToString().c_str());
      else SLOG_DEBUG("unlinked %s", job.path.c_str());
      st = store->DeleteUnlink(job.id);
      if (!st.ok()) {
        SLOG_ERROR("unlink jobs: %s", st.ToString().c_str());
        return ran;
      }
      ++ran;
    }
  }
}

void JobRunner::Loop() {
  int64_t last_clean = time(nullptr), last_purge = last_clean;
  for (;;) {
    RunDue();
    int64_t now = time(nullptr);
    if (now - last_purge >= kRecyclePurgeEvery) {
      PurgeExpired(*d_);
      last_purge = now;
    }
    // X-Sendfile hand-over links are only needed until the web server has
    // opened them (orvelcommon/handover.h); the loop comes by at least every minute.
    SweepHandOver(d_->layout.tmp, now, kHandOverLinkSeconds);
    if (now - last_clean >= kTmpCleanEvery) {
      int removed = 0;
      CleanTmp(*d_, kTmpMaxAge, &removed);
      if (removed) SLOG_INFO("removed %d old entries of %s", removed, d_->layout.tmp.c_str());
      int pruned = 0;
      Status aged = PruneOldRevisions(*d_, &pruned);
      if (!aged.ok()) SLOG_WARN("revision retention: %s", aged.ToString().c_str());
      last_clean = now;
    }
    int64_t wait = 60;
    {
      StoreLease store;
      int64_t next = -1;
      if (d_->pool->Acquire(&store).ok() && store->NextUnlinkDelay(time(nullptr), &next).ok() &&
          next >= 0)
        wait = std::min<int64_t>(wait, std::max<int64_t>(next, 1));
    }
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait_for(lock, std::chrono::seconds(wait), [this] { return stop_ || kick_; });
    kick_ = false;
    if (stop_) return;
  }
}

}  // namespace orvel::syncd
