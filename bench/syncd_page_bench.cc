// Cost of one listing page in the daemon's store against the folder's size:
// folders of 100 and 100,000 items walked page by page (pages of 100) for
// each sort key and direction, and one page at the middle of the large
// folder with no earlier page to continue from. Prints microseconds.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "db/store.h"
#include "tree.h"

using namespace orvel::syncd;

namespace {

void Fill(Store* s, const std::string& parent, int n) {
  Transaction tx(s, true);
  for (int i = 0; i < n; ++i) {
    Node c;
    c.file_id = parent + "-" + std::to_string(i);
    c.parent_id = parent;
    c.owner = "bench";
    c.name = "file-" + std::to_string((i * 7919) % n) + ".txt";
    c.size = static_cast<uint64_t>((i * 31) % 1000);
    c.modified_time = 1700000000 + (i * 13) % 5000;
    c.ext = "txt";
    if (!s->Insert(&c).ok()) std::abort();
  }
  if (!tx.Commit().ok()) std::abort();
}

// Walks a folder of n items page by page (pages of 100), as a browser
// scrolls; returns the median and the slowest page in microseconds.
void Walk(Store* s, ListQuery q, uint64_t n, double* median, double* worst) {
  std::vector<double> t;
  std::vector<Node> items;
  uint64_t total = 0;
  for (q.offset = 0; q.offset < n; q.offset += q.limit) {
    auto t0 = std::chrono::steady_clock::now();
    Transaction tx(s, false);
    if (!s->ListPage(q, &items, &total).ok() || items.empty()) std::abort();
    t.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
  }
  std::sort(t.begin(), t.end());
  *median = t[t.size() / 2];
  *worst = t.back();
}

// One page at offset, with no earlier page to continue from.
double Jump(Store* s, ListQuery q, uint64_t offset) {
  std::vector<Node> items;
  uint64_t total = 0;
  q.offset = offset;
  q.sort = q.sort;
  q.dirs = false;  // a query no walk has cached
  auto t0 = std::chrono::steady_clock::now();
  Transaction tx(s, false);
  if (!s->ListPage(q, &items, &total).ok()) std::abort();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace

int main() {
  char tmpl[] = "/tmp/syncd-bench-XXXXXX";
  if (!mkdtemp(tmpl)) return 1;
  std::string dir = tmpl;
  std::unique_ptr<Store> s;
  if (!OpenSqliteStore(dir + "/sync.db", &s).ok()) return 1;
  for (const char* root : {"small", "large"}) {
    Node r;
    r.file_id = root;
    r.owner = root;
    r.name = root;
    r.type = 1;
    if (!s->Insert(&r).ok()) return 1;
  }
  Fill(s.get(), "small", 100);
  Fill(s.get(), "large", 100000);
  const char* keys[] = {"name", "size", "mtime"};
  printf("pages of 100, walked in order (median / slowest page):\n");
  printf("%-6s %-4s %22s %22s %16s\n", "sort", "dir", "100 items", "100,000 items", "cold jump to 50%");
  for (int k = 0; k < 3; ++k) {
    for (bool desc : {false, true}) {
      ListQuery q;
      q.sort = static_cast<SortKey>(k);
      q.descending = desc;
      q.limit = 100;
      double sm, sw, lm, lw;
      q.parent_id = "small";
      Walk(s.get(), q, 100, &sm, &sw);
      Walk(s.get(), q, 100, &sm, &sw);  // warm
      q.parent_id = "large";
      Walk(s.get(), q, 100000, &lm, &lw);
      double jump = Jump(s.get(), q, 50000);
      printf("%-6s %-4s %9.1fus /%8.1fus %9.1fus /%8.1fus %14.1fus\n", keys[k], desc ? "desc" : "asc",
             sm, sw, lm, lw, jump);
    }
  }
  s.reset();
  RemoveTree(dir);
  return 0;
}
