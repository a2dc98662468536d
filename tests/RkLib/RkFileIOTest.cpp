#include <gtest/gtest.h>

#include "RkTestUtil.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "RkBOM.h"
#include "RkFileIO.h"
#include "RkFileOps.h"
#include "RkFindFile.h"
#include "RkGuid.h"
#include "RkTimeStamp.h"

using namespace RkLib;

namespace {

// A fresh folder per test, removed with everything in it afterwards.
class RkFileTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(dir_.empty()); }

  FidString Path(const std::string& name) const { return FidString::FromPosix(dir_ + "/" + name); }
  void Touch(const std::string& name, const std::string& content = "") const {
    RkFileIO f;
    ASSERT_TRUE(f.Open(Path(name), "wb"));
    ASSERT_EQ(f.Write(content.data(), content.size()), content.size());
  }

  RkScratchDir scratch_{"rkfileio"};
  const std::string dir_ = scratch_.path();
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
  // No descriptor of ours reaches a program this process starts.
  ASSERT_TRUE(f.Open(Path("keep.txt"), "rb"));
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

// Path-level operations. Each row runs one operation on the same small tree and states the code
// it must give and every entry it may change; all other entries must be as they were, so a row
// also proves that nothing was done through a link.
//
//   file "abc", other "xyz", folder/ holding inner "in", empty/,
//   link-to-file -> file, link-to-folder -> folder, dangling -> none
using Tree = std::map<std::string, std::string>;  // relative path -> "f:bytes", "d" or "l:target"

Tree Snapshot(const std::string& root) {
  namespace fs = std::filesystem;
  Tree tree;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    const std::string name = e.path().lexically_relative(root).string();  // relative() would resolve links
    if (e.is_symlink()) {
      tree[name] = "l:" + fs::read_symlink(e.path()).string();
    } else if (e.is_directory()) {
      tree[name] = "d";
    } else {
      std::ifstream in(e.path(), std::ios::binary);
      tree[name] = "f:" + std::string(std::istreambuf_iterator<char>(in), {});
    }
  }
  return tree;
}

struct OpCase {
  const char* name;
  std::function<uint32_t(const std::function<FidString(const char*)>&)> run;
  uint32_t code;
  Tree changes;  // an empty value: the entry is gone
};

class RkFileOps : public RkFileTest, public testing::WithParamInterface<OpCase> {};

TEST_P(RkFileOps, GivesItsCodeAndTouchesOnlyWhatItMay) {
  const OpCase& c = GetParam();
  Touch("file", "abc");
  Touch("other", "xyz");
  ASSERT_EQ(mkdir((dir_ + "/folder").c_str(), 0755), 0);
  Touch("folder/inner", "in");
  ASSERT_EQ(mkdir((dir_ + "/empty").c_str(), 0755), 0);
  ASSERT_EQ(symlink("file", (dir_ + "/link-to-file").c_str()), 0);
  ASSERT_EQ(symlink("folder", (dir_ + "/link-to-folder").c_str()), 0);
  ASSERT_EQ(symlink("none", (dir_ + "/dangling").c_str()), 0);
  Tree expected = Snapshot(dir_);
  for (const auto& [name, entry] : c.changes) {
    if (entry.empty()) {
      expected.erase(name);
    } else {
      expected[name] = entry;
    }
  }
  EXPECT_EQ(c.run([this](const char* name) { return Path(name); }), c.code);
  EXPECT_EQ(Snapshot(dir_), expected);
}

constexpr uint32_t kNotFound = 2, kPathNotFound = 3, kDenied = 5, kInvalid = 87, kExists = 80,
                   kNotEmpty = 145, kThroughLink = 1921;
constexpr RkReplace kNo = RkReplace::kNo, kYes = RkReplace::kYes;

