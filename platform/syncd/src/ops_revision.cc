// revision_list, revision_download, revision_restore: the older contents of
// a file the caller owns or was shared with. A file the caller may not read
// answers "item not found: <path>" exactly as a missing one, and a revision
// of another file (or none) "revision not found: <id>", so that neither
// reveals what exists. Link visitors are not admitted (the ops clear the
// sharing token).
#include "ops_revision.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

#include "jobs.h"
#include "orvelcommon/utf8.h"
#include "space_fs.h"
#include "transfer.h"

namespace orvel::syncd {
namespace {

constexpr uint64_t kMaxLimit = 1000;

// The file at args["path"] for a caller with at least a viewer's role.
Status ResolveFile(RequestContext& ctx, const PObject& args, Access* item) {
  std::string path;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  if (path.empty()) return Status(kErrInvalidArgument, "no path given");
  Status st = ResolveAccess(ctx, path, item);
  const bool hidden = st.code() == kErrPermission || st.code() == kErrNotFound;
  if (hidden || (st.ok() && (item->role == Role::kNone || item->by_link)))
    return Status(kErrNotFound, "item not found: " + path);
  ORVEL_RETURN_IF_ERROR(st);
  if (item->node.is_dir()) return Status(kErrIsFolder, "is a folder: " + item->view_path);
  return Status::OK();
}

Status FindRevision(RequestContext& ctx, const PObject& args, const Access& item, RevisionRow* rev) {
  std::string id;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "revision_id", &id));
  if (id.empty()) return Status(kErrInvalidArgument, "no revision_id given");
  Status missing(kErrNotFound, "revision not found: " + id);
  if (id.size() > 18 || id.find_first_not_of("0123456789") != std::string::npos) return missing;
  Status st = ctx.store->GetRevision(item.node.file_id, std::strtoll(id.c_str(), nullptr, 10), rev);
  return st.code() == kErrNotFound ? missing : st;
}

// The kept content of rev, opened read-only beneath @versions.
Status OpenKept(RequestContext& ctx, const RevisionRow& rev, ScopedFd* fd) {
  const std::string path = ctx.d->layout.versions + "/" + rev.hash;
  Status st = OpenFileAt(ctx.d->dirs.versions(), rev.hash, path, fd);
  if (st.code() == kErrNotFound) return Status(kErrDataMissing, "data file missing: " + path);
  return st;
}

PObject WriterRecord(RequestContext& ctx, const std::string& name) {
  PObject w = PObject::MakeMap();
  UserRecord user;
  w["name"] = name;
  w["display_name"] = !name.empty() && ctx.d->users->Lookup(name, &user).ok() ? user.display_name : name;
  return w;
}

PObject RevisionRecord(RequestContext& ctx, const RevisionRow& r) {
  PObject o = PObject::MakeMap();
  o["revision_id"] = std::to_string(r.id);
  o["size"] = static_cast<unsigned long long>(r.size);
  o["hash"] = r.hash;
  o["modified_time"] = static_cast<long long>(r.modified_time);
  o["revision_time"] = static_cast<long long>(r.created);
  o["modified_by"] = WriterRecord(ctx, r.writer);
  return o;
}

}  // namespace

Status OpRevisionList(RequestContext& ctx, const PObject& args, PObject* result) {
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveFile(ctx, args, &item));
  uint64_t offset = 0, limit = 100;
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "offset", &offset));
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "limit", &limit));
  if (limit == 0 || limit > kMaxLimit) return Status(kErrInvalidArgument, "limit must be 1 to 1000");
  std::vector<RevisionRow> rows;
  uint64_t total = 0;
  ORVEL_RETURN_IF_ERROR(ctx.store->ListRevisionPage(item.node.file_id, offset, limit, &rows, &total));
  PObject list = PObject::MakeArray();
  for (const RevisionRow& r : rows) list.push_back(RevisionRecord(ctx, r));
  (*result)["revisions"] = list;
  (*result)["total"] = static_cast<unsigned long long>(total);
  (*result)["offset"] = static_cast<unsigned long long>(offset);
  return Status::OK();
}

Status OpRevisionDownload(RequestContext& ctx, const PObject& args, PObject* result) {
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveFile(ctx, args, &item));
  RevisionRow rev;
  ORVEL_RETURN_IF_ERROR(FindRevision(ctx, args, item, &rev));
  std::string temp_dir;
  ScopedFd dir;
  ORVEL_RETURN_IF_ERROR(OpenDownloadFolder(*ctx.d, args, &temp_dir, &dir));
  ScopedFd in;
  ORVEL_RETURN_IF_ERROR(OpenKept(ctx, rev, &in));
  const std::string name = item.node.name, dst = temp_dir + "/" + name;
  Status st = LinkFdAt(in.get(), dir.get(), name, dst);
  if (!st.ok() && st.code() != kErrNameExists) {  // no link possible: a copy
    ScopedFd out;
    ORVEL_RETURN_IF_ERROR(CreateFileAt(dir.get(), name, 0640, dst, &out));
    TempEntryGuard guard(dir.get(), name);
    ORVEL_RETURN_IF_ERROR(CopyFileContent(in.get(), out.get(), dst));
    guard.Cancel();
  } else {
    ORVEL_RETURN_IF_ERROR(st);
  }
  (*result)["file_path"] = dst;
  (*result)["file_name"] = orvel::ValidUtf8(name);
  return Status::OK();
}

Status OpRevisionRestore(RequestContext& ctx, const PObject& args, PObject* result) {
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveFile(ctx, args, &item));
  if (!CapabilitiesFor(item.role).can_write)
    return Status(kErrPermission, "permission denied: " + item.view_path + " is shared as " + RoleName(item.role));
  if (item.node.is_link()) return Status(kErrInvalidArgument, "a symbolic link has no revisions: " + item.view_path);
  RevisionRow rev;
  ORVEL_RETURN_IF_ERROR(FindRevision(ctx, args, item, &rev));
  ScopedFd in;
  ORVEL_RETURN_IF_ERROR(OpenKept(ctx, rev, &in));
  ORVEL_RETURN_IF_ERROR(ReplaceContent(ctx, in.get(), rev.hash, &item));
  return AccessRecord(ctx, item, &(*result)["file"]);
}

}  // namespace orvel::syncd
