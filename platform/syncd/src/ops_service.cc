// Service state, freeze mode, statistics and the unlink job queue
// (docs/wire.md). The state and the freeze flags are rows of the database,
// so they survive a restart; ServiceState keeps them in memory.
#include <unistd.h>

#include <ctime>

#include "jobs.h"
#include "ops.h"

namespace orvel::syncd {

// The state and, so that a web request needs one round trip for both
// checks, the freeze flag of "view_id" (default 0).
Status OpStatus(RequestContext& ctx, const PObject& args, PObject* result) {
  uint64_t view = 0;
  if (args.hasMember("view_id")) ORVEL_RETURN_IF_ERROR(ArgUInt(args, "view_id", &view));
  std::string state;
  bool frozen = false;
  ORVEL_RETURN_IF_ERROR(ctx.d->service.Get(ctx.store.get(), static_cast<uint32_t>(view), &state, &frozen));
  (*result)["status"] = state;
  (*result)["frozen"] = frozen;
  return Status::OK();
}

Status OpFreezeGet(RequestContext& ctx, const PObject& args, PObject* result) {
  uint64_t view = 0;
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "view_id", &view));
  std::string state;
  bool frozen = false;
  ORVEL_RETURN_IF_ERROR(ctx.d->service.Get(ctx.store.get(), static_cast<uint32_t>(view), &state, &frozen));
  (*result)["frozen"] = frozen;
  return Status::OK();
}

Status OpAdminSetStatus(RequestContext& ctx, const PObject& args, PObject*) {
  std::string state;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "status", &state));
  if (state != "enabled" && state != "disabled" && state != "moving_db")
    return Status(kErrInvalidArgument, "status must be enabled, disabled or moving_db: \"" + state + "\"");
  return ctx.d->service.SetState(ctx.store.get(), state);
}

Status OpAdminSetFreeze(RequestContext& ctx, const PObject& args, PObject*) {
  uint64_t view = 0;
  bool frozen = false;
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "view_id", &view));
  if (!args["frozen"].isBool()) return Status(kErrInvalidArgument, "argument \"frozen\" must be a boolean");
  ORVEL_RETURN_IF_ERROR(ArgBool(args, "frozen", &frozen));
  return ctx.d->service.SetFreeze(ctx.store.get(), static_cast<uint32_t>(view), frozen);
}

Status OpAdminStats(RequestContext& ctx, const PObject&, PObject* result) {
  StoreStats s;
  ORVEL_RETURN_IF_ERROR(ctx.store->Stats(&s));
  std::string state;
  bool frozen = false;
  ORVEL_RETURN_IF_ERROR(ctx.d->service.Get(ctx.store.get(), 0, &state, &frozen));
  PObject& r = *result;
  r["status"] = state;
  r["frozen"] = frozen;
  r["pid"] = static_cast<long long>(getpid());
  r["uptime"] = static_cast<unsigned long long>(time(nullptr) - ctx.d->started);
  r["data_dir"] = ctx.d->layout.data;
  r["schema_version"] = static_cast<unsigned long long>(s.schema_version);
  r["homes"] = static_cast<unsigned long long>(s.homes);
  r["files"] = static_cast<unsigned long long>(s.files);
  r["folders"] = static_cast<unsigned long long>(s.folders);
  r["bytes"] = static_cast<unsigned long long>(s.bytes);
  r["vanished"] = static_cast<unsigned long long>(s.vanished);
  r["revisions"] = static_cast<unsigned long long>(s.revisions);
  r["unlink_jobs"] = static_cast<unsigned long long>(s.unlink_jobs);
  r["max_id"] = static_cast<unsigned long long>(s.max_id);
  r["requests"] = static_cast<unsigned long long>(ctx.d->requests.load());
  return Status::OK();
}

Status OpJobPushUnlink(RequestContext& ctx, const PObject& args, PObject*) {
  std::string path;
  uint64_t delay = 0;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "delay_seconds", &delay));
  if (!ctx.d->jobs) return Status(kErrBusy, "job queue not running");
  if (delay > 7 * 24 * 3600) return Status(kErrInvalidArgument, "delay_seconds over a week");
  return ctx.d->jobs->PushUnlink(path, static_cast<unsigned>(delay));
}

}  // namespace orvel::syncd
