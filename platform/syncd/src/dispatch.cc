// See dispatch.h.
#include "dispatch.h"

#include <exception>
#include <new>

#include "log.h"
#include "orvelcommon/wire.h"
#include "ops.h"
#include "ops_browse.h"
#include "ops_recycle.h"
#include "ops_links.h"
#include "ops_revision.h"
#include "ops_transfer.h"
#include "space.h"

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

Status CheckCaller(RequestContext& ctx, unsigned flags) {
  std::string name = ctx.user;
  if (!ctx.sudo.empty()) {
    if (ctx.peer_uid != 0) return Status(kErrPermission, "sudo needs a root peer");
    name = ctx.sudo;
  }
  if (name.empty() || name == "anonymous") {
    // A link visitor: the token itself is checked where the item is resolved.
    if ((flags & kOpVisitor) && !ctx.sharing_token.empty()) {
      ctx.caller.peer_uid = ctx.peer_uid;
      return Status::OK();
    }
    return Status(kErrSharingToken, "sharing token invalid or expired");
  }
  Status st = ctx.d->users->Lookup(name, &ctx.caller.user);
  if (!st.ok()) return st;
  ctx.caller.peer_uid = ctx.peer_uid;
  return Status::OK();
}

Status CheckServiceState(RequestContext& ctx, unsigned flags) {
  std::string state;
  bool frozen = false;
  ORVEL_RETURN_IF_ERROR(ctx.d->service.Get(ctx.store.get(), 0, &state, &frozen));
  if (state != "enabled") return Status(kErrBusy, "service is " + state);
  if ((flags & kOpWrite) && frozen) return Status(kErrBusy, "service is frozen (read-only)");
  return Status::OK();
}

