// See pdf_text.h.
#include "pdf_text.h"

#include <memory>
#include <mutex>
#include <vector>

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-page.h>

#include "log.h"
#include "search_index.h"

namespace orvel::syncd {
namespace {

void PopplerMessage(const std::string& msg, void*) { SLOG_DEBUG("pdf text: %s", msg.c_str()); }

void QuietPoppler() {
  static std::once_flag once;
  std::call_once(once, [] { poppler::set_debug_error_function(PopplerMessage, nullptr); });
}

}  // namespace

std::string ReadPdfText(int fd, size_t max) {
  QuietPoppler();
  // Poppler reads that very inode, the one the caller opened.
  if (fd < 0) return "";
  const std::string by_fd = "/proc/self/fd/" + std::to_string(fd);
  std::unique_ptr<poppler::document> doc(poppler::document::load_from_file(by_fd));
  if (!doc || doc->is_locked()) return "";
  std::string raw;
  for (int i = 0; i < doc->pages() && raw.size() < max; ++i) {
    std::unique_ptr<poppler::page> page(doc->create_page(i));
    if (!page) continue;
    std::vector<char> utf8 = page->text().to_utf8();
    if (!raw.empty()) raw.push_back('\n');
    raw.append(utf8.data(), utf8.size());
  }
  return CleanIndexableText(raw, max);
}

}  // namespace orvel::syncd
