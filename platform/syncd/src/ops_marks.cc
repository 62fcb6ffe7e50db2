// Per-user marks and the listings across a space: edit_star, edit_label,
// list_starred, list_labelled, list_shared_with_me, list_shared_with_others
// and list_recent. Marks belong to the user that sets them (or to the member
// an administrator acts for) and name items by file_id.
#include <algorithm>
#include <ctime>

#include "access.h"
#include "ops_browse.h"

namespace orvel::syncd {
namespace {

constexpr size_t kMaxLabelName = 64;
constexpr char kDefaultLabelColour[] = "#9e9e9e";
constexpr int64_t kRecentDefault = 200, kRecentMax = 1000;

// The user a mark action acts for: the caller, or (for an administrator)
// the member the action names.
Status MemberUser(RequestContext& ctx, const PObject& member, std::string* user) {
  *user = ctx.caller.user.name;
  if (!member.isMap()) return Status::OK();
  std::string type = member["type"].asString(), name = member["name"].asString();
  uint64_t uid = member["uid"].asUInt64();
  if (type == "group") return Status(kErrInvalidArgument, "marks belong to users, not to group " + name);
  if (name.empty() && (uid == 0 || uid == ctx.caller.user.uid)) return Status::OK();
  if (name == ctx.caller.user.name) return Status::OK();
  if (!ctx.caller.user.admin)
    return Status(kErrPermission, "permission denied: cannot act for member " +
                                      (name.empty() ? "uid " + std::to_string(uid) : name));
  if (name.empty()) return Status(kErrInvalidArgument, "member needs a name");
  UserRecord rec;
  ORVEL_RETURN_IF_ERROR(ctx.d->users->Lookup(name, &rec));
  *user = rec.name;
  return Status::OK();
}

// The items of "files", each one the caller may see.
Status ResolveFiles(RequestContext& ctx, const PObject& args, std::vector<Access>* out) {
  std::vector<std::string> files;
  ORVEL_RETURN_IF_ERROR(ArgStringList(args, "files", &files));
  if (files.empty()) return Status(kErrInvalidArgument, "argument \"files\" names no item");
  const PObject& actions = args["actions"];
  if (!actions.isNull() && !actions.isArray())
    return Status(kErrInvalidArgument, "argument \"actions\" must be an array");
  for (const std::string& f : files) {
    out->emplace_back();
    ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, f, &out->back()));
  }
  return Status::OK();
}

// Pairs actions with items: one action per item when the counts match,
// otherwise every action (in order) on every item.
template <typename Fn>
Status ForEachPair(const std::vector<Access>& items, const PObject& actions, Fn fn) {
  if (!actions.isArray()) return Status::OK();
  const auto& list = actions.asArray();
  for (size_t i = 0; i < items.size(); ++i) {
    if (list.size() == items.size()) {
      ORVEL_RETURN_IF_ERROR(fn(items[i], list[i]));
      continue;
    }
    for (const PObject& a : list) ORVEL_RETURN_IF_ERROR(fn(items[i], a));
  }
  return Status::OK();
}

Status FindOrCreateLabel(BrowseStore* b, const std::string& user, const PObject& action, bool create,
                         Label* out) {
  std::string id = action["label_id"].asString(), name = action["name"].asString();
  if (!id.empty()) return b->GetLabel(user, id, out);
  if (name.empty()) return Status(kErrInvalidArgument, "label action names no label");
  if (name.size() > kMaxLabelName) return Status(kErrInvalidArgument, "label name is over 64 bytes");
  Status st = b->GetLabelByName(user, name, out);
  if (st.code() != kErrLabelNotFound || !create) return st;
  *out = Label{NewFileId(), user, name, kDefaultLabelColour};
  return b->CreateLabel(*out);
}

// The user a star action acts for, once its shape is checked.
Status ReadStarAction(RequestContext& ctx, const PObject& act, std::string* user) {
  if (!act.isMap() || !act["starred"].isBool())
    return Status(kErrInvalidArgument, "a star action needs \"starred\" true or false");
  return MemberUser(ctx, act["member"], user);
}

Status ApplyStarAction(RequestContext& ctx, const std::string& file_id, const PObject& act) {
  std::string user;
  ORVEL_RETURN_IF_ERROR(ReadStarAction(ctx, act, &user));
  return ctx.store->browse()->SetStar(user, file_id, act["starred"].asBool());
}

// The verb ("add" or "remove") and user of a label action.
Status ReadLabelAction(RequestContext& ctx, const PObject& act, std::string* verb, std::string* user) {
  if (!act.isMap()) return Status(kErrInvalidArgument, "a label action must be a map");
  *verb = act["action"].asString();
  if (verb->empty()) *verb = "add";
  if (*verb != "add" && *verb != "remove")
    return Status(kErrInvalidArgument, "unknown label action: \"" + *verb + "\"");
  return MemberUser(ctx, act["member"], user);
}