INSTANTIATE_TEST_SUITE_P(
    Faults, RkFileOps,
    testing::Values(
        OpCase{"delete_missing", [](auto p) { return RkDeleteFile(p("none")); }, kNotFound, {}},
        OpCase{"delete_folder", [](auto p) { return RkDeleteFile(p("empty")); }, kDenied, {}},
        OpCase{"delete_link_keeps_its_file", [](auto p) { return RkDeleteFile(p("link-to-file")); }, 0,
               {{"link-to-file", ""}}},
        OpCase{"delete_file", [](auto p) { return RkDeleteFile(p("file")); }, 0, {{"file", ""}}},
        OpCase{"remove_folder_with_entries", [](auto p) { return RkRemoveFolder(p("folder")); }, kNotEmpty, {}},
        OpCase{"remove_link_to_folder", [](auto p) { return RkRemoveFolder(p("link-to-folder")); }, kPathNotFound, {}},
        OpCase{"remove_link_to_folder_with_separator", [](auto p) { return RkRemoveFolder(p("link-to-folder/")); },
               kPathNotFound, {}},
        OpCase{"remove_empty_folder", [](auto p) { return RkRemoveFolder(p("empty/")); }, 0, {{"empty", ""}}},
        OpCase{"remove_missing", [](auto p) { return RkRemoveFolder(p("none")); }, kNotFound, {}},
        OpCase{"move_onto_existing_file", [](auto p) { return RkMoveFile(p("file"), p("other"), kNo); }, kExists, {}},
        OpCase{"move_onto_dangling_link", [](auto p) { return RkMoveFile(p("file"), p("dangling"), kNo); }, kExists,
               {}},
        OpCase{"move_replacing", [](auto p) { return RkMoveFile(p("file"), p("other"), kYes); }, 0,
               {{"file", ""}, {"other", "f:abc"}}},
        OpCase{"move_missing", [](auto p) { return RkMoveFile(p("none"), p("new"), kNo); }, kNotFound, {}},
        OpCase{"move_into_missing_folder", [](auto p) { return RkMoveFile(p("file"), p("none/new"), kNo); }, kNotFound,
               {}},
        OpCase{"move_link_moves_the_link", [](auto p) { return RkMoveFile(p("link-to-folder"), p("moved"), kNo); }, 0,
               {{"link-to-folder", ""}, {"moved", "l:folder"}}},
        OpCase{"copy_onto_existing_file", [](auto p) { return RkCopyFile(p("file"), p("other"), kNo); }, kExists, {}},
        OpCase{"copy_replacing", [](auto p) { return RkCopyFile(p("file"), p("other"), kYes); }, 0,
               {{"other", "f:abc"}}},
        OpCase{"copy_onto_itself", [](auto p) { return RkCopyFile(p("file"), p("file"), kYes); }, kInvalid, {}},
        OpCase{"copy_onto_own_link", [](auto p) { return RkCopyFile(p("link-to-file"), p("file"), kYes); }, kInvalid,
               {}},
        OpCase{"copy_onto_link", [](auto p) { return RkCopyFile(p("other"), p("link-to-file"), kYes); }, kThroughLink,
               {}},
        OpCase{"copy_onto_dangling_link", [](auto p) { return RkCopyFile(p("other"), p("dangling"), kYes); },
               kThroughLink, {}},
        OpCase{"copy_onto_folder", [](auto p) { return RkCopyFile(p("file"), p("empty"), kYes); }, kDenied, {}},
        OpCase{"copy_folder", [](auto p) { return RkCopyFile(p("folder"), p("new"), kNo); }, kDenied, {}},
        OpCase{"copy_missing", [](auto p) { return RkCopyFile(p("none"), p("new"), kNo); }, kNotFound, {}},
        OpCase{"copy_reads_through_source_link", [](auto p) { return RkCopyFile(p("link-to-file"), p("new"), kNo); },
               0, {{"new", "f:abc"}}},
        OpCase{"make_existing_folder", [](auto p) { return RkMakeFolder(p("empty")); }, kExists, {}},
        OpCase{"make_over_link", [](auto p) { return RkMakeFolder(p("dangling")); }, kExists, {}},
        OpCase{"make_in_missing_folder", [](auto p) { return RkMakeFolder(p("none/new")); }, kNotFound, {}},
        OpCase{"make_folder", [](auto p) { return RkMakeFolder(p("new")); }, 0, {{"new", "d"}}}),
    RkCaseName());

