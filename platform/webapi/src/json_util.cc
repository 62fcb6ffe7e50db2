// JSON helpers of the framework: the strict parser used for parameter values
// and module-supplied texts, and the membership validator. Thread-safe.
#include "zemo/webapi.h"

#include <memory>

namespace ZEMO {

bool WebAPIUtil::ParseJson(const std::string& text, Json::Value& out) {
  // Any JSON value may stand at the top (a parameter "100" is a number), but
  // nothing else: no comments, no trailing garbage, no special floats.
  Json::CharReaderBuilder builder;
  builder["allowComments"] = false;
  builder["allowTrailingCommas"] = false;
  builder["strictRoot"] = false;
  builder["allowDroppedNullPlaceholders"] = false;
  builder["allowNumericKeys"] = false;
  builder["allowSingleQuotes"] = false;
  builder["failIfExtra"] = true;
  builder["rejectDupKeys"] = false;
  builder["allowSpecialFloats"] = false;
  builder["skipBom"] = false;
  builder["stackLimit"] = 256;
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  const char* begin = text.data();
  if (!reader->parse(begin, begin + text.size(), &value, &errors)) return false;
  out = std::move(value);
  return true;
}

bool APIValidator::IsBelong(const Json::Value& value, const Json::Value& allowed) {
  if (!allowed.isArray()) return false;
  for (const Json::Value& candidate : allowed) {
    if (candidate == value) return true;
  }
  return false;
}

}  // namespace ZEMO
