// Source documents: the path rules, the factory's choice by extension, and the flags that decide
// whether a document's file may be rendered or deleted.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../RkLib/RkTestUtil.h"
#include "RkSourceDocument.h"

using namespace RkImgVwr;
namespace fs = std::filesystem;

namespace {

// A private folder under the system's temporary folder, gone after the test.
class RkScratchFolder {
 public:
  RkScratchFolder() {
    std::string pattern = (fs::temp_directory_path() / "rksrcdoc-XXXXXX").string();
    if (mkdtemp(pattern.data())) path_ = pattern;
  }
  ~RkScratchFolder() {
    std::error_code ec;
    if (!path_.empty()) fs::remove_all(path_, ec);
  }
  RkScratchFolder(const RkScratchFolder&) = delete;
  RkScratchFolder& operator=(const RkScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// ---- path rules ------------------------------------------------------------------------------

struct PathCase {
  const char* name;
  std::u16string_view tempFolder, folder, fileName, archiveName;
  std::u16string_view folderAndName, folderAndArchiveName, fullPath, fullFolder;
};

class RkDocumentPaths : public testing::TestWithParam<PathCase> {};

TEST_P(RkDocumentPaths, JoinWithOneSeparator) {
  const PathCase& c = GetParam();
  RkTextRtfSourceDocument d(c.folder, c.archiveName, c.fileName, c.tempFolder, 0, false, false);
  EXPECT_EQ(d.folderAndName().view(), c.folderAndName);
  EXPECT_EQ(d.folderAndArchiveName().view(), c.folderAndArchiveName);
  EXPECT_EQ(d.fullPath().view(), c.fullPath);
  EXPECT_EQ(d.fullFolder().view(), c.fullFolder);
  // The getters build new strings; the fields stay as given.
  EXPECT_EQ(d.getFolder().view(), c.folder);
  EXPECT_EQ(d.getTempFolder().view(), c.tempFolder);
  EXPECT_EQ(d.getName().view(), c.fileName);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, RkDocumentPaths,
    testing::Values(
        PathCase{"empty_folder", u"T", u"", u"a.jpg", u"a.jpg", u"a.jpg", u"a.jpg", u"T\\a.jpg", u"T"},
        PathCase{"temp_ends_in_slash", u"T/", u"", u"a.jpg", u"a.jpg", u"a.jpg", u"a.jpg", u"T/a.jpg", u"T"},
        PathCase{"temp_ends_in_backslash", u"T\\", u"", u"a.jpg", u"a.jpg", u"a.jpg", u"a.jpg", u"T\\a.jpg",
                 u"T"},
        PathCase{"folder", u"T", u"sub", u"a.jpg", u"a.jpg", u"sub\\a.jpg", u"sub\\a.jpg", u"T\\sub\\a.jpg",
                 u"T\\sub"},
        PathCase{"folder_ends_in_slash", u"T/", u"sub/", u"a.jpg", u"a.jpg", u"sub/a.jpg", u"sub/a.jpg",
                 u"T/sub/a.jpg", u"T/sub"},
        PathCase{"nested_folder", u"T", u"a\\b", u"c.txt", u"c.txt", u"a\\b\\c.txt", u"a\\b\\c.txt",
                 u"T\\a\\b\\c.txt", u"T\\a\\b"},
        PathCase{"corrected_name", u"T", u"sub", u"data", u"data.gz", u"sub\\data", u"sub\\data.gz",
                 u"T\\sub\\data", u"T\\sub"},
        PathCase{"no_temp_folder", u"", u"sub", u"a.jpg", u"a.jpg", u"sub\\a.jpg", u"sub\\a.jpg",
                 u"sub\\a.jpg", u"sub"},
        PathCase{"nothing_but_a_name", u"", u"", u"a.jpg", u"a.jpg", u"a.jpg", u"a.jpg", u"a.jpg", u""}),
    RkCaseName());

// ---- the factory -----------------------------------------------------------------------------

constexpr const char* kImageExtensions[] = {"bmp",  "dib", "gif",  "jpeg", "jpg", "jfif", "jpe",
                                            "exif", "tif", "tiff", "ico",  "wmf", "emf",  "png"};

struct KindCase {
  std::string name;
  std::u16string fileName;
  uint32_t type;
};

std::vector<KindCase> KindCases() {
  std::vector<KindCase> cases = {
      {"upper_case_JPG", u"PHOTO.JPG", kDocumentImage},
      {"mixed_case_Jpeg", u"photo.JpEg", kDocumentImage},
      {"no_extension", u"README", kDocumentText},
      {"text_file", u"notes.txt", kDocumentText},
      {"ends_in_slash", u"pictures.png/", kDocumentText},
      {"ends_in_backslash", u"pictures.png\\", kDocumentText},
      {"image_then_text", u"x.jpg.txt", kDocumentText},
      {"text_then_image", u"x.txt.jpg", kDocumentImage},
      {"extension_word_alone", u"jpg", kDocumentText},
      {"longer_extension", u"a.pngx", kDocumentText},
      {"shorter_extension", u"a.pn", kDocumentText},
      {"dot_in_folder_only", u"dir.png\\readme", kDocumentText},
      {"image_in_folder", u"dir\\pic.gif", kDocumentImage},
      {"trailing_dot", u"photo.jpg.", kDocumentText},
  };
  for (const char* ext : kImageExtensions) {
    std::string lower = ext, upper;
    for (char ch : lower) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    cases.push_back({"ext_" + lower, RkString::FromUtf8("f." + lower).str(), kDocumentImage});
    cases.push_back({"ext_upper_" + lower, RkString::FromUtf8("F." + upper).str(), kDocumentImage});
  }
  return cases;
}

class RkDocumentFactory : public testing::TestWithParam<KindCase> {};

TEST_P(RkDocumentFactory, ChoosesTheKindByTheNamesExtension) {
  const KindCase& c = GetParam();
  const RkString name{std::u16string_view(c.fileName)};
  std::unique_ptr<RkSourceDocument> d = makeSourceDocument(u"", name, name, u"T", 7, true, true);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->getDocumentType(), c.type);
  if (c.type == kDocumentImage) {
    EXPECT_NE(dynamic_cast<RkImageSourceDocument*>(d.get()), nullptr);
  } else {
    EXPECT_NE(dynamic_cast<RkTextRtfSourceDocument*>(d.get()), nullptr);
  }
  EXPECT_EQ(RkHasImageExtension(name), c.type == kDocumentImage);
  // Whatever the kind, the factory's document is one the collection accepts.
  EXPECT_TRUE(d->isSupported());
}

INSTANTIATE_TEST_SUITE_P(Names, RkDocumentFactory, testing::ValuesIn(KindCases()), RkCaseName());

// ---- construction and flags ------------------------------------------------------------------

TEST(RkSourceDocument, StartsWithTheConstructorsValuesAndClearFlags) {
  RkImageSourceDocument d(u"sub", u"a.png", u"b.png", u"T", 0x1234567890ull, true, true);
  EXPECT_EQ(d.getFolder().view(), u"sub");
  EXPECT_EQ(d.getArchiveName().view(), u"a.png");
  EXPECT_EQ(d.getName().view(), u"b.png");
  EXPECT_EQ(d.getItemKey(), 0x1234567890ull);
  EXPECT_TRUE(d.getEncrypted());
  EXPECT_TRUE(d.getStartHere());
  EXPECT_EQ(d.getIndex(), -1);
  EXPECT_EQ(d.getModification(), kModificationNone);
  EXPECT_FALSE(d.isModified());
  EXPECT_FALSE(d.getExtracted());
  EXPECT_FALSE(d.getFailed());
  EXPECT_FALSE(d.getWiped());
  EXPECT_FALSE(d.getKeepFile());
  EXPECT_FALSE(d.getDeleted());
}

TEST(RkSourceDocument, ModifiedWhileRotatedOrResized) {
  RkImageSourceDocument d(u"", u"a.png", u"a.png", u"T", 0, false, false);
  d.setModification(kModificationRotated);
  EXPECT_TRUE(d.isModified());
  d.setModification(kModificationResized);
  EXPECT_TRUE(d.isModified());
  d.setModification(kModificationNone);
  EXPECT_FALSE(d.isModified());
}

TEST(RkSourceDocument, EachKindHasItsTypeAndTypeName) {
  RkSourceDocument base(u"", u"a.png", u"a.png", u"T", 0, false, false);
  RkImageSourceDocument image(u"", u"a.png", u"a.png", u"T", 0, false, false);
  RkTextRtfSourceDocument text(u"", u"a.txt", u"a.txt", u"T", 0, false, false);
  EXPECT_EQ(base.getDocumentType(), kDocumentNone);
  EXPECT_EQ(image.getDocumentType(), kDocumentImage);
  EXPECT_EQ(text.getDocumentType(), kDocumentText);
  EXPECT_TRUE(base.typeName().empty());
  EXPECT_FALSE(image.typeName().empty());
  EXPECT_FALSE(text.typeName().empty());
  EXPECT_NE(image.typeName(), text.typeName());
}

// ---- isSupported and isRenderable --------------------------------------------------------------

enum class RkKind { kBase, kImage, kText };
enum class RkOnDisk { kNothing, kFile, kFolder };

struct RenderCase {
  const char* name;
  RkKind kind;
  std::u16string_view fileName;
  RkOnDisk onDisk;
  bool supported, renderable;
};

class RkDocumentRender : public testing::TestWithParam<RenderCase> {};

TEST_P(RkDocumentRender, SupportedByKindRenderableOnlyWithAFile) {
  const RenderCase& c = GetParam();
  RkScratchFolder scratch;
  ASSERT_FALSE(scratch.path().empty());
  const RkString temp = RkString::FromUtf8(scratch.path());
  std::unique_ptr<RkSourceDocument> d;
  switch (c.kind) {
    case RkKind::kBase:
      d = std::make_unique<RkSourceDocument>(u"", c.fileName, c.fileName, temp, 0, false, false);
      break;
    case RkKind::kImage:
      d = std::make_unique<RkImageSourceDocument>(u"", c.fileName, c.fileName, temp, 0, false, false);
      break;
    case RkKind::kText:
      d = std::make_unique<RkTextRtfSourceDocument>(u"", c.fileName, c.fileName, temp, 0, false, false);
      break;
  }
  const std::string path = d->fullPath().ToPosix();
  if (c.onDisk == RkOnDisk::kFile) std::ofstream(path) << "x";
  if (c.onDisk == RkOnDisk::kFolder) fs::create_directory(path);
  EXPECT_EQ(d->existsOnDisk(), c.onDisk == RkOnDisk::kFile);
  EXPECT_EQ(d->isSupported(), c.supported);
  EXPECT_EQ(d->isRenderable(), c.renderable);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, RkDocumentRender,
    testing::Values(
        RenderCase{"image_with_file", RkKind::kImage, u"a.png", RkOnDisk::kFile, true, true},
        RenderCase{"image_without_file", RkKind::kImage, u"a.png", RkOnDisk::kNothing, true, false},
        RenderCase{"image_named_as_folder", RkKind::kImage, u"a.png", RkOnDisk::kFolder, true, false},
        // An image document whose name lost its image extension (a corrected name).
        RenderCase{"image_renamed_to_text", RkKind::kImage, u"a.txt", RkOnDisk::kFile, false, false},
        RenderCase{"text_with_file", RkKind::kText, u"a.txt", RkOnDisk::kFile, true, true},
        RenderCase{"text_without_file", RkKind::kText, u"a.txt", RkOnDisk::kNothing, true, false},
        RenderCase{"text_named_as_folder", RkKind::kText, u"a.txt", RkOnDisk::kFolder, true, false},
        RenderCase{"base_with_file", RkKind::kBase, u"a.png", RkOnDisk::kFile, false, false}),
    RkCaseName());

// ---- deleteFile ------------------------------------------------------------------------------

struct DeleteCase {
  const char* name;
  bool extracted, keepFile, wiped;
  bool fileGone;
};

class RkDocumentDeleteFile : public testing::TestWithParam<DeleteCase> {};

TEST_P(RkDocumentDeleteFile, DeletesOnlyAnExtractedFileNobodyElseOwns) {
  const DeleteCase& c = GetParam();
  RkScratchFolder scratch;
  ASSERT_FALSE(scratch.path().empty());
  RkImageSourceDocument d(u"", u"a.png", u"a.png", RkString::FromUtf8(scratch.path()), 0, true, false);
  const std::string path = d.fullPath().ToPosix();
  std::ofstream(path) << "x";
  d.setExtracted(c.extracted);
  d.setKeepFile(c.keepFile);
  d.setWiped(c.wiped);
  d.deleteFile();
  EXPECT_EQ(!fs::exists(path), c.fileGone);
  d.deleteFile();  // a second call on a missing file is harmless
}

INSTANTIATE_TEST_SUITE_P(Flags, RkDocumentDeleteFile,
                         testing::Values(DeleteCase{"extracted", true, false, false, true},
                                         DeleteCase{"not_extracted", false, false, false, false},
                                         DeleteCase{"kept", true, true, false, false},
                                         DeleteCase{"wiped", true, false, true, false},
                                         DeleteCase{"kept_and_wiped", true, true, true, false},
                                         DeleteCase{"kept_not_extracted", false, true, false, false},
                                         DeleteCase{"wiped_not_extracted", false, false, true, false}),
                         RkCaseName());

}  // namespace
