// CGI answer writing; see cgi_output.h. Not thread-safe.
#include "cgi/cgi_output.h"

#include <string_view>

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

namespace {

constexpr char kHead[] = "{\"data\":";
constexpr char kTail[] = ",\"success\":true}\n";

// Hands the envelope to put in pieces, in order. A data text the module
// wrote itself (a listing's items) goes between the two ends as it is: an
// answer of 100 KB is not copied once more to be framed.
template <class Put>
void PutEnvelope(const ZEMO::APIResponse& response, Put put) {
  if (response.IsError() || !response.HasData()) {
    put(CompactJson(response.Envelope()) + "\n");
    return;
  }
  if (!response.GetDataText().empty()) {
    put(kHead);
    put(response.GetDataText());
    put(kTail);
    return;
  }
  // The success envelope written around the data, so that a large answer is
  // not copied into a second tree first.
  std::string text = kHead;
  text.reserve(64 * 1024);
  if (!AppendCompactJson(response.GetData(), &text)) {
    text.resize(sizeof(kHead) - 1);
    text += CompactJson(response.GetData());
  }
  text += kTail;
  put(text);
}

}  // namespace

std::string EnvelopeText(const ZEMO::APIResponse& response) {
  std::string text;
  PutEnvelope(response, [&text](std::string_view piece) { text += piece; });
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
  std::fwrite(text.data(), 1, text.size(), out);
  PutEnvelope(response, [out](std::string_view piece) { std::fwrite(piece.data(), 1, piece.size(), out); });
  std::fflush(out);
}

}  // namespace zemo::cgi
