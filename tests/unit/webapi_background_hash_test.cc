// BackgroundHash (cgi/background_hash.h): the digest of a file hashed behind
// its writer equals the digest of what was written, whatever the pieces;
// a file that cannot be read back gives no digest rather than a wrong one;
// and an upload given up half way stops the thread without waiting for the
// rest. TempFile, which uses it: small pieces that wait for the next write
// land in order, and the digest recorded is that of the whole content.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "cgi/background_hash.h"
#include "cgi/temp_file.h"
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

TEST(TempFile, SmallPiecesLandInOrderAndTheDigestIsTheWholeContent) {
  char dir[] = "/tmp/temp-file-test-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  std::string content;
  std::string path;
  {
    std::unique_ptr<TempFile> file;
    ASSERT_TRUE(TempFile::Create(dir, "upload-", &file).ok());
    path = file->path();
    size_t n = 0;
    for (size_t piece : {1u, 70u, 4000u, 70000u, 3u, 5u, 4096u, 2u}) {
      std::string s(piece, '\0');
      for (char& c : s) c = static_cast<char>('a' + n++ % 26);
      ASSERT_TRUE(file->Append(s.data(), s.size()).ok());
      content += s;
      EXPECT_EQ(file->size(), content.size());
    }
    ASSERT_TRUE(file->Close().ok());
    std::string on_disk;
    ASSERT_TRUE(io::ReadFile(path, &on_disk).ok());
    io::ScopedFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(on_disk == content) << on_disk.size();
    std::string hex;
    uint64_t size = 0;
    ASSERT_TRUE(orvel::LoadDigest(fd.get(), &hex, &size));
    EXPECT_EQ(hex, Digest(content));
    EXPECT_EQ(size, content.size());
  }  // the file goes with the object
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  rmdir(dir);
}

}  // namespace
}  // namespace zemo::cgi
