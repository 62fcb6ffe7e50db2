// The streaming multipart parser and the request body reader: split reads,
// parts larger than the read buffer, limits and malformed bodies.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "cgi/body_reader.h"
#include "cgi/multipart.h"

namespace zemo::cgi {
namespace {

const char kB[] = "XyZ-boundary";

std::string Part(const std::string& disposition, const std::string& content) {
  return std::string("--") + kB + "\r\nContent-Disposition: form-data; " + disposition +
         "\r\nContent-Type: application/octet-stream\r\n\r\n" + content + "\r\n";
}
std::string End() { return std::string("--") + kB + "--\r\n"; }

// Records parser events as text: "[name|file]content;".
class Recorder : public MultipartHandler {
 public:
  orvel::Status OnPartBegin(const PartHeaders& h) override {
    log_ += "[" + h.name + "|" + (h.has_filename ? h.filename : "-") + "]";
    return orvel::Status::OK();
  }
  orvel::Status OnPartData(const char* d, size_t n) override {
    log_.append(d, n);
    return orvel::Status::OK();
  }
  orvel::Status OnPartEnd() override {
    log_ += ";";
    return orvel::Status::OK();
  }
  std::string log_;
};

orvel::Status ParseInChunks(const std::string& body, size_t chunk, Recorder* rec) {
  MultipartParser parser(kB, rec);
  for (size_t i = 0; i < body.size(); i += chunk) {
    ORVEL_RETURN_IF_ERROR(parser.Feed(body.data() + i, std::min(chunk, body.size() - i)));
  }
  return parser.Finish();
}

TEST(MultipartParser, SameResultWhateverTheReadSplits) {
  // Content that looks almost like a delimiter must pass through untouched.
  // Repeated, so that reads larger than a delimiter (which go to the handler
  // without being buffered) meet near-delimiters at every offset of a read.
  std::string tricky;
  for (int i = 0; i < 40; ++i) tricky += std::string("a\r\n--XyZ-boundar\r\n-") + kB + "\r\n--" + std::string(i, 'z');
  std::string body = "preamble\r\n" + Part("name=\"path\"", "/mydrive/x") +
                     Part("name=\"f\"; filename=\"n;1.bin\"", tricky) + Part("name=\"e\"", "") +
                     End() + "epilogue";
  std::string expected = "[path|-]/mydrive/x;[f|n;1.bin]" + tricky + ";[e|-];";
  std::vector<size_t> chunks = {body.size(), 1, 2, 3, 7, 16, 200, 1000};
  // Every read size around the delimiter's length puts a delimiter's first
  // byte at the end of some read.
  for (size_t c = 30; c < 140; ++c) chunks.push_back(c);
  for (size_t chunk : chunks) {
    Recorder rec;
    orvel::Status st = ParseInChunks(body, chunk, &rec);
    EXPECT_TRUE(st.ok()) << chunk << ": " << st.ToString();
    EXPECT_EQ(expected, rec.log_) << "chunk " << chunk;
  }
}

TEST(MultipartParser, MalformedBodies) {
  struct Case {
    std::string body, message;
  } cases[] = {
      {Part("name=\"a\"", "1"), "malformed multipart body: missing final boundary"},
      {std::string("--") + kB + "junk\r\n\r\n" + End(), "malformed multipart body: bad boundary line"},
      {std::string("--") + kB + "\r\nX: " + std::string(20000, 'h'),
       "malformed multipart body: part headers too long"},
      {"no boundary at all", "malformed multipart body: missing final boundary"},
  };
  for (const Case& c : cases) {
    Recorder rec;
    orvel::Status st = ParseInChunks(c.body, 100, &rec);
    EXPECT_EQ(kErrBadBody, st.code());
    EXPECT_EQ(c.message, st.message());
  }
}

// The header and padding limits hold at their exact edges whatever the read
// size: a block that fits was once refused when it arrived in small reads.
TEST(MultipartParser, LimitsDoNotDependOnTheReadSplits) {
  const size_t max = MultipartParser::kMaxHeaderBytes;
  auto with_header = [](size_t block) {
    std::string h = "Content-Disposition: form-data; name=\"a\"; x=";
    h += std::string(block - h.size(), 'y');
    return std::string("--") + kB + "\r\n" + h + "\r\n\r\nv\r\n" + End();
  };
  auto with_padding = [](size_t n) {
    return std::string("--") + kB + std::string(n, ' ') + "\r\n\r\nv\r\n" + End();
  };
  struct Case {
    std::string body;
    bool ok;
  } cases[] = {{with_header(max), true}, {with_header(max + 1), false},
               {with_padding(1024), true}, {with_padding(1025), false}};
  for (const Case& c : cases) {
    for (size_t chunk : {c.body.size(), size_t{1}, size_t{64}, size_t{4096}}) {
      Recorder rec;
      orvel::Status st = ParseInChunks(c.body, chunk, &rec);
      EXPECT_EQ(c.ok, st.ok()) << c.body.size() << " bytes in chunks of " << chunk << ": " << st.ToString();
    }
  }
}

TEST(MultipartParser, PartHeaders) {
  PartHeaders h = ParsePartHeaders(
      "content-disposition: form-data; filename=\"x\\y.txt\"; name=file\r\nContent-Type: text/plain");
  EXPECT_EQ("file", h.name);
  EXPECT_EQ("x\\y.txt", h.filename);
  EXPECT_TRUE(h.has_filename);
  EXPECT_EQ("text/plain", h.content_type);
  EXPECT_FALSE(ParsePartHeaders("Content-Disposition: form-data; name=\"a\"").has_filename);
}

class BodyReader : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/webapi-body-XXXXXX";
    dir_ = ::mkdtemp(tmpl);
    limits_.tmp_dir = dir_ + "/@tmp";
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

