// transfer: the building blocks of copy, move, delete, import, conversion
// and download staging. Content is first staged under a task temp name in
// @tmp (same file system as the homes), flushed, then renamed into place and
// only then committed to the database, so a crash never leaves a half-made
// item under its final name (docs/transfer.md).
//
// Threading: the Stage* functions run without the write lock; Place*,
// MoveItem and DeleteItem need Daemon::write_mu held by the caller. Each call
// uses the Store it is given from one thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "daemon.h"
#include "db/store.h"
#include "orvelcommon/pobject.h"
#include "space.h"

namespace orvel::syncd {

class TaskContext;
struct RequestContext;

// Conflict policy per item type. The wire gives either one string for both
// or a map {"file": .., "folder": .., "default": ..}; "version" means
// "overwrite_server".
struct ConflictPolicy {
  std::string file = "autorename", folder = "autorename";
  const std::string& For(bool is_dir) const { return is_dir ? folder : file; }
};
// kErrInvalidArgument for an unknown policy or a value of another kind.
// A null value or "" gives def.
Status ParseConflictPolicy(const PObject& v, const std::string& def, ConflictPolicy* out);
PObject ConflictPolicyToPObject(const ConflictPolicy& p);

// A staged item: its future row and those of everything below it.
struct StagedNode {
  Node row;
  std::vector<StagedNode> children;
};

struct TreeCount {
  uint64_t items = 0, bytes = 0;
};

// Counts node and every live item below it.
Status CountSubtree(Store* store, const Node& node, TreeCount* out);

// Live children of a folder row.
Status LiveChildren(Store* store, const std::string& folder_id, std::vector<Node>* out);

// Copies the content of src_fd into dst_fd: a reflink (FICLONE) where the
// file system shares extents, else copy_file_range, else read/write.
Status CopyFileContent(int src_fd, int dst_fd, const std::string& dst_path);

// Progress of a staging walk: items and bytes done so far.
struct StageProgress {
  TaskContext* task = nullptr;  // may be null (no progress, never cancelled)
  uint64_t items = 0, bytes = 0, total = 0, total_bytes = 0;
  Status Step(uint64_t bytes_done);  // kErrTaskCancelled once cancelled
};

// Copies the item `src`, the entry src.name of the folder src_dir (src_path
// in messages), and everything live below it to the new entry dst_name of
// dst_dir, giving every copy a new file id. Rows come from the database;
// content from the disk, opened without following links: a link item is
// copied as a link (its target text), a link where the row has a file or a
// folder fails with kErrPermission. When the task is cancelled (progress
// answers kErrTaskCancelled), *out and the staged entry hold the items
// staged whole so far, so the caller may place them.
Status StageFromStore(Store* store, const Node& src, int src_dir, const std::string& src_path, int dst_dir,
                      const std::string& dst_name, StageProgress* progress, StagedNode* out);

// Copies the entry src_name of the folder src_dir (a file or folder of a
// server path; links and special files below it are skipped, never
// followed) to the new entry dst_name of dst_dir, hashing the files, for
// owner.
Status StageFromDisk(int src_dir, const std::string& src_name, const std::string& src_path, int dst_dir,
                     const std::string& dst_name, const std::string& owner, StageProgress* progress,
                     StagedNode* out);

// Flushes everything written to the file system of the open fd (syncfs).
Status FlushFileSystem(int fd, const std::string& path);

// The "temp_dir" argument of a one-file download: the folder the web module
// made in @tmp for it, trailing slashes dropped, opened beneath @tmp
// (-402 outside @tmp, -1104 when it is not a folder).
Status OpenDownloadFolder(const Daemon& d, const PObject& args, std::string* temp_dir, ScopedFd* dir);

// The share of the configuration that holds the real path `real` and is
// open to user: *root is the share's real root. kErrServerPathRefused when
// none is, or when real touches the data folder.
Status ServerShareOf(const Daemon& d, const std::string& user, const std::string& real, std::string* root);

// The name to use in the folder dest (open as dest_dir) for `name` under
// policy p: sets *existing when the name is taken by an indexed item and the
// policy is to act on it; *skip for "skip". "stop" answers kErrNameExists.
Status ChooseName(Store* store, const Resolved& dest, int dest_dir, const std::string& name,
                  bool is_dir, const std::string& p, std::string* chosen, Node* existing,
                  bool* has_existing, bool* skip);

struct PlaceOutcome {
  bool skipped = false;  // "skip" kept the existing item
  Node node;             // the item now at the destination
  std::vector<std::string> components;  // its place below /mydrive
};

// Renames the staged item, the entry temp_name of the folder temp_dir, into
// the folder dest under the policy and commits its rows. "overwrite"
// replaces a file's content (same id); "overwrite_server" also keeps the old
// content as a revision; a folder onto a folder merges the children with the
// same policy. The staged entry is consumed.
Status PlaceStaged(Daemon& d, Store* store, const Resolved& dest, StagedNode& item, int temp_dir,
                   const std::string& temp_name, const ConflictPolicy& policy, PlaceOutcome* out);

// Moves src into the folder dest as new_name ("" keeps its name), keeping
// its identity. kErrIntoItself when dest is src or lies below it.
Status MoveItem(Daemon& d, Store* store, const Resolved& src, const Resolved& dest,
                const std::string& new_name, const ConflictPolicy& policy, PlaceOutcome* out);

// Deletes src: into the recycle bin (rows keep their ids, flagged removed;
// the content goes to @recycle/<file_id>) or for good (content renamed to
// the @tmp entry trash_name, then removed after the commit). A removed item
// (top of its subtree) can be deleted for good. A link is moved as the link.
// Into the bin, the same commit records the removal (db/recycle_store.h):
// now, removed_by, the folder and path it came from.
Status DeleteItem(Daemon& d, Store* store, const Resolved& src, bool permanent,
                  const std::string& trash_name, const std::string& removed_by);

// True when `inner` is `outer` or lies below it (both in the same space).
bool IsSameOrBelow(const Resolved& inner, const Resolved& outer);

// What a transfer does with an item it names, and so the role it needs
// (roles of access.h).
enum class TransferUse {
  kRead,       // copy or download source: any role
  kWriteInto,  // destination folder: editor or owner; kErrNotFolder for a file
  kTakeOut,    // move or delete source: owner, or editor of the folder it lies in
};

// Resolves a wire path of ctx's caller ("/mydrive/..", "/shared-with-me/..",
// "id:") for a transfer: own items and items shared with the caller, never
// through a sharing link. kErrPermission when the role does not allow the
// use; the errors of ResolveAccess otherwise. out->view_path is the path as
// the caller sees it.
Status ResolveForTransfer(RequestContext& ctx, const std::string& path, TransferUse use, Resolved* out);
Status ResolveAllForTransfer(RequestContext& ctx, const std::vector<std::string>& paths, TransferUse use,
                             std::vector<Resolved>* out);

// A request context for a task's owner (no session, no sharing token) with
// a store lease of its own, for the resolvers above.
Status TaskRequestContext(TaskContext& task, RequestContext* out);

// Resolves each reference of the caller's (the wire's paths).
Status ResolveAll(Daemon& d, Store* store, const Caller& caller,
                  const std::vector<std::string>& paths, std::vector<Resolved>* out);
// Resolves the destination folder: -1104 when it is a file.
Status ResolveFolder(Daemon& d, Store* store, const Caller& caller, const std::string& path,
                     Resolved* out);
// Re-resolves a folder by id under the write lock (it may have moved).
Status ResolveFolderById(Daemon& d, Store* store, const Caller& caller, const std::string& file_id,
                         Resolved* out);

}  // namespace orvel::syncd
