// space: a user's own space ("/mydrive"): home creation on first use, item
// references resolved to rows, and the real path of a row. All functions
// take a Store leased by the calling thread. Names and messages follow the
// service error catalogue (docs/errors.md).
#pragma once

#include <string>
#include <vector>

#include "daemon.h"
#include "db/store.h"
#include "paths.h"

namespace orvel::syncd {

// The caller of a file operation, as checked against the user database.
struct Caller {
  UserRecord user;
  uid_t peer_uid = 0;
};

// An item found from a reference: its row and its place below /mydrive.
struct Resolved {
  Node node;
  std::vector<std::string> components;  // below the owner's root; empty for the root
  std::string view_path;                // as the caller sees it; "" for "/mydrive/.."
  std::string ViewPath() const { return view_path.empty() ? MyDrivePath(components) : view_path; }
};

// The caller's root row; on first use creates homes/<user> and the row, and
// indexes anything an administrator already put there. Creating is a write:
// inside a read snapshot it fails, so the dispatcher makes a caller's home
// (MakeHomeOnce) before an op's reads begin.
Status EnsureHome(Daemon& d, Store* store, const std::string& owner, Node* root);

// EnsureHome without the row, and without a look-up once d.homes has the owner.
Status MakeHomeOnce(Daemon& d, Store* store, const std::string& owner);

// Resolves a reference of the caller's. kErrNotFound (-502) when nothing is
// there, kErrNotFolder (-1104) when a middle component is a file,
// kErrPermission when an id names another user's item, kErrInRecycleBin
// for a removed item.
Status ResolveRef(Daemon& d, Store* store, const Caller& caller, const ItemRef& ref, Resolved* out);

// The folder in which components.back() is to be made: kErrParentNotFound
// (-503) when a folder on the way is missing, kErrNotFolder when one is a file.
Status ResolveParent(Daemon& d, Store* store, const Caller& caller,
                     const std::vector<std::string>& components, Resolved* parent);

// Absolute path of an item of `owner` with these components.
std::string DiskPath(const Layout& layout, const std::string& owner,
                     const std::vector<std::string>& components);

// A new random file id (32 hex digits).
std::string NewFileId();

}  // namespace orvel::syncd
