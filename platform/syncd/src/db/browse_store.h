// BrowseStore: the tables behind browsing, marks and search, beside the
// nodes of Store: stars, labels and mutes per user, shares with users and
// groups, sharing links, recent items, backup tasks, access requests and the
// full-text index with its queue of rows to (re)index.
//
// Threading: a BrowseStore belongs to one Store (one connection) and is used
// from the thread that leased it; its statements run inside that Store's
// transactions. No SQL leaves db/.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "db/store.h"

struct sqlite3;

namespace orvel::syncd {

struct Label {
  std::string label_id, user, name, color;
};

struct Share {
  int64_t id = 0;
  std::string file_id, owner;
  std::string kind;  // "user" or "group"
  std::string name;  // user or group name
  std::string role;  // "viewer", "commenter", "editor"
};

struct SharingLink {
  std::string token, file_id, owner, role;
  int64_t created = 0, expires = 0;  // expires 0 = never
  std::string password_hash;         // crypto_pwhash string; "" = no password
};

struct BackupTask {
  std::string task_id, user, name, target;  // target: the folder's file_id
};

struct AccessRequest {
  std::string file_id, requester, owner;
  int64_t at = 0;
};

// One page of items picked by a mark rather than by folder.
struct MarkQuery {
  enum class Kind { kStarred, kLabelled, kSharedWithMe, kSharedWithOthers };
  Kind kind = Kind::kStarred;
  std::string user;                 // whose marks / to whom / by whom
  std::vector<std::string> groups;  // kSharedWithMe: the user's groups
  std::string label_id;             // kLabelled
  std::string parent_id;            // not empty: only children of this folder
  SortKey sort = SortKey::kName;
  bool descending = false;
  bool files = true, dirs = true;
  std::vector<std::string> extensions;
  uint64_t offset = 0, limit = 1000;
};

// Marks of one user on a set of items (for records).
struct ItemMarks {
  std::set<std::string> starred, shared;
  std::multimap<std::string, Label> labels;  // file_id -> label
};

// A search over the nodes a caller may see (built by ops_search.cc).
struct SearchQuery {
  std::string match;  // FTS5 expression made from the keyword; "" = no keyword
  std::string user;   // the caller
  enum class Scope { kAll, kMine, kShared, kFolder };
  Scope scope = Scope::kAll;
  std::vector<std::string> shared_roots;  // kAll, kShared: items shared with the caller
  std::vector<std::string> folders;       // kFolder: every folder of the subtree
  bool files = true, dirs = true;
  std::vector<std::string> extensions;    // lower-case; empty = any
  std::vector<std::string> label_ids;     // the caller's labels; any of them
  int64_t start_time = 0, end_time = 0;   // modified time range; 0 = open
  uint64_t min_size = 0, max_size = 0;    // 0 = open
  std::string owner_is, owner_not;        // "" = any
  enum class Sort { kScore, kName, kSize, kModified };
  Sort sort = Sort::kScore;
  bool descending = false;
  bool snippet = false;
  uint64_t offset = 0, limit = 100;
};

struct SearchHit {
  Node node;
  std::string snippet;
};

// A row waiting for the search index: its row id and its queue entry.
struct PendingIndex {
  int64_t queue_id = 0, node_row = 0;
};

class BrowseStore {
 public:
  virtual ~BrowseStore() = default;

  // Stars and mutes.
  virtual Status SetStar(const std::string& user, const std::string& file_id, bool on) = 0;
  virtual Status SetMute(const std::string& user, const std::string& file_id, bool on) = 0;

  // Labels. kErrLabelNotFound for an unknown id or name; kErrLabelExists
  // when the user already has a label of that name (names ignore case).
  virtual Status GetLabel(const std::string& user, const std::string& label_id, Label* out) = 0;
  virtual Status GetLabelByName(const std::string& user, const std::string& name, Label* out) = 0;
  virtual Status CreateLabel(const Label& label) = 0;
  virtual Status ListLabels(const std::string& user, std::vector<Label>* out) = 0;
  // Sets the name and colour of an existing label (user and label_id name
  // it). kErrLabelNotFound when there is none; kErrLabelExists when another
  // label of the user has the name.
  virtual Status UpdateLabel(const Label& label) = 0;
  virtual Status SetItemLabel(const std::string& user, const std::string& label_id,
                              const std::string& file_id, bool on) = 0;

