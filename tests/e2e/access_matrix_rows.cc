// The rows of the authorization matrix (see access_matrix.h): for each method
// of ZEMO.ZemoraOrvel.Files, ZEMO.API.Auth and ZEMO.API.Info, the request of a
// cell and the cells the access rules allow.
#include <json/json.h>

#include "access_matrix.h"
#include "nimbard/platform.h"

namespace orvel::test::matrix {
namespace {

std::string JsonList(const std::vector<std::string>& items) {
  Json::Value a(Json::arrayValue);
  for (const auto& i : items) a.append(i);
  Json::StreamWriterBuilder b;
  b["indentation"] = "";
  return Json::writeString(b, a);
}

Role ShareRole(Who who) {
  switch (who) {
    case Who::kEditor: return Role::kEditor;
    case Who::kCommenter: return Role::kCommenter;
    case Who::kViewer: return Role::kViewer;
    default: return Role::kNone;
  }
}

// The rules of the rows, from docs/browse.md and docs/transfer.md.
bool ReadWithLinks(Who w, Via v) { return EffectiveRole(w, v, true) >= Role::kViewer; }
bool WriteWithLinks(Who w, Via v) { return EffectiveRole(w, v, true) >= Role::kEditor; }
bool ReadShared(Who w, Via v) { return EffectiveRole(w, v, false) >= Role::kViewer; }
// Downloads: a link counts for a visitor (no account), never for an account.
bool ReadVisitorsToo(Who w, Via v) { return EffectiveRole(w, v, !HasAccount(w)) >= Role::kViewer; }
bool WriteShared(Who w, Via v) { return EffectiveRole(w, v, false) >= Role::kEditor; }
bool OwnSpace(Who w, Via v) { return EffectiveRole(w, v, false) == Role::kOwner; }
// create and upload name the new item by its path in the caller's own space.
bool OwnPath(Who w, Via v) { return w == Who::kOwner && v == Via::kPath; }
bool Accounts(Who w, Via) { return HasAccount(w); }
bool OwnerAlone(Who w, Via) { return w == Who::kOwner; }
bool ViewLinkVisitor(Who w, Via) { return w == Who::kVisitor; }
bool Everyone(Who, Via) { return true; }
bool Nobody(Who, Via) { return false; }
// An access request names, by id, another user's item the caller cannot
// open (a sharing link in the request does not count).
bool AsksAccess(Who w, Via v) { return w == Who::kOther && (v == Via::kId || v == Via::kLink); }

void Files(Request* r, const char* method, std::vector<std::pair<std::string, std::string>> fields,
           int version = 1) {
  r->method = method;
  r->fields = std::move(fields);
  r->version = version;
}

const std::vector<Row> kRows = {
    // Reading.
    {"list", Group::kRead, true, ReadWithLinks, [](const Cell& c, Request* r) { Files(r, "list", {{"path", c.Item("")}}); }},
    {"get", Group::kRead, true, ReadWithLinks, [](const Cell& c, Request* r) { Files(r, "get", {{"path", c.Item("doc.txt")}}); }},
    {"get v2", Group::kRead, true, ReadWithLinks,
     [](const Cell& c, Request* r) { Files(r, "get", {{"path", c.Item("doc.txt")}}, 2); }},
    {"get_thumbnail", Group::kRead, true, ReadWithLinks,
     [](const Cell& c, Request* r) { Files(r, "get_thumbnail", {{"path", c.Item("pic.png")}, {"size", "small"}}); }},
    {"list_ancestor", Group::kRead, true, ReadWithLinks,
     [](const Cell& c, Request* r) { Files(r, "list_ancestor", {{"path", c.Item("doc.txt")}}); }},
    {"search", Group::kRead, true, ReadShared,
     [](const Cell& c, Request* r) {
       Files(r, "search", {{"keyword", "doc"}, {"location", "custom"}, {"custom_location", c.Item("")}});
     }},
    {"download", Group::kRead, true, ReadVisitorsToo,
     [](const Cell& c, Request* r) { Files(r, "download", {{"files", JsonList({c.Item("doc.txt")})}}); }},
    {"download folder", Group::kRead, true, ReadVisitorsToo,
     [](const Cell& c, Request* r) { Files(r, "download", {{"files", JsonList({c.Item("Sub")})}}); }},
    // Marks and access requests.
    {"star", Group::kMarks, true, ReadShared,
     [](const Cell& c, Request* r) { Files(r, "star", {{"files", JsonList({c.Item("doc.txt")})}, {"starred", "true"}}); }},
    {"label", Group::kMarks, true, ReadShared,
     [](const Cell& c, Request* r) {
       Files(r, "label", {{"files", JsonList({c.Item("doc.txt")})}, {"labels", JsonList({"Mine"})}});
     }},
    {"update star", Group::kMarks, true, ReadShared,
     [](const Cell& c, Request* r) { Files(r, "update", {{"path", c.Item("doc.txt")}, {"starred", "true"}}); }},
    // One request per item and requester: the link's cell asks for another item.
    {"request_access", Group::kMarks, true, AsksAccess,
     [](const Cell& c, Request* r) {
       Files(r, "request_access", {{"path", c.Item(c.via == Via::kLink ? "sheet.csv" : "doc.txt")}});
     }},
    // Writing.
    {"update rename", Group::kWrite, true, WriteWithLinks,
     [](const Cell& c, Request* r) {
       Files(r, "update", {{"path", c.Item("doc.txt")}, {"name", c.Fresh("renamed") + ".txt"}});
     },
     Undo::kRenameBack},
    {"update rename folder", Group::kWrite, true, WriteWithLinks,
     [](const Cell& c, Request* r) { Files(r, "update", {{"path", c.Item("")}, {"name", c.Fresh("Renamed")}}); },
     Undo::kRenameBack},
    {"create", Group::kWrite, true, OwnPath,
     [](const Cell& c, Request* r) {
       Files(r, "create", {{"path", c.Item(c.Fresh("new") + ".txt")}, {"type", "file"},
                           {"file_content", EncBase64Enc("new\n")}});
     }},
    {"upload", Group::kWrite, true, OwnPath,
     [](const Cell& c, Request* r) {
       Files(r, "upload", {{"path", c.Item(c.Fresh("up") + ".txt")}, {"type", "file"}});
       r->upload = "upload.txt";
     }},
    {"upload_from_tpx", Group::kWrite, true, OwnSpace,
     [](const Cell& c, Request* r) {
       Files(r, "upload_from_tpx", {{"path", c.Item("")}, {"tpx_paths", JsonList({c.fx.import_dir + "/in.txt"})},
                                    {"conflict_action", "autorename"}});
     }},
    {"convert_office", Group::kWrite, true, OwnSpace,
     [](const Cell& c, Request* r) { Files(r, "convert_office", {{"files", JsonList({c.Item("sheet.csv")})}}); }},
    {"copy out", Group::kTransfer, true, ReadShared,
     [](const Cell& c, Request* r) {
       Files(r, "copy", {{"files", JsonList({c.Item("doc.txt")})}, {"to_parent_folder", "/mydrive"}});
     }},
    {"copy in", Group::kTransfer, true, WriteShared,
     [](const Cell& c, Request* r) {
       Files(r, "copy", {{"files", JsonList({"/mydrive/mine.txt"})}, {"to_parent_folder", c.Item("Sub")}});
     }},
    {"move", Group::kTransfer, true, WriteShared,
     [](const Cell& c, Request* r) {
       Files(r, "move", {{"files", JsonList({c.Item("doc.txt")})}, {"to_parent_folder", c.Item("Sub")}});
     },
     Undo::kMoveBack},
    {"delete", Group::kTransfer, true, WriteShared,
     [](const Cell& c, Request* r) { Files(r, "delete", {{"files", JsonList({c.Item("doc.txt")})}}); },
     Undo::kRecreateDoc},
    // The shared item itself stays its owner's.
    {"move folder", Group::kTransfer, true, OwnSpace,
     [](const Cell& c, Request* r) {
       Files(r, "move", {{"files", JsonList({c.Item("")})}, {"to_parent_folder", "/mydrive/Private"}});
     },
     Undo::kMoveFolderBack},
    {"delete folder", Group::kTransfer, true, OwnSpace,
     [](const Cell& c, Request* r) { Files(r, "delete", {{"files", JsonList({c.Item("")})}}); },
     Undo::kRemakeShared},
    {"delete v3", Group::kTransfer, true, WriteShared,
     [](const Cell& c, Request* r) { Files(r, "delete", {{"files", JsonList({c.Item("doc.txt")})}}, 3); },
     Undo::kRecreateDoc},
    // Acting for the owner is for trusted callers only, never over HTTP.
    {"get as owner (sudo)", Group::kTransfer, true, Nobody,
     [](const Cell& c, Request* r) { Files(r, "get", {{"path", c.Item("doc.txt")}, {"sudo", "olive"}}); }},
    // The caller's own listings.
    {"shared_with_me", Group::kMarks, false, Accounts, [](const Cell&, Request* r) { Files(r, "shared_with_me", {}); }},
    {"shared_with_others", Group::kMarks, false, Accounts, [](const Cell&, Request* r) { Files(r, "shared_with_others", {}); }},
    {"recent", Group::kMarks, false, Accounts, [](const Cell&, Request* r) { Files(r, "recent", {}); }},
    {"list_starred", Group::kMarks, false, Accounts, [](const Cell&, Request* r) { Files(r, "list_starred", {}); }},
    {"list_labelled", Group::kMarks, false, OwnerAlone,
     [](const Cell& c, Request* r) { Files(r, "list_labelled", {{"label_id", c.fx.owner_label_id}}); }},
    // The zip of a folder download is its owner's alone.
    {"download task result", Group::kRead, false, OwnerAlone,
     [](const Cell& c, Request* r) { Files(r, "download", {{"task_id", c.fx.download_task}}); }},
    // A visitor's zip is reached only with the token that staged it.
    {"download visitor task", Group::kRead, false, ViewLinkVisitor,
     [](const Cell& c, Request* r) { Files(r, "download", {{"task_id", c.fx.visitor_task}}); }},
    {"list_backup_tasks v3", Group::kMarks, false, Accounts,
     [](const Cell&, Request* r) { Files(r, "list_backup_tasks", {}, 3); }},
    // ZEMO.API.Auth: an account logs in as itself; nobody with a wrong password.
    {"login", Group::kMarks, false, Accounts,
     [](const Cell& c, Request* r) {
       r->api = "ZEMO.API.Auth";
       r->method = "login";
       // Guesses go to an account of nobody here: the login throttle would
       // otherwise hold back the owner's own logins later in the run.
       const std::string name = HasAccount(c.who) ? AccountName(c.who) : "mallory";
       r->fields = {{"account", name}, {"passwd", HasAccount(c.who) ? name + "-password" : "guess"}};
     }},
    {"login wrong password", Group::kMarks, false, Nobody,
     [](const Cell&, Request* r) {
       r->api = "ZEMO.API.Auth";
       r->method = "login";
       r->fields = {{"account", "mallory"}, {"passwd", "mallory-passwore"}};
     }},
    {"logout", Group::kMarks, false, Everyone,
     [](const Cell&, Request* r) {
       r->api = "ZEMO.API.Auth";
       r->method = "logout";
       r->fresh_sid = true;
     }},
    // ZEMO.API.Info describes the APIs and nothing of any user.
    {"query", Group::kMarks, false, Everyone,
     [](const Cell&, Request* r) {
       r->api = "ZEMO.API.Info";
       r->method = "query";
     }},
};

}  // namespace

const char* WhoName(Who who) {
  static const char* const kNames[] = {"owner", "editor", "commenter", "viewer",
                                       "other", "visitor", "visitor(editor link)", "anonymous"};
  return kNames[static_cast<int>(who)];
}

const char* ViaName(Via via) {
  static const char* const kNames[] = {"path", "id", "shared-with-me", "link", "-"};
  return kNames[static_cast<int>(via)];
}

std::string AccountName(Who who) {
  static const char* const kNames[] = {"olive", "eddie", "cora", "vic", "otto"};
  return HasAccount(who) ? kNames[static_cast<int>(who)] : "";
}

bool HasAccount(Who who) { return who <= Who::kOther; }

Role EffectiveRole(Who who, Via via, bool links) {
  if (who == Who::kOwner) return via == Via::kPath || via == Via::kId || via == Via::kLink ? Role::kOwner : Role::kNone;
  if (ShareRole(who) != Role::kNone) return via == Via::kPath || via == Via::kNone ? Role::kNone : ShareRole(who);
  if (!links || (via != Via::kId && via != Via::kLink)) return Role::kNone;
  if (who == Who::kOther) return via == Via::kLink ? Role::kViewer : Role::kNone;
  if (who == Who::kVisitor) return Role::kViewer;
  if (who == Who::kVisitorEditor) return Role::kEditor;
  return Role::kNone;
}

std::string Cell::Id(const std::string& rel) const {
  auto it = fx.ids.find(rel);
  return it == fx.ids.end() ? "" : it->second;
}

std::string Cell::Item(const std::string& rel) const {
  const std::string below = rel.empty() ? "" : "/" + rel;
  const bool visitor = !HasAccount(who) && who != Who::kAnonymous;
  switch (via) {
    case Via::kPath: return "/mydrive/Shared" + below;
    case Via::kShared: return "/shared-with-me/Shared" + below;
    case Via::kLink:
      if (visitor && rel.empty()) return "/";
      [[fallthrough]];
    case Via::kId:
    case Via::kNone: break;
  }
  // A new name has no id yet: name it below its folder's id.
  return Id(rel).empty() ? "id:" + Id("") + below : "id:" + Id(rel);
}

std::string Cell::Fresh(const std::string& stem) const { return stem + "-" + std::to_string(serial); }

const std::vector<Row>& Rows() { return kRows; }

}  // namespace orvel::test::matrix
