// CGI answer writing; see cgi_output.h. Not thread-safe.
#include "cgi/cgi_output.h"

#include "zemo/json_text.h"

namespace zemo::cgi {

namespace {

// Header names and values come from modules: a CR or LF would let them
// start a header (or the body) of their own.
std::string HeaderSafe(const std::string& s) {
  std::string out;
  out.reserve(s.size());
  for (char c : s) {
    if (c != '\r' && c != '\n') out.push_back(c);
  }
  return out;
}

}  // namespace

std::string EnvelopeText(const ZEMO::APIResponse& response) {
  if (response.IsError() || !response.HasData()) {
    return CompactJson(response.Envelope()) + "\n";
  }
  // The success envelope written around the data, so that a large answer is
  // not copied into a second tree first.
  static const char kHead[] = "{\"data\":";
  std::string text = kHead;
  if (!response.GetDataText().empty()) {
    text.reserve(text.size() + response.GetDataText().size() + 32);
    text += response.GetDataText();
    text += ",\"success\":true}\n";
    return text;
  }
  text.reserve(64 * 1024);
  if (!AppendCompactJson(response.GetData(), &text)) {
    text.resize(sizeof(kHead) - 1);
    text += CompactJson(response.GetData());
  }
  text += ",\"success\":true}\n";
  return text;
}

void WriteAnswer(const ZEMO::APIResponse& response, FILE* out) {
  if (!response.IsOutputEnabled()) {
    std::fflush(out);
    return;
  }
  std::string text = "Content-Type: application/json; charset=utf-8\r\n";
  for (const auto& [name, value] : response.GetHeaders()) {
    text += HeaderSafe(name) + ": " + HeaderSafe(value) + "\r\n";
  }
  text += "\r\n";
  const std::string body = EnvelopeText(response);
  std::fwrite(text.data(), 1, text.size(), out);
  std::fwrite(body.data(), 1, body.size(), out);
  std::fflush(out);
}

}  // namespace zemo::cgi
