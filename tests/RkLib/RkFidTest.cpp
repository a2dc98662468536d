#include <gtest/gtest.h>

#include "RkTestUtil.h"

#include "RkFid.h"

using namespace RkLib;

namespace {

struct SplitCase {
  const char* name;
  std::u16string path;
  std::u16string folder, file, base, ext;
  bool absolute, root, folderOnly;
};

class FidSplit : public testing::TestWithParam<SplitCase> {};

TEST_P(FidSplit, SplitsIntoFolderNameAndExtension) {
  const SplitCase& c = GetParam();
  FidString f(c.path);
  EXPECT_EQ(f.GetFolder().view(), c.folder);
  EXPECT_EQ(f.GetName().view(), c.file);
  EXPECT_EQ(f.GetBaseName().view(), c.base);
  EXPECT_EQ(f.GetExtension().view(), c.ext);
  EXPECT_EQ(f.IsAbsolute(), c.absolute);
  EXPECT_EQ(f.IsRoot(), c.root);
  EXPECT_EQ(f.IsFolderOnly(), c.folderOnly);
  // The folder and the name always put the path back together.
  EXPECT_EQ((f.GetFolder() + f.GetName()).view(), c.path);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, FidSplit,
    testing::Values(
        SplitCase{"plain", u"a\\b\\c.txt", u"a\\b\\", u"c.txt", u"c", u"txt", false, false, false},
        SplitCase{"forward_slashes", u"a/b/c.tar.gz", u"a/b/", u"c.tar.gz", u"c.tar", u"gz", false, false, false},
        SplitCase{"mixed_separators", u"a/b\\c", u"a/b\\", u"c", u"c", u"", false, false, false},
        SplitCase{"trailing_separator", u"a\\b\\", u"a\\b\\", u"", u"", u"", false, false, true},
        SplitCase{"double_trailing", u"a//", u"a//", u"", u"", u"", false, false, true},
        SplitCase{"drive_absolute", u"C:\\x.jpg", u"C:\\", u"x.jpg", u"x", u"jpg", true, false, false},
        SplitCase{"drive_relative", u"C:x.jpg", u"C:", u"x.jpg", u"x", u"jpg", false, false, false},
        SplitCase{"drive_root", u"C:\\", u"C:\\", u"", u"", u"", true, true, true},
        SplitCase{"drive_alone", u"d:", u"d:", u"", u"", u"", false, true, true},
        SplitCase{"posix_root", u"\\", u"\\", u"", u"", u"", true, true, true},
        SplitCase{"unc_share", u"\\\\srv\\share\\f.png", u"\\\\srv\\share\\", u"f.png", u"f", u"png", true, false,
                  false},
        SplitCase{"long_path", u"\\\\?\\C:\\d\\e.bmp", u"\\\\?\\C:\\d\\", u"e.bmp", u"e", u"bmp", true, false, false},
        SplitCase{"no_extension", u"dir\\Makefile", u"dir\\", u"Makefile", u"Makefile", u"", false, false, false},
        SplitCase{"leading_dot", u"home\\.profile", u"home\\", u".profile", u".profile", u"", false, false, false},
        SplitCase{"leading_dot_and_ext", u".config.ini", u"", u".config.ini", u".config", u"ini", false, false,
                  false},
        SplitCase{"lone_dot", u".", u"", u".", u".", u"", false, false, false},
        SplitCase{"dot_dot", u"a\\..", u"a\\", u"..", u"..", u"", false, false, false},
        SplitCase{"trailing_dot", u"name.", u"", u"name.", u"name", u"", false, false, false},
        SplitCase{"dot_in_folder_only", u"v1.2\\readme", u"v1.2\\", u"readme", u"readme", u"", false, false, false},
        SplitCase{"empty", u"", u"", u"", u"", u"", false, false, true}),
    RkCaseName());

TEST(FidString, AppendJoinsWithExactlyOneSeparator) {
  struct {
    std::u16string base, name, expect;
  } cases[] = {
      {u"a", u"b", u"a\\b"},       {u"a\\", u"b", u"a\\b"},   {u"a/", u"b", u"a/b"},
      {u"a", u"\\b", u"a\\b"},     {u"", u"b", u"b"},         {u"C:", u"b", u"C:b"},
      {u"a", u"", u"a"},           {u"\\", u"tmp", u"\\tmp"}, {u"a\\", u"b\\c.txt", u"a\\b\\c.txt"},
  };
  for (const auto& c : cases) {
    FidString f(c.base);
    f.Append(c.name);
    EXPECT_EQ(f.view(), c.expect) << "base '" << RkString(c.base).toUtf8() << "'";
  }
}

TEST(FidString, RemoveSeparatorStopsAtTheRoot) {
  EXPECT_EQ(FidString(u"a\\b\\\\").RemoveSeparator().view(), u"a\\b");
  EXPECT_EQ(FidString(u"C:\\").RemoveSeparator().view(), u"C:\\");
  EXPECT_EQ(FidString(u"\\").RemoveSeparator().view(), u"\\");
}

TEST(FidString, ReplaceNameAndExtension) {
  EXPECT_EQ(FidString(u"a\\b.jpg").ReplaceName(u"RkWipe64").view(), u"a\\RkWipe64");
  EXPECT_EQ(FidString(u"a\\b.jpg").ReplaceExtension(u"png").view(), u"a\\b.png");
  EXPECT_EQ(FidString(u"a\\.rc").ReplaceExtension(u"bak").view(), u"a\\.rc.bak");
  EXPECT_EQ(FidString(u"x.tar.gz").ReplaceExtension(u"").view(), u"x.tar");
}

TEST(FidString, SamePathIgnoresCaseAndSeparatorKind) {
  EXPECT_TRUE(FidString(u"C:\\Temp\\\u00C4.JPG").SamePath(u"c:/temp/\u00E4.jpg"));
  EXPECT_FALSE(FidString(u"a\\b").SamePath(u"a\\bc"));
  EXPECT_TRUE(FidString(u"tmp\\x").Contains(u"TMP\\x\\y.txt"));
  EXPECT_TRUE(FidString(u"tmp\\x\\").Contains(u"tmp\\x"));
  EXPECT_FALSE(FidString(u"tmp\\x").Contains(u"tmp\\xy"));
  EXPECT_TRUE(FidString(u"photo.JPG").HasExtension(u"jpg"));
}

TEST(FidString, ConvertsToAndFromSystemPaths) {
  EXPECT_EQ(FidString(u"\\tmp\\a b\\\u00E9.txt").ToPosix(), "/tmp/a b/\xC3\xA9.txt");
  EXPECT_EQ(FidString(u"\\\\?\\\\tmp\\x").ToPosix(), "/tmp/x");
  EXPECT_EQ(FidString::FromPosix("/var/tmp/\xC3\xA9").view(), u"\\var\\tmp\\\u00E9");
  EXPECT_EQ(FidString::FromNarrow("dir\\\x81.txt", kNarrowOem).view(), u"dir\\\u00FC.txt");
}

TEST(FidList, KeepsOrderAndOwnsMembers) {
  FidList list;
  EXPECT_TRUE(list.Empty());
  for (const char16_t* p : {u"a", u"b\\c", u"d"}) list.Add(FidString(p));
  ASSERT_EQ(list.Count(), 3u);
  std::u16string joined;
  for (const FidString& f : list) joined += f.view(), joined += u';';
  EXPECT_EQ(joined, u"a;b\\c;d;");
  EXPECT_EQ(list.Head()->next->next->next, nullptr);
  list.Clear();
  EXPECT_EQ(list.Head(), nullptr);
  list.Add(FidString(u"again"));  // a cleared list starts a fresh chain
  EXPECT_EQ(list.Count(), 1u);
}

}  // namespace
