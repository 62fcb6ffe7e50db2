// The archiver's output (zip_output.h): file content announced before it is
// written goes by splice when the output is a pipe, by write otherwise, and
// either way the reader gets exactly the bytes of the file; a file that is
// shorter than announced fails instead of leaving a gap.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "orvelcommon/scoped_fd.h"
#include "zip_output.h"

namespace orvel::archiver {
namespace {

// A temp file holding content, open for reading (unlinked at once).
ScopedFd FileWith(const std::string& content) {
  char tmpl[] = "/tmp/zip-output-XXXXXX";
  ScopedFd fd(mkstemp(tmpl));
  unlink(tmpl);
  EXPECT_EQ(pwrite(fd.get(), content.data(), content.size(), 0), static_cast<ssize_t>(content.size()));
  return fd;
}

std::string ReadAll(int fd) {
  std::string out;
  char buf[4096];
  ssize_t n;
  while ((n = read(fd, buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
  return out;
}

TEST(ZipOutput, SplicesAnnouncedContentIntoAPipeAndWritesTheRest) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  ScopedFd in(p[0]), out(p[1]);
  ScopedFd file = FileWith("0123456789");
  std::string block = "3456";  // what a read at offset 3 gave
  ZipOutput z(out.get());
  std::string error;
  ASSERT_TRUE(z.Write("head:", 5, &error)) << error;
  z.Expect(block.data(), block.size(), file.get(), 3);
  ASSERT_TRUE(z.Write(block.data(), block.size(), &error)) << error;
  // An announcement holds for one write only, and only for that buffer.
  block = "XXXX";
  ASSERT_TRUE(z.Write(block.data(), block.size(), &error)) << error;
  EXPECT_TRUE(z.splicing());
  out.Reset();
  EXPECT_EQ(ReadAll(in.get()), "head:3456XXXX");
}

TEST(ZipOutput, WritesTheBlockWhenTheOutputIsNotAPipe) {
  ScopedFd file = FileWith("abcdef");
  ScopedFd target = FileWith("");
  ZipOutput z(target.get());
  const std::string block = "cdef";
  std::string error;
  z.Expect(block.data(), block.size(), file.get(), 2);
  ASSERT_TRUE(z.Write(block.data(), block.size(), &error)) << error;
  EXPECT_FALSE(z.splicing());
  z.Expect(block.data(), 2, file.get(), 2);
  ASSERT_TRUE(z.Write(block.data(), 2, &error)) << error;
  ASSERT_EQ(lseek(target.get(), 0, SEEK_SET), 0);
  EXPECT_EQ(ReadAll(target.get()), "cdefcd");
}

TEST(ZipOutput, AFileShorterThanAnnouncedFails) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  ScopedFd in(p[0]), out(p[1]);
  ScopedFd file = FileWith("abc");  // truncated after the read of 6 bytes
  const std::string block = "abcdef";
  ZipOutput z(out.get());
  std::string error;
  z.Expect(block.data(), block.size(), file.get(), 0);
  EXPECT_FALSE(z.Write(block.data(), block.size(), &error));
  EXPECT_EQ(error, "output: file shrank while archived");
}

}  // namespace
}  // namespace orvel::archiver
