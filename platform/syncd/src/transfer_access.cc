// Who may transfer what: the items of copy, move, delete and download are
// resolved through access.h, so a caller reaches its own items and the items
// shared with it, with the role the shares give. A sharing link lets a link
// visitor (a caller without an account) read what lies in the link, for
// downloads; it never grants a user anything here, and never a write.
#include <optional>

#include "access.h"
#include "tasks.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

// Sets the request's sharing token aside for the life of the guard.
class TokenAside {
 public:
  explicit TokenAside(RequestContext& ctx) : ctx_(ctx), saved_(std::move(ctx.sharing_token)) {
    ctx_.sharing_token.clear();
  }
  ~TokenAside() { ctx_.sharing_token = std::move(saved_); }
  TokenAside(const TokenAside&) = delete;
  TokenAside& operator=(const TokenAside&) = delete;

 private:
  RequestContext& ctx_;
  std::string saved_;
};

Status Denied(const Access& a, const char* what) {
  return Status(kErrPermission, "permission denied: " + a.view_path + " is shared as " + RoleName(a.role) +
                                    ", which cannot " + what);
}

// Moving or deleting an item takes it out of its folder: the caller must own
// it, or edit the folder it lies in (so never the shared item itself).
Status CheckTakeOut(RequestContext& ctx, const Access& a) {
  if (a.role == Role::kOwner) return Status::OK();
  if (a.top_id == a.node.file_id)
    return Status(kErrPermission, "permission denied: only the owner can move or delete " + a.view_path);
  Access folder;
  ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, "id:" + a.node.parent_id, &folder));
  if (folder.role < Role::kEditor) return Denied(folder, "move or delete its items");
  return Status::OK();
}

}  // namespace

Status ResolveForTransfer(RequestContext& ctx, const std::string& path, TransferUse use, Resolved* out) {
  // Without its token a visitor reaches nothing (-403 from the look-up).
  const bool link_read = IsVisitor(ctx) && use == TransferUse::kRead;
  std::optional<TokenAside> aside;
  if (!link_read) aside.emplace(ctx);
  Access a;
  ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, path, &a));
  if (use == TransferUse::kWriteInto) {
    if (!a.node.is_dir()) return Status(kErrNotFolder, "not a folder: " + a.view_path);
    if (a.role < Role::kEditor) return Denied(a, "receive items");
  }
  if (use == TransferUse::kTakeOut) ORVEL_RETURN_IF_ERROR(CheckTakeOut(ctx, a));
  out->node = a.node;
  out->components = a.components;
  out->view_path = a.view_path;
  return Status::OK();
}

Status ResolveAllForTransfer(RequestContext& ctx, const std::vector<std::string>& paths, TransferUse use,
                             std::vector<Resolved>* out) {
  out->clear();
  for (const std::string& p : paths) {
    out->emplace_back();
    ORVEL_RETURN_IF_ERROR(ResolveForTransfer(ctx, p, use, &out->back()));
  }
  return Status::OK();
}

Status TaskRequestContext(TaskContext& task, RequestContext* out) {
  out->d = task.d;
  out->caller = task.caller;
  out->user = task.caller.user.name;
  out->op = task.row.kind;
  if (IsVisitorTaskOwner(task.row.owner)) {
    out->sharing_token = task.args["sharing_token"].asString();
    out->forward_ip = task.args["forward_ip"].asString();
  }
  return task.d->pool->Acquire(&out->store);
}

}  // namespace orvel::syncd
