// See dispatch.h.
#include "dispatch.h"

#include <exception>
#include <new>

#include "log.h"
#include "nimbard/wire.h"
#include "ops.h"

namespace orvel::syncd {
namespace {

Status BadArg(const char* key, const char* want) {
  return Status(kErrInvalidArgument, std::string("argument \"") + key + "\" must be " + want);
}

const OpSpec* FindOp(const std::string& name) {
  for (const OpSpec& op : OpTable()) {
    if (name == op.name) return &op;
  }
  return nullptr;
}

// The gates, in order; each may refuse with its own error.
Status CheckAdminPeer(const RequestContext& ctx) {
  if (ctx.peer_uid == 0 || ctx.peer_uid == ctx.d->self_uid) return Status::OK();
  return Status(kErrPermission, "op " + ctx.op + " needs an administrator (peer uid " +
                                    std::to_string(ctx.peer_uid) + ")");
}

Status CheckCaller(RequestContext& ctx) {
  std::string name = ctx.user;
  if (!ctx.sudo.empty()) {
    if (ctx.peer_uid != 0) return Status(kErrPermission, "sudo needs a root peer");
    name = ctx.sudo;
  }
  if (name.empty() || name == "anonymous")
    return Status(kErrSharingToken, "sharing token invalid or expired");
  Status st = ctx.d->users->Lookup(name, &ctx.caller.user);
  if (!st.ok()) return st;
  ctx.caller.peer_uid = ctx.peer_uid;
  return Status::OK();
}

Status CheckServiceState(RequestContext& ctx, unsigned flags) {
  std::string state = "enabled";
  Status st = ctx.store->GetState("status", &state);
  if (!st.ok() && st.code() != kErrNotFound) return st;
  if (state != "enabled") return Status(kErrBusy, "service is " + state);
  if (flags & kOpWrite) {
    bool frozen = false;
    ORVEL_RETURN_IF_ERROR(ctx.store->GetFreeze(0, &frozen));
    if (frozen) return Status(kErrBusy, "service is frozen (read-only)");
  }
  return Status::OK();
}

Status Run(RequestContext& ctx, const OpSpec& op, const PObject& args, PObject* result) {
  if (op.flags & kOpAdmin) ORVEL_RETURN_IF_ERROR(CheckAdminPeer(ctx));
  if (op.flags & kOpCaller) ORVEL_RETURN_IF_ERROR(CheckCaller(ctx));
  if (op.flags & (kOpStore | kOpEnabled | kOpWrite)) ORVEL_RETURN_IF_ERROR(ctx.d->pool->Acquire(&ctx.store));
  if (op.flags & (kOpEnabled | kOpWrite)) ORVEL_RETURN_IF_ERROR(CheckServiceState(ctx, op.flags));
  return op.handler(ctx, args, result);
}

}  // namespace

const std::vector<OpSpec>& OpTable() {
  static const std::vector<OpSpec> kOps = {
      {"status", OpStatus, kOpStore},
      {"freeze_get", OpFreezeGet, kOpStore},
      {"admin_set_status", OpAdminSetStatus, kOpAdmin | kOpStore},
      {"admin_set_freeze", OpAdminSetFreeze, kOpAdmin | kOpStore},
      {"admin_stats", OpAdminStats, kOpAdmin | kOpStore},
      {"list_file", OpListFile, kOpCaller | kOpEnabled | kOpStore},
      {"get_file_info", OpGetFileInfo, kOpCaller | kOpEnabled | kOpStore},
      {"upload_file", OpUploadFile, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"job_push_unlink", OpJobPushUnlink, 0},
  };
  return kOps;
}

PObject Dispatch(Daemon* d, uid_t peer_uid, const PObject& request) {
  RequestContext ctx;
  ctx.d = d;
  ctx.peer_uid = peer_uid;
  Status st;
  PObject result = PObject::MakeMap();
  if (!request.isMap()) {
    st = Status(kErrInvalidArgument, "request is not a map");
  } else if (!request["protocol"].isInteger() ||
             request["protocol"].asInt64() != wire::kProtocolVersion) {
    st = Status(kErrProtocolVersion, "protocol version not supported: " +
                                         request["protocol"].toJsonString());
  } else if (!request["op"].isString()) {
    st = Status(kErrInvalidArgument, "request has no op");
  } else {
    ctx.op = request["op"].asString();
    const OpSpec* op = FindOp(ctx.op);
    const PObject& args = request["args"];
    if (!op) {
      st = Status(kErrInvalidArgument, "unknown op: " + ctx.op);
    } else if (!args.isNull() && !args.isMap()) {
      st = Status(kErrInvalidArgument, "args must be a map");
    } else {
      ctx.user = request["user"].asString();
      ctx.sudo = request["sudo"].asString();
      ctx.session = request["session"].asString();
      ctx.sharing_token = request["sharing_token"].asString();
      PObject empty = PObject::MakeMap();
      try {
        st = Run(ctx, *op, args.isMap() ? args : empty, &result);
      } catch (const std::bad_alloc&) {
        st = Status(kErrInternal, "out of memory in " + ctx.op);
      } catch (const std::exception& e) {
        st = Status(kErrInternal, std::string("internal error in ") + ctx.op + ": " + e.what());
      } catch (...) {
        st = Status(kErrInternal, "internal error in " + ctx.op);
      }
    }
  }
  if (!st.ok()) {
    if (st.code() == kErrInternal || st.code() == kErrStorage)
      SLOG_ERROR("%s (user %s, peer uid %u): %s", ctx.op.c_str(), ctx.user.c_str(), peer_uid,
                 st.ToString().c_str());
    else
      SLOG_DEBUG("%s (user %s): %s", ctx.op.c_str(), ctx.user.c_str(), st.ToString().c_str());
    return wire::ErrorAnswer(st);
  }
  return wire::OkAnswer(std::move(result));
}

Status ArgString(const PObject& args, const char* key, std::string* out) {
  const PObject& v = args[key];
  if (v.isNull()) return Status::OK();
  if (!v.isString()) return BadArg(key, "a string");
  *out = v.asString();
  return Status::OK();
}

Status ArgBool(const PObject& args, const char* key, bool* out) {
  const PObject& v = args[key];
  if (v.isNull()) return Status::OK();
  if (!v.isBool()) return BadArg(key, "a boolean");
  *out = v.asBool();
  return Status::OK();
}

Status ArgUInt(const PObject& args, const char* key, uint64_t* out) {
  const PObject& v = args[key];
  if (v.isNull()) return Status::OK();
  if (!v.isInteger() || (v.type() == PObject::Type::kInt && v.asInt64() < 0))
    return BadArg(key, "an unsigned integer");
  *out = v.type() == PObject::Type::kInt ? static_cast<uint64_t>(v.asInt64()) : v.asUInt64();
  return Status::OK();
}

Status ArgStringList(const PObject& args, const char* key, std::vector<std::string>* out) {
  const PObject& v = args[key];
  if (v.isNull()) return Status::OK();
  if (!v.isArray()) return BadArg(key, "an array of strings");
  out->clear();
  for (const PObject& e : v.asArray()) {
    if (!e.isString()) return BadArg(key, "an array of strings");
    out->push_back(e.asString());
  }
  return Status::OK();
}

}  // namespace orvel::syncd
