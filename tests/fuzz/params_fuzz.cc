// libFuzzer target: the parameter readers of entry.cgi. The input is read as
// a urlencoded query or body (every value then read as JSON or kept as text),
// as a single JSON parameter value, and as the Cookie and Content-Type headers
// whose parameters the framework reads. A value the strict JSON reader
// accepts must come back the same through the framework's JSON writer.
// Bytes that are not UTF-8 are written as U+FFFD, and that may reorder an
// object's members (they are kept sorted by their bytes), so such a value
// need only be stable from its first writing on.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cgi/cgi_env.h"
#include "cgi/form_params.h"
#include "orvelcommon/utf8.h"
#include "zemo/json_text.h"
#include "zemo/webapi.h"

namespace {

void CheckJsonRoundTrip(const std::string& text) {
  Json::Value parsed;
  if (!ZEMO::WebAPIUtil::ParseJson(text, parsed)) return;
  std::string written = zemo::CompactJson(parsed);
  Json::Value again;
  if (!ZEMO::WebAPIUtil::ParseJson(written, again)) std::abort();
  std::string rewritten = zemo::CompactJson(again);
  if (rewritten == written) return;
  if (orvel::IsValidUtf8(text)) std::abort();
  written = rewritten;
  if (!ZEMO::WebAPIUtil::ParseJson(written, again)) std::abort();
  if (zemo::CompactJson(again) != written) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);

  zemo::cgi::RawParams raw;
  zemo::cgi::ParseUrlEncoded(text, &raw);
  Json::Value params = zemo::cgi::ToJsonParams(raw);
  if (params.size() != raw.size()) std::abort();
  bool found = false;
  zemo::cgi::StringParam(raw, "passwd", &found);
  for (const auto& [name, value] : raw) {
    if (name.empty()) std::abort();
    CheckJsonRoundTrip(value);
  }
  CheckJsonRoundTrip(text);

  zemo::cgi::CookieValue(text, "id", &found);
  zemo::cgi::MediaType(text);
  zemo::cgi::ContentTypeParam(text, "boundary");
  return 0;
}
