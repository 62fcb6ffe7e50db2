// See pdf_text.h.
#include "pdf_text.h"

#include "log.h"
#include "search_index.h"

namespace orvel::syncd {

std::string ReadPdfText(const Decoder& decoder, int fd, size_t max) {
  if (fd < 0) return "";
  Status st = CheckDecoderInput(fd, decoder.max_input_bytes);
  std::string raw;
  if (st.ok()) {
    DecodeRun run;
    run.args = {"pdf-text", std::to_string(max)};
    run.in_fd = fd;
    run.capture = max;
    st = RunDecoder(decoder, run, kErrNotConvertible, &raw);
  }
  if (!st.ok()) {
    SLOG_DEBUG("pdf text: %s", st.ToString().c_str());
    return "";
  }
  return CleanIndexableText(raw, max);
}

}  // namespace orvel::syncd
