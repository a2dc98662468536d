#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "RkZipEntry.h"
#include "RkZipExtra.h"
#include "RkZipExtraTypes.h"

using namespace RkArcLib;
using Kind = RkExtraType::Kind;

namespace {

std::string Le16(uint32_t v) { return {static_cast<char>(v & 0xFF), static_cast<char>((v >> 8) & 0xFF)}; }
std::string Le32(uint32_t v) { return Le16(v & 0xFFFF) + Le16(v >> 16); }
std::string Le64(uint64_t v) { return Le32(static_cast<uint32_t>(v)) + Le32(static_cast<uint32_t>(v >> 32)); }
std::string U8(uint32_t v) { return std::string(1, static_cast<char>(v)); }

// One record: header and data.
std::string Rec(uint16_t id, const std::string& data) { return Le16(id) + Le16(static_cast<uint32_t>(data.size())) + data; }

std::string Zeros(size_t n) { return std::string(n, '\0'); }

// AES data: version, vendor, strength, method and, for the third generation, the iteration field.
std::string Aes(uint16_t version, uint8_t strength, uint16_t method, const char* vendor = "AE") {
  return Le16(version) + vendor + U8(strength) + Le16(method);
}

std::string Unicode(uint32_t crc, const std::string& text, uint8_t version = 1) { return U8(version) + Le32(crc) + text; }

constexpr uint32_t kCrcAbc = 0x352441C2;  // CRC-32 of "abc"
constexpr uint32_t kCrcNote = 0xCFBDFA14;  // of "note"

const std::string kReferenceId("\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F", 16);
// Check value of kReferenceId on an entry of method 92, date 0x5A21, time 0x6000, CRC 0x12345678.
constexpr uint32_t kReferenceCheck = 0x13598BAA;

struct Expected {
  uint16_t id;
  Kind kind;
};

struct ParseCase {
  const char* name;
  std::string bytes;
  std::vector<Expected> records;
};

std::vector<ParseCase> ParseCases() {
  return {
      {"Empty", "", {}},
      {"ThreeBytes", Le16(0x0001) + U8(8), {}},
      {"HeaderWithoutData", Le16(0x7855) + Le16(1), {}},
      {"TruncatedLastKeepsEarlier", Rec(0x7855, "abc") + Rec(0x0001, Le64(5)) + Le16(0x5455) + Le16(9) + "ab",
       {{0x7855, Kind::kGeneric}, {0x0001, Kind::kZip64}}},
      {"TailShorterThanHeaderDropped", Rec(0x7855, "") + "xy", {{0x7855, Kind::kGeneric}}},
      {"Zip64Empty", Rec(0x0001, ""), {{0x0001, Kind::kZip64}}},
      {"Zip64PartOnly", Rec(0x0001, Le32(2)), {{0x0001, Kind::kZip64}}},
      {"Zip64Full", Rec(0x0001, Le64(1) + Le64(2) + Le64(3) + Le32(4)), {{0x0001, Kind::kZip64}}},
      {"Zip64TenBytesDropped", Rec(0x0001, Le64(1) + "xy") + Rec(0x7855, ""), {{0x7855, Kind::kGeneric}}},
      {"Zip64ThirtyTwoDropped", Rec(0x0001, Zeros(32)), {}},
      {"Win32Short", Rec(0x000A, Zeros(31)), {{0x000A, Kind::kGeneric}}},
      {"Win32", Rec(0x000A, Zeros(32)), {{0x000A, Kind::kWin32Attr}}},
      {"Win32WithRest", Rec(0x000A, Zeros(32) + "more"), {{0x000A, Kind::kWin32Attr}}},
      {"PKCryptShortDropped", Rec(0x0017, Le16(2) + Zeros(5)), {}},
      {"PKCryptWrongFormat", Rec(0x0017, Le16(3) + Zeros(6)), {{0x0017, Kind::kGeneric}}},
      {"PKCrypt", Rec(0x0017, Le16(2) + Le16(0x6610) + Le16(256) + Le16(1) + "cert"), {{0x0017, Kind::kPKCrypt}}},
      {"UnicodeNameShort", Rec(0x7075, Unicode(kCrcAbc, "")), {{0x7075, Kind::kGeneric}}},
      {"UnicodeNameVersion2", Rec(0x7075, Unicode(kCrcAbc, "x", 2)), {{0x7075, Kind::kGeneric}}},
      {"UnicodeName", Rec(0x7075, Unicode(kCrcAbc, "x")), {{0x7075, Kind::kUnicodeFilename}}},
      {"UnicodeComment", Rec(0x6375, Unicode(kCrcNote, "y")), {{0x6375, Kind::kUnicodeComment}}},
      {"AesSizeThreeDropped", Rec(0x9901, Le16(2) + "A"), {}},
      {"AesSizeSixDropped", Rec(0x9901, Aes(2, 3, 8).substr(0, 6)), {}},
      {"AesV1", Rec(0x9901, Aes(1, 1, 8)), {{0x9901, Kind::kAesCrypt}}},
      {"AesVersion0Generic", Rec(0x9901, Aes(0, 3, 8)), {{0x9901, Kind::kGeneric}}},
      {"AesVersion4Generic", Rec(0x9901, Aes(4, 3, 8)), {{0x9901, Kind::kGeneric}}},
      {"AesVersion4ShortGeneric", Rec(0x9901, Le16(4) + "AE"), {{0x9901, Kind::kGeneric}}},
      {"AesVendorGeneric", Rec(0x9901, Aes(2, 3, 8, "AX")), {{0x9901, Kind::kGeneric}}},
      {"AesStrength0Dropped", Rec(0x9901, Aes(2, 0, 8)), {}},
      {"AesStrength4Dropped", Rec(0x9901, Aes(2, 4, 8)), {}},
      {"AesV3Strength1Dropped", Rec(0x9901, Aes(3, 1, 8) + Le16(100)), {}},
      {"AesV3WithoutIterationsDropped", Rec(0x9901, Aes(3, 3, 8)), {}},
      {"AesV3Iterations30Dropped", Rec(0x9901, Aes(3, 3, 8) + Le16(30)), {}},
      {"AesV3Iterations6401Dropped", Rec(0x9901, Aes(3, 3, 8) + Le16(6401)), {}},
      {"AesV3Iterations31", Rec(0x9901, Aes(3, 3, 8) + Le16(31)), {{0x9901, Kind::kAesCrypt}}},
      {"AesV3Iterations6400", Rec(0x9901, Aes(3, 3, 8) + Le16(6400)), {{0x9901, Kind::kAesCrypt}}},
      {"PkcKind1", Rec(0x9902, U8(1) + U8(1) + Le16(3) + "key"), {{0x9902, Kind::kEnterprisePublicKeyCrypto}}},
      {"PkcKind2", Rec(0x9902, U8(1) + U8(2) + Le16(1) + "c" + Le16(2) + "sg"),
       {{0x9902, Kind::kEnterprisePublicKeyCrypto}}},
      {"PkcKind3Generic", Rec(0x9902, U8(1) + U8(3) + Le16(0)), {{0x9902, Kind::kGeneric}}},
      {"PkcVersion2Generic", Rec(0x9902, U8(2) + U8(1) + Le16(0)), {{0x9902, Kind::kGeneric}}},
      {"PkcBlockTooLongGeneric", Rec(0x9902, U8(1) + U8(1) + Le16(4) + "key"), {{0x9902, Kind::kGeneric}}},
      {"PkcSecondLengthMissingGeneric", Rec(0x9902, U8(1) + U8(2) + Le16(1) + "c" + "s"), {{0x9902, Kind::kGeneric}}},
      {"PkcSecondBlockTooLongGeneric", Rec(0x9902, U8(1) + U8(2) + Le16(1) + "c" + Le16(3) + "sg"),
       {{0x9902, Kind::kGeneric}}},
      {"PkcTooShortGeneric", Rec(0x9902, U8(1) + U8(1) + "\x00"), {{0x9902, Kind::kGeneric}}},
      {"FileReference", Rec(0x9903, Le32(0) + kReferenceId), {{0x9903, Kind::kFileReference}}},
      {"FileReference19Generic", Rec(0x9903, Le32(0) + kReferenceId.substr(1)), {{0x9903, Kind::kGeneric}}},
      {"FileReference21Generic", Rec(0x9903, Le32(0) + kReferenceId + "x"), {{0x9903, Kind::kGeneric}}},
      {"UnknownIdGeneric", Rec(0xBEEF, "raw"), {{0xBEEF, Kind::kGeneric}}},
      {"DuplicatesKept", Rec(0x5455, "a") + Rec(0x5455, "b"), {{0x5455, Kind::kGeneric}, {0x5455, Kind::kGeneric}}},
  };
}

void PrintTo(const ParseCase& c, std::ostream* os) { *os << c.name; }

class RkZipExtraParse : public ::testing::TestWithParam<ParseCase> {};

// What is kept writes back byte for byte, so serialising what was read reads back the same.
TEST_P(RkZipExtraParse, RecordsInFileOrderAndSerialisationIsAFixedPoint) {
  const ParseCase& c = GetParam();
  RkExtra extra;
  extra.Parse(c.bytes);
  ASSERT_EQ(extra.Count(), c.records.size());
  size_t i = 0;
  for (const RkExtraType* r = extra.First(); r != nullptr; r = extra.Next(), ++i) {
    ASSERT_LT(i, c.records.size());
    EXPECT_EQ(r->GetId(), c.records[i].id) << "record " << i;
    EXPECT_EQ(r->GetKind(), c.records[i].kind) << "record " << i;
  }
  EXPECT_EQ(i, c.records.size());
  const std::string once = extra.Serialize();
  RkExtra again;
  again.Parse(once);
  EXPECT_EQ(again.Count(), extra.Count());
  EXPECT_EQ(again.Serialize(), once);
}

INSTANTIATE_TEST_SUITE_P(Table, RkZipExtraParse, ::testing::ValuesIn(ParseCases()),
                         [](const auto& param) { return std::string(param.param.name); });

// Well-formed records of every kind: they write back byte for byte, through a copy too, each
// into exactly its own room and not one byte less, and each dumps on a line of its own.
TEST(RkZipExtra, WellFormedRecordsWriteBackAndDump) {
  const std::string bytes = Rec(0x0001, Le64(0x123456789ULL) + Le64(77) + Le32(3)) +
                            Rec(0x000A, Le32(0) + Le16(1) + Le16(24) + Le64(1) + Le64(2) + Le64(3)) +
                            Rec(0x0017, Le16(2) + Le16(0x660F) + Le16(192) + Le16(1) + "tail") +
                            Rec(0x7075, Unicode(kCrcAbc, "na/me")) + Rec(0x6375, Unicode(kCrcNote, "c")) +
                            Rec(0x9901, Aes(1, 1, 8)) + Rec(0x9901, Aes(2, 2, 14)) +
                            Rec(0x9901, Aes(3, 3, 0) + Le16(6400)) +
                            Rec(0x9902, U8(1) + U8(2) + Le16(1) + "c" + Le16(2) + "sg" + "zz") +
                            Rec(0x9903, Le32(kReferenceCheck) + kReferenceId) + Rec(0x7855, Le16(1000) + Le16(1000)) +
                            Rec(0x9901, Aes(4, 3, 8)) + Rec(0xBEEF, "z");
  RkExtra extra;
  extra.Parse(bytes);
  EXPECT_EQ(extra.Count(), 13u);
  EXPECT_EQ(extra.Serialize(), bytes);

  const RkExtra copy(extra);
  EXPECT_EQ(copy.Serialize(), bytes);
  RkExtra assigned;
  assigned.Parse(Rec(0x5455, "x"));
  assigned = extra;
  EXPECT_EQ(assigned.Serialize(), bytes);

  std::string info;
  for (const RkExtraType* r = extra.First(); r != nullptr; r = extra.Next()) {
    std::vector<uint8_t> buffer(4 + r->Size());
    EXPECT_EQ(r->Write(buffer.data(), buffer.size() - 1), nullptr) << r->GetId();
    EXPECT_EQ(r->Write(buffer.data(), buffer.size()), buffer.data() + buffer.size()) << r->GetId();
    r->Dump(info);
  }
  EXPECT_EQ(std::count(info.begin(), info.end(), '\n'), 13);
  for (const char* name : {"ZIP64 Tag", "Unix UID/GID", "unknown", "AES Encryption Tag", "File Reference UUID"}) {
    EXPECT_NE(info.find(name), std::string::npos) << name << " in\n" << info;
  }
}

TEST(RkZipExtra, FindRemoveAndIteration) {
  RkExtra extra;
  extra.Parse(Rec(0x5455, "a") + Rec(0x0001, Le64(1)) + Rec(0x5455, "bb") + Rec(0x7855, ""));
  ASSERT_NE(extra.Find(0x5455), nullptr);
  EXPECT_EQ(extra.Find(0x5455)->Size(), 1u);  // the first of the duplicates
  EXPECT_EQ(extra.Find(0x9999), nullptr);

  EXPECT_EQ(extra.Next(), nullptr);  // before First: at the end, not undefined
  extra.First();
  extra.Remove(0x5455);
  EXPECT_EQ(extra.Find(0x5455), nullptr);
  EXPECT_EQ(extra.Count(), 2u);
  EXPECT_EQ(extra.Serialize(), Rec(0x0001, Le64(1)) + Rec(0x7855, ""));
  ASSERT_NE(extra.First(), nullptr);
  EXPECT_EQ(extra.First()->GetId(), 0x0001);
  EXPECT_EQ(extra.Next()->GetId(), 0x7855);
  EXPECT_EQ(extra.Next(), nullptr);
  EXPECT_EQ(extra.Next(), nullptr);

  RkExtra empty;
  EXPECT_EQ(empty.First(), nullptr);
  empty.Parse(nullptr, 12);
  EXPECT_TRUE(empty.Empty());
}

// ---------------------------------------------------------------------------------------------
// Apply

RkZipEntry MakeEntry() {
  RkZipEntry entry;
  entry.method = kZipMethodDeflate;
  entry.modDate = 0x5A21;
  entry.modTime = 0x6000;
  entry.crc = 0x12345678;
  entry.compressedSize64 = entry.compressedSize = 10;
  entry.originalSize64 = entry.originalSize = 20;
  entry.localOffset64 = entry.localOffset = 30;
  entry.startPart32 = entry.startPart = 1;
  entry.name = u"abc";
  return entry;
}

using Check = std::function<void(const RkZipEntry&)>;

struct ApplyCase {
  const char* name;
  std::function<void(RkZipEntry&)> setup;
  std::string bytes;
  Check check;
};

void AllOnes(RkZipEntry& e) { e.originalSize64 = e.compressedSize64 = e.localOffset64 = 0xFFFFFFFF; }
void AesEntry(RkZipEntry& e) {
  e.method = kZipMethodAes;
  e.flags = kZipFlagEncrypted;
}
void DuplicateEntry(RkZipEntry& e) { e.method = kZipMethodDuplicate; }

// The sizes, offset and part the entry ends with, a zip64 record taken.
Check Sizes(uint64_t original, uint64_t compressed, uint64_t offset, uint32_t part) {
  return [=](const RkZipEntry& e) {
    EXPECT_EQ(e.originalSize64, original);
    EXPECT_EQ(e.compressedSize64, compressed);
    EXPECT_EQ(e.localOffset64, offset);
    EXPECT_EQ(e.startPart32, part);
    EXPECT_TRUE(e.hasZip64);
  };
}

// The AES record the entry ends with, none for 0 key bits; never an unknown-encryption record.
Check AesIs(uint16_t keyBits, uint16_t version = 0, uint32_t method = 0, uint32_t iterations = 0) {
  return [=](const RkZipEntry& e) {
    EXPECT_EQ(e.UnknownEncryption(), nullptr);
    EXPECT_EQ(e.method, kZipMethodAes);
    if (keyBits == 0) {
      EXPECT_EQ(e.Aes(), nullptr);
      return;
    }
    ASSERT_NE(e.Aes(), nullptr);
    EXPECT_EQ(std::tie(e.Aes()->keyBits, e.Aes()->version, e.Aes()->method, e.Aes()->iterations),
              std::make_tuple(keyBits, version, method, iterations));
  };
}

// An AES record that was not understood: vendor, version and detail kept, no AES record.
Check UnknownAes(const char* vendor, uint16_t version, uint32_t detail) {
  return [=](const RkZipEntry& e) {
    EXPECT_EQ(e.Aes(), nullptr);
    ASSERT_NE(e.UnknownEncryption(), nullptr);
    EXPECT_EQ(std::string(e.UnknownEncryption()->vendor.begin(), e.UnknownEncryption()->vendor.end()), vendor);
    EXPECT_EQ(e.UnknownEncryption()->version, version);
    EXPECT_EQ(e.UnknownEncryption()->detail, detail);
  };
}

Check NameIs(const std::u16string& name, bool unicode) {
  return [=](const RkZipEntry& e) {
    EXPECT_EQ(e.name, RkLib::RkString(name));
    EXPECT_EQ(e.hasUnicodeName, unicode);
  };
}

// The file reference kept (the zero id when none), and whether it was found broken.
Check ReferenceIs(const std::string& id, bool broken) {
  return [=](const RkZipEntry& e) {
    EXPECT_EQ(e.brokenReference, broken);
    const std::string kept = e.detail() ? std::string(e.detail()->referenceId.begin(), e.detail()->referenceId.end())
                                        : std::string(16, '\0');
    EXPECT_EQ(kept, id);
  };
}

const RkEnterprisePublicKeyCrypto* Pkc(const RkZipEntry& e) {
  return e.detail() ? e.detail()->enterpriseCrypto.get() : nullptr;
}

std::vector<ApplyCase> ApplyCases() {
  const auto none = [](RkZipEntry&) {};
  const auto flags = [](uint16_t f) { return [f](RkZipEntry& e) { e.flags = f; }; };
  const std::string pkcrypt = Le16(2) + Le16(0x6610) + Le16(256);
  return {
      {"Zip64AllThree", AllOnes, Rec(0x0001, Le64(0x100000001ULL) + Le64(0x200000002ULL) + Le64(0x300000003ULL)),
       Sizes(0x100000001ULL, 0x200000002ULL, 0x300000003ULL, 1)},
      {"Zip64SixteenBytesSkipsSmallOriginal", [](RkZipEntry& e) { e.compressedSize64 = e.localOffset64 = 0xFFFFFFFF; },
       Rec(0x0001, Le64(0x500000000ULL) + Le64(0x600000000ULL)), Sizes(20, 0x500000000ULL, 0x600000000ULL, 1)},
      {"Zip64TwelveBytesIsValueAndPart", AllOnes, Rec(0x0001, Le64(0x700000000ULL) + Le32(9)),
       Sizes(0x700000000ULL, 0xFFFFFFFF, 0xFFFFFFFF, 9)},
      {"Zip64PartReplacesEvenWithoutOverflow", none, Rec(0x0001, Le32(0)), Sizes(20, 10, 30, 0)},
      {"Win32Times", none,
       Rec(0x000A, Le32(0) + Le16(1) + Le16(24) + Le64(132224078456780000ULL) + Le64(0) + Le64(0xFFFFFFFFFFFFFFFFULL)),
       [](const RkZipEntry& e) {
         ASSERT_NE(e.ExtTimeStamps(), nullptr);
         EXPECT_EQ(e.ExtTimeStamps()->modified, RkLib::RkTimeStamp(2020, 1, 2, 3, 4, 5, 678));
         EXPECT_EQ(e.ExtTimeStamps()->accessed, RkLib::RkTimeStamp(1601, 1, 1));
         EXPECT_FALSE(e.ExtTimeStamps()->created.isSet);  // beyond the calendar
       }},
      {"PKCryptNeedsBothFlags", flags(kZipFlagEncrypted), Rec(0x0017, pkcrypt + Le16(1)),
       [](const RkZipEntry& e) { EXPECT_EQ(e.Pkware(), nullptr); }},
      {"PKCrypt", flags(kZipFlagEncrypted | kZipFlagStrongEncryption), Rec(0x0017, pkcrypt + Le16(3)),
       [](const RkZipEntry& e) {
         ASSERT_NE(e.Pkware(), nullptr);
         EXPECT_EQ(std::tie(e.Pkware()->algorithmId, e.Pkware()->keyBits, e.Pkware()->flags),
                   std::make_tuple(uint16_t{0x6610}, uint16_t{256}, uint16_t{3}));
       }},
      {"AesV2", AesEntry, Rec(0x9901, Aes(2, 2, 14)), AesIs(192, 2, 14, 1000)},
      {"AesV3", AesEntry, Rec(0x9901, Aes(3, 3, 8) + Le16(31)), AesIs(256, 3, 8, 310000)},
      {"AesIgnoredWithoutFlag", [](RkZipEntry& e) { e.method = kZipMethodAes; }, Rec(0x9901, Aes(2, 3, 8)), AesIs(0)},
      {"AesIgnoredForOtherMethod", flags(kZipFlagEncrypted), Rec(0x9901, Aes(2, 3, 8)),
       [](const RkZipEntry& e) { EXPECT_EQ(e.Aes(), nullptr); }},
      {"AesVersion4IsUnknownEncryption", AesEntry, Rec(0x9901, Aes(4, 3, 8)), UnknownAes("AE", 4, 0x000803)},
      {"AesOtherVendorIsUnknownWithoutDetail", AesEntry, Rec(0x9901, Aes(2, 3, 8, "XY")), UnknownAes("XY", 2, 0)},
      {"UnknownAesNeedsAesEntry", none, Rec(0x9901, Aes(4, 3, 8)),
       [](const RkZipEntry& e) { EXPECT_EQ(e.UnknownEncryption(), nullptr); }},
      {"UnicodeName", none, Rec(0x7075, Unicode(kCrcAbc, "dir/\xC3\xBC.txt")), NameIs(u"dir\\\u00FC.txt", true)},
      {"UnicodeNameStaleCrc", none, Rec(0x7075, Unicode(kCrcAbc ^ 1, "other")), NameIs(u"abc", false)},
      {"UnicodeComment", none, Rec(0x6375, Unicode(kCrcNote, "\xE2\x82\xAC")),
       [](const RkZipEntry& e) {
         EXPECT_EQ(e.Comment(), RkLib::RkString(u"\u20AC"));
         EXPECT_TRUE(e.hasUnicodeComment);
         EXPECT_FALSE(e.hasUnicodeName);
       }},
      {"UnicodeCommentChecksTheCommentNotTheName", none, Rec(0x6375, Unicode(kCrcAbc, "x")),
       [](const RkZipEntry& e) { EXPECT_FALSE(e.hasUnicodeComment); }},
      {"PkcKind1", none, Rec(0x9902, U8(1) + U8(1) + Le16(3) + "key"),
       [](const RkZipEntry& e) {
         ASSERT_NE(Pkc(e), nullptr);
         EXPECT_EQ(Pkc(e)->kind, 1);
         EXPECT_TRUE(Pkc(e)->hasPublicKey);
         EXPECT_EQ(Pkc(e)->publicKey, "key");
         EXPECT_FALSE(Pkc(e)->hasCertificate);
       }},
      // Without a key of its own, the key is the SHA-1 of the certificate.
      {"PkcKind2", none, Rec(0x9902, U8(1) + U8(2) + Le16(4) + "cert" + Le16(3) + "abc"),
       [](const RkZipEntry& e) {
         ASSERT_NE(Pkc(e), nullptr);
         EXPECT_EQ(Pkc(e)->certificate, "cert");
         EXPECT_EQ(Pkc(e)->signature, "abc");
         EXPECT_EQ(Pkc(e)->publicKey,
                   "\xA9\x99\x3E\x36\x47\x06\x81\x6A\xBA\x3E\x25\x71\x78\x50\xC2\x6C\x9C\xD0\xD8\x9D");
       }},
      {"FileReference", DuplicateEntry, Rec(0x9903, Le32(kReferenceCheck) + kReferenceId),
       ReferenceIs(kReferenceId, false)},
      {"FileReferenceOfAnotherEntryIsBroken", none, Rec(0x9903, Le32(kReferenceCheck) + kReferenceId),
       ReferenceIs(std::string(16, '\0'), true)},
      {"FileReference19BytesGivesNoId", DuplicateEntry, Rec(0x9903, Le32(kReferenceCheck) + kReferenceId.substr(1)),
       ReferenceIs(std::string(16, '\0'), false)},
  };
}

void PrintTo(const ApplyCase& c, std::ostream* os) { *os << c.name; }

class RkZipExtraApply : public ::testing::TestWithParam<ApplyCase> {};

TEST_P(RkZipExtraApply, EntryGetsTheRecordsMeaning) {
  const ApplyCase& c = GetParam();
  RkZipEntry entry = MakeEntry();
  c.setup(entry);
  RkExtra extra;
  extra.Parse(c.bytes);
  extra.ApplyAll(entry, RkExtraContext{"abc", "note"});
  c.check(entry);
}

INSTANTIATE_TEST_SUITE_P(Table, RkZipExtraApply, ::testing::ValuesIn(ApplyCases()),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
