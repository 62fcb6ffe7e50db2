// Store: the daemon's metadata database behind one interface, so that a
// second back-end (PostgreSQL) is a new file and no SQL leaves this folder.
//
// Threading: a Store is one database connection; use it from one thread at a
// time (StorePool hands them out). Several Stores may write the same database
// concurrently: write transactions are serialised by the back-end (SQLite
// BEGIN IMMEDIATE with a busy time-out).
//
// Every method returns a Status: kErrNotFound when a looked-up row does not
// exist, kErrNameExists when a live name is taken in its folder, kErrStorage
// (or kErrBusy when the database stayed locked) for database failures, with
// the statement's error text.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orvelcommon/status.h"

namespace orvel::syncd {

// The content type of a symbolic link found in a home. Such a link is an
// item of its own (type 0, no size, no hash) that is never followed.
inline constexpr char kLinkContentType[] = "inode/symlink";

// One row of the nodes table: a file or folder of some user's space. A user's
// root folder ("/mydrive") has an empty parent_id and the owner's name.
struct Node {
  int64_t row_id = 0;  // internal, 0 before insertion
  std::string file_id, parent_id, owner, name;
  int type = 0;  // 0 file, 1 folder
  uint64_t size = 0;
  int64_t created_time = 0, access_time = 0, modified_time = 0, change_time = 0;
  std::string hash;
  uint64_t sync_id = 0;  // change number of the current content version
  uint64_t max_id = 0;   // latest change number in the item or below it
  bool removed = false;  // in the recycle bin (later milestone)
  bool vanished = false; // its file disappeared from disk (reconciliation)
  bool encrypted = false;
  std::string permanent_link;
  std::string properties = "{}", app_properties = "{}";  // JSON texts
  std::string content_type;
  uint32_t revisions = 0;
  std::string ext;        // lower-case extension, for filters
  uint64_t child_count = 0, child_dirs = 0;  // live children (maintained by the store)

  bool is_dir() const { return type == 1; }
  bool is_link() const { return type == 0 && content_type == kLinkContentType; }
};

enum class SortKey { kName, kSize, kModified };

// One page of a folder's live children.
struct ListQuery {
  std::string parent_id;
  SortKey sort = SortKey::kName;
  bool descending = false;
  bool files = true, dirs = true;  // type filter (both true = no filter)
  std::vector<std::string> extensions;  // lower-case, no dot; empty = all
  uint64_t offset = 0, limit = 1000;
};

struct Revision {
  std::string file_id;
  uint64_t sync_id = 0;
  uint64_t size = 0;
  int64_t modified_time = 0;
  std::string hash;
};

// A revision as read back: the row id (the public revision id), when the
// content became a revision, and the user whose write produced the content
// ("" when unknown: written before writers were recorded).
struct RevisionRow : Revision {
  int64_t id = 0;
  int64_t created = 0;
  std::string writer;
};

// What revision retention leaves: at most keep_count rows per file (the
// newest), none created before `created_before` (0 = no age limit).
struct RevisionKeep {
  uint64_t keep_count = 32;
  int64_t created_before = 0;
};

struct UnlinkJob {
  int64_t id = 0;
  std::string path;
  int64_t not_before = 0;
};

struct StoreStats {
  uint64_t files = 0, folders = 0, bytes = 0, vanished = 0, homes = 0;
  uint64_t revisions = 0, unlink_jobs = 0, schema_version = 0, max_id = 0;
  // Times this connection's cached statements were compiled again. A plan
  // that depends on a bound value is recompiled at each new value, which
  // costs more than the look-up itself; this stays 0.
  uint64_t recompiled = 0;
};

class BrowseStore;   // db/browse_store.h
class RecycleStore;  // db/recycle_store.h

class Store {
 public:
  virtual ~Store() = default;

  // Transactions (see Transaction below). Begin(true) takes the write lock.
  virtual Status Begin(bool write) = 0;
  virtual Status Commit() = 0;
  virtual void Rollback() = 0;
  virtual bool InTransaction() const = 0;

  // Nodes. Lookups return live rows only unless said otherwise.
  virtual Status GetById(const std::string& file_id, Node* out) = 0;   // also vanished rows
  virtual Status GetByLink(const std::string& link, Node* out) = 0;
  virtual Status GetRoot(const std::string& owner, Node* out) = 0;
  // The live child named `name` under any of its Unicode spellings
  // (NameForms in name_forms.h), the exact bytes first.
  virtual Status GetChild(const std::string& parent_id, const std::string& name, Node* out) = 0;
  virtual Status ListPage(const ListQuery& q, std::vector<Node>* items, uint64_t* total) = 0;
  // Every child row, live or vanished (for reconciliation), by name.
  virtual Status ListAllChildren(const std::string& parent_id, std::vector<Node>* out) = 0;
  virtual Status ListRoots(std::vector<Node>* out) = 0;
  // Inserts node (file_id must be set); fills row_id. kErrNameExists.
  virtual Status Insert(Node* node) = 0;
  // Rewrites every column of the row with node.row_id.
  virtual Status Update(const Node& node) = 0;
  // Marks the row and everything below it vanished.
  virtual Status MarkVanished(const std::string& file_id) = 0;
  // Removes a vanished row and everything below it for good.
  virtual Status Purge(const std::string& file_id) = 0;

