// The FastCGI codec and the responder state machine: record headers,
// name-value pairs and their limits, management answers, the refusal of a
// second request on one connection, and the body records.
#include <gtest/gtest.h>

#include <string>

#include "fcgi/codec.h"
#include "fcgi/decoder.h"

namespace zemo::fcgi {
namespace {

const uint8_t* U(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }

std::string Begin(uint16_t role, uint8_t flags) {
  std::string body(8, '\0');
  body[0] = static_cast<char>(role >> 8);
  body[1] = static_cast<char>(role & 0xff);
  body[2] = static_cast<char>(flags);
  return body;
}

// Feeds one record to the decoder.
orvel::Status Feed(Decoder* d, uint8_t type, uint16_t id, const std::string& content,
                   Decoder::Outcome* out) {
  Header h;
  h.type = type;
  h.request_id = id;
  h.content_length = static_cast<uint16_t>(content.size());
  return d->OnRecord(h, U(content), out);
}

Pairs ParseAll(const std::string& text, const PairLimits& limits = PairLimits()) {
  Pairs pairs;
  EXPECT_TRUE(ParsePairs(U(text), text.size(), limits, &pairs).ok());
  return pairs;
}

TEST(FcgiCodec, HeaderRoundTripsAndRefusesOtherVersions) {
  uint8_t raw[kHeaderLen];
  EncodeHeader(kStdout, 0x1234, 65535, 7, raw);
  Header h;
  ASSERT_TRUE(ParseHeader(raw, &h).ok());
  EXPECT_EQ(h.type, kStdout);
  EXPECT_EQ(h.request_id, 0x1234);
  EXPECT_EQ(h.content_length, 65535);
  EXPECT_EQ(h.padding_length, 7);
  raw[0] = 2;
  orvel::Status st = ParseHeader(raw, &h);
  EXPECT_EQ(st.code(), orvel::kErrInvalidArgument);
  EXPECT_EQ(st.message(), "FastCGI: unsupported version 2");
}

TEST(FcgiCodec, PairsRoundTripWithShortAndLongLengths) {
  std::string text;
  AppendPair("QUERY_STRING", std::string(300, 'q'), &text);
  AppendPair(std::string(200, 'N'), "", &text);
  AppendPair("", "v", &text);
  Pairs pairs = ParseAll(text);
  ASSERT_EQ(pairs.size(), 3u);
  EXPECT_EQ(pairs[0], (std::pair<std::string, std::string>("QUERY_STRING", std::string(300, 'q'))));
  EXPECT_EQ(pairs[1].first, std::string(200, 'N'));
  EXPECT_EQ(pairs[2].second, "v");
}

TEST(FcgiCodec, PairsRefuseTruncationAndEachLimit) {
  PairLimits limits;
  limits.name_max = 4;
  limits.value_max = 8;
  limits.pairs_max = 2;
  limits.total_max = 64;
  struct Case {
    std::string text;
    std::string message;
  };
  std::string two, three, big;
  AppendPair("a", "1", &two);
  AppendPair("b", "2", &two);
  three = two;
  AppendPair("c", "3", &three);
  AppendPair("a", std::string(100, 'x'), &big);
  std::string long_name, long_value;
  AppendPair("names", "", &long_name);
  AppendPair("a", "123456789", &long_value);
  const Case cases[] = {
      {std::string("\x05", 1), "FastCGI: truncated parameter length"},
      {std::string("\x80\x00", 2), "FastCGI: truncated parameter length"},
      {std::string("\x02\x01" "ab", 4), "FastCGI: truncated parameter"},
      {long_name, "FastCGI: parameter name over 4 bytes"},
      {long_value, "FastCGI: parameter value over 8 bytes"},
      {three, "FastCGI: more than 2 parameters"},
      {big, "FastCGI: parameters over 64 bytes"},
  };
  for (const Case& c : cases) {
    Pairs pairs;
    orvel::Status st = ParsePairs(U(c.text), c.text.size(), limits, &pairs);
    EXPECT_EQ(st.code(), orvel::kErrInvalidArgument) << c.message;
    EXPECT_EQ(st.message(), c.message);
  }
}

TEST(FcgiDecoder, ServesOneRequestFromBeginToBodyEnd) {
  Decoder d;
  Decoder::Outcome out;
  ASSERT_TRUE(Feed(&d, kBeginRequest, 7, Begin(kRoleResponder, kKeepConn), &out).ok());
  EXPECT_EQ(out.event, Decoder::Event::kNone);
  std::string params;
  AppendPair("REQUEST_METHOD", "POST", &params);
  AppendPair("CONTENT_LENGTH", "3", &params);
  // The parameters may be split anywhere across records.
  ASSERT_TRUE(Feed(&d, kParams, 7, params.substr(0, 5), &out).ok());
  ASSERT_TRUE(Feed(&d, kParams, 7, params.substr(5), &out).ok());
  EXPECT_EQ(out.event, Decoder::Event::kNone);
  ASSERT_TRUE(Feed(&d, kParams, 7, "", &out).ok());
  EXPECT_EQ(out.event, Decoder::Event::kRequestReady);
  ASSERT_EQ(d.params().size(), 2u);
  EXPECT_EQ(d.params()[1].second, "3");
  EXPECT_TRUE(d.keep_conn());
  const std::string body = "abc";  // out.data points into it
  ASSERT_TRUE(Feed(&d, kStdin, 7, body, &out).ok());
  EXPECT_EQ(out.event, Decoder::Event::kStdin);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.data), out.len), "abc");
  ASSERT_TRUE(Feed(&d, kStdin, 7, "", &out).ok());
  EXPECT_EQ(out.event, Decoder::Event::kStdinEnd);
  EXPECT_TRUE(d.body_ended());
  orvel::Status st = Feed(&d, kStdin, 7, "x", &out);
  EXPECT_EQ(st.message(), "FastCGI: body record before the parameters ended or after the body");
  d.Reset();
  EXPECT_FALSE(d.in_request());
  EXPECT_TRUE(d.params().empty());
}