Status Run(RequestContext& ctx, const OpSpec& op, const PObject& args, PObject* result) {
  // A sharing token counts only in the ops that admit link visitors: search,
  // marks, access requests and transfers act on what the caller owns or was
  // shared with, never on what a link lets the caller see.
  if (!(op.flags & kOpVisitor)) ctx.sharing_token.clear();
  if (op.flags & kOpAdmin) ORVEL_RETURN_IF_ERROR(CheckAdminPeer(ctx));
  if (op.flags & kOpCaller) ORVEL_RETURN_IF_ERROR(CheckCaller(ctx, op.flags));
  if (op.flags & (kOpStore | kOpEnabled | kOpWrite)) ORVEL_RETURN_IF_ERROR(ctx.d->pool->Acquire(&ctx.store));
  if (op.flags & (kOpEnabled | kOpWrite)) ORVEL_RETURN_IF_ERROR(CheckServiceState(ctx, op.flags));
  // The caller's home exists before the op reads, so its reads can share
  // one snapshot (making a home writes).
  if ((op.flags & kOpCaller) && (op.flags & kOpEnabled) && (op.flags & kOpStore) &&
      !ctx.caller.user.name.empty())
    ORVEL_RETURN_IF_ERROR(MakeHomeOnce(*ctx.d, ctx.store.get(), ctx.caller.user.name));
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
      {"list_file", OpListFile, kOpCaller | kOpVisitor | kOpEnabled | kOpStore},
      {"get_file_info", OpGetFileInfo, kOpCaller | kOpVisitor | kOpEnabled | kOpStore},
      {"upload_file", OpUploadFile, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"job_push_unlink", OpJobPushUnlink, 0},
      // Browsing, marks and sharing (ops_browse.h).
      {"list_starred", OpListStarred, kOpCaller | kOpEnabled | kOpStore},
      {"list_labelled", OpListLabelled, kOpCaller | kOpEnabled | kOpStore},
      {"list_shared_with_me", OpListSharedWithMe, kOpCaller | kOpEnabled | kOpStore},
      {"list_shared_with_others", OpListSharedWithOthers, kOpCaller | kOpEnabled | kOpStore},
      {"list_recent", OpListRecent, kOpCaller | kOpEnabled | kOpStore},
      {"list_ancestor", OpListAncestor, kOpCaller | kOpVisitor | kOpEnabled | kOpStore},
      {"list_backups", OpListBackups, kOpCaller | kOpEnabled | kOpStore},
      {"edit_star", OpEditStar, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"edit_label", OpEditLabel, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"request_access", OpRequestAccess, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"admin_link_remove", OpAdminLinkRemove, kOpAdmin | kOpStore},
      {"admin_backup_add", OpAdminBackupAdd, kOpAdmin | kOpStore},
      {"admin_backup_remove", OpAdminBackupRemove, kOpAdmin | kOpStore},
      {"admin_access_requests", OpAdminAccessRequests, kOpAdmin | kOpStore},
      {"label_list", OpLabelList, kOpCaller | kOpEnabled | kOpStore},
      {"admin_label_list", OpAdminLabelList, kOpAdmin | kOpStore},
      {"admin_label_set_color", OpAdminLabelSetColour, kOpAdmin | kOpStore},
      {"admin_label_rename", OpAdminLabelRename, kOpAdmin | kOpStore},
      {"search", OpSearch, kOpCaller | kOpEnabled | kOpStore},
      {"get_thumbnail", OpGetThumbnail, kOpCaller | kOpVisitor | kOpEnabled | kOpStore},
      {"update_file", OpUpdateFile, kOpCaller | kOpVisitor | kOpEnabled | kOpWrite | kOpStore},
      // Transfer, organising and tasks (ops_transfer.h).
      {"copy_dry_run", OpCopyDryRun, kOpCaller | kOpEnabled | kOpStore},
      {"copy", OpCopy, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"move_dry_run", OpMoveDryRun, kOpCaller | kOpEnabled | kOpStore},
      {"move", OpMove, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"delete", OpDelete, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"convert_office", OpConvertOffice, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"upload_from_tpx", OpUploadFromTpx, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"download", OpDownload, kOpCaller | kOpVisitor | kOpEnabled | kOpStore},
      {"download_dry_run", OpDownloadDryRun, kOpCaller | kOpVisitor | kOpEnabled | kOpStore},
      {"download_task_result", OpDownloadTaskResult, kOpCaller | kOpVisitor | kOpEnabled | kOpStore},
      {"task_get", OpTaskGet, kOpCaller | kOpStore},
      {"task_cancel", OpTaskCancel, kOpCaller | kOpStore},
      {"admin_task_list", OpAdminTaskList, kOpAdmin},
      {"admin_task_show", OpAdminTaskShow, kOpAdmin},
      {"admin_task_cancel", OpAdminTaskCancel, kOpAdmin},
      {"recycle_list", OpRecycleList, kOpCaller | kOpEnabled | kOpStore},
      {"recycle_restore", OpRecycleRestore, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"recycle_delete", OpRecycleDelete, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"recycle_empty", OpRecycleEmpty, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      // The owner's sharing and the visitor's unlocking of a link (ops_links.h).
      {"sharing_list", OpSharingList, kOpCaller | kOpEnabled | kOpStore},
      {"share", OpShare, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"unshare", OpUnshare, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"link_create", OpLinkCreate, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"link_update", OpLinkUpdate, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"link_delete", OpLinkDelete, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"link_unlock", OpLinkUnlock, kOpCaller | kOpVisitor | kOpEnabled | kOpWrite | kOpStore},
      // Older contents of files (ops_revision.h).
      {"revision_list", OpRevisionList, kOpCaller | kOpEnabled | kOpStore},
      {"revision_download", OpRevisionDownload, kOpCaller | kOpEnabled | kOpStore},
      {"revision_restore", OpRevisionRestore, kOpCaller | kOpEnabled | kOpWrite | kOpStore},
      {"task_list", OpTaskList, kOpCaller | kOpStore},
  };
  return kOps;
}

PObject Dispatch(Daemon* d, uid_t peer_uid, const PObject& request, int client_fd) {
  RequestContext ctx;
  ctx.d = d;
  ctx.peer_uid = peer_uid;
  ctx.client_fd = client_fd;
  d->requests.fetch_add(1, std::memory_order_relaxed);
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
      ctx.link_grant = request["link_grant"].asString();
      ctx.forward_ip = request["forward"]["ip"].asString();
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
