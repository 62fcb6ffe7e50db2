// recycle_list, recycle_restore, recycle_delete and recycle_empty. See
// ops_recycle.h and docs/transfer.md ("Delete and the recycle bin").
#include "ops_recycle.h"

#include <algorithm>
#include <climits>
#include <mutex>
#include <set>

#include "access.h"
#include "db/recycle_store.h"
#include "recycle.h"
#include "tasks.h"

namespace orvel::syncd {
namespace {

constexpr uint64_t kMaxPage = 1000;
constexpr size_t kMaxItems = 1000;

Status NotInBin(const std::string& file_id) {
  return Status(kErrNotFound, "item not found in the recycle bin: id:" + file_id);
}

// The caller's bin record of a wire reference ("id:<file_id>" or a bare
// file id). Another user's item answers as an unknown one.
Status OwnEntry(RequestContext& ctx, const std::string& ref, RecycleEntry* out) {
  const std::string id = ref.compare(0, 3, "id:") == 0 ? ref.substr(3) : ref;
  if (id.empty()) return Status(kErrInvalidArgument, "empty item id: " + ref);
  Status st = ctx.store->recycle()->Get(id, out);
  if (st.code() == kErrNotFound || (st.ok() && out->owner != ctx.caller.user.name)) return NotInBin(id);
  return st;
}

// The caller's entries of "files", checked and without repeats.
Status ReadEntries(RequestContext& ctx, const PObject& args, std::vector<RecycleEntry>* out) {
  std::vector<std::string> files;
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "files", &files));
  if (files.empty()) return Status(kErrInvalidArgument, "no items given");
  if (files.size() > kMaxItems)
    return Status(kErrTooManyItems, "too many items in one request: " + std::to_string(files.size()));
  std::set<std::string> seen;
  for (const std::string& f : files) {
    RecycleEntry e;
    ORVEL_RETURN_IF_ERROR(OwnEntry(ctx, f, &e));
    if (seen.insert(e.file_id).second) out->push_back(e);
  }
  return Status::OK();
}

// The caller's record of a removed item, as it was at its original path.
Status EntryRecord(RequestContext& ctx, const RecycleEntry& e, PObject* out) {
  Access a;
  ORVEL_RETURN_IF_ERROR(ctx.store->GetById(e.file_id, &a.node));
  a.role = Role::kOwner;
  a.owner = ctx.caller.user;
  a.view_path = e.original_path.empty() ? "/mydrive/" + a.node.name : e.original_path;
  a.top_id = a.node.file_id;
  PObject records;
  ORVEL_RETURN_IF_ERROR(AccessRecords(ctx, {a}, false, &records));
  PObject record = records.array().front();
  record["original_path"] = a.view_path;
  record["tpx_path"] = "";  // the content lies in the daemon's own folder
  *out = PObject::MakeMap();
  (*out)["item"] = record;
  (*out)["removed_time"] = static_cast<long long>(e.removed_time);
  (*out)["removed_by"] = e.removed_by;
  return Status::OK();
}

// Submits the "delete" task for good of these tops, each after the tops
// that lie below it (so their content in @recycle goes too).
Status SubmitPurge(RequestContext& ctx, const std::vector<RecycleEntry>& entries, PObject* result) {
  if (!ctx.d->tasks) return Status(kErrBusy, "tasks are not available");
  PObject ids = PObject::MakeArray();
  std::set<std::string> queued;
  for (const RecycleEntry& e : entries) {
    std::vector<std::string> below;
    ORVEL_RETURN_IF_ERROR(ctx.store->recycle()->TopsBelow(e.file_id, &below));
    below.push_back(e.file_id);
    for (const std::string& id : below)
      if (queued.insert(id).second) ids.push_back(id);
  }
  PObject a = PObject::MakeMap();
  a["sources"] = ids;
  a["permanent"] = true;
  std::string id;
  ORVEL_RETURN_IF_ERROR(ctx.d->tasks->Submit("delete", ctx.caller.user.name, a, &id));
  (*result)["task_id"] = id;
  return Status::OK();
}

}  // namespace

Status OpRecycleList(RequestContext& ctx, const PObject& args, PObject* result) {
  uint64_t offset = 0, limit = 100;
  std::string direction = "desc";
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "offset", &offset));
  ORVEL_RETURN_IF_ERROR(ArgUInt(args, "limit", &limit));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "sort_direction", &direction));
  if (limit == 0 || limit > kMaxPage) return Status(kErrInvalidArgument, "limit must be 1 to 1000");
  if (direction != "asc" && direction != "desc")
    return Status(kErrInvalidArgument, "sort_direction must be \"asc\" or \"desc\"");
  std::vector<RecycleEntry> page;
  uint64_t total = 0;
  ORVEL_RETURN_IF_ERROR(
      ctx.store->recycle()->List(ctx.caller.user.name, direction == "desc", offset, limit, &page, &total));
  PObject items = PObject::MakeArray();
  for (const RecycleEntry& e : page) {
    PObject entry;
    ORVEL_RETURN_IF_ERROR(EntryRecord(ctx, e, &entry));
    items.push_back(entry);
  }
  (*result)["items"] = items;
  (*result)["total"] = static_cast<unsigned long long>(total);
  return Status::OK();
}

Status OpRecycleRestore(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string policy = "stop";
  ORVEL_RETURN_IF_ERROR(ArgString(args, "conflict", &policy));
  if (policy != "stop" && policy != "autorename")
    return Status(kErrInvalidArgument, "conflict must be \"stop\" or \"autorename\"");
  std::vector<RecycleEntry> entries;
  ORVEL_RETURN_IF_ERROR(ReadEntries(ctx, args, &entries));
  PObject items = PObject::MakeArray();
  for (const RecycleEntry& e : entries) {
    Resolved restored;
    {
      std::lock_guard<std::mutex> lock(ctx.d->write_mu);
      RecycleEntry now;  // re-read under the lock: another request may have taken it
      ORVEL_RETURN_IF_ERROR(OwnEntry(ctx, e.file_id, &now));
      ORVEL_RETURN_IF_ERROR(RestoreItem(*ctx.d, ctx.store.get(), ctx.caller, now, policy, &restored));
    }
    Access a;
    ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, "id:" + e.file_id, &a));
    PObject record;
    ORVEL_RETURN_IF_ERROR(AccessRecord(ctx, a, &record));
    items.push_back(record);
  }
  (*result)["items"] = items;
  return Status::OK();
}

Status OpRecycleDelete(RequestContext& ctx, const PObject& args, PObject* result) {
  std::vector<RecycleEntry> entries;
  ORVEL_RETURN_IF_ERROR(ReadEntries(ctx, args, &entries));
  std::sort(entries.begin(), entries.end(),
            [](const RecycleEntry& a, const RecycleEntry& b) { return a.removed_time < b.removed_time; });
  return SubmitPurge(ctx, entries, result);
}

Status OpRecycleEmpty(RequestContext& ctx, const PObject& /*args*/, PObject* result) {
  std::vector<RecycleEntry> entries;  // oldest first
  ORVEL_RETURN_IF_ERROR(ctx.store->recycle()->RemovedBefore(ctx.caller.user.name, LLONG_MAX, &entries));
  return SubmitPurge(ctx, entries, result);
}

}  // namespace orvel::syncd
