#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "RkBOM.h"
#include "RkFileIO.h"
#include "RkFindFile.h"
#include "RkGuid.h"
#include "RkTimeStamp.h"

using namespace RkLib;

namespace {

// A fresh folder per test, removed with everything in it afterwards.
class RkFileTest : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/rkfileio-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

  FidString Path(const std::string& name) const { return FidString::FromPosix(dir_ + "/" + name); }
  void Touch(const std::string& name, const std::string& content = "") const {
    RkFileIO f;
    ASSERT_TRUE(f.Open(Path(name), "wb"));
    ASSERT_EQ(f.Write(content.data(), content.size()), content.size());
  }

  std::string dir_;
};

TEST_F(RkFileTest, WritesReadsSeeksAndTruncates) {
  RkFileIO f;
  ASSERT_TRUE(f.Open(Path("a.bin"), "w+b"));
  std::string data(100000, 'x');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7);
  ASSERT_EQ(f.Write(data.data(), data.size()), data.size());
  EXPECT_EQ(f.GetSize(), 100000);
  EXPECT_EQ(f.Tell(), 100000);
  ASSERT_TRUE(f.Seek(-10, RkSeekFrom::kEnd));
  char tail[20];
  EXPECT_EQ(f.Read(tail, sizeof tail), 10u);  // short only at the end of the file
  EXPECT_EQ(f.LastError(), 0);
  EXPECT_EQ(std::string(tail, 10), data.substr(99990));
  char mid[4];
  EXPECT_EQ(f.ReadAt(mid, 4, 5000), 4u);
  EXPECT_EQ(std::string(mid, 4), data.substr(5000, 4));
  EXPECT_EQ(f.Tell(), 100000);  // the positional read left the position alone
  ASSERT_TRUE(f.Seek(1234));
  ASSERT_TRUE(f.SetEndOfFile());
  EXPECT_EQ(f.GetSize(), 1234);
}

TEST_F(RkFileTest, ModesBehaveLikeFopen) {
  Touch("keep.txt", "hello");
  RkFileIO f;
  ASSERT_TRUE(f.Open(Path("keep.txt"), "ab"));
  f.Write(" world", 6);
  f.Close();
  ASSERT_TRUE(f.Open(Path("keep.txt"), "rb"));
  EXPECT_EQ(f.GetSize(), 11);
  EXPECT_EQ(f.Write("x", 1), 0u);  // read-only
  EXPECT_EQ(f.LastError(), EBADF);
  EXPECT_FALSE(f.Open(Path("keep.txt"), "wxb"));
  EXPECT_EQ(f.LastError(), EEXIST);
  EXPECT_FALSE(f.Open(Path("missing.txt"), "rb"));
  EXPECT_EQ(f.LastError(), ENOENT);
  EXPECT_FALSE(f.IsOpen());
  EXPECT_FALSE(f.Open(Path("keep.txt"), "q"));
  EXPECT_EQ(f.LastError(), EINVAL);
  EXPECT_FALSE(f.Open(FidString::FromPosix(dir_), "rb"));  // a folder is not a file
  EXPECT_EQ(f.LastError(), EISDIR);
}

