#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <memory>

#include "RkArcCallback.h"
#include "RkArcItem.h"
#include "RkArcMethod.h"
#include "RkArcSupportInfo.h"
#include "RkArcTestUtil.h"
#include "RkArcTypeSupportInfo.h"
#include "RkArchive.h"
#include "RkArchiveType.h"

using namespace RkArcLib;
using RkLib::FidString;
using RkLib::RkString;

namespace {

// The least archive that can be made: the abstract operations only.
class EmptyArchive : public RkArchive {
 public:
  using RkArchive::RkArchive;
  bool IsLoaded() const override { return false; }
  bool IsComplete() const override { return false; }
  bool IsEmpty() const override { return true; }
  int64_t GetItemCount() const override { return 0; }
  bool FileExists() const override { return RkArchive::FileExists(); }
  bool IsReadOnly() const override { return RkArchive::IsReadOnly(); }
  int GetType() const override { return 0; }
  bool Load(int64_t, int64_t, const RkString*, RkState&) override { return false; }
  bool Unload() override { return true; }
  bool IsEncrypted() const override { return false; }
  int64_t FindItem(const RkString&, RkState&) const override { return -1; }
  bool GetItem(int64_t, RkArcItem&, RkState&) const override { return false; }
};

// Defined only so that a selection can be passed along; the base never looks into it.
alignas(8) const unsigned char kNoSelection[8] = {};
const RkArcSelection& Selection() { return *reinterpret_cast<const RkArcSelection*>(kNoSelection); }

struct UnsupportedCase {
  const char* name;
  std::function<bool(RkArchive&, RkState&, RkString&)> call;
};

TEST(RkArchiveTest, EveryWriteAndServiceOperationIsRefusedAsUnsupported) {
  const UnsupportedCase cases[] = {
      {"AddItems", [](RkArchive& a, RkState& s, RkString&) { return a.AddItems(Selection(), s); }},
      {"UpdateItems", [](RkArchive& a, RkState& s, RkString&) { return a.UpdateItems(Selection(), s); }},
      {"FreshenItems", [](RkArchive& a, RkState& s, RkString&) { return a.FreshenItems(Selection(), s); }},
      {"MoveItems", [](RkArchive& a, RkState& s, RkString&) { return a.MoveItems(Selection(), s); }},
      {"DeleteItems", [](RkArchive& a, RkState& s, RkString&) { return a.DeleteItems(Selection(), s); }},
      {"RenameItem", [](RkArchive& a, RkState& s, RkString&) { return a.RenameItem(0, u"x", s); }},
      {"CreateFolder", [](RkArchive& a, RkState& s, RkString&) { return a.CreateFolder(u"x", s); }},
      {"Commit", [](RkArchive& a, RkState& s, RkString&) { return a.Commit(s); }},
      {"Extract", [](RkArchive& a, RkState& s, RkString&) { return a.Extract(Selection(), s); }},
      {"Test", [](RkArchive& a, RkState& s, RkString&) { return a.Test(Selection(), s); }},
      {"TestPart", [](RkArchive& a, RkState& s, RkString&) { return a.TestPart(0, s); }},
      {"Fix", [](RkArchive& a, RkState& s, RkString&) { return a.Fix(s); }},
      {"Split", [](RkArchive& a, RkState& s, RkString&) { return a.Split(s); }},
      {"Encrypt", [](RkArchive& a, RkState& s, RkString&) { return a.Encrypt(u"pw", s); }},
      {"EncryptItems",
       [](RkArchive& a, RkState& s, RkString&) { return a.EncryptItems(Selection(), u"pw", s); }},
      {"SetComment", [](RkArchive& a, RkState& s, RkString&) { return a.SetComment(u"c", s); }},
      {"GetComment", [](RkArchive& a, RkState& s, RkString& out) { return a.GetComment(out, s); }},
      {"SetItemComment", [](RkArchive& a, RkState& s, RkString&) { return a.SetItemComment(0, u"c", s); }},
      {"GetItemComment", [](RkArchive& a, RkState& s, RkString& out) { return a.GetItemComment(0, out, s); }},
      {"SetPartSize", [](RkArchive& a, RkState& s, RkString&) { return a.SetPartSize(1000, s); }},
      {"SetCompressionLevel",
       [](RkArchive& a, RkState& s, RkString&) { return a.SetCompressionLevel(5, s); }},
      {"Sign", [](RkArchive& a, RkState& s, RkString&) { return a.Sign(u"cert", s); }},
      {"VerifySignature", [](RkArchive& a, RkState& s, RkString&) { return a.VerifySignature(s); }},
      {"GetSigner", [](RkArchive& a, RkState& s, RkString& out) { return a.GetSigner(out, s); }},
      {"RemoveSignature", [](RkArchive& a, RkState& s, RkString&) { return a.RemoveSignature(s); }},
  };
  EmptyArchive archive(u"a.bin");
  for (const UnsupportedCase& c : cases) {
    RkState state;
    RkString out = u"stale";
    EXPECT_FALSE(c.call(archive, state, out)) << c.name;
    EXPECT_EQ(state.code, kArcNotSupported) << c.name;
    EXPECT_EQ(state.severity, RkLib::kSeverityFatal) << c.name;
    if (std::string_view(c.name).starts_with("Get")) {
      EXPECT_TRUE(out.empty()) << c.name;
    }
  }
}

TEST(RkArchiveTest, ErrorMessagesCoverTheCommonCodesOnly) {
  const struct {
    uint32_t code;
    uint32_t resource;
  } cases[] = {{0, 50100},  {2, 50102},  {15, 50115}, {16, 50137}, {17, 50116}, {18, 50117},
               {32, 50131}, {37, 50136}, {38, 50138}, {39, 0},     {200, 0},    {1011, 0}};
  EmptyArchive archive(u"a.bin");
  for (const auto& c : cases) {
    EXPECT_EQ(RkArchive::CommonMessageResource(c.code), c.resource) << c.code;
    RkState state;
    state.Set(c.code, RkLib::kSeverityFatal);
    RkString message;
    EXPECT_EQ(archive.GetErrorMessage(state, message), c.resource != 0) << c.code;
    EXPECT_EQ(message.empty(), c.resource == 0) << c.code;
  }
}

TEST(RkArchiveTest, SetCallbackHandsBackTheOneItReplaced) {
  EmptyArchive archive(u"a.bin");
  RkArcCallback* initial = archive.GetCallback();
  ASSERT_NE(initial, nullptr);  // loaders may always ask
  RkArcCallback first, second;
  EXPECT_EQ(archive.SetCallback(&first), initial);
  EXPECT_EQ(archive.SetCallback(&second), &first);
  EXPECT_EQ(archive.GetCallback(), &second);
  EXPECT_EQ(archive.SetCallback(initial), &second);
}

TEST(RkArchiveTest, KeepsItsSettings) {
  EmptyArchive archive(u"a.bin");
  EXPECT_EQ(archive.GetFileName(), FidString(u"a.bin"));
  EXPECT_EQ(archive.GetPartCount(), 1u);
  archive.SetCryptoMode(2);
  EXPECT_EQ(archive.GetCryptoMode(), 2u);
  archive.SetFileName(u"b.zip");
  EXPECT_EQ(archive.GetFileName(), FidString(u"b.zip"));
  EXPECT_EQ(archive.GetTypeSettingsObject(), nullptr);
}

TEST(RkArchiveTest, FileExistsAndReadOnlyFollowTheFile) {
  RkArcTest::ScratchFolder dir;
  const FidString path = dir.Write("plain.zip", "x");
  EmptyArchive plain(path);
  EXPECT_TRUE(plain.FileExists());
  EXPECT_FALSE(plain.IsReadOnly());
  ASSERT_EQ(chmod((dir.path() + "/plain.zip").c_str(), 0444), 0);
  EXPECT_TRUE(plain.IsReadOnly());
  EXPECT_TRUE(EmptyArchive(dir.Write(".hidden.zip", "x")).IsReadOnly());
  EXPECT_TRUE(EmptyArchive(FidString::FromPosix(dir.path())).IsReadOnly());  // a folder
  EmptyArchive missing(dir.Fid("missing.zip"));
  EXPECT_FALSE(missing.FileExists());
  EXPECT_FALSE(missing.IsReadOnly());
}

TEST(RkArchiveTest, BaseSupportInfoOffersNothing) {
  EmptyArchive archive(u"a.bin");
  const auto info = archive.GetSupportInfo();
  ASSERT_TRUE(info);
  EXPECT_FALSE(info->CanCreateNew());
  EXPECT_FALSE(info->IsCompressionChoice(0));
  EXPECT_FALSE(info->IsLevelValid(5));
  EXPECT_FALSE(info->IsEncryptionChoice(0));
  EXPECT_FALSE(info->Slot25());
  EXPECT_FALSE(info->Slot66());
  const int mode = 1;
  EXPECT_FALSE(info->IsSplitModeValid(&mode));
}

TEST(RkArcCallbackTest, BaseIsASilentHostThatRefuses) {
  RkArcCallback cb;
  EXPECT_EQ(cb.AskUser(u"t", u"x", kArcAskYesNo), kArcAnswerNo);
  EXPECT_EQ(cb.AskUser(u"t", u"x", 0), kArcAnswerOk);
  EXPECT_EQ(cb.AskUser(u"t", u"x", 0x20), kArcAnswerOk);
  EXPECT_FALSE(cb.ReportMessage(10, u"warning"));  // a silent host cannot agree to go on
  FidString next = u"unchanged";
  EXPECT_EQ(cb.AskNextPart(u"a.zip", 2, next), kArcAnswerCancel);
  EXPECT_EQ(next, FidString(u"unchanged"));
  EXPECT_FALSE(cb.IsCancelled());
  RkString password;
  EXPECT_EQ(cb.AskPassword(u"a.zip", password, 0), 0);
  EXPECT_TRUE(password.empty());
  EXPECT_TRUE(cb.KeepGoing());
  EXPECT_EQ(cb.AskFileExists(u"f", RkArcItem()), 4);
  EXPECT_EQ(cb.AskFileOpenFailed(u"f", 2), 5);
  EXPECT_TRUE(cb.ContinueAfterCrcError(u"f", 3));
  EXPECT_EQ(cb.AskSecurity(u"q"), 2);
}

TEST(RkArcMethodTest, ZipMethodsMapToTheCommonMethods) {
  const struct {
    uint32_t zip;
    RkArcMethod method;
  } cases[] = {{0, RkArcMethod::kStored},      {1, RkArcMethod::kShrink},     {2, RkArcMethod::kReduce1},
               {5, RkArcMethod::kReduce4},     {6, RkArcMethod::kImplode},    {7, RkArcMethod::kTokenize},
               {8, RkArcMethod::kDeflate},     {9, RkArcMethod::kDeflate64},  {10, RkArcMethod::kDclImplode},
               {11, RkArcMethod::kUnknown},    {12, RkArcMethod::kBzip2},     {13, RkArcMethod::kUnknown},
               {14, RkArcMethod::kLzma},       {92, RkArcMethod::kDuplicate}, {93, RkArcMethod::kZstd},
               {94, RkArcMethod::kMp3},        {95, RkArcMethod::kXz},        {96, RkArcMethod::kJpeg},
               {97, RkArcMethod::kWavPack},    {98, RkArcMethod::kPpmd},      {99, RkArcMethod::kUnknown},
               {0xFFFF, RkArcMethod::kUnknown}};
  for (const auto& c : cases) EXPECT_EQ(RkArcMethodFromZip(c.zip), c.method) << c.zip;
}

TEST(RkArcItemTest, UnknownSizesAreAllOnes) {
  const RkArcItem item;
  EXPECT_EQ(item.originalSize, ~uint64_t{0});
  EXPECT_EQ(item.compressedSize, ~uint64_t{0});
  EXPECT_EQ(item.method, RkArcMethod::kNone);
  EXPECT_FALSE(item.modified.isSet);
  EXPECT_FALSE(item.duplicateOf.has_value());
}

}  // namespace

