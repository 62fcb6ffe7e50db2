// RecycleStore: the records of the recycle bin, beside the nodes of Store.
// A record is kept for each top of what a delete moved into the bin (the
// item named in the delete; the rows below it are flagged removed with it):
// who removed it and when, the folder it lay in and its path there, so that
// the bin can be listed by removal time and an item restored where it was.
//
// Threading: a RecycleStore belongs to one Store (one connection) and runs
// inside that Store's transactions. No SQL leaves db/.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "db/store.h"

struct sqlite3;

namespace orvel::syncd {

struct RecycleEntry {
  std::string file_id;
  std::string owner;          // whose bin holds it (the item's owner)
  int64_t removed_time = 0;   // Unix time of the delete
  std::string removed_by;     // who deleted it (the owner or a member)
  std::string parent_id;      // the folder it lay in
  std::string original_path;  // "/mydrive/.../name" at the delete; "" when unknown
};

class RecycleStore {
 public:
  virtual ~RecycleStore() = default;

  // Adds (or replaces) the record of a top.
  virtual Status Add(const RecycleEntry& entry) = 0;
  // Drops the record of a restored item (no error when there is none).
  virtual Status Remove(const std::string& file_id) = 0;
  // kErrNotFound when the item is no top of any bin.
  virtual Status Get(const std::string& file_id, RecycleEntry* out) = 0;
  // A page of owner's bin by removal time, and the count of all of it.
  virtual Status List(const std::string& owner, bool descending, uint64_t offset, uint64_t limit,
                      std::vector<RecycleEntry>* out, uint64_t* total) = 0;
  // Every top of owner's bin (all owners when owner is "") removed before
  // `before`, oldest first.
  virtual Status RemovedBefore(const std::string& owner, int64_t before, std::vector<RecycleEntry>* out) = 0;
  // The tops that lie below file_id (removed earlier than it), oldest first.
  virtual Status TopsBelow(const std::string& file_id, std::vector<std::string>* out) = 0;
  // Clears the removed flag of everything below file_id that went into the
  // bin with it (stopping at tops of their own); file_id itself is left.
  virtual Status UnflagBelow(const std::string& file_id, int64_t now) = 0;
};

std::unique_ptr<RecycleStore> NewSqliteRecycleStore(sqlite3* db);

}  // namespace orvel::syncd
