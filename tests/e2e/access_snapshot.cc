// See access_snapshot.h.
#include "access_snapshot.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "orvelcommon/sha256.h"

namespace orvel::test {
namespace {

std::string Describe(const std::string& path, const struct stat& st, bool with_mtime) {
  std::string d = S_ISDIR(st.st_mode) ? "dir" : S_ISREG(st.st_mode) ? "file" : S_ISLNK(st.st_mode) ? "link" : "other";
  d += " mode=" + std::to_string(st.st_mode & 07777) + " owner=" + std::to_string(st.st_uid);
  if (S_ISREG(st.st_mode)) {
    d += " size=" + std::to_string(st.st_size);
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    std::string hex;
    if (fd >= 0) {
      HashFileDescriptor(fd, &hex);
      ::close(fd);
    }
    d += " sha256=" + hex;
  }
  if (with_mtime) d += " mtime=" + std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
  return d;
}

void Walk(const std::string& root, const std::string& rel, std::map<std::string, std::string>* out) {
  const std::string dir = rel.empty() ? root : root + "/" + rel;
  DIR* d = ::opendir(dir.c_str());
  if (d == nullptr) return;
  std::vector<std::string> names;
  while (dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(d);
  for (const std::string& name : names) {
    const std::string child = rel.empty() ? name : rel + "/" + name;
    // Not user data: the module's download folders and the daemon's task
    // staging, which the unlink queue removes on its own time after an
    // earlier allowed download.
    if (child == "@db" || child.compare(0, 14, "@tmp/download-") == 0 || child.compare(0, 10, "@tmp/task-") == 0)
      continue;
    struct stat st;
    if (::lstat((root + "/" + child).c_str(), &st) != 0) continue;  // gone meanwhile
    (*out)[child] = Describe(root + "/" + child, st, child != "@tmp");
    if (S_ISDIR(st.st_mode)) Walk(root, child, out);
  }
}

void ReadRows(const std::string& db_path, std::map<std::string, std::string>* out) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(db_path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << "cannot open " << db_path << ": " << sqlite3_errmsg(db);
    sqlite3_close(db);
    return;
  }
  std::vector<std::string> tables;
  sqlite3_stmt* st = nullptr;
  sqlite3_prepare_v2(db,
                     "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'search%' "
                     "AND name NOT LIKE 'sqlite%' AND name != 'unlink_jobs' ORDER BY name",
                     -1, &st, nullptr);
  while (sqlite3_step(st) == SQLITE_ROW) tables.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(st, 0)));
  sqlite3_finalize(st);
  for (const std::string& table : tables) {
    std::vector<std::string> rows;
    sqlite3_prepare_v2(db, ("SELECT * FROM \"" + table + "\"").c_str(), -1, &st, nullptr);
    while (sqlite3_step(st) == SQLITE_ROW) {
      std::string row;
      for (int i = 0; i < sqlite3_column_count(st); ++i) {
        const unsigned char* text = sqlite3_column_text(st, i);
        const int n = sqlite3_column_bytes(st, i);
        row += std::string(sqlite3_column_name(st, i)) + "=";
        row += text == nullptr ? "NULL" : std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(n));
        row += " ";
      }
      rows.push_back(row);
    }
    sqlite3_finalize(st);
    // A row is its own key (row order is not part of the state); equal rows
    // are counted.
    for (const std::string& row : rows) (*out)[table + ": " + row] += "+";
  }
  sqlite3_close(db);
}

void DiffMaps(const std::map<std::string, std::string>& a, const std::map<std::string, std::string>& b,
              std::string* out) {
  for (const auto& [key, value] : a) {
    auto it = b.find(key);
    if (it == b.end()) *out += "- " + key + ": " + value + "\n";
    else if (it->second != value) *out += "~ " + key + ": " + value + "\n    -> " + it->second + "\n";
  }
  for (const auto& [key, value] : b) {
    if (a.count(key) == 0) *out += "+ " + key + ": " + value + "\n";
  }
}

}  // namespace

DataSnapshot DataSnapshot::Take(const std::string& data_dir) {
  DataSnapshot s;
  Walk(data_dir, "", &s.entries);
  ReadRows(data_dir + "/@db/sync.db", &s.rows);
  return s;
}

std::string DataSnapshot::DiffTo(const DataSnapshot& after) const {
  std::string out;
  DiffMaps(entries, after.entries, &out);
  DiffMaps(rows, after.rows, &out);
  return out;
}

}  // namespace orvel::test
