// PObject values and the msgpack framing of the daemon's wire.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <limits>

#include "orvelcommon/pobject.h"
#include "orvelcommon/wire.h"

namespace {

PObject RoundTrip(const PObject& v) {
  std::string bytes = orvel::wire::Encode(v);
  PObject out;
  orvel::Status st = orvel::wire::Decode(bytes.data(), bytes.size(), &out);
  EXPECT_TRUE(st.ok()) << st.ToString();
  return out;
}

TEST(Wire, KeepsIntegerKindsAndExtremes) {
  PObject v = PObject::MakeMap();
  v["u"] = std::numeric_limits<unsigned long long>::max();
  v["i"] = std::numeric_limits<long long>::min();
  v["s"] = std::string("a\0b", 3);
  v["list"].push_back(true);
  v["list"].push_back(PObject());
  v["list"].push_back(1.5);
  PObject out = RoundTrip(v);
  EXPECT_EQ(out["u"].asUInt64(), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(out["i"].asInt64(), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(out["s"].asString().size(), 3u);
  EXPECT_EQ(out, v);
}

TEST(Wire, RejectsMalformedAndTrailingBytes) {
  PObject out;
  const char truncated[] = "\x82\xa1" "a";
  EXPECT_EQ(orvel::wire::Decode(truncated, 3, &out).code(), orvel::kErrInvalidArgument);
  std::string two = orvel::wire::Encode(PObject(1)) + orvel::wire::Encode(PObject(2));
  EXPECT_EQ(orvel::wire::Decode(two.data(), two.size(), &out).code(), orvel::kErrInvalidArgument);
  const char int_key_map[] = "\x81\x01\x02";
  EXPECT_EQ(orvel::wire::Decode(int_key_map, 3, &out).code(), orvel::kErrInvalidArgument);
}

// Counts that announce more than the message holds are refused before the
// unpacker allocates slots for them (a 5-byte message once asked for 64 GiB).
TEST(Wire, RefusesCountsBeyondTheMessageAndTooManyValues) {
  PObject out;
  const char huge_array[] = "\xdd\xff\xff\xff\xff\xc0";
  EXPECT_EQ(orvel::wire::Decode(huge_array, 6, &out).code(), orvel::kErrInvalidArgument);
  const char huge_map[] = "\x91\xdf\x80\x00\x00\x00";
  EXPECT_EQ(orvel::wire::Decode(huge_map, 6, &out).code(), orvel::kErrInvalidArgument);
  const char long_string[] = "\xdb\x7f\xff\xff\xff" "ab";
  EXPECT_EQ(orvel::wire::Decode(long_string, 7, &out).code(), orvel::kErrInvalidArgument);
  const char unused_byte[] = "\xc1";
  EXPECT_EQ(orvel::wire::Decode(unused_byte, 1, &out).code(), orvel::kErrInvalidArgument);

  const uint64_t n = orvel::wire::kMaxFrameValues;  // the array itself makes n + 1
  std::string over = "\xdd";
  for (int shift = 24; shift >= 0; shift -= 8) over.push_back(static_cast<char>(n >> shift));
  over.append(n, '\xc0');
  EXPECT_EQ(orvel::wire::Decode(over.data(), over.size(), &out).code(), orvel::kErrInvalidArgument);
}

TEST(Wire, FramesOverSocketPairAndRefusesOversizedLength) {
  int sv[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
  PObject msg = PObject::MakeMap();
  msg["op"] = "list_file";
  ASSERT_TRUE(orvel::wire::WriteFrame(sv[0], msg).ok());
  PObject got;
  ASSERT_TRUE(orvel::wire::ReadFrame(sv[1], &got).ok());
  EXPECT_EQ(got["op"].asString(), "list_file");

  const unsigned char huge[4] = {0xff, 0xff, 0xff, 0xff};
  ASSERT_EQ(::write(sv[0], huge, 4), 4);
  EXPECT_EQ(orvel::wire::ReadFrame(sv[1], &got).code(), orvel::kErrInvalidArgument);

  ::close(sv[0]);
  bool eof = false;
  EXPECT_FALSE(orvel::wire::ReadFrame(sv[1], &got, &eof).ok());
  EXPECT_TRUE(eof);
  ::close(sv[1]);
}

TEST(PObject, AccessorsDefaultOnOtherKinds) {
  PObject s("text");
  EXPECT_EQ(s.asUInt64(7), 7u);
  EXPECT_EQ(s["missing"].type(), PObject::Type::kNull);
  PObject n;
  n["a"]["b"] = 1;
  EXPECT_TRUE(n.isMap());
  EXPECT_EQ(n.toJsonString(), "{\"a\":{\"b\":1}}");
  PObject copy = n;
  copy["a"]["b"] = 2;
  EXPECT_EQ(n["a"]["b"].asInt64(), 1) << "copies must not share containers";
  EXPECT_EQ(PObject(5u), PObject(5));
}

// A peer may send any double where an integer is read: out-of-range values
// saturate and NaN gives the default instead of an undefined conversion.
TEST(PObject, DoublesReadAsIntegersSaturate) {
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(PObject(1e300).asInt64(), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(PObject(-inf).asInt64(), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(PObject(9223372036854775808.0).asInt64(), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(PObject(-42.9).asInt64(), -42);
  EXPECT_EQ(PObject(std::nan("")).asInt64(7), 7);
  EXPECT_EQ(PObject(1e300).asUInt64(), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(PObject(18446744073709549568.0).asUInt64(), 18446744073709549568ull);
  EXPECT_EQ(PObject(-1.0).asUInt64(), 0u);
  EXPECT_EQ(PObject(std::nan("")).asUInt64(3), 3u);
}

}  // namespace
