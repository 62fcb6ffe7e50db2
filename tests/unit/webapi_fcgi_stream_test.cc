// Streams of a FastCGI connection. Out: files and pipes arrive whole, in
// records no larger than the stream record size (lighttpd keeps what does
// not fit in 64 KiB of queue in temp files), and the connection gets its
// own send buffer back for the requests that follow. In: a body read with
// the next record's header ahead comes out whole whatever the records'
// sizes and padding, and the next request on the connection is intact.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>

#include "fcgi/codec.h"
#include "fcgi/connection.h"

namespace zemo::fcgi {
namespace {

struct Received {
  std::string content;
  size_t records = 0, largest = 0;
};

int SendBuffer(int fd) {
  int size = 0;
  socklen_t len = sizeof(size);
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, &len), 0);
  return size;
}

// A connection with request 1 open on it; the test talks through peer.
class FcgiStreamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
    conn_ = std::make_unique<Connection>(fds[0]);
    conn_fd_ = fds[0];
    peer_.Reset(fds[1]);
    std::string begin(8, '\0');
    begin[1] = static_cast<char>(kRoleResponder);
    std::string records;
    AppendRecord(kBeginRequest, 1, begin, &records);
    AppendRecord(kParams, 1, "", &records);
    ASSERT_EQ(write(peer_.get(), records.data(), records.size()), static_cast<ssize_t>(records.size()));
    bool got = false;
    ASSERT_TRUE(conn_->NextRequest(&got).ok());
    ASSERT_TRUE(got);
  }

  // Reads STDOUT records from the peer until want content bytes came.
  void ReadRecords(size_t want, Received* r) {
    while (r->content.size() < want) {
      uint8_t raw[kHeaderLen];
      ASSERT_TRUE(ReadFull(raw, sizeof(raw)));
      Header h;
      ASSERT_TRUE(ParseHeader(raw, &h).ok());
      ASSERT_EQ(h.type, kStdout);
      std::string content(h.content_length + h.padding_length, '\0');
      ASSERT_TRUE(ReadFull(&content[0], content.size()));
      r->content.append(content, 0, h.content_length);
      ++r->records;
      r->largest = std::max<size_t>(r->largest, h.content_length);
    }
  }

  bool WriteAll(const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
      ssize_t n = write(peer_.get(), data.data() + done, data.size() - done);
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    return true;
  }

  bool ReadFull(void* buf, size_t len) {
    char* p = static_cast<char*>(buf);
    while (len > 0) {
      ssize_t n = read(peer_.get(), p, len);
      if (n <= 0) return false;
      p += n;
      len -= static_cast<size_t>(n);
    }
    return true;
  }

  static std::string Pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(i * 7 + i / 251);
    return s;
  }

  std::unique_ptr<Connection> conn_;
  int conn_fd_ = -1;  // owned by conn_
  io::ScopedFd peer_;
};

TEST_F(FcgiStreamTest, APipeGoesWholeInStreamRecordsAndTheSendBufferComesBack) {
  const int before = SendBuffer(conn_fd_);
  const std::string data = Pattern(300 * 1024 + 5);
  int p[2];
  ASSERT_EQ(pipe2(p, O_CLOEXEC), 0);
  io::ScopedFd in(p[0]), out(p[1]);
  ASSERT_GE(fcntl(out.get(), F_SETPIPE_SZ, 1 << 20), static_cast<int>(data.size()));
  ASSERT_EQ(write(out.get(), data.data(), data.size()), static_cast<ssize_t>(data.size()));
  out.Reset();  // the writer is done: the splice ends at the pipe's end
  Received r;
  std::thread reader([&] { ReadRecords(data.size(), &r); });
  orvel::Status st = conn_->SplicePipe(in.get());
  reader.join();
  ASSERT_TRUE(st.ok()) << st.message();
  EXPECT_TRUE(r.content == data);
  EXPECT_EQ(r.largest, Connection::kStreamRecord);
  EXPECT_GE(r.records, data.size() / Connection::kStreamRecord + 1);
  EXPECT_EQ(SendBuffer(conn_fd_), before);
}

TEST_F(FcgiStreamTest, AFileGoesWholeInStreamRecordsAndTheSendBufferComesBack) {
  const int before = SendBuffer(conn_fd_);
  const std::string data = Pattern(200 * 1024 + 17);
  char tmpl[] = "/tmp/fcgi-stream-XXXXXX";
  io::ScopedFd file(mkstemp(tmpl));
  ASSERT_GE(file.get(), 0);
  unlink(tmpl);
  ASSERT_EQ(write(file.get(), data.data(), data.size()), static_cast<ssize_t>(data.size()));
  ASSERT_EQ(lseek(file.get(), 0, SEEK_SET), 0);
  Received r;
  std::thread reader([&] { ReadRecords(data.size(), &r); });
  uint64_t done = 0;
  orvel::Status st = conn_->SendFile(file.get(), data.size(), &done);
  reader.join();
  ASSERT_TRUE(st.ok()) << st.message();
  EXPECT_EQ(done, data.size());
  EXPECT_TRUE(r.content == data);
  EXPECT_EQ(r.largest, Connection::kStreamRecord);
  EXPECT_EQ(SendBuffer(conn_fd_), before);
}

TEST_F(FcgiStreamTest, ABodyReadAheadComesOutWholeAndTheNextRequestIntact) {
  const std::string body = Pattern(1 + 8 + 300 + 4096 + 65535 + 7);
  std::string stream;
  // Records of uneven sizes, with and without padding, then the body's end,
  // then a second request on the same connection.
  size_t at = 0;
  int i = 0;
  for (size_t size : {1, 8, 300, 4096, 65535, 7}) {
    std::string record;
    AppendRecord(kStdin, 1, body.substr(at, size), &record);
    if (i++ % 2 == 0) {  // padding: the header's padding length and the bytes
      record[6] = 5;
      record.append(5, '\x7f');
    }
    stream += record;
    at += size;
  }
  ASSERT_EQ(at, body.size());
  AppendRecord(kStdin, 1, "", &stream);
  std::string begin(8, '\0');
  begin[1] = static_cast<char>(kRoleResponder);
  AppendRecord(kBeginRequest, 2, begin, &stream);
  std::string params;
  AppendPair("REQUEST_METHOD", "GET", &params);
  AppendRecord(kParams, 2, params, &stream);
  AppendRecord(kParams, 2, "", &stream);
  ASSERT_TRUE(WriteAll(stream));  // fits in the socket's buffer
  std::string got;
  char buf[5000];
  for (size_t cap : {3, 5000, 100, 5000, 5000}) {  // then 5000 to the end
    ssize_t n = conn_->ReadBody(buf, cap);
    ASSERT_GT(n, 0);
    got.append(buf, static_cast<size_t>(n));
  }
  for (ssize_t n; (n = conn_->ReadBody(buf, sizeof(buf))) != 0;) {
    ASSERT_GT(n, 0);
    got.append(buf, static_cast<size_t>(n));
  }
  EXPECT_TRUE(got == body) << got.size();
  ASSERT_TRUE(conn_->EndRequest(0).ok());
  bool next = false;
  ASSERT_TRUE(conn_->NextRequest(&next).ok());
  EXPECT_TRUE(next);
  ASSERT_EQ(conn_->params().size(), 1u);
  EXPECT_EQ(conn_->params()[0].second, "GET");
}

}  // namespace
}  // namespace zemo::fcgi