Status ApplyLabelAction(RequestContext& ctx, const std::string& file_id, const PObject& act) {
  std::string verb, user;
  ORVEL_RETURN_IF_ERROR(ReadLabelAction(ctx, act, &verb, &user));
  BrowseStore* b = ctx.store->browse();
  Label label;
  ORVEL_RETURN_IF_ERROR(FindOrCreateLabel(b, user, act, verb == "add", &label));
  return b->SetItemLabel(user, label.label_id, file_id, verb == "add");
}

// What ApplyLabelAction would refuse, found without changing anything: an
// "add" by a name not used yet creates the label later.
Status CheckLabelAction(RequestContext& ctx, const PObject& act) {
  std::string verb, user;
  ORVEL_RETURN_IF_ERROR(ReadLabelAction(ctx, act, &verb, &user));
  Label label;
  Status st = FindOrCreateLabel(ctx.store->browse(), user, act, false, &label);
  if (st.code() == kErrLabelNotFound && verb == "add" && act["label_id"].asString().empty())
    return Status::OK();
  return st;
}

// Reads the shared paging of the mark listings.
Status MarkQueryFrom(const PObject& args, MarkQuery* m, std::string* label_id) {
  ListQuery q;
  bool starred = false;
  ORVEL_RETURN_IF_ERROR(ParseListFilter(args["filter"], &q, label_id, &starred));
  m->sort = q.sort;
  m->descending = q.descending;
  m->files = q.files;
  m->dirs = q.dirs;
  m->extensions = q.extensions;
  m->offset = q.offset;
  m->limit = q.limit;
  return Status::OK();
}

Status AnswerNodes(RequestContext& ctx, const std::vector<Node>& rows, PObject* result,
                   const uint64_t* total) {
  std::vector<Access> items;
  items.reserve(rows.size());
  for (const Node& n : rows) {
    Access a;
    Status st = AccessOfNode(ctx, n, &a);
    if (st.code() == kErrPermission || st.code() == kErrNotFound || st.code() == kErrInRecycleBin)
      continue;  // a share whose folder above went away
    ORVEL_RETURN_IF_ERROR(st);
    items.push_back(std::move(a));
  }
  PObject array;
  ORVEL_RETURN_IF_ERROR(AccessItemsPacked(ctx, std::move(items), &array));
  (*result)["items"] = std::move(array);
  if (total) (*result)["total"] = static_cast<unsigned long long>(*total);
  return Status::OK();
}

Status ListByMark(RequestContext& ctx, MarkQuery& m, PObject* result) {
  std::vector<Node> rows;
  uint64_t total = 0;
  {
    Transaction tx(ctx.store.get(), false);
    ORVEL_RETURN_IF_ERROR(tx.status());
    ORVEL_RETURN_IF_ERROR(ctx.store->browse()->ListMarked(m, &rows, &total));
  }
  return AnswerNodes(ctx, rows, result, &total);
}

}  // namespace

Status OpEditStar(RequestContext& ctx, const PObject& args, PObject*) {
  std::vector<Access> items;
  ORVEL_RETURN_IF_ERROR(ResolveFiles(ctx, args, &items));
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ForEachPair(items, args["actions"], [&](const Access& a, const PObject& act) {
    return ApplyStarAction(ctx, a.node.file_id, act);
  }));
  return tx.Commit();
}

Status OpEditLabel(RequestContext& ctx, const PObject& args, PObject*) {
  std::vector<Access> items;
  ORVEL_RETURN_IF_ERROR(ResolveFiles(ctx, args, &items));
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  ORVEL_RETURN_IF_ERROR(ForEachPair(items, args["actions"], [&](const Access& a, const PObject& act) {
    return ApplyLabelAction(ctx, a.node.file_id, act);
  }));
  return tx.Commit();
}

bool HasItemMarks(const PObject& args) {
  return !args["labels"].isNull() || !args["starred"].isNull() || !args["mute"].isNull();
}

Status CheckItemMarks(const PObject& args) {
  if (!args["labels"].isNull() && !args["labels"].isArray())
    return Status(kErrInvalidArgument, "argument \"labels\" must be an array");
  const PObject& starred = args["starred"];
  if (!starred.isNull() && !starred.isArray() && !starred.isBool())
    return Status(kErrInvalidArgument, "argument \"starred\" must be an array or a boolean");
  bool mute = false;
  return ArgBool(args, "mute", &mute);
}

