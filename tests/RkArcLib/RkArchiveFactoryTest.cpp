#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "RkArcSupportInfo.h"
#include "RkArcTestUtil.h"
#include "RkArcTypeSettings.h"
#include "RkArchive.h"
#include "RkArchiveFactory.h"
#include "RkArchiveType.h"
#include "RkFileIO.h"

using namespace RkArcLib;
using RkArcTest::Bytes;
using RkArcTest::ScratchFolder;
using RkLib::FidString;
using RkLib::RkString;

namespace {

std::string Padded(std::string text, size_t size, char fill = 'x') {
  if (text.size() < size) text.append(size - text.size(), fill);
  return text;
}

// A VHD of `size` bytes whose last 512 bytes carry the footer mark (or not).
std::string Vhd(size_t size, bool footer) {
  std::string data(size, '\0');
  if (footer) data.replace(size - 512, 9, std::string("conectix\0", 9));
  return data;
}

const std::string kUuText =
    Padded("begin 644 notes.txt\nM86)C9&5F9VAI:FML;6YO<'%R<W1U=G=X>7I!0D-$149'2$E*2TQ-3D]045)3\n", 120);
const std::string kBinHexText =
    "(This file must be converted with BinHex 4.0)\n"
    ":$f*TEQKPH#jdCA0d,R0TG!\"6594%8dP8)3#3\"!6m!!!!!!!!!!!!!!!\n";

struct ContentCase {
  const char* name;
  std::string fileName;
  std::string bytes;
  int type;
};

class RkArchiveTypeContentTest : public testing::TestWithParam<ContentCase> {};

TEST_P(RkArchiveTypeContentTest, ChainFindsTheType) {
  ScratchFolder dir;
  const ContentCase& c = GetParam();
  const FidString path = dir.Write(c.fileName, c.bytes);
  EXPECT_EQ(RkArchiveFactory::TestContent(path), c.type);
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, RkArchiveTypeContentTest,
    testing::ValuesIn(std::vector<ContentCase>{
        {"Bzip2", "a.bin", "BZh91AY&SY", kArcTypeBzip2},
        {"Bzip2TooShort", "a.bin", "BZ", kArcTypeNone},
        {"Gzip", "a.bin", Bytes({0x1F, 0x8B, 8, 0}), kArcTypeGzip},
        {"GzipOld", "a.bin", Bytes({0x1F, 0x9E, 0}), kArcTypeGzip},
        {"Compress", "a.bin", Bytes({0x1F, 0x9D, 0x90}), kArcTypeZ},
        {"OneByteOfGzip", "a.bin", Bytes({0x1F}), kArcTypeNone},
        {"Xz", "a.bin", Bytes({0xFD, '7', 'z', 'X', 'Z', 0, 0, 4}), kArcTypeXz},
        {"XzWithoutItsZero", "a.bin", Bytes({0xFD, '7', 'z', 'X', 'Z', 1}), kArcTypeNone},
        {"VhdFooter", "a.vhd", Vhd(1024, true), kArcTypeVDisk},
        {"VhdFooterOnly", "a.VHD", Vhd(512, true), kArcTypeVDisk},
        {"VhdWithoutFooter", "a.vhd", Vhd(1024, false), kArcTypeNone},
        {"VhdFooterUnderOtherName", "a.bin", Vhd(1024, true), kArcTypeNone},
        {"VhdShorterThanFooter", "a.vhd", Vhd(512, true).substr(0, 511), kArcTypeNone},
        {"VmdkSparse", "a.vmdk", Padded("KDMV", 64, '\0'), kArcTypeVDisk},
        {"VmdkCowd", "a.vmdk", "COWD", kArcTypeVDisk},
        {"VmdkTooShort", "a.vmdk", "KDM", kArcTypeNone},
        {"VmdkDescriptor", "a.vmdk", " \r\n\t# disk descriptorFILE\nversion=1\n", kArcTypeVDisk},
        {"VmdkDescriptorCut", "a.vmdk", "  # Disk DescriptorFil", kArcTypeNone},
        {"VmdkOther", "a.vmdk", Padded("# Disk Something", 100), kArcTypeNone},
        {"Uuencode", "a.txt", kUuText, kArcTypeUU},
        {"UuencodeBeginWithoutData", "a.txt", Padded("begin 644 a\nxyz\n", 120), kArcTypeNone},
        {"Xxencode", "a.txt", Padded("begin 644 a\nh+", 120), kArcTypeUU},
        {"ContentTypeAndALine", "a.txt", Padded("Content-Type: text/plain\n\n", 100), kArcTypeUU},
        {"ContentTypeOnlyLine", "a.txt", Padded("Content-Type: text/plain", 200), kArcTypeNone},
        {"WebArchive", "a.txt", Padded("content-type: Multipart/Related; x\nbody\n", 80), kArcTypeNone},
        {"MailMessage", "a.txt", Padded("Content-Type: message/rfc822\nbody\n", 80), kArcTypeNone},
        {"BinHex", "a.txt", kBinHexText, kArcTypeUU},
        {"BinHexBadAlphabet", "a.txt", Padded("BinHex\n:" + std::string(40, '7'), 80), kArcTypeNone},
        {"BinHexInMime", "a.txt", Padded("Content-Type: application/mac-binhex40", 100), kArcTypeUU},
        {"EncodedTextOf40Bytes", "a.txt", kUuText.substr(0, 40), kArcTypeNone},
        {"HighByteInText", "a.txt", kUuText + "\xE9", kArcTypeNone},
        {"EmptyZipByItsEndRecord", "noext", "PK\x05\x06" + std::string(18, '\0'), kArcTypeZip},
        {"ZipEndRecordCutShort", "noext", "PK\x05\x06" + std::string(17, '\0'), kArcTypeNone},
        {"FiveBytes", "noext", "hello", kArcTypeNone},
        {"Empty", "noext", "", kArcTypeNone},
    }),
    [](const testing::TestParamInfo<ContentCase>& param) { return std::string(param.param.name); });

// A header that looks like a non-DOS executable: the first exclusion.
std::string ExecutableHead(char first, char second, std::string_view rest) {
  std::string data(68, 'x');
  data[0] = first;
  data[1] = second;
  data[2] = '\n';
  data[12] = 0x00;  // 512, little-endian
  data[13] = 0x02;
  data[30] = 0x01;
  data[31] = 0x00;
  data[32] = '\n';
  data.replace(33, rest.size(), rest);
  return Padded(data, 140);
}

TEST(RkArchiveTypeChainTest, ExecutableHeaderIsNoArchiveUnlessItIsADosProgram) {
  ScratchFolder dir;
  const std::string uu = "begin 644 a\nM";
  EXPECT_EQ(RkArchiveFactory::TestContent(dir.Write("mz", ExecutableHead('M', 'Z', uu))), kArcTypeUU);
  EXPECT_EQ(RkArchiveFactory::TestContent(dir.Write("ny", ExecutableHead('N', 'Y', uu))), kArcTypeNone);
  EXPECT_EQ(RkUUArchiveType().TestFileName(dir.Fid("ny")), kArcTypeUU);  // only the exclusion stopped it

  std::string gzip = ExecutableHead(0x1F, static_cast<char>(0x8B), "");
  EXPECT_EQ(RkArchiveFactory::TestContent(dir.Write("gz68", gzip.substr(0, 68))), kArcTypeNone);
  // Shorter than the exclusion's window: the tests never look.
  EXPECT_EQ(RkArchiveFactory::TestContent(dir.Write("gz67", gzip.substr(0, 67))), kArcTypeGzip);
}

TEST(RkArchiveTypeChainTest, EarlierTestWinsOverALaterOne) {
  ScratchFolder dir;
  const std::string bzipAndUu = "BZh\n" + kUuText;
  const FidString both = dir.Write("both", bzipAndUu);
  ASSERT_EQ(RkUUArchiveType().TestFileName(both), kArcTypeUU);
  EXPECT_EQ(RkArchiveFactory::TestContent(both), kArcTypeBzip2);

  std::string gzipVhd = Vhd(1024, true);
  gzipVhd[0] = 0x1F;
  gzipVhd[1] = static_cast<char>(0x8B);
  const FidString disk = dir.Write("disk.vhd", gzipVhd);
  ASSERT_EQ(RkVDiskArchiveType().TestFileName(disk), kArcTypeVDisk);
  EXPECT_EQ(RkArchiveFactory::TestContent(disk), kArcTypeGzip);
}

TEST(RkArchiveTypeChainTest, SignatureTestsLeaveTheFileAtItsStart) {
  ScratchFolder dir;
  RkLib::RkFileIO file;
  ASSERT_TRUE(file.Open(dir.Write("a.bin", "BZh91AY&SY"), "rb"));
  ASSERT_TRUE(file.Seek(5));
  EXPECT_EQ(RkGZipArchiveType().TestOpenFile(file), kArcTypeNone);
  EXPECT_EQ(file.Tell(), 0);
  ASSERT_TRUE(file.Seek(5));
  EXPECT_EQ(RkBZip2ArchiveType().TestOpenFile(file), kArcTypeBzip2);
  EXPECT_EQ(file.Tell(), 0);

  RkLib::RkFileIO disk;
  ASSERT_TRUE(disk.Open(dir.Write("a.vmdk", Padded("KDMV", 600)), "rb"));
  ASSERT_TRUE(disk.Seek(7));
  EXPECT_EQ(RkVDiskArchiveType().TestOpenFile(disk), kArcTypeVDisk);
  EXPECT_EQ(disk.Tell(), 7);  // virtual disks put back the position they found
}

TEST(RkArchiveFactoryTest, OnlyVerifiedExtensionsAreConfirmedByContent) {
  ScratchFolder dir;
  RkArchiveFactory factory;
  const std::string gzip = Bytes({0x1F, 0x8B, 8, 0, 0, 0});
  EXPECT_EQ(factory.GetArchiveType(dir.Write("x.tz", gzip), true), kArcTypeGzip);
  EXPECT_EQ(factory.GetArchiveType(dir.Write("y.tz", "nothing known"), true), kArcTypeZ);
  EXPECT_EQ(factory.GetArchiveType(dir.Fid("x.tz"), false), kArcTypeZ);
  EXPECT_EQ(factory.GetArchiveType(dir.Write("r.zip", "Rar!\x1A\x07\x00"), true), kArcTypeZip);
  EXPECT_EQ(factory.GetArchiveType(dir.Write("d.vhd", Vhd(1024, false)), true), kArcTypeVDisk);
  EXPECT_EQ(factory.GetArchiveType(dir.Write("g.TGZ", "anything"), true), kArcTypeGzip);
  EXPECT_EQ(factory.GetArchiveType(dir.Fid("missing.z"), true), kArcTypeZ);
  EXPECT_EQ(factory.GetArchiveType(dir.Write("noext", gzip), true), kArcTypeGzip);
  EXPECT_EQ(factory.GetArchiveType(dir.Fid("noext"), false), kArcTypeNone);
  EXPECT_EQ(factory.GetArchiveType(dir.Write("five", "abcde"), true), kArcTypeNone);
  EXPECT_EQ(factory.GetArchiveType(FidString(), true), kArcTypeNone);
  EXPECT_TRUE(factory.IsArchive(dir.Fid("noext")));
  EXPECT_FALSE(factory.IsArchive(dir.Fid("five")));
}

// The lists end in an empty extension; a type may have none, or no primary one.
TEST(RkArchiveFactoryTest, ExtensionListsEndAndMayBeEmpty) {
  RkArchiveFactory factory;
  EXPECT_NE(factory.GetExtension(factory.GetExtensionCount() - 1), RkString());
  EXPECT_EQ(factory.GetExtension(factory.GetExtensionCount()), RkString());
  EXPECT_EQ(factory.GetExtension(kArcTypeBzip2, 0), RkString(u"BZ"));
  EXPECT_EQ(factory.GetExtension(kArcTypeBzip2, factory.GetExtensionCount(kArcTypeBzip2)), RkString());
  EXPECT_EQ(factory.GetExtensionCount(kArcTypeLZ), 0u);
  EXPECT_EQ(factory.GetPrimaryExtension(kArcTypeLZ), RkString());
  EXPECT_EQ(factory.GetPrimaryExtension(kArcTypeVDisk), RkString());
  EXPECT_NE(factory.GetExtensionCount(kArcTypeVDisk), 0u);
  EXPECT_EQ(factory.GetPrimaryExtension(kArcTypeZip), RkString(u"ZIP"));
}

// Added extensions are found by name and listed; removed ones are not, the primary one stays.
TEST(RkArchiveFactoryTest, ExtensionsChangeAtRunTime) {
  ScratchFolder dir;
  RkArchiveFactory factory;
  const size_t all = factory.GetExtensionCount(), gzips = factory.GetExtensionCount(kArcTypeGzip),
               zips = factory.GetExtensionCount(kArcTypeZip);
  EXPECT_TRUE(factory.AddExtension(u"Abc", kArcTypeGzip, false));
  EXPECT_FALSE(factory.AddExtension(u"ABC", kArcTypeZip, false));
  EXPECT_FALSE(factory.AddExtension(u"zip", kArcTypeGzip, false));
  EXPECT_EQ(factory.GetExtensionCount(), all + 1);
  EXPECT_EQ(factory.GetExtensionCount(kArcTypeGzip), gzips + 1);
  EXPECT_EQ(factory.GetExtension(kArcTypeGzip, gzips), RkString(u"Abc"));
  EXPECT_EQ(factory.GetArchiveType(u"f.abc", false), kArcTypeGzip);

  EXPECT_TRUE(factory.AddExtension(u"qq", kArcTypeZ, true));
  EXPECT_EQ(factory.GetArchiveType(dir.Write("f.qq", Bytes({0x1F, 0x8B})), true), kArcTypeGzip);
  EXPECT_EQ(factory.GetArchiveType(dir.Write("g.qq", "plain"), true), kArcTypeZ);

  EXPECT_FALSE(factory.RemoveExtension(u"zip"));  // primary
  EXPECT_FALSE(factory.RemoveExtension(u"nosuch"));
  EXPECT_TRUE(factory.RemoveExtension(u"ZipX"));
  EXPECT_FALSE(factory.RemoveExtension(u"zipx"));
  EXPECT_EQ(factory.GetArchiveType(u"f.zipx", false), kArcTypeNone);
  EXPECT_EQ(factory.GetExtensionCount(kArcTypeZip), zips - 1);

  // A removed verified extension no longer shields the file from the chain's answer of "nothing".
  EXPECT_EQ(factory.GetArchiveType(dir.Write("h.tz", "plain"), true), kArcTypeZ);
  EXPECT_TRUE(factory.RemoveExtension(u"TZ"));
  EXPECT_EQ(factory.GetArchiveType(dir.Fid("h.tz"), true), kArcTypeNone);
  EXPECT_TRUE(factory.AddExtension(u"tz", kArcTypeZ, false));
  EXPECT_EQ(factory.GetArchiveType(dir.Write("i.tz", Bytes({0x1F, 0x8B})), true), kArcTypeZ);
}

// Types outside 1 to 14 are not valid and share the name of no type.
TEST(RkArchiveFactoryTest, TypeNamesAndValidity) {
  RkArchiveFactory factory;
  EXPECT_EQ(RkArchiveFactory::TypeNameResource(kArcTypeLast), RkArchiveFactory::TypeNameResource(kArcTypeFirst) + 13);
  for (int type : {0, 15, -1}) {
    EXPECT_EQ(RkArchiveFactory::TypeNameResource(type), RkArchiveFactory::TypeNameResource(kArcTypeLast) + 1) << type;
    EXPECT_FALSE(factory.IsValidType(type)) << type;
  }
  EXPECT_TRUE(factory.IsValidType(kArcTypeFirst));
  EXPECT_TRUE(factory.IsValidType(kArcTypeLast));
  EXPECT_NE(factory.GetTypeName(kArcTypeZip), factory.GetTypeName(kArcTypeGzip));
  EXPECT_EQ(factory.GetTypeName(0), factory.GetTypeName(99));
  EXPECT_EQ(factory.GetTypeName(FidString(u"a.tgz")), factory.GetTypeName(kArcTypeGzip));
}

class TestSupportInfo : public RkArcSupportInfo {
 public:
  TestSupportInfo(bool canCreate, bool options) : canCreate_(canCreate), options_(options) {}
  bool CanCreateNew() const override { return canCreate_; }
  bool Slot73() const override { return options_; }

