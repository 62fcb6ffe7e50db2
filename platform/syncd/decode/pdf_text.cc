// The text of a PDF with poppler's C++ interface: from standard input to
// standard output. The document is read into memory (the daemon caps its
// size), so poppler never opens a file by name. Poppler's own diagnostics
// are dropped.
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-page.h>

#include "decode_protocol.h"
#include "decoder.h"

namespace orvel::syncd::decode {
namespace {

void Quiet(const std::string&, void*) {}

bool ReadAll(int fd, std::vector<char>* out) {
  char buf[65536];
  for (;;) {
    ssize_t r = read(fd, buf, sizeof(buf));
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return false;
    if (r == 0) return true;
    out->insert(out->end(), buf, buf + r);
  }
}

bool WriteAll(int fd, const char* data, size_t len) {
  while (len > 0) {
    ssize_t w = write(fd, data, len);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    data += w;
    len -= static_cast<size_t>(w);
  }
  return true;
}

}  // namespace

int ExtractPdfText(size_t max_bytes) {
  poppler::set_debug_error_function(Quiet, nullptr);
  std::vector<char> pdf;
  if (!ReadAll(0, &pdf)) return Fail(kUndecodable, "cannot read the file");
  if (pdf.size() > static_cast<size_t>(INT32_MAX)) return Fail(kUndecodable, "file too large");
  std::unique_ptr<poppler::document> doc(
      poppler::document::load_from_raw_data(pdf.data(), static_cast<int>(pdf.size())));
  if (!doc) return Fail(kUndecodable, "not a readable PDF");
  if (doc->is_locked()) return Fail(kUndecodable, "the PDF is password-protected");
  size_t written = 0;
  for (int i = 0; i < doc->pages() && written < max_bytes; ++i) {
    std::unique_ptr<poppler::page> page(doc->create_page(i));
    if (!page) continue;
    std::vector<char> utf8 = page->text().to_utf8();
    std::string chunk = written > 0 ? "\n" : "";
    chunk.append(utf8.data(), utf8.size());
    if (chunk.size() > max_bytes - written) chunk.resize(max_bytes - written);
    if (!WriteAll(1, chunk.data(), chunk.size())) return Fail(kWriteFailed, "cannot write the text");
    written += chunk.size();
  }
  return kOk;
}

}  // namespace orvel::syncd::decode