Status CheckItemMarkActions(RequestContext& ctx, const PObject& args) {
  ORVEL_RETURN_IF_ERROR(CheckItemMarks(args));
  if (args["starred"].isArray()) {
    for (const PObject& act : args["starred"].asArray()) {
      std::string user;
      ORVEL_RETURN_IF_ERROR(ReadStarAction(ctx, act, &user));
    }
  }
  if (args["labels"].isArray())
    for (const PObject& act : args["labels"].asArray()) ORVEL_RETURN_IF_ERROR(CheckLabelAction(ctx, act));
  return Status::OK();
}

Status ApplyItemMarks(RequestContext& ctx, const std::string& file_id, const PObject& args) {
  ORVEL_RETURN_IF_ERROR(CheckItemMarks(args));
  if (!HasItemMarks(args)) return Status::OK();
  if (IsVisitor(ctx)) return Status(kErrPermission, "permission denied: link visitors have no marks");
  const PObject& starred = args["starred"];
  if (starred.isBool()) {
    PObject act = PObject::MakeMap();
    act["starred"] = starred.asBool();
    ORVEL_RETURN_IF_ERROR(ApplyStarAction(ctx, file_id, act));
  } else if (starred.isArray()) {
    for (const PObject& act : starred.asArray()) ORVEL_RETURN_IF_ERROR(ApplyStarAction(ctx, file_id, act));
  }
  if (args["labels"].isArray())
    for (const PObject& act : args["labels"].asArray()) ORVEL_RETURN_IF_ERROR(ApplyLabelAction(ctx, file_id, act));
  if (args["mute"].isBool())
    return ctx.store->browse()->SetMute(ctx.caller.user.name, file_id, args["mute"].asBool());
  return Status::OK();
}

Status OpListStarred(RequestContext& ctx, const PObject& args, PObject* result) {
  MarkQuery m;
  std::string label_id;
  ORVEL_RETURN_IF_ERROR(MarkQueryFrom(args, &m, &label_id));
  m.kind = MarkQuery::Kind::kStarred;
  m.user = ctx.caller.user.name;
  return ListByMark(ctx, m, result);
}

Status OpListLabelled(RequestContext& ctx, const PObject& args, PObject* result) {
  MarkQuery m;
  ORVEL_RETURN_IF_ERROR(MarkQueryFrom(args, &m, &m.label_id));
  if (m.label_id.empty()) return Status(kErrInvalidArgument, "label_id is required");
  m.kind = MarkQuery::Kind::kLabelled;
  m.user = ctx.caller.user.name;
  Label label;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->GetLabel(m.user, m.label_id, &label));
  return ListByMark(ctx, m, result);
}

Status OpListSharedWithMe(RequestContext& ctx, const PObject& args, PObject* result) {
  MarkQuery m;
  std::string label_id;
  ORVEL_RETURN_IF_ERROR(MarkQueryFrom(args, &m, &label_id));
  m.kind = MarkQuery::Kind::kSharedWithMe;
  m.user = ctx.caller.user.name;
  m.groups = ctx.caller.user.groups;
  return ListByMark(ctx, m, result);
}

Status OpListSharedWithOthers(RequestContext& ctx, const PObject& args, PObject* result) {
  MarkQuery m;
  std::string label_id;
  ORVEL_RETURN_IF_ERROR(MarkQueryFrom(args, &m, &label_id));
  m.kind = MarkQuery::Kind::kSharedWithOthers;
  m.user = ctx.caller.user.name;
  return ListByMark(ctx, m, result);
}

Status OpListRecent(RequestContext& ctx, const PObject& args, PObject* result) {
  const PObject& lim = args["limit"];
  if (!lim.isNull() && !lim.isInteger()) return Status(kErrInvalidArgument, "argument \"limit\" must be an integer");
  int64_t limit = lim.isNull() ? kRecentDefault : lim.asInt64();
  if (limit <= 0) limit = kRecentDefault;
  limit = std::min(limit, kRecentMax);
  MarkQuery m;
  std::string label_id;
  ORVEL_RETURN_IF_ERROR(MarkQueryFrom(args, &m, &label_id));
  std::vector<Node> rows;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->ListRecent(ctx.caller.user.name, static_cast<uint64_t>(limit), &rows));
  std::vector<Node> kept;
  for (Node& n : rows) {
    if (m.files != m.dirs && n.is_dir() != m.dirs) continue;
    if (!m.extensions.empty() &&
        std::find(m.extensions.begin(), m.extensions.end(), n.ext) == m.extensions.end())
      continue;
    kept.push_back(std::move(n));
  }
  return AnswerNodes(ctx, kept, result, nullptr);
}

}  // namespace orvel::syncd