 private:
  bool canCreate_;
  bool options_;
};

class TestArchive : public RkArchive {
 public:
  TestArchive(const FidString& path, int type, std::shared_ptr<const RkArcSupportInfo> info)
      : RkArchive(path), type_(type), info_(std::move(info)) {}
  bool IsLoaded() const override { return false; }
  bool IsComplete() const override { return false; }
  bool IsEmpty() const override { return true; }
  int64_t GetItemCount() const override { return 0; }
  bool FileExists() const override { return RkArchive::FileExists(); }
  bool IsReadOnly() const override { return RkArchive::IsReadOnly(); }
  int GetType() const override { return type_; }
  bool Load(int64_t, int64_t, const RkString*, RkState&) override { return false; }
  bool Unload() override { return true; }
  bool IsEncrypted() const override { return false; }
  int64_t FindItem(const RkString&, RkState&) const override { return -1; }
  bool GetItem(int64_t, RkArcItem&, RkState&) const override { return false; }
  std::shared_ptr<const RkArcSupportInfo> GetSupportInfo() const override { return info_; }

 private:
  int type_;
  std::shared_ptr<const RkArcSupportInfo> info_;
};

// A factory whose containers all exist, as plain test objects.
class TestFactory : public RkArchiveFactory {
 public:
  bool canCreate = true;
  bool options = true;
  FidString lastPath;

