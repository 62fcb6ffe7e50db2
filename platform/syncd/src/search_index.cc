// See search_index.h.
#include "search_index.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <mutex>

#include "db/browse_store.h"
#include "log.h"
#include "pdf_text.h"
#include "space.h"
#include "space_fs.h"
#include "tree.h"

namespace orvel::syncd {
namespace {

constexpr size_t kBatch = 512;
constexpr size_t kMaxText = 1 << 20;

const char* const kTextExtensions[] = {
    "txt", "md", "markdown", "csv", "tsv", "log", "json", "xml", "html", "htm", "css", "js", "ts",
    "c", "cc", "cpp", "h", "hpp", "py", "rb", "go", "rs", "java", "kt", "sh", "bash", "yaml", "yml",
    "ini", "conf", "cfg", "toml", "tex", "rst", "sql", "srt", "vtt", "php", "pl", "lua", "swift"};

// Length of the valid UTF-8 sequence at p (0 when invalid).
size_t Utf8Length(const unsigned char* p, size_t left) {
  unsigned char c = p[0];
  size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
  if (n == 0 || n > left) return 0;
  for (size_t i = 1; i < n; ++i)
    if ((p[i] & 0xc0) != 0x80) return 0;
  if (n == 2 && c < 0xc2) return 0;  // overlong
  return n;
}

// Opens a node's file beneath its owner's space (walks up to the root for
// its place); never through a link.
Status OpenNodeFile(Daemon& d, Store* store, const Node& node, ScopedFd* out) {
  std::vector<std::string> comps;
  Node cur = node;
  for (int depth = 0; !cur.parent_id.empty(); ++depth) {
    if (depth > 4096) return Status(kErrInternal, "folder loop above id:" + node.file_id);
    comps.insert(comps.begin(), cur.name);
    ORVEL_RETURN_IF_ERROR(store->GetById(cur.parent_id, &cur));
  }
  ItemAt at;
  ORVEL_RETURN_IF_ERROR(OpenItemAt(d, node.owner, comps, &at));
  return OpenFileAt(at.dir.get(), at.name, at.path, out);
}

struct Prepared {
  PendingIndex p;
  bool live = false;
  std::string name, body;
};

std::mutex g_drain_mu;

}  // namespace

bool IsPdf(const Node& n) { return n.ext == "pdf" || n.content_type == "application/pdf"; }

bool HasIndexableText(const Node& n) {
  if (n.type != 0 || n.size == 0 || n.encrypted || n.is_link()) return false;
  if (n.content_type.compare(0, 5, "text/") == 0 || IsPdf(n)) return true;
  for (const char* e : kTextExtensions)
    if (n.ext == e) return true;
  return false;
}

std::string ReadIndexableText(int fd, size_t max) {
  if (fd < 0) return "";
  std::string raw(max, '\0');
  size_t got = 0;
  while (got < max) {
    ssize_t r = pread(fd, &raw[got], max - got, static_cast<off_t>(got));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  raw.resize(got);
  return CleanIndexableText(raw, max);
}

std::string CleanIndexableText(const std::string& raw_in, size_t max) {
  const size_t len = std::min(raw_in.size(), max);
  std::string out;
  out.reserve(len);
  const auto* p = reinterpret_cast<const unsigned char*>(raw_in.data());
  for (size_t i = 0; i < len;) {
    size_t n = Utf8Length(p + i, len - i);
    if (n == 0 || (n == 1 && p[i] < 0x20 && p[i] != '\n' && p[i] != '\t')) {
      out.push_back(' ');
      i += n ? n : 1;
      continue;
    }
    out.append(raw_in, i, n);
    i += n;
  }
  return out;
}

std::string ExtractIndexableText(const Decoder& decoder, const Node& node, int fd) {
  return IsPdf(node) ? ReadPdfText(decoder, fd, kMaxText) : ReadIndexableText(fd, kMaxText);
}

std::string KeywordToMatch(const std::string& keyword) {
  std::string out, term;
  auto flush = [&] {
    if (term.empty()) return;
    if (!out.empty()) out += " ";
    out += "\"" + term + "\"*";
    term.clear();
  };
  for (unsigned char c : keyword) {
    if (c >= 0x80 || std::isalnum(c)) term.push_back(static_cast<char>(c));
    else flush();
  }
  flush();
  return out;
}

Status DrainSearchQueue(Daemon& d, Store* store) {
  std::lock_guard<std::mutex> lock(g_drain_mu);
  BrowseStore* b = store->browse();
  const Decoder decoder = Decoder::FromConfig(d.config);
  for (;;) {
    std::vector<PendingIndex> pending;
    ORVEL_RETURN_IF_ERROR(b->PendingForIndex(kBatch, &pending));
    if (pending.empty()) return Status::OK();
    std::vector<Prepared> batch;
    batch.reserve(pending.size());
    for (const PendingIndex& p : pending) {
      Prepared item;
      item.p = p;
      Node n;
      Status st = b->NodeByRow(p.node_row, &n);
      if (!st.ok() && st.code() != kErrNotFound) return st;
      item.live = st.ok() && !n.removed && !n.vanished && !n.parent_id.empty();
      if (item.live) {
        item.name = n.name;
        ScopedFd fd;
        if (HasIndexableText(n) && OpenNodeFile(d, store, n, &fd).ok()) item.body = ExtractIndexableText(decoder, n, fd.get());
      }
      batch.push_back(std::move(item));
    }
    Transaction tx(store, true);
    ORVEL_RETURN_IF_ERROR(tx.status());
    for (const Prepared& item : batch)
      ORVEL_RETURN_IF_ERROR(b->IndexRow(item.p, item.live, item.name, item.body));
    ORVEL_RETURN_IF_ERROR(tx.Commit());
  }
}

}  // namespace orvel::syncd
