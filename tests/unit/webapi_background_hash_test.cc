// BackgroundHash (cgi/background_hash.h): the digest of a file hashed behind
// its writer equals the digest of what was written, whatever the pieces;
// a file that cannot be read back gives no digest rather than a wrong one;
// and an upload given up half way stops the thread without waiting for the
// rest.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "cgi/background_hash.h"
#include "internal/io.h"
#include "orvelcommon/sha256.h"

namespace zemo::cgi {
namespace {

std::string Digest(const std::string& data) {
  orvel::Sha256 sha;
  sha.Update(data.data(), data.size());
  return sha.HexDigest();
}

io::ScopedFd TempFd(int flags) {
  char tmpl[] = "/tmp/background-hash-XXXXXX";
  io::ScopedFd fd(mkstemp(tmpl));
  EXPECT_GE(fd.get(), 0);
  io::ScopedFd reopened(open(tmpl, flags | O_CLOEXEC));
  unlink(tmpl);
  return reopened;
}

TEST(BackgroundHash, DigestOfWhatWasWrittenInAnyPieces) {
  std::string data(BackgroundHash::kBuffer * 2 + 12345, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 131 + i / 7);
  io::ScopedFd fd = TempFd(O_RDWR);
  BackgroundHash hash(fd.get());
  size_t at = 0;
  for (size_t piece : {1u, 4095u, 65536u, 1u << 20, 3u}) {
    ASSERT_EQ(write(fd.get(), data.data() + at, piece), static_cast<ssize_t>(piece));
    at += piece;
    hash.Advance(at);
  }
  ASSERT_EQ(write(fd.get(), data.data() + at, data.size() - at), static_cast<ssize_t>(data.size() - at));
  hash.Advance(data.size());
  EXPECT_EQ(hash.Finish(), Digest(data));
}

TEST(BackgroundHash, AnEmptyFileHasTheEmptyDigest) {
  io::ScopedFd fd = TempFd(O_RDWR);
  BackgroundHash hash(fd.get());
  EXPECT_EQ(hash.Finish(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(BackgroundHash, NoDigestWhenTheFileCannotBeReadBack) {
  io::ScopedFd fd = TempFd(O_WRONLY);  // pread fails with EBADF
  BackgroundHash hash(fd.get());
  ASSERT_EQ(write(fd.get(), "abc", 3), 3);
  hash.Advance(3);
  EXPECT_EQ(hash.Finish(), "");
  // Bytes announced that are not there (a file cut short) give none either.
  io::ScopedFd short_fd = TempFd(O_RDWR);
  BackgroundHash cut(short_fd.get());
  ASSERT_EQ(write(short_fd.get(), "abc", 3), 3);
  cut.Advance(10);
  EXPECT_EQ(cut.Finish(), "");
}

TEST(BackgroundHash, GivingUpStopsTheThreadWithoutTheRest) {
  io::ScopedFd fd = TempFd(O_RDWR);
  {
    BackgroundHash hash(fd.get());
    ASSERT_EQ(write(fd.get(), "abc", 3), 3);
    hash.Advance(3);
  }  // destroyed without Finish: joins, whatever the thread had done
  SUCCEED();
}

}  // namespace
}  // namespace zemo::cgi
