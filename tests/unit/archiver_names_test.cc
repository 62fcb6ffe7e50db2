// The archiver's entry names and link targets (entry_names.h): what a name
// found on disk becomes inside an archive, so that no extractor on any
// platform places an entry outside the folder it extracts into.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "entry_names.h"

namespace orvel::archiver {
namespace {

TEST(EntryNames, RewritesWhatWindowsReadsAsStructure) {
  EntryNames n;
  EXPECT_EQ(n.Component("report.txt"), "report.txt");
  EXPECT_EQ(n.Component("caf\xc3\xa9 \xe6\x97\xa5.txt"), "caf\xc3\xa9 \xe6\x97\xa5.txt");
  EXPECT_EQ(n.Component("..\\..\\evil.txt"), ".._.._evil.txt");
  EXPECT_EQ(n.Component("C:\\Windows\\win.ini"), "C__Windows_win.ini");
  EXPECT_EQ(n.Component("C:"), "C_");
  EXPECT_EQ(n.Component("a:stream"), "a_stream");
  EXPECT_EQ(n.Component("\\"), "_");
  // Names Windows trims to "." or "..".
  EXPECT_EQ(n.Component("..."), "_...");
  EXPECT_EQ(n.Component(".. "), "_.. ");
  EXPECT_EQ(n.Component(" "), "_ ");
  EXPECT_EQ(n.Component(".hidden"), ".hidden");
  EXPECT_EQ(n.Component("..x"), "..x");
}

TEST(EntryNames, BytesThatAreNotUtf8BecomeReplacementCharacters) {
  EntryNames utf8;
  EXPECT_EQ(utf8.Component("bad\xff\xfe.txt"), "bad\xef\xbf\xbd\xef\xbf\xbd.txt");
  EntryNames cp;
  ASSERT_TRUE(cp.SetCharset("CP1252"));
  EXPECT_EQ(cp.Component("bad\xff.txt"), "bad_.txt");
}

TEST(EntryNames, ACodePageCharacterThatReadsBackAsABackslashIsRewritten) {
  EntryNames jpn;
  ASSERT_TRUE(jpn.SetCharset("CP932"));
  // CP932 writes U+00A5 as 0x5C, which an extractor reads as '\'.
  EXPECT_EQ(jpn.Component("\xc2\xa5..\xc2\xa5..\xc2\xa5x"), "_.._.._x");
  // Double-byte characters with 0x5C as their second byte read back whole.
  EXPECT_EQ(jpn.Component("\xe3\x82\xbd\xe8\xa1\xa8.txt"), "\xe3\x82\xbd\xe8\xa1\xa8.txt");
  // A character the code page lacks is left to the archive writer.
  EXPECT_EQ(jpn.Component("\xf0\x9f\x98\x80"), "\xf0\x9f\x98\x80");
  EntryNames unknown;
  EXPECT_FALSE(unknown.SetCharset("NO-SUCH-CHARSET"));
  EXPECT_EQ(unknown.Component("\xc2\xa5"), "\xc2\xa5");
}

TEST(EntryNames, KeepsOnlyLinksThatStayInsideTheTree) {
  EntryNames n;
  std::string out;
  ASSERT_TRUE(n.LinkTarget("a.txt", 0, &out));
  EXPECT_EQ(out, "a.txt");
  ASSERT_TRUE(n.LinkTarget("./sub//b.txt", 0, &out));
  EXPECT_EQ(out, "sub/b.txt");
  ASSERT_TRUE(n.LinkTarget("../../x/y", 2, &out));
  EXPECT_EQ(out, "../../x/y");
  ASSERT_TRUE(n.LinkTarget(".", 0, &out));
  EXPECT_EQ(out, ".");
  ASSERT_TRUE(n.LinkTarget("..", 1, &out));
  EXPECT_EQ(out, "..");
  // Names in the target are rewritten as the entries they point at are.
  ASSERT_TRUE(n.LinkTarget("..\\x/C:", 0, &out));
  EXPECT_EQ(out, ".._x/C_");

  for (const auto& [target, depth] : std::vector<std::pair<std::string, size_t>>{
           {"/etc/passwd", 3}, {"", 0}, {"..", 0}, {"../x", 0}, {"../../x", 1},
           {"sub/../../x", 5}, {"sub/..", 1}, {"a/./../b", 2}}) {
    EXPECT_FALSE(n.LinkTarget(target, depth, &out)) << target << " at depth " << depth;
  }
}

}  // namespace
}  // namespace orvel::archiver