  // Stars, labels and the shared flag of a set of items, for `user`.
  virtual Status MarksAmong(const std::string& user, const std::vector<std::string>& file_ids,
                            ItemMarks* out) = 0;

  // A page of marked items (live rows only) and the count of all of them.
  virtual Status ListMarked(const MarkQuery& q, std::vector<Node>* items, uint64_t* total) = 0;

  // Shares. AddShare replaces the role of an existing member.
  virtual Status AddShare(const Share& share) = 0;
  virtual Status RemoveShare(const std::string& file_id, const std::string& kind,
                             const std::string& name) = 0;  // kErrNotFound
  virtual Status SharesOf(const std::string& file_id, std::vector<Share>* out) = 0;
  // Live items shared directly with the user (or a group) named `name`.
  virtual Status SharedRootsByName(const std::string& user, const std::vector<std::string>& groups,
                                   const std::string& item_name, std::vector<Node>* out) = 0;
  virtual Status SharedRootIds(const std::string& user, const std::vector<std::string>& groups,
                               std::vector<std::string>* out) = 0;

  // Links. GetLink: kErrSharingToken when the token is unknown.
  virtual Status CreateLink(const SharingLink& link) = 0;
  virtual Status GetLink(const std::string& token, SharingLink* out) = 0;
  virtual Status RemoveLink(const std::string& token) = 0;  // kErrNotFound
  virtual Status LinksOf(const std::string& file_id, std::vector<SharingLink>* out) = 0;
  // Role, expiry and password hash of the link of link.token (kErrNotFound).
  virtual Status UpdateLink(const SharingLink& link) = 0;
  // Gives the item its permanent link unless it has one; *out: the item's.
  virtual Status EnsurePermanentLink(const std::string& file_id, const std::string& candidate,
                                     std::string* out) = 0;
  // Grants of password links, by the digest of their secret. AddLinkGrant
  // drops every grant expired at now; RemoveLink and RemoveLinkGrants drop a
  // link's grants; HasLinkGrant ignores expired ones.
  virtual Status AddLinkGrant(const std::string& digest, const std::string& token, int64_t now,
                              int64_t expires) = 0;
  virtual Status HasLinkGrant(const std::string& digest, const std::string& token, int64_t now,
                              bool* found) = 0;
  virtual Status RemoveLinkGrants(const std::string& token) = 0;

  // Recent items: newest first, at most `limit` live rows.
  virtual Status TouchRecent(const std::string& user, const std::string& file_id, int64_t at) = 0;
  virtual Status ListRecent(const std::string& user, uint64_t limit, std::vector<Node>* out) = 0;

  // Backup tasks of a user. RemoveBackup: kErrTaskNotFound.
  virtual Status AddBackup(const BackupTask& task) = 0;
  virtual Status RemoveBackup(const std::string& user, const std::string& task_id) = 0;
  virtual Status ListBackups(const std::string& user, std::vector<BackupTask>* out) = 0;

  // Access requests. kErrAlreadyRequested for a second one.
  virtual Status AddAccessRequest(const AccessRequest& req) = 0;
  virtual Status ListAccessRequests(const std::string& owner, std::vector<AccessRequest>* out) = 0;

  // The search index queue and index.
  virtual Status PendingForIndex(size_t max, std::vector<PendingIndex>* out) = 0;
  virtual Status NodeByRow(int64_t row_id, Node* out) = 0;  // kErrNotFound
  // Replaces the row's index entry (or removes it when `live` is false)
  // and drops its queue entry.
  virtual Status IndexRow(const PendingIndex& p, bool live, const std::string& name,
                          const std::string& body) = 0;
  virtual Status Search(const SearchQuery& q, std::vector<SearchHit>* hits, uint64_t* total) = 0;
  // The file ids of every folder in the subtree of `folder_id` (itself included).
  virtual Status SubtreeFolders(const std::string& folder_id, std::vector<std::string>* out) = 0;
};

std::unique_ptr<BrowseStore> NewSqliteBrowseStore(sqlite3* db);

}  // namespace orvel::syncd
