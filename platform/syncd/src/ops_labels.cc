// The label ops: the caller's own list ("label_list", the Label API) and the
// administrator's ops behind "orvelctl label": list a user's labels, set a
// label's colour, rename a label. A label is named by its id or by its name
// (ignoring case); colours are "#rrggbb" and are stored in lower case.
#include <cctype>

#include "db/browse_store.h"
#include "ops_browse.h"

namespace orvel::syncd {
namespace {

constexpr size_t kMaxLabelName = 64;

// The label of args["user"] named by args["label"] (id first, then name).
Status FindLabel(RequestContext& ctx, const PObject& args, Label* out) {
  std::string user, key;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "user", &user));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "label", &key));
  if (user.empty()) return Status(kErrInvalidArgument, "argument \"user\" is required");
  if (key.empty()) return Status(kErrInvalidArgument, "argument \"label\" is required");
  UserRecord rec;
  ORVEL_RETURN_IF_ERROR(ctx.d->users->Lookup(user, &rec));
  BrowseStore* b = ctx.store->browse();
  Status st = b->GetLabel(rec.name, key, out);
  if (st.code() != kErrLabelNotFound) return st;
  st = b->GetLabelByName(rec.name, key, out);
  if (st.code() == kErrLabelNotFound) return Status(kErrLabelNotFound, "label not found: " + key);
  return st;
}

Status UpdateLabel(RequestContext& ctx, const PObject& args, void (*change)(const std::string&, Label*),
                   const char* key, Status (*check)(const std::string&)) {
  std::string value;
  ORVEL_RETURN_IF_ERROR(ArgString(args, key, &value));
  ORVEL_RETURN_IF_ERROR(check(value));
  Transaction tx(ctx.store.get(), true);
  ORVEL_RETURN_IF_ERROR(tx.status());
  Label label;
  ORVEL_RETURN_IF_ERROR(FindLabel(ctx, args, &label));
  change(value, &label);
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->UpdateLabel(label));
  return tx.Commit();
}

Status CheckName(const std::string& name) {
  if (name.empty()) return Status(kErrInvalidArgument, "a label needs a name");
  if (name.size() > kMaxLabelName) return Status(kErrInvalidArgument, "label name is over 64 bytes");
  return Status::OK();
}

void SetName(const std::string& name, Label* l) { l->name = name; }

// {"labels": [{label_id, name, color}]} of one user, by name.
Status ListLabelsOf(RequestContext& ctx, const std::string& user, PObject* result) {
  std::vector<Label> labels;
  ORVEL_RETURN_IF_ERROR(ctx.store->browse()->ListLabels(user, &labels));
  PObject list = PObject::MakeArray();
  for (const Label& l : labels) {
    PObject p = PObject::MakeMap();
    p["label_id"] = l.label_id;
    p["name"] = l.name;
    p["color"] = l.color;
    list.push_back(std::move(p));
  }
  (*result)["labels"] = std::move(list);
  return Status::OK();
}

void SetColour(const std::string& colour, Label* l) {
  l->color = colour;
  for (char& c : l->color) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

}  // namespace

Status CheckLabelColour(const std::string& colour) {
  bool ok = colour.size() == 7 && colour[0] == '#';
  for (size_t i = 1; ok && i < colour.size(); ++i) ok = std::isxdigit(static_cast<unsigned char>(colour[i])) != 0;
  if (!ok) return Status(kErrLabelColour, "invalid label colour (want #rrggbb): \"" + colour + "\"");
  return Status::OK();
}

Status OpAdminLabelList(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string user;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "user", &user));
  UserRecord rec;
  ORVEL_RETURN_IF_ERROR(ctx.d->users->Lookup(user, &rec));
  return ListLabelsOf(ctx, rec.name, result);
}

Status OpLabelList(RequestContext& ctx, const PObject&, PObject* result) {
  return ListLabelsOf(ctx, ctx.caller.user.name, result);
}

Status OpAdminLabelSetColour(RequestContext& ctx, const PObject& args, PObject*) {
  return UpdateLabel(ctx, args, SetColour, "color", CheckLabelColour);
}

Status OpAdminLabelRename(RequestContext& ctx, const PObject& args, PObject*) {
  return UpdateLabel(ctx, args, SetName, "name", CheckName);
}

}  // namespace orvel::syncd
