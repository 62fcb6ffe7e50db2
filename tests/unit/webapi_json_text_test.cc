// The compact JSON writer of entry.cgi's answers: exact texts for the cases
// that matter to clients, and byte equality with jsoncpp's StreamWriter on
// varied values (unicode, control characters, doubles, 64-bit integers,
// sparse arrays, embedded NULs, deep nesting), invalid UTF-8 aside.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "cgi/cgi_output.h"
#include "zemo/json_text.h"
#include "orvelcommon/utf8.h"

namespace zemo::cgi {
namespace {

std::string JsoncppText(const Json::Value& v) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, v);
}

// jsoncpp copies invalid UTF-8 as it is; ours writes U+FFFD for each such
// byte, and is otherwise the same text.
void ExpectSameAsJsoncpp(const Json::Value& v) {
  std::string ours;
  ASSERT_TRUE(AppendCompactJson(v, &ours));
  EXPECT_EQ(orvel::ValidUtf8(JsoncppText(v)), ours);
}

TEST(CompactJson, ExactTexts) {
  Json::Value v(Json::objectValue);
  v["b"] = true;
  v["a"] = Json::Value(Json::arrayValue);
  v["n"] = Json::Value();
  v["o"] = Json::Value(Json::objectValue);
  v["s"] = "x\"y\\z\n\t\x01\x1f\x7f";
  v["u"] = Json::UInt64(18446744073709551615ULL);
  v["i"] = Json::Int64(std::numeric_limits<int64_t>::min());
  v["d"] = 1.5;
  v["w"] = 3.0;
  EXPECT_EQ(
      "{\"a\":[],\"b\":true,\"d\":1.5,\"i\":-9223372036854775808,\"n\":null,\"o\":{},"
      "\"s\":\"x\\\"y\\\\z\\n\\t\\u0001\\u001f\x7f\",\"u\":18446744073709551615,\"w\":3.0}",
      CompactJson(v));
}

TEST(CompactJson, Utf8KeptAsIs) {
  EXPECT_EQ("\"caf\xc3\xa9 \xe6\x97\xa5\xf0\x9f\x98\x80\"",
            CompactJson(Json::Value("caf\xc3\xa9 \xe6\x97\xa5\xf0\x9f\x98\x80")));
}

// A name made on disk in another encoding must not make the answer invalid
// UTF-8: each byte that starts no well-formed sequence becomes U+FFFD, in
// values and keys alike, and in the jsoncpp fallback too.
TEST(CompactJson, InvalidUtf8BecomesReplacementCharacters) {
  const std::string r = "\xef\xbf\xbd";
  const struct {
    std::string in, out;
  } cases[] = {
      {"\xff\xc3", r + r},                      // stray byte, lead byte at the end
      {"caf\xe9.txt", "caf" + r + ".txt"},       // Latin-1
      {"\xc0\xaf", r + r},                      // overlong '/'
      {"\xed\xa0\x80", r + r + r},              // a UTF-16 surrogate
      {"\xf4\x90\x80\x80", r + r + r + r},      // above U+10FFFF
      {"\xe6\x97x", r + r + "x"},               // cut short
      {"\xf0\x9f\x98\x80\x80", "\xf0\x9f\x98\x80" + r},
  };
  for (const auto& c : cases) {
    EXPECT_EQ("\"" + c.out + "\"", CompactJson(Json::Value(c.in))) << c.in;
    Json::Value keyed(Json::objectValue);
    keyed[c.in] = 1;
    EXPECT_EQ("{\"" + c.out + "\":1}", CompactJson(keyed)) << c.in;
    keyed[c.in].setComment(std::string("// note"), Json::commentBefore);
    EXPECT_TRUE(orvel::IsValidUtf8(CompactJson(keyed))) << c.in;
  }
}

TEST(CompactJson, EmbeddedNulAndControlCharacters) {
  const std::string raw("a\0b\b\f\r", 6);
  EXPECT_EQ("\"a\\u0000b\\b\\f\\r\"", CompactJson(Json::Value(raw)));
  ExpectSameAsJsoncpp(Json::Value(raw));
  Json::Value keyed(Json::objectValue);
  keyed[raw] = 1;
  ExpectSameAsJsoncpp(keyed);
}

