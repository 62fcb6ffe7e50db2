// ScopedFd, the one descriptor guard of every layer: it closes what it owns
// on scope exit, on Reset and when a moved-in descriptor replaces it, and
// never closes what was released or moved away.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

#include "orvelcommon/scoped_fd.h"

namespace orvel {
namespace {

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

TEST(ScopedFd, ClosesOnScopeResetAndMoveAssignButNotAfterRelease) {
  int a = open("/dev/null", O_RDONLY | O_CLOEXEC);
  int b = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(a, 0);
  ASSERT_GE(b, 0);
  {
    ScopedFd first(a);
    ScopedFd second(std::move(first));  // ownership moves, nothing closes
    EXPECT_FALSE(first.valid());
    EXPECT_EQ(second.get(), a);
    EXPECT_TRUE(IsOpen(a));
    ScopedFd other(b);
    second = std::move(other);  // the descriptor replaced is closed
    EXPECT_FALSE(IsOpen(a));
    EXPECT_EQ(second.get(), b);
  }
  EXPECT_FALSE(IsOpen(b));  // closed at scope exit

  int c = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(c, 0);
  ScopedFd kept(c);
  EXPECT_EQ(kept.release(), c);
  EXPECT_FALSE(kept.valid());
  kept.Reset();
  EXPECT_TRUE(IsOpen(c));  // released: not the guard's any more
  kept.Reset(c);
  kept.Reset();
  EXPECT_FALSE(IsOpen(c));
}

}  // namespace
}  // namespace orvel