TEST_F(RkFileTest, DescriptorIsClosedOnExec) {
  Touch("c");
  RkFileIO f;
  ASSERT_TRUE(f.Open(Path("c"), "rb"));
  EXPECT_TRUE(fcntl(f.Handle(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(RkFileTest, FullDiskIsToldApart) {
  RkFileIO f;
  ASSERT_TRUE(f.Open(FidString(u"\\dev\\full"), "wb"));
  char block[4096] = {};
  EXPECT_LT(f.Write(block, sizeof block), sizeof block);
  EXPECT_TRUE(f.DiskFull());
}

TEST_F(RkFileTest, SetTimeStampSetsModificationTime) {
  Touch("t");
  RkFileIO f;
  ASSERT_TRUE(f.Open(Path("t"), "r+b"));
  RkTimeStamp when(1999, 12, 31, 23, 59, 58, 500);
  RkTimeStamp before1970(1960, 5, 1, 0, 0, 1, 250);
  ASSERT_TRUE(f.SetTimeStamp(when, &before1970));
  struct stat st;
  ASSERT_EQ(fstat(f.Handle(), &st), 0);
  EXPECT_EQ(st.st_mtim.tv_sec, 946684798);
  EXPECT_EQ(st.st_mtim.tv_nsec, 500000000);
  EXPECT_EQ(st.st_atim.tv_sec, -305164799);
  EXPECT_EQ(st.st_atim.tv_nsec, 250000000);
  // An unset stamp leaves that time alone.
  ASSERT_TRUE(f.SetTimeStamp(RkTimeStamp(), &when));
  ASSERT_EQ(fstat(f.Handle(), &st), 0);
  EXPECT_EQ(st.st_mtim.tv_sec, 946684798);
  EXPECT_EQ(st.st_atim.tv_sec, 946684798);
}

TEST_F(RkFileTest, FindFileListsFilteredEntriesWithoutFollowingLinks) {
  Touch("One.JPG", "12345");
  Touch("two.jpg");
  Touch("three.png");
  Touch(".hidden.jpg");
  ASSERT_EQ(mkdir((dir_ + "/sub.jpg").c_str(), 0755), 0);
  ASSERT_EQ(symlink("/etc", (dir_ + "/link.jpg").c_str()), 0);

  RkFindFile find;
  ASSERT_TRUE(find.Open(FidString::FromPosix(dir_), u"*.jpg"));
  std::set<std::string> seen;
  while (find.Next()) {
    std::string name = find.GetName().toUtf8();
    seen.insert(name);
    if (name == "One.JPG") {
      EXPECT_EQ(find.GetSize(), 5u);
      EXPECT_EQ(find.GetAttributes(), uint32_t(kAttrArchive));
      EXPECT_TRUE(find.GetPath().SamePath(Path("One.JPG")));
      EXPECT_TRUE(find.GetModified().isValid());
    }
    if (name == "sub.jpg") {
      EXPECT_TRUE(find.IsFolder());
    }
    if (name == "link.jpg") {
      EXPECT_TRUE(find.IsLink());
      EXPECT_FALSE(find.IsFolder());  // the link itself, not /etc
    }
  }
  // Patterns ignore case; a leading dot needs a dot in the pattern, as shells do.
  EXPECT_EQ(seen, (std::set<std::string>{"One.JPG", "two.jpg", "sub.jpg", "link.jpg"}));
  EXPECT_FALSE(find.Open(Path("nope"), u"*"));
  EXPECT_EQ(find.LastError(), ENOENT);
}

TEST_F(RkFileTest, BomOfAFileIsReadWithoutMovingThePosition) {
  Touch("u16.txt", std::string("\xFF\xFEh\0i\0", 6));
  Touch("short", "\xEF");
  RkFileIO f;
  ASSERT_TRUE(f.Open(Path("u16.txt"), "rb"));
  ASSERT_TRUE(f.Seek(3));
  EXPECT_EQ(RkBOM::Detect(f), kBomUtf16Le);
  EXPECT_EQ(f.Tell(), 3);
  ASSERT_TRUE(f.Open(Path("short"), "rb"));
  EXPECT_EQ(RkBOM::Detect(f), kBomNone);
}

TEST(RkGuid, NamesAreUniqueAndWellFormed) {
  std::set<std::u16string> names;
  for (int i = 0; i < 200; ++i) {
    RkString s = RkGuid::New().ToString();
    ASSERT_EQ(s.length(), 36u);
    EXPECT_EQ(s[14], u'4');  // version 4
    EXPECT_TRUE(s[19] == u'8' || s[19] == u'9' || s[19] == u'A' || s[19] == u'B');
    names.insert(s.str());
  }
  EXPECT_EQ(names.size(), 200u);
  FidString t = RkTempName(FidString(u"tmp"), u"rk", u".tmp");
  EXPECT_TRUE(t.startsWith(u"tmp\\rk"));
  EXPECT_TRUE(t.endsWith(u".tmp"));
  EXPECT_EQ(t.length(), 4 + 2 + 36 + 4u);
}

}  // namespace