namespace {

TEST(RkArcTypeSupportInfoTest, CapabilitiesFollowTheTypes) {
  using Info = RkArcTypeSupportInfo;
  auto zip = Info::ForType(kArcTypeZip), lha = Info::ForType(kArcTypeLha), uu = Info::ForType(kArcTypeUU);
  auto tar = Info::ForType(kArcTypeTar), rar = Info::ForType(kArcTypeRar), cab = Info::ForType(kArcTypeCab);
  auto none = Info::ForType(0), gzip = Info::ForType(kArcTypeGzip);
  EXPECT_EQ(Info::ForType(kArcTypeZip), zip);  // shared, made once
  EXPECT_TRUE(zip->CanCreateNew() && lha->CanCreateNew() && uu->CanCreateNew());
  EXPECT_FALSE(tar->CanCreateNew() || none->CanCreateNew());
  EXPECT_TRUE(zip->Slot02() && lha->Slot39());
  EXPECT_FALSE(uu->Slot02() || rar->Slot39());
  EXPECT_TRUE(zip->Slot25() && zip->Slot94() && zip->Slot82());
  EXPECT_FALSE(lha->Slot25() || rar->Slot94());
  EXPECT_TRUE(gzip->Slot43() && tar->Slot67() && cab->Slot58());
  EXPECT_FALSE(none->Slot43());
  EXPECT_TRUE(tar->Slot62());
  EXPECT_FALSE(zip->Slot62());
  EXPECT_TRUE(rar->Slot66() && Info::ForType(kArcType7z)->Slot66());
  EXPECT_FALSE(lha->Slot66());
  EXPECT_TRUE(cab->Slot68() && lha->Slot68());
  EXPECT_FALSE(tar->Slot68());

  EXPECT_TRUE(zip->IsCompressionChoice(12));
  EXPECT_FALSE(zip->IsCompressionChoice(13));
  EXPECT_TRUE(lha->IsCompressionChoice(2));
  EXPECT_FALSE(lha->IsCompressionChoice(3));
  EXPECT_TRUE(uu->IsCompressionChoice(1));
  EXPECT_FALSE(uu->IsCompressionChoice(0));
  EXPECT_TRUE(lha->IsLevelValid(9));
  EXPECT_FALSE(zip->IsLevelValid(10));
  EXPECT_TRUE(zip->IsEncryptionChoice(5));
  EXPECT_FALSE(zip->IsEncryptionChoice(2));
  EXPECT_TRUE(zip->IsAttributeModeValid(7));
  EXPECT_TRUE(cab->IsAttributeModeValid(1));
  EXPECT_FALSE(cab->IsAttributeModeValid(2));
  EXPECT_FALSE(tar->IsAttributeModeValid(0));
  const int three = 3, two = 2;
  EXPECT_TRUE(zip->IsSplitModeValid(&three));
  EXPECT_FALSE(zip->IsSplitModeValid(&two));
  EXPECT_FALSE(zip->IsSplitModeValid(nullptr));
}

}  // namespace