TEST_F(RkFileTest, PathInfoTellsKindSizeAndTimesWithLinksFollowedOnlyWhenAsked) {
  Touch("file", "12345");
  ASSERT_EQ(mkdir((dir_ + "/folder").c_str(), 0755), 0);
  ASSERT_EQ(symlink("folder", (dir_ + "/link").c_str()), 0);
  ASSERT_EQ(symlink("none", (dir_ + "/dangling").c_str()), 0);
  const struct timespec times[2] = {{1000000000, 0}, {946684798, 500000000}};
  ASSERT_EQ(utimensat(AT_FDCWD, (dir_ + "/file").c_str(), times, 0), 0);
  ASSERT_EQ(chmod((dir_ + "/file").c_str(), 0444), 0);

  RkPathInfo info;
  ASSERT_EQ(RkGetPathInfo(Path("file"), info), 0u);
  EXPECT_EQ(info.kind, RkPathKind::kFile);
  EXPECT_EQ(info.size, 5u);
  EXPECT_EQ(info.permissions, 0444u);
  EXPECT_EQ(info.attributes, uint32_t(kAttrArchive | kAttrReadOnly));
  EXPECT_EQ(info.modified, RkTimeStamp(1999, 12, 31, 23, 59, 58, 500));
  EXPECT_EQ(info.accessed, RkTimeStamp::FromUnixSeconds(1000000000));
  EXPECT_EQ(info.modifiedNanoseconds, 946684798500000000);

  ASSERT_EQ(RkGetPathInfo(Path("link"), info), 0u);
  EXPECT_EQ(info.kind, RkPathKind::kLink);
  EXPECT_EQ(info.size, 0u);
  EXPECT_EQ(info.attributes & kAttrReparsePoint, uint32_t(kAttrReparsePoint));
  ASSERT_EQ(RkGetPathInfo(Path("link"), info, RkLinks::kFollowed), 0u);
  EXPECT_EQ(info.kind, RkPathKind::kFolder);
  EXPECT_EQ(info.attributes, uint32_t(kAttrDirectory));

  EXPECT_FALSE(RkIsFolder(Path("link")));
  EXPECT_FALSE(RkIsFolder(Path("link/")));  // a separator does not make the link its folder
  EXPECT_TRUE(RkIsFolder(Path("link"), RkLinks::kFollowed));
  EXPECT_TRUE(RkPathExists(Path("dangling")));
  EXPECT_FALSE(RkPathExists(Path("dangling"), RkLinks::kFollowed));
  EXPECT_EQ(RkGetPathInfo(Path("dangling"), info, RkLinks::kFollowed), 2u);
  EXPECT_EQ(RkGetPathInfo(Path("file/below"), info), 3u);  // a file where a folder should be
  EXPECT_FALSE(RkPathExists(FidString()));
}

TEST_F(RkFileTest, CopyKeepsTheModificationTimeAndEveryByte) {
  std::string data(700000, '\0');  // more than one buffer of the copy loop
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 131 + (i >> 11));
  Touch("big", data);
  const struct timespec times[2] = {{0, UTIME_OMIT}, {946684798, 500000000}};
  ASSERT_EQ(utimensat(AT_FDCWD, (dir_ + "/big").c_str(), times, 0), 0);
  Touch("old", std::string(900000, 'x'));  // longer than the source: the tail must go

  for (const char* target : {"new", "old"}) {
    ASSERT_EQ(RkCopyFile(Path("big"), Path(target), RkReplace::kYes), 0u) << target;
    RkFileIO f;
    ASSERT_TRUE(f.Open(Path(target), "rb"));
    std::string copy(data.size() + 1, '\0');
    ASSERT_EQ(f.Read(copy.data(), copy.size()), data.size()) << target;
    copy.resize(data.size());
    EXPECT_TRUE(copy == data) << target;
    RkPathInfo info;
    ASSERT_EQ(RkGetPathInfo(Path(target), info), 0u);
    EXPECT_EQ(info.modifiedNanoseconds, 946684798500000000) << target;
  }
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