  // The global change counter: increments and returns the new value.
  virtual Status NextChange(uint64_t* seq) = 0;
  // Sets max_id = seq on the folder parent_id and all its ancestors.
  virtual Status TouchAncestors(const std::string& parent_id, uint64_t seq) = 0;

  // Adds the row; its writer is the one recorded for (file_id, sync_id) by
  // SetContentWriter, "" when none was.
  virtual Status AddRevision(const Revision& rev) = 0;
  virtual Status ListRevisions(const std::string& file_id, std::vector<Revision>* out) = 0;
  // A page of the file's revisions, newest first, and how many there are.
  virtual Status ListRevisionPage(const std::string& file_id, uint64_t offset, uint64_t limit,
                                  std::vector<RevisionRow>* out, uint64_t* total) = 0;
  // The revision `id` of the file; kErrNotFound when the file has none such.
  virtual Status GetRevision(const std::string& file_id, int64_t id, RevisionRow* out) = 0;
  // Deletes the file's rows that `keep` does not leave, sets the node's
  // revision count, and answers the hashes of the deleted rows and the count.
  virtual Status PruneRevisions(const std::string& file_id, const RevisionKeep& keep,
                                std::vector<std::string>* hashes, uint32_t* remaining) = 0;
  // Files having a revision created before `before` (at most max).
  virtual Status FilesWithOldRevisions(int64_t before, size_t max, std::vector<std::string>* out) = 0;
  // True when some revision row still holds the content `hash`.
  virtual Status HashReferenced(const std::string& hash, bool* referenced) = 0;
  // Records who wrote the content version (file_id, sync_id).
  virtual Status SetContentWriter(const std::string& file_id, uint64_t sync_id,
                                  const std::string& writer) = 0;

  // Service state (key/value, persisted) and freeze flags per view.
  virtual Status GetState(const std::string& key, std::string* value) = 0;  // kErrNotFound
  virtual Status SetState(const std::string& key, const std::string& value) = 0;
  virtual Status GetFreeze(uint32_t view_id, bool* frozen) = 0;
  virtual Status SetFreeze(uint32_t view_id, bool frozen) = 0;

  // The unlink job queue.
  virtual Status PushUnlink(const std::string& path, int64_t not_before) = 0;
  virtual Status DueUnlinks(int64_t now, size_t max, std::vector<UnlinkJob>* out) = 0;
  virtual Status DeleteUnlink(int64_t id) = 0;
  // Seconds until the next job is due (-1 when the queue is empty).
  virtual Status NextUnlinkDelay(int64_t now, int64_t* seconds) = 0;

  // Undo records of writes that rename before they commit (intent.h); the
  // steps are an opaque blob. ListIntents answers the oldest first.
  virtual Status AddIntent(const std::string& steps, int64_t* id) = 0;
  virtual Status DropIntent(int64_t id) = 0;
  virtual Status ListIntents(std::vector<std::pair<int64_t, std::string>>* out) = 0;

  virtual Status Stats(StoreStats* out) = 0;

  // Stars, labels, sharing, recent items, backups, access requests and the
  // search index, on this same connection (and so inside its transactions).
  virtual BrowseStore* browse() = 0;
  // The recycle bin's records, on this same connection.
  virtual RecycleStore* recycle() = 0;
};

// A transaction as a scope guard: rolls back unless Commit() succeeded.
class Transaction {
 public:
  Transaction(Store* store, bool write) : store_(store) { status_ = store_->Begin(write); }
  ~Transaction() {
    if (status_.ok() && !done_) store_->Rollback();
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  const Status& status() const { return status_; }
  Status Commit() {
    done_ = true;
    return store_->Commit();
  }

 private:
  Store* store_;
  Status status_;
  bool done_ = false;
};

// A group of reads under one read transaction, or under the transaction
// already open: one snapshot for the group, and one read lock instead of one
// per statement. Nothing is written, so the end rolls back.
class ReadSnapshot {
 public:
  explicit ReadSnapshot(Store* store)
      : store_(store), own_(!store->InTransaction() && store->Begin(false).ok()) {}
  ~ReadSnapshot() {
    if (own_) store_->Rollback();
  }
  ReadSnapshot(const ReadSnapshot&) = delete;
  ReadSnapshot& operator=(const ReadSnapshot&) = delete;

 private:
  Store* store_;
  bool own_;  // began here; a failed BEGIN leaves each read on its own
};

// Opens the SQLite store at path, creating it and applying the missing
// migrations when `migrate` (the pool migrates with its first connection
// only; later connections skip the check).
Status OpenSqliteStore(const std::string& path, std::unique_ptr<Store>* out, bool migrate = true);

}  // namespace orvel::syncd