 protected:
  std::unique_ptr<RkArchive> NewArchive(int type, const FidString& path) override {
    lastPath = path;
    return std::make_unique<TestArchive>(path, type, std::make_shared<TestSupportInfo>(canCreate, options));
  }
};

TEST(RkArchiveFactoryTest, CreateArchiveHandsOverTheTypeSettings) {
  TestFactory factory;
  EXPECT_EQ(factory.CreateArchive(0, u"a.zip"), nullptr);
  EXPECT_EQ(factory.CreateArchive(15, u"a.zip"), nullptr);

  auto plain = factory.CreateArchive(kArcTypeZip, u"a.zip");
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(plain->GetType(), kArcTypeZip);
  EXPECT_EQ(plain->GetTypeSettingsObject(), nullptr);

  RkArcTypeSettings zipSettings;
  factory.SetTypeSettings(&zipSettings, kArcTypeZip);
  EXPECT_EQ(factory.GetTypeSettings(FidString(u"b.ZIP")), &zipSettings);
  EXPECT_EQ(factory.GetTypeSettings(kArcTypeGzip), nullptr);

  auto withSettings = factory.CreateArchive(kArcTypeZip, u"b.wsz");
  ASSERT_NE(withSettings, nullptr);
  EXPECT_EQ(withSettings->GetTypeSettingsObject(), &zipSettings);
  EXPECT_EQ(zipSettings.GetPrimaryExtension(), RkString(u"ZIP"));
  EXPECT_TRUE(zipSettings.HasOptions());
  factory.options = false;
  factory.CreateArchive(kArcTypeZip, u"c.zip");
  EXPECT_FALSE(zipSettings.HasOptions());
}

TEST(RkArchiveFactoryTest, CreateArchiveByPathUsesTheDecidedType) {
  ScratchFolder dir;
  TestFactory factory;
  auto gzip = factory.CreateArchive(dir.Write("data", Bytes({0x1F, 0x8B})));
  ASSERT_NE(gzip, nullptr);
  EXPECT_EQ(gzip->GetType(), kArcTypeGzip);
  EXPECT_EQ(factory.CreateArchive(dir.Write("text", "plain words")), nullptr);
  auto zip = RkArchiveFactory().CreateArchive(kArcTypeZip, u"a.zip");
  ASSERT_NE(zip, nullptr);
  EXPECT_EQ(zip->GetType(), kArcTypeZip);
  EXPECT_EQ(RkArchiveFactory().CreateArchive(kArcTypeRar, u"a.rar"), nullptr);  // no reader yet
}

TEST(RkArchiveFactoryTest, CanCreateInAsksTheTypeAndItsSettings) {
  ScratchFolder dir;
  TestFactory factory;
  const FidString folder = FidString::FromPosix(dir.path());
  EXPECT_EQ(factory.CanCreateIn(folder, u"new.zip"), 1);
  EXPECT_TRUE(factory.lastPath.IsAbsolute());
  EXPECT_EQ(factory.lastPath.GetName(), RkString(u"new.zip"));
  EXPECT_TRUE(factory.lastPath.GetFolder().SamePath(FidString(folder).AddSeparator()));

  RkArcTypeSettings narrow;
  narrow.SetWideNames(false);
  factory.SetTypeSettings(&narrow, kArcTypeZip);
  EXPECT_EQ(factory.CanCreateIn(folder, u"new.zip"), 2);
  factory.canCreate = false;
  EXPECT_EQ(factory.CanCreateIn(folder, u"new.zip"), 1);
  EXPECT_EQ(factory.CanCreateIn(folder, u"new.unknown"), 0);
}

// Real files written by other tools. -1 in the content column: the test of that type needs its
// reader, which does not exist yet.
struct CorpusCase {
  const char* path;
  int byName;
  int byContent;
};

TEST(RkArchiveFactoryTest, CorpusFilesAreOfTheirType) {
  const std::filesystem::path corpus = RK_CORPUS_DIR;
  if (!std::filesystem::is_directory(corpus)) GTEST_SKIP() << "no test corpus at " << corpus;
  const CorpusCase cases[] = {
      {"commons-compress/compress/multiple.bz2", kArcTypeBzip2, kArcTypeBzip2},
      {"libarchive/compress/test_compat_bzip2_1.tbz", kArcTypeBzip2, kArcTypeBzip2},
      {"dfvfs/syslog.gz", kArcTypeGzip, kArcTypeGzip},
      {"defacto2-archive/GZIP113.GZ", kArcTypeGzip, kArcTypeGzip},
      {"libarchive/compress/test_compat_gzip_1.tgz", kArcTypeGzip, kArcTypeGzip},
      {"dfvfs/syslog.xz", kArcTypeXz, kArcTypeXz},
      {"libarchive/compress/test_compat_xz_1.txz", kArcTypeXz, kArcTypeXz},
      {"dfvfs/syslog.Z", kArcTypeZ, kArcTypeZ},
      {"libarchive/tar/test_compat_mac-1.tar.Z", kArcTypeZ, kArcTypeZ},
      {"dfvfs/ext2.vhd", kArcTypeVDisk, kArcTypeVDisk},
      {"dfvfs/image-differential.vhd", kArcTypeVDisk, kArcTypeVDisk},
      {"dfvfs/ext2.vmdk", kArcTypeVDisk, kArcTypeVDisk},
      {"libarchive/uu/test_read_filter_uudecode_raw.uu", kArcTypeUU, kArcTypeUU},
      {"libarchive/uu/test_read_format_zip.zip.uu", kArcTypeUU, kArcTypeUU},
      {"go-zip/test.zip", kArcTypeZip, kArcTypeZip},
      {"libarchive/7z/test_read_format_7zip_lzma2.7z", kArcType7z, -1},
      {"go-zip/readme.notzip", kArcTypeNone, kArcTypeNone},
      {"go-zip/gophercolor16x16.png", kArcTypeNone, kArcTypeNone},
      {"libarchive/compress/test_compat_lzip_3.lz", kArcTypeNone, kArcTypeNone},
  };
  RkArchiveFactory factory;
  for (const CorpusCase& c : cases) {
    const std::filesystem::path file = corpus / c.path;
    if (!std::filesystem::exists(file)) {
      ADD_FAILURE() << "corpus file missing: " << c.path;
      continue;
    }
    const FidString path = FidString::FromPosix(file.string());
    EXPECT_EQ(factory.GetArchiveType(path, true), c.byName) << c.path;
    if (c.byContent >= 0) {
      EXPECT_EQ(RkArchiveFactory::TestContent(path), c.byContent) << c.path;
    }
  }
}

}  // namespace