TEST(CompactJson, DoublesMatchJsoncpp) {
  const double values[] = {0.0,     -0.0,    0.1,      1e-7,    123456789012345678.0,
                           1e300,   -2.5e-300, 1.0 / 3, 100.0,   -7.0,
                           4.9e-324, std::numeric_limits<double>::max(),
                           std::nan(""), std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity()};
  for (double d : values) ExpectSameAsJsoncpp(Json::Value(d));
  EXPECT_EQ("null", CompactJson(Json::Value(std::nan(""))));
  EXPECT_EQ("-1e+9999", CompactJson(Json::Value(-std::numeric_limits<double>::infinity())));
  EXPECT_EQ("0.10000000000000001", CompactJson(Json::Value(0.1)));
}

TEST(CompactJson, SparseArrayHolesAreNull) {
  Json::Value a(Json::arrayValue);
  a[3] = "x";
  a[1] = 2;
  EXPECT_EQ("[null,2,null,\"x\"]", CompactJson(a));
  ExpectSameAsJsoncpp(a);
}

TEST(CompactJson, ValuesWithCommentsGoThroughJsoncpp) {
  Json::Value v(Json::objectValue);
  v["k"] = 1;
  v["k"].setComment(std::string("// note"), Json::commentBefore);
  std::string partial;
  EXPECT_FALSE(AppendCompactJson(v, &partial));
  EXPECT_EQ(JsoncppText(v), CompactJson(v));
}

Json::Value RandomValue(std::mt19937_64& rng, int depth) {
  const int kind = static_cast<int>(rng() % (depth > 3 ? 6 : 8));
  switch (kind) {
    case 0: return Json::Value();
    case 1: return Json::Value(rng() % 2 == 0);
    case 2: return Json::Value(static_cast<Json::Int64>(rng()));
    case 3: return Json::Value(static_cast<Json::UInt64>(rng()));
    case 4: {
      double d;
      uint64_t bits = rng();
      static_assert(sizeof(d) == sizeof(bits));
      std::memcpy(&d, &bits, sizeof(d));
      return Json::Value(rng() % 2 == 0 ? d : static_cast<double>(rng() % 100000) / 8);
    }
    case 5: {
      std::string s;
      const size_t n = rng() % 12;
      for (size_t i = 0; i < n; ++i) s.push_back(static_cast<char>(rng() % 256));
      return Json::Value(s);
    }
    case 6: {
      Json::Value a(Json::arrayValue);
      const size_t n = rng() % 5;
      for (size_t i = 0; i < n; ++i) a.append(RandomValue(rng, depth + 1));
      return a;
    }
    default: {
      Json::Value o(Json::objectValue);
      const size_t n = rng() % 5;
      for (size_t i = 0; i < n; ++i) {
        std::string key;
        const size_t len = rng() % 6;
        for (size_t j = 0; j < len; ++j) key.push_back(static_cast<char>(rng() % 256));
        o[key] = RandomValue(rng, depth + 1);
      }
      return o;
    }
  }
}

TEST(CompactJson, RandomValuesMatchJsoncpp) {
  std::mt19937_64 rng(20240611);
  for (int i = 0; i < 2000; ++i) {
    const Json::Value v = RandomValue(rng, 0);
    ExpectSameAsJsoncpp(v);
  }
}

TEST(EnvelopeText, SuccessAndErrorEnvelopes) {
  ZEMO::APIResponse ok;
  Json::Value data(Json::objectValue);
  data["items"].append("\xc3\xa9");
  ok.SetSuccess(data);
  EXPECT_EQ("{\"data\":{\"items\":[\"\xc3\xa9\"]},\"success\":true}\n", EnvelopeText(ok));
  ZEMO::APIResponse bare;
  bare.SetSuccess();
  EXPECT_EQ("{\"success\":true}\n", EnvelopeText(bare));
  ZEMO::APIResponse err;
  Json::Value details(Json::objectValue);
  details["message"] = "no such API";
  err.SetError(102, details);
  EXPECT_EQ("{\"error\":{\"code\":102,\"errors\":{\"message\":\"no such API\"}},\"success\":false}\n",
            EnvelopeText(err));
}

}  // namespace
}  // namespace zemo::cgi
