// PageCursors: where listing pages left off, so that the next page of a
// folder starts with an index seek after the last row served instead of
// stepping over `offset` rows. Browsers page sequentially (offset 0, 100,
// 200, ...), which makes every page O(page) whatever the folder's size; a
// jump to an unseen offset seeks from the nearest cursor below it.
//
// A cursor is valid for one folder generation (the folder's max_id and child
// count, both changed by every write in it); any other generation misses.
// Thread-safe (one mutex); bounded (cleared when full).
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>

namespace orvel::syncd {

// The sort key and row id of the last row of a page.
struct PageCursor {
  bool is_text = false;
  int64_t i = 0;
  std::string s;
  int64_t id = 0;
};

class PageCursors {
 public:
  // Finds the cursor with the greatest offset <= offset (offset 0 never
  // needs one). True and *at set when found.
  bool Find(const std::string& query_key, uint64_t generation, uint64_t offset, PageCursor* out,
            uint64_t* at);
  // Remembers that the row at position offset - 1 has this cursor.
  void Put(const std::string& query_key, uint64_t generation, uint64_t offset, const PageCursor& c);

  // The process-wide cache of one database.
  static PageCursors* ForDatabase(const std::string& path);

 private:
  struct Entry {
    uint64_t generation = 0;
    std::map<uint64_t, PageCursor> by_offset;
  };
  static constexpr size_t kMaxQueries = 1024;
  static constexpr size_t kMaxCursorsPerQuery = 512;

  std::mutex mu_;
  std::unordered_map<std::string, Entry> entries_;
};

}  // namespace orvel::syncd
