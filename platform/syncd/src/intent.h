// intent: undo records for writes that change the tree before they commit.
//
// A move, a rename, a delete, a copy being placed or content replacing a
// file first records its renames in the database (the intents table, one
// transaction of its own), then performs them (each fsynced), then commits
// its rows together with the removal of the record. So whenever a record
// exists, its rows were not committed and the tree must go back:
//
//  - a step that fails, or a commit that fails, makes the guard undo the
//    renames already made, newest first, and drop the record;
//  - a daemon that dies on the way leaves the record, and start-up
//    (RecoverIntents, before reconciliation) undoes the renames from it.
//
// A step counts as made when its target holds the inode its source had when
// the record was written, so undoing is idempotent and safe to repeat after
// another crash. A rename that replaces a file first links the old file
// aside (@tmp/intent-<random>), which undoing puts back and a commit removes.
// Without a store (new uploads) nothing is recorded: the guard still undoes
// on failure, and after a crash reconciliation indexes the new item whole.
//
// Steps are recorded as paths inside the data folder, and every step, live
// or at start-up, reaches its entries beneath the data folder without
// following a link on the way (space_fs.h): a folder swapped for a link
// between the record and the rename makes the step fail, never escape.
//
// Threading: a RenameIntent belongs to one write under Daemon::write_mu.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "db/store.h"
#include "tree.h"

namespace orvel::syncd {

struct RenameStep {
  std::string from, to;
  bool replace = false;  // `to` exists and is replaced (a file)
  std::string aside;     // where the replaced file is kept until the commit
  uint64_t dev = 0, ino = 0;  // of `from` when recorded
};

class RenameIntent {
 public:
  // store may be null: no record, undo on failure only.
  RenameIntent(const Layout& layout, Store* store) : layout_(layout), store_(store) {}
  ~RenameIntent();
  RenameIntent(const RenameIntent&) = delete;
  RenameIntent& operator=(const RenameIntent&) = delete;

  // Adds a rename of from -> to (RENAME_NOREPLACE unless replace); both are
  // paths inside the data folder.
  void Add(const std::string& from, const std::string& to, bool replace = false);
  // The same for the entry from_name of the open folder from_dir and the
  // entry to_name of to_dir (their paths are taken from the fds now).
  void Add(int from_dir, const std::string& from_name, int to_dir, const std::string& to_name,
           bool replace = false);
  // Notes each source's inode and records the steps (own transaction).
  Status Record();
  // Performs the steps in order (once); stops at the first failure.
  Status Apply();
  // Inside the caller's commit transaction: removes the record.
  Status Drop();
  // After the caller's commit: removes the files kept aside; nothing will be
  // undone any more.
  void Committed();
  // Undoes the steps made so far (also done by the destructor unless
  // Committed() was called). Keeps the record when an undo fails.
  Status Undo();

 private:
  const Layout& layout_;
  Store* store_;
  std::vector<RenameStep> steps_;
  bool started_ = false;
  int64_t id_ = 0;
  bool done_ = false;
};

// Undoes every recorded intent (start-up, before reconciliation), then
// removes what no record needs any more from @tmp: entries kept aside
// ("intent-*") and the daemon's temp copies (".syncd-copy-*").
Status RecoverIntents(const Layout& layout, Store* store);

}  // namespace orvel::syncd