  // Reads body as a POST of the given type from a file descriptor.
  orvel::Status Read(const std::string& body, RequestBody* out,
                     const std::string& type = std::string("multipart/form-data; boundary=") + kB) {
    std::string path = dir_ + "/body";
    std::ofstream(path, std::ios::binary) << body;
    int fd = ::open(path.c_str(), O_RDONLY);
    CgiEnv env;
    env.method = "POST";
    env.content_type = type;
    env.has_length = true;
    env.content_length = body.size();
    orvel::Status st = ReadRequestBody(env, fd, limits_, out);
    ::close(fd);
    return st;
  }

  size_t TmpFiles() {
    size_t n = 0;
    std::string cmd = "ls -A '" + limits_.tmp_dir + "' 2>/dev/null | wc -l";
    FILE* p = ::popen(cmd.c_str(), "r");
    if (std::fscanf(p, "%zu", &n) != 1) n = 999;
    ::pclose(p);
    return n;
  }

  std::string dir_;
  BodyLimits limits_;
};

TEST_F(BodyReader, FirstFileToTempFileLaterFilesSkipped) {
  std::string big;
  for (int i = 0; big.size() < 300000; ++i) big += std::to_string(i) + "\r\n-";
  std::string body = Part("name=\"none\"; filename=\"\"", "") +
                     Part("name=\"file\"; filename=\"big.bin\"", big) +
                     Part("name=\"file2\"; filename=\"second\"", "zzz") +
                     Part("name=\"after\"", "[1,2]") + End();
  {
    RequestBody out;
    orvel::Status st = Read(body, &out);
    ASSERT_TRUE(st.ok()) << st.ToString();
    ASSERT_TRUE(out.upload);
    EXPECT_EQ("big.bin", out.upload_name);
    EXPECT_EQ("file", out.upload_field);
    EXPECT_EQ(big.size(), out.upload->size());
    std::ifstream in(out.upload->path(), std::ios::binary);
    std::stringstream got;
    got << in.rdbuf();
    EXPECT_TRUE(got.str() == big);
    EXPECT_EQ((RawParams{{"after", "[1,2]"}}), out.fields);
    EXPECT_EQ(1u, TmpFiles());
  }
  EXPECT_EQ(0u, TmpFiles());
}

TEST_F(BodyReader, FilePartOverLimitIsRefusedAndRemoved) {
  limits_.upload_max = 100000;
  {
    RequestBody out;
    orvel::Status st = Read(Part("name=\"f\"; filename=\"x\"", std::string(100001, 'a')) + End(), &out);
    EXPECT_EQ(400, st.code());
    EXPECT_EQ("upload over the size limit", st.message());
  }
  EXPECT_EQ(0u, TmpFiles());
}

TEST_F(BodyReader, UrlEncodedAndLimits) {
  RequestBody out;
  ASSERT_TRUE(Read("a=1&b=%22x%22", &out, "application/x-www-form-urlencoded").ok());
  EXPECT_EQ((RawParams{{"a", "1"}, {"b", "\"x\""}}), out.fields);
  limits_.form_max = 10;
  RequestBody big;
  orvel::Status st = Read("a=12345678901", &big, "application/x-www-form-urlencoded");
  EXPECT_EQ(400, st.code());
  EXPECT_EQ("request body too large", st.message());
  RequestBody fields;
  st = Read(Part("name=\"a\"", "12345678901") + End(), &fields);
  EXPECT_EQ("form fields too large", st.message());
  RequestBody other;
  EXPECT_TRUE(Read("{\"a\":1}", &other, "application/json").ok());
  EXPECT_TRUE(other.fields.empty());
}

}  // namespace
}  // namespace zemo::cgi