TEST(FcgiDecoder, AnswersManagementRecords) {
  Decoder d;
  Decoder::Outcome out;
  std::string query;
  AppendPair("FCGI_MAX_CONNS", "", &query);
  AppendPair("FCGI_MAX_REQS", "", &query);
  AppendPair("FCGI_MPXS_CONNS", "", &query);
  AppendPair("SOMETHING_ELSE", "", &query);
  ASSERT_TRUE(Feed(&d, kGetValues, 0, query, &out).ok());
  ASSERT_EQ(out.event, Decoder::Event::kReply);
  std::string expected_content;
  AppendPair("FCGI_MAX_CONNS", "1", &expected_content);
  AppendPair("FCGI_MAX_REQS", "1", &expected_content);
  AppendPair("FCGI_MPXS_CONNS", "0", &expected_content);
  std::string expected;
  AppendRecord(kGetValuesResult, 0, expected_content, &expected);
  EXPECT_EQ(out.reply, expected);

  ASSERT_TRUE(Feed(&d, 42, 0, "", &out).ok());
  ASSERT_EQ(out.event, Decoder::Event::kReply);
  EXPECT_EQ(out.reply, UnknownTypeRecord(42));
  EXPECT_EQ(out.reply.size(), 16u);
  EXPECT_EQ(static_cast<uint8_t>(out.reply[1]), kUnknownType);
  EXPECT_EQ(static_cast<uint8_t>(out.reply[8]), 42);
}

TEST(FcgiDecoder, RefusesASecondRequestAndOtherRoles) {
  Decoder d;
  Decoder::Outcome out;
  ASSERT_TRUE(Feed(&d, kBeginRequest, 1, Begin(2, 0), &out).ok());
  EXPECT_EQ(out.reply, EndRequestRecord(1, 0, kUnknownRole));
  EXPECT_FALSE(d.in_request());
  ASSERT_TRUE(Feed(&d, kBeginRequest, 1, Begin(kRoleResponder, 0), &out).ok());
  ASSERT_TRUE(Feed(&d, kBeginRequest, 2, Begin(kRoleResponder, 0), &out).ok());
  EXPECT_EQ(out.reply, EndRequestRecord(2, 0, kCantMpxConn));
  EXPECT_EQ(d.request_id(), 1);
  // Records of the refused request are ignored; the open one goes on.
  ASSERT_TRUE(Feed(&d, kParams, 2, "zz", &out).ok());
  EXPECT_EQ(out.event, Decoder::Event::kNone);
  orvel::Status st = Feed(&d, kBeginRequest, 1, Begin(kRoleResponder, 0), &out);
  EXPECT_EQ(st.message(), "FastCGI: request 1 begun twice");
  ASSERT_TRUE(Feed(&d, kAbortRequest, 1, "", &out).ok());
  EXPECT_EQ(out.event, Decoder::Event::kAbort);
  st = Feed(&d, kBeginRequest, 1, "short", &out);
  EXPECT_EQ(st.message(), "FastCGI: request 1 begun twice");
}

TEST(FcgiDecoder, CountsEveryKindOfRecord) {
  DecoderLimits limits;
  limits.management_max = 2;
  limits.params_records_max = 3;
  limits.stray_max = 2;
  limits.pairs.total_max = 10;
  Decoder::Outcome out;
  {
    Decoder d(limits);
    ASSERT_TRUE(Feed(&d, kGetValues, 0, "", &out).ok());
    ASSERT_TRUE(Feed(&d, kGetValues, 0, "", &out).ok());
    EXPECT_EQ(Feed(&d, kGetValues, 0, "", &out).message(),
              "FastCGI: more than 2 management records");
  }
  {
    Decoder d(limits);
    ASSERT_TRUE(Feed(&d, kBeginRequest, 1, Begin(kRoleResponder, 0), &out).ok());
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(Feed(&d, kParams, 1, "a", &out).ok());
    EXPECT_EQ(Feed(&d, kParams, 1, "a", &out).message(), "FastCGI: more than 3 parameter records");
  }
  {
    Decoder d(limits);
    ASSERT_TRUE(Feed(&d, kBeginRequest, 1, Begin(kRoleResponder, 0), &out).ok());
    EXPECT_EQ(Feed(&d, kParams, 1, std::string(11, 'a'), &out).message(),
              "FastCGI: parameters over 10 bytes");
  }
  {
    Decoder d(limits);
    ASSERT_TRUE(Feed(&d, kStdin, 9, "x", &out).ok());
    ASSERT_TRUE(Feed(&d, kData, 9, "x", &out).ok());
    EXPECT_EQ(Feed(&d, kParams, 9, "x", &out).message(),
              "FastCGI: more than 2 records for no open request");
  }
}

}  // namespace
}  // namespace zemo::fcgi
