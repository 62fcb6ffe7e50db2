// task_list: the caller's own tasks, newest first, a page at a time, with an
// optional filter on their states (docs/wire.md). Only the caller's rows are
// read (the tasks table's owner index); another user's tasks never show.
#include <algorithm>

#include "ops_transfer.h"
#include "tasks.h"

namespace orvel::syncd {
namespace {

constexpr uint64_t kDefaultLimit = 100;
constexpr uint64_t kMaxLimit = 1000;

bool KnownState(const std::string& s) {
  static const char* const kStates[] = {"queued", "running", "finished", "failed", "cancelled"};
  return std::any_of(std::begin(kStates), std::end(kStates), [&](const char* k) { return s == k; });
}

}  // namespace

Status OpTaskList(RequestContext& ctx, const PObject& args, PObject* result) {
  uint64_t offset = 0, limit = kDefaultLimit;
  std::vector<std::string> states;
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "offset", &offset));
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "limit", &limit));
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "states", &states));
  if (limit == 0 || limit > kMaxLimit)
    return Status(kErrInvalidArgument, "limit must be 1 to " + std::to_string(kMaxLimit));
  for (const std::string& s : states) {
    if (!KnownState(s)) return Status(kErrInvalidArgument, "unknown task state: \"" + s + "\"");
  }
  if (!ctx.d->tasks) return Status(kErrBusy, "tasks are not available");
  std::vector<TaskRow> rows;
  uint64_t total = 0;
  ORVEL_RETURN_IF_ERROR(ctx.d->tasks->ListOwned(ctx.caller.user.name, states, offset, limit, &rows, &total));
  PObject list = PObject::MakeArray();
  for (const TaskRow& r : rows) list.push_back(TaskToPObject(r));
  (*result)["tasks"] = std::move(list);
  (*result)["total"] = static_cast<unsigned long long>(total);
  return Status::OK();
}

}  // namespace orvel::syncd
