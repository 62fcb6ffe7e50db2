// The authorization matrix: every method of every API, called by every kind
// of caller, naming the items every way a caller can. A row says how to build
// the request and which cells the access rules allow (docs/browse.md,
// docs/transfer.md); the driver (access_matrix_test.cc) runs each cell over
// HTTP and checks that refused cells change nothing on disk or in the
// database. A new API or method is a few rows in access_matrix_rows.cc.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test::matrix {

// Who calls. Share members hold shares on the owner's folder "Shared" with
// the role in their name; "other" has an account and no share; visitors have
// no account and a sharing link of the folder (viewer or editor role);
// "anonymous" has neither.
enum class Who { kOwner, kEditor, kCommenter, kViewer, kOther, kVisitor, kVisitorEditor, kAnonymous };
// How the item is named: "/mydrive/..." (the caller's own space), "id:",
// "/shared-with-me/Shared/...", or as a link page does (the request carries
// a sharing token: visitors their own, accounts the viewer link's; the linked
// folder is "/" for a visitor, anything else "id:"). kNone: the method names
// no item.
enum class Via { kPath, kId, kShared, kLink, kNone };
enum class Role { kNone, kViewer, kCommenter, kEditor, kOwner };

const char* WhoName(Who who);
// The account of a caller that has one ("olive" is the owner); its password
// is the name followed by "-password".
std::string AccountName(Who who);
const char* ViaName(Via via);
bool HasAccount(Who who);

// The items of the owner, re-made when an allowed write changed them.
// Below the owner's /mydrive: Shared/{doc.txt, pic.png, sheet.csv, Sub/},
// Private/secret.txt (never shared). Each account also owns /mydrive/mine.txt.
struct Fixture {
  std::map<std::string, std::string> ids;  // "" (Shared), "doc.txt", "Sub", ... -> file id
  std::string view_token, edit_token;      // sharing links of Shared
  std::string owner_label_id;              // a label of the owner's, on doc.txt
  std::string private_id;                  // Private/secret.txt
  std::string import_dir;                  // a server folder every user may import from
  std::string download_task;               // the owner's finished download of Shared/Sub
  std::string visitor_task;                // the same, staged by the viewer link's visitor
  std::map<Who, std::string> sid;          // sessions of the accounts
};

// One cell's request, as curl sends it.
struct Request {
  std::string api = "ZEMO.ZemoraOrvel.Files";
  std::string method;
  int version = 1;
  std::vector<std::pair<std::string, std::string>> fields;  // sent as they are
  std::string upload;       // the name of a file to send as the multipart part "file"
  bool fresh_sid = false;   // send a session made for this cell (logout ends it)
};

struct Cell {
  const Fixture& fx;
  Who who;
  Via via;
  int serial;  // unique per cell
  // The reference to an item below Shared ("" is Shared itself).
  std::string Item(const std::string& rel) const;
  std::string Id(const std::string& rel) const;
  // A name nobody used yet in this run.
  std::string Fresh(const std::string& stem) const;
};

// What an allowed cell left that the next cells must not see: a new name of
// doc.txt or Shared, doc.txt deleted or moved into Sub, Shared moved into
// Private, Shared deleted (it is made again, with new shares and links).
enum class Undo { kNone, kRenameBack, kRecreateDoc, kMoveBack, kMoveFolderBack, kRemakeShared };

// Rows run in groups, each against a stack of its own, so that the groups
// can run side by side.
enum class Group { kRead, kMarks, kWrite, kTransfer };

struct Row {
  const char* label;  // method, and a variant after a space ("copy out")
  Group group;
  bool targeted;      // names an item below Shared (else run once per caller)
  bool (*allowed)(Who, Via);
  void (*build)(const Cell& cell, Request* out);
  Undo undo = Undo::kNone;
};

// The caller's role on the items below Shared for that way of naming them;
// `links` says whether a sharing link's role counts (transfers and marks:
// no).
Role EffectiveRole(Who who, Via via, bool links);

const std::vector<Row>& Rows();

}  // namespace orvel::test::matrix
