// See page_cursors.h.
#include "db/page_cursors.h"

#include <memory>

namespace orvel::syncd {

bool PageCursors::Find(const std::string& query_key, uint64_t generation, uint64_t offset,
                       PageCursor* out, uint64_t* at) {
  if (offset == 0) return false;
  std::lock_guard<std::mutex> lock(mu_);
  auto it = entries_.find(query_key);
  if (it == entries_.end() || it->second.generation != generation) return false;
  auto& m = it->second.by_offset;
  auto c = m.upper_bound(offset);
  if (c == m.begin()) return false;
  --c;
  *out = c->second;
  *at = c->first;
  return true;
}

void PageCursors::Put(const std::string& query_key, uint64_t generation, uint64_t offset,
                      const PageCursor& c) {
  std::lock_guard<std::mutex> lock(mu_);
  if (entries_.size() >= kMaxQueries && !entries_.count(query_key)) entries_.clear();
  Entry& e = entries_[query_key];
  if (e.generation != generation) {
    e.by_offset.clear();
    e.generation = generation;
  }
  if (e.by_offset.size() >= kMaxCursorsPerQuery) e.by_offset.clear();
  e.by_offset[offset] = c;
}

PageCursors* PageCursors::ForDatabase(const std::string& path) {
  static std::mutex mu;
  static std::unordered_map<std::string, std::unique_ptr<PageCursors>> all;
  std::lock_guard<std::mutex> lock(mu);
  auto& p = all[path];
  if (!p) p = std::make_unique<PageCursors>();
  return p.get();
}

}  // namespace orvel::syncd
