// JSON helpers of the framework: the strict parser used for parameter values
// and module-supplied texts, and the membership validator. Thread-safe.
#include "zemo/webapi.h"

#include <memory>

namespace ZEMO {

namespace {

// Any JSON value may stand at the top (a parameter "100" is a number), but
// nothing else: no comments, no trailing garbage, no special floats.
std::unique_ptr<Json::CharReader> NewStrictReader() {
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
  return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

}  // namespace

bool WebAPIUtil::ParseJson(const std::string& text, Json::Value& out) {
  // A reader starts each parse afresh; building one costs more than a
  // request's parameters take to parse, so each thread keeps its own.
  thread_local const std::unique_ptr<Json::CharReader> reader = NewStrictReader();
  Json::Value value;
  std::string errors;
  const char* begin = text.data();
  try {
    if (!reader->parse(begin, begin + text.size(), &value, &errors)) return false;
  } catch (const Json::Exception&) {
    return false;  // nested past stackLimit: jsoncpp throws instead of failing
  }
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
