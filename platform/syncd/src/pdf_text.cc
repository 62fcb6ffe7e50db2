// See pdf_text.h.
#include "pdf_text.h"

#include "log.h"
#include "search_index.h"
#include "tree.h"

namespace orvel::syncd {

std::string ReadPdfText(const Decoder& decoder, const std::string& path, size_t max) {
  ScopedFd fd;
  Status st = OpenDecoderInput(path, &fd);
  if (st.ok()) st = CheckDecoderInput(fd.get(), decoder.max_input_bytes);
  std::string raw;
  if (st.ok()) {
    DecodeRun run;
    run.args = {"pdf-text", std::to_string(max)};
    run.in_fd = fd.get();
    run.capture = max;
    st = RunDecoder(decoder, run, kErrNotConvertible, &raw);
  }
  if (!st.ok()) {
    SLOG_DEBUG("pdf text of %s: %s", path.c_str(), st.ToString().c_str());
    return "";
  }
  return CleanIndexableText(raw, max);
}

}  // namespace orvel::syncd
