#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "RkArcTestUtil.h"
#include "RkArchiveFactory.h"
#include "RkArchiveType.h"
#include "RkReadBuf.h"
#include "RkSpanIn.h"
#include "RkZipCharset.h"
#include "RkZipCursor.h"
#include "RkZipDirReader.h"

using namespace RkArcLib;
using RkArcTest::ScratchFolder;
using RkLib::FidString;

namespace {

// Little-endian fields, each as {width in bytes, value}.
std::string Le(std::initializer_list<std::pair<int, uint64_t>> fields) {
  std::string s;
  for (const auto& [width, value] : fields) {
    for (int i = 0; i < width; ++i) s.push_back(static_cast<char>(value >> (8 * i)));
  }
  return s;
}

// Made by Unix 3.0, needs 2.0, deflate, 12:00 on 2025-01-01, CRC 0x12345678, sizes 10 and 20,
// part 0, mode 0100644.
std::string Central(const std::string& name, const std::string& extra = "", const std::string& comment = "",
                    uint32_t localOffset = 0) {
  return Le({{4, kZipSigCentral}, {2, 0x031E}, {2, 20}, {2, 0}, {2, 8}, {2, 0x6000}, {2, 0x5A21}, {4, 0x12345678},
             {4, 10}, {4, 20}, {2, name.size()}, {2, extra.size()}, {2, comment.size()}, {2, 0}, {2, 0},
             {4, 0x81A40000}, {4, localOffset}}) +
         name + extra + comment;
}

struct End {
  uint32_t thisPart = 0, cdirStartPart = 0, entriesThisPart = 0, entriesTotal = 0;
  uint32_t cdirSize = 0, cdirOffset = 0;
  std::string comment;
  int commentLength = -1;  // -1: the comment's own length
};

std::string EndRecord(const End& e) {
  return Le({{4, kZipSigEnd}, {2, e.thisPart}, {2, e.cdirStartPart}, {2, e.entriesThisPart}, {2, e.entriesTotal},
             {4, e.cdirSize}, {4, e.cdirOffset},
             {2, e.commentLength < 0 ? e.comment.size() : static_cast<uint64_t>(e.commentLength)}}) +
         e.comment;
}

// Local data that the directory reader never looks at, then the central records, then the end.
std::string Zip(const std::vector<std::string>& names, End e = End(), int countDelta = 0) {
  std::string data = "local headers are not read here";
  std::string cdir;
  for (const std::string& n : names) cdir += Central(n);
  e.cdirOffset = static_cast<uint32_t>(data.size());
  e.cdirSize = static_cast<uint32_t>(cdir.size());
  e.entriesThisPart = e.entriesTotal = static_cast<uint32_t>(static_cast<int>(names.size()) + countDelta);
  return data + cdir + EndRecord(e);
}

struct Message {
  uint32_t level;
  uint32_t id;
  int64_t number;
};

class RkZipDirReaderTest : public testing::Test {
 protected:
  RkZipDirReader& Open(const std::string& bytes, int charsetMode = kZipCharsetAuto) {
    span_ = std::make_shared<RkSpanIn>();
    EXPECT_TRUE(span_->Open(dir_.Write("a.zip", bytes), 32768, 64));
    reader_ = std::make_unique<RkZipDirReader>(
        span_,
        [this](uint32_t level, uint32_t id, int64_t number) {
          messages_.push_back({level, id, number});
        },
        charsetMode);
    return *reader_;
  }
  // The code thrown by `step`, 0 when it went through.
  template <typename Step>
  uint32_t CodeOf(Step step) {
    try {
      step();
    } catch (const RkLib::RkError& e) {
      EXPECT_TRUE(e.isFatal());
      return e.code();
    }
    return 0;
  }
  std::vector<std::string> WalkNames(int64_t first = 0, int64_t last = -1) {
    std::vector<std::string> names;
    reader_->Walk(first, last, [&](uint64_t index, const RkZipRecord& r) {
      names.push_back(std::to_string(index) + ":" + std::string(r.name));
    });
    return names;
  }

  ScratchFolder dir_;
  std::shared_ptr<RkSpanIn> span_;
  std::unique_ptr<RkZipDirReader> reader_;
  std::vector<Message> messages_;
};

TEST_F(RkZipDirReaderTest, EmptyArchiveHasNoRecords) {
  RkZipDirReader& reader = Open(EndRecord(End()));
  reader.Locate();
  EXPECT_TRUE(reader.EndRecord().found);
  EXPECT_EQ(reader.EndRecord().location.offset, 0u);
  EXPECT_EQ(span_->LastPart(), 0);
  EXPECT_TRUE(WalkNames().empty());
}

TEST_F(RkZipDirReaderTest, WalksRecordsWithTheirFieldsAndPlaces) {
  std::string prefix = "xx";
  std::string cdir = Central("a.txt", std::string("\x55\x54\x01\x00\x01", 5), "note") + Central("dir/b");
  End e;
  e.entriesThisPart = e.entriesTotal = 2;
  e.cdirOffset = 2;
  e.cdirSize = static_cast<uint32_t>(cdir.size());
  e.comment = "archive comment";
  RkZipDirReader& reader = Open(prefix + cdir + EndRecord(e));
  reader.Locate();
  EXPECT_EQ(reader.EndRecord().comment, RkLib::RkString(u"archive comment"));
  EXPECT_EQ(reader.EndRecord().location.offset, prefix.size() + cdir.size());
  std::vector<RkZipRecord> seen;
  std::vector<std::string> texts;
  reader.Walk(-1, -1, [&](uint64_t, const RkZipRecord& r) {
    seen.push_back(r);
    texts.push_back(std::string(r.name) + "|" + std::string(r.extra).substr(0, 2) + "|" +
                    std::string(r.comment));
  });
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(texts[0], "a.txt|UT|note");
  EXPECT_EQ(texts[1], "dir/b||");
  EXPECT_EQ(seen[0].location.offset, 2u);
  EXPECT_EQ(seen[1].location.offset, 2u + 46 + 5 + 5 + 4);
  EXPECT_EQ(seen[0].header.method, 8);
  EXPECT_EQ(seen[0].header.crc, 0x12345678u);
  EXPECT_EQ(seen[0].header.originalSize64, 20u);
  EXPECT_EQ(seen[0].header.HostSystem(), 3);
  EXPECT_EQ(seen[0].header.externalAttributes, 0x81A40000u);
}

TEST_F(RkZipDirReaderTest, RangedWalkSkipsOutsideRecords) {
  Open(Zip({"a", "b", "c", "d"})).Locate();
  EXPECT_EQ(WalkNames(1, 2), (std::vector<std::string>{"1:b", "2:c"}));
  EXPECT_EQ(WalkNames(2, -1), (std::vector<std::string>{"2:c", "3:d"}));
}

// A comment longer than the file is cut, with a note; NULs are trimmed at the end, blanked inside.
TEST_F(RkZipDirReaderTest, CommentIsCutToTheFileAndItsNulsTrimmedAndBlanked) {
  End e;
  e.comment = std::string("a\0b\0\0", 5);
  e.commentLength = 7;
  RkZipDirReader& reader = Open(EndRecord(e));
  reader.Locate();
  EXPECT_EQ(reader.EndRecord().commentLength, 5);
  EXPECT_EQ(reader.EndRecord().rawComment, e.comment);
  EXPECT_EQ(reader.EndRecord().comment, RkLib::RkString(u"a b"));
  ASSERT_EQ(messages_.size(), 1u);
  EXPECT_EQ(messages_[0].id, kZipMsgCommentCut);
  EXPECT_EQ(messages_[0].level, 0u);
}

TEST_F(RkZipDirReaderTest, LastEndRecordWinsEvenInsideAComment) {
  End fake;
  fake.entriesTotal = fake.entriesThisPart = 2;
  End e;
  e.comment = EndRecord(fake) + "tail";
  const std::string zip = Zip({"a"}, e);
  RkZipDirReader& reader = Open(zip);
  reader.Locate();
  EXPECT_EQ(reader.EndRecord().entriesTotal, 2u);
  EXPECT_EQ(reader.EndRecord().location.offset, zip.size() - 4 - 22);
  EXPECT_EQ(CodeOf([&] { WalkNames(); }), kZipErrNotZip);  // its offset 0 holds no central record
  ASSERT_FALSE(messages_.empty());
  EXPECT_EQ(messages_.back().id, kZipMsgFirstNotCentral);
}

std::string Z64(uint64_t entries, uint64_t cdirSize, uint64_t cdirOffset, uint16_t versionNeeded = 45) {
  return Le({{4, kZipSigZ64End}, {8, 44}, {2, 45}, {2, versionNeeded}, {4, 0}, {4, 0}, {8, entries}, {8, entries},
             {8, cdirSize}, {8, cdirOffset}});
}

std::string Locator(uint64_t z64Offset, uint32_t part = 0) {
  return Le({{4, kZipSigZ64Locator}, {4, part}, {8, z64Offset}, {4, 1}});
}

// Three records whose end record defers count, size and offset to the zip64 record.
std::string Zip64(uint16_t versionNeeded = 45, uint32_t locatorPart = 0, End e = End(), uint64_t entries = 3) {
  std::string cdir = Central("a") + Central("b") + Central("c");
  const std::string head = "data";
  std::string zip = head + cdir;
  const uint64_t z64At = zip.size();
  zip += Z64(entries, cdir.size(), head.size(), versionNeeded) + Locator(z64At, locatorPart);
  if (e.entriesTotal == 0) e.entriesTotal = e.entriesThisPart = 0xFFFF;
  e.cdirSize = e.cdirOffset = 0xFFFFFFFF;
  return zip + EndRecord(e);
}

TEST_F(RkZipDirReaderTest, Zip64RecordReplacesTheAllOnesFields) {
  RkZipDirReader& reader = Open(Zip64());
  reader.Locate();
  EXPECT_TRUE(reader.EndRecord().isZip64);
  EXPECT_TRUE(reader.Z64Locator().found);
  EXPECT_EQ(reader.EndRecord().entriesTotal, 3u);
  EXPECT_EQ(reader.EndRecord().cdirOffset, 4u);
  EXPECT_EQ(reader.EndRecord().entriesTotalRead, 0xFFFF);
  EXPECT_EQ(WalkNames(), (std::vector<std::string>{"0:a", "1:b", "2:c"}));
}

TEST_F(RkZipDirReaderTest, LocatorIsIgnoredWithoutAnAllOnesField) {
  std::string zip = Zip64();
  End e;
  e.entriesTotal = e.entriesThisPart = 3;
  e.cdirOffset = 4;
  e.cdirSize = 3 * 47;
  zip.replace(zip.size() - 22, 22, EndRecord(e));
  RkZipDirReader& reader = Open(zip);
  reader.Locate();
  EXPECT_FALSE(reader.EndRecord().isZip64);
  EXPECT_FALSE(reader.Z64Locator().found);
  EXPECT_EQ(WalkNames().size(), 3u);
}

TEST_F(RkZipDirReaderTest, HugeCountIsRefusedBeforeItSizesAnything) {
  RkZipDirReader& reader = Open(Zip64(45, 0, End(), uint64_t{1} << 40));
  reader.Locate();
  EXPECT_EQ(reader.EndRecord().entriesTotal, uint64_t{1} << 40);
  int visited = 0;
  EXPECT_EQ(CodeOf([&] { reader.Walk(0, -1, [&](uint64_t, const RkZipRecord&) { ++visited; }); }),
            kZipErrHeaderEof);
  EXPECT_EQ(visited, 0);
}

// Damaged directories: the code that finding the end and walking its records raises, and the last
// message, which says why (no message at all for 0).
struct DamageCase {
  const char* name;
  std::string bytes;
  uint32_t code;
  uint32_t message;
  int64_t number = -1;  // the message's number, where it matters
  int64_t last = -1;    // the walk's last record
};

void PrintTo(const DamageCase& c, std::ostream* os) { *os << c.name; }

std::vector<DamageCase> DamageCases() {
  // The name length of the second record claims bytes that the file does not have.
  std::string cut = Central("name") + Central("second");
  cut[46 + 4 + 28] = cut[46 + 4 + 29] = static_cast<char>(0xFF);
  End two;
  two.entriesTotal = two.entriesThisPart = 2;
  return {
      {"TwentyOneBytesAreNoZip", EndRecord(End()).substr(0, 21), kZipErrNotZip, kZipMsgNoEndRecord},
      {"HeaderSignatureAfterTheComment", Zip({"a"}) + Le({{4, kZipSigLocal}}), kZipErrNotZip, kZipMsgNoEndRecord},
      {"JunkAfterTheEndRecord", Zip({"a"}) + "junk", 0, 0},
      // A self-extractor stub before offsets that were not moved by its length.
      {"DirectoryOffsetNotAtACentralRecord", "MZ self-extractor stub" + Zip({"a", "b"}), kZipErrNotZip,
       kZipMsgFirstNotCentral},
      {"CountOneTooLowIsTooManyRecords", Zip({"a", "b", "c"}, End(), -1), kZipErrTooManyRecords, kZipMsgTooManyRecords},
      {"CountOneTooHighMeetsTheEndRecord", Zip({"a", "b"}, End(), 1), kZipErrNotZip, kZipMsgNotCentral, 3},
      {"EmptyNameIsABadRecord", Zip({"a", ""}), kZipErrBadHeader, kZipMsgBadRecord, 2},
      {"EmptyNameSkippedIsNoZip", Zip({"a", ""}), kZipErrNotZip, kZipMsgNotCentral, -1, 0},
      {"RecordCutByTheEndOfFile", cut + EndRecord(two), kZipErrHeaderEof, kZipMsgShortRecord},
      // The zip64 record keeps the counts that did not overflow: three records are too many.
      {"Zip64LeavesCountsThatDidNotOverflow", Zip64(45, 0, two), kZipErrTooManyRecords, kZipMsgTooManyRecords},
      {"Zip64EncipheredDirectory", Zip64(62), kZipErrEncryptedCdir, kZipMsgEncryptedCdir},
      {"Zip64NewerVersion", Zip64(0x0363), kZipErrNewerVersion, kZipMsgNewerVersion, 0x63},
      {"Zip64RecordOfAnotherPartRefusedSilently", Zip64(45, 1), kZipErrNotZip, 0},
  };
}

class RkZipDirReaderDamage : public RkZipDirReaderTest, public testing::WithParamInterface<DamageCase> {};

TEST_P(RkZipDirReaderDamage, RaisesItsCodeWithItsMessage) {
  const DamageCase& c = GetParam();
  EXPECT_EQ(CodeOf([&] {
              Open(c.bytes).Locate();
              WalkNames(0, c.last);
            }),
            c.code);
  if (c.message == 0) {
    EXPECT_TRUE(messages_.empty()) << messages_.front().id;
    return;
  }
  ASSERT_FALSE(messages_.empty());
  EXPECT_EQ(messages_.back().id, c.message);
  if (c.number >= 0) {
    EXPECT_EQ(messages_.back().number, c.number);
  }
}

INSTANTIATE_TEST_SUITE_P(Table, RkZipDirReaderDamage, testing::ValuesIn(DamageCases()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(RkReadBufTest, ReadsSkipsAndSeeksAcrossRefills) {
  ScratchFolder dir;
  std::string bytes;
  for (int i = 0; i < 1000; ++i) bytes.push_back(static_cast<char>(i % 251));
  auto span = std::make_shared<RkSpanIn>();
  ASSERT_TRUE(span->Open(dir.Write("data", bytes), 32768, 64));
  span->SetPartNumbers(0, 0);
  ASSERT_TRUE(span->Seek(-1, 990) >= 0);  // the buffer must not trust where the file stands
  RkReadBuf buf(span, 64);
  ASSERT_TRUE(buf.Seek(0, 100));
  uint8_t out[200];
  ASSERT_EQ(buf.Read(out, 200), 200u);
  EXPECT_EQ(out[0], 100);
  EXPECT_EQ(out[199], (299 % 251));
  EXPECT_EQ(buf.CurrentOffset(), 300u);
  EXPECT_EQ(buf.Read(nullptr, 650), 650u);
  EXPECT_EQ(buf.CurrentOffset(), 950u);
  ASSERT_TRUE(buf.Seek(0, 940));  // inside the window
  ASSERT_EQ(buf.Read(out, 1), 1u);
  EXPECT_EQ(out[0], 940 % 251);
  ASSERT_TRUE(buf.Seek(0, 10));  // before it
  ASSERT_EQ(buf.Read(out, 1), 1u);
  EXPECT_EQ(out[0], 10);
  ASSERT_TRUE(buf.Seek(0, 995));
  EXPECT_EQ(buf.Read(out, 100), 5u);
  EXPECT_TRUE(buf.EofHit());
  EXPECT_FALSE(buf.ReadFailed());
  EXPECT_FALSE(buf.NextPart());  // a single file has no next part
  EXPECT_FALSE(buf.CrossedPart());
}

TEST(RkSpanInTest, SingleFileIgnoresPartsAndRefusesNegativeSeeks) {
  ScratchFolder dir;
  RkSpanIn span;
  EXPECT_FALSE(span.Open(dir.Fid("missing.zip"), 32768, 64));
  ASSERT_TRUE(span.Open(dir.Write("a.ZIPX", "0123456789"), 32768, 64));
  EXPECT_TRUE(span.IsZipx());
  EXPECT_EQ(span.PartSize(), 10u);
  EXPECT_EQ(span.CurrentPart(), -1);
  span.SetPartNumbers(0, 0);
  span.SetPartNumbers(-1, -1);
  EXPECT_EQ(span.LastPart(), 0);
  EXPECT_EQ(span.Seek(7, 4), 4);
  char c = 0;
  EXPECT_EQ(span.Read(&c, 1), 1);
  EXPECT_EQ(c, '4');
  EXPECT_EQ(span.Seek(0, -3, RkLib::RkSeekFrom::kEnd), 7);
  EXPECT_EQ(span.Seek(0, -11, RkLib::RkSeekFrom::kEnd), -1);
}

TEST(RkZipCursorTest, ReadsInOrderAndRefusesToRunPastTheEnd) {
  const uint8_t bytes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  RkZipCursor cursor(bytes, sizeof bytes);
  EXPECT_EQ(cursor.U8(), 1);
  EXPECT_EQ(cursor.U16(), 0x0302);
  EXPECT_EQ(cursor.U32(), 0x07060504u);
  EXPECT_EQ(cursor.U64(), 0x0F0E0D0C0B0A0908u);
  EXPECT_EQ(cursor.Remaining(), 0u);
  try {
    cursor.U8();
    ADD_FAILURE() << "read past the end";
  } catch (const RkLib::RkError& e) {
    EXPECT_EQ(e.code(), kZipErrHeaderEof);
  }
}

TEST(RkZipCharsetTest, NamesAreReadByFlagHostAndMode) {
  const struct {
    const char* name;
    std::string raw;
    uint16_t versionMadeBy;
    uint16_t flags;
    int mode;
    std::u16string expected;
  } cases[] = {
      {"DosHostIsOem", "\x84rger.txt", 0x0014, 0, kZipCharsetAuto, u"\u00E4rger.txt"},
      {"HpfsHostIsOem", "\x84", 0x0614, 0, kZipCharsetAuto, u"\u00E4"},
      {"NtfsVersion50IsOem", "\x84", 0x0B32, 0, kZipCharsetAuto, u"\u00E4"},
      {"NtfsOtherVersionDetects", "caf\xE9", 0x0B3F, 0, kZipCharsetAuto, u"caf\u00E9"},
      {"OtherHostIsAnsi", "\xE4", 0x0714, 0, kZipCharsetAuto, u"\u00E4"},
      {"FlagMeansUtf8", "\xC3\xA4", 0x0014, kZipFlagUtf8, kZipCharsetAuto, u"\u00E4"},
      {"UnixHostMeansUtf8", "\xC3\xA4", 0x0314, 0, kZipCharsetAuto, u"\u00E4"},
      {"UnixBeatsTheOemSetting", "\xC3\xA4", 0x0314, 0, kZipCharsetOem, u"\u00E4"},
      {"OemSetting", "\x84", 0x0B3F, 0, kZipCharsetOem, u"\u00E4"},
      {"AnsiSetting", "\xE4", 0x0014, 0, kZipCharsetAnsi, u"\u00E4"},
      {"Utf8Setting", "\xC3\xA4", 0x0014, 0, kZipCharsetUtf8, u"\u00E4"},
      {"InnerNulBecomesUnderscore", std::string("a\0b\0", 4), 0x0314, 0, kZipCharsetAuto, u"a_b"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(RkZipDecodeName(c.raw, c.versionMadeBy, c.flags, c.mode), RkLib::RkString(c.expected))
        << c.name;
  }
}

TEST(RkZipCharsetTest, OemReadingWinsOnlyWhenItIsCleanLetters) {
  EXPECT_EQ(RkZipOemDetect("caf\xE9"), RkLib::RkString(u"caf\u00E9"));      // ANSI already clean
  EXPECT_EQ(RkZipOemDetect("M\x81ller"), RkLib::RkString(u"M\u00FCller"));  // no ANSI letter at 0x81
  EXPECT_EQ(RkZipOemDetect("x\xB0y"), RkLib::RkString(u"x\u00B0y"));        // OEM gives a box-drawing shade
  EXPECT_EQ(RkZipDecodeComment("\x81", kZipCharsetOem), RkLib::RkString(u"\u00FC"));
  EXPECT_EQ(RkZipDecodeComment("\xC3\xBC", kZipCharsetUtf8), RkLib::RkString(u"\u00FC"));
  EXPECT_EQ(RkZipTrimText(std::string("a\0b\0\0", 5), '_'), "a_b");
  EXPECT_EQ(RkZipTrimText(std::string("\0\0", 2), '_'), "");
}

// Every file of the corpus, archives of all kinds, images and damaged inputs alike: the type tests
// and the directory reader answer or refuse, and nothing escapes but our own errors. Some zips have
// the counts another reader lists, or the code this reader must give.
TEST(RkZipDirReaderCorpusTest, EveryCorpusFileIsAnsweredOrRefused) {
  const std::filesystem::path corpus = RK_CORPUS_DIR;
  if (!std::filesystem::is_directory(corpus)) GTEST_SKIP() << "no test corpus at " << corpus;
  std::map<std::string, std::pair<uint64_t, uint32_t>> known = {
      {"go-zip/test.zip", {2, 0}},
      {"go-zip/zip64.zip", {1, 0}},
      {"go-zip/zip64-2.zip", {1, 0}},
      {"go-zip/winxp.zip", {4, 0}},
      {"go-zip/dd.zip", {1, 0}},
      {"go-zip/test-trailing-junk.zip", {2, 0}},
      {"go-zip/test-baddirsz.zip", {2, 0}},
      {"go-zip/FuzzReader-raw.zip", {364, 0}},
      {"go-zip/test-prefix.zip", {0, kZipErrNotZip}},  // stub before offsets that were not moved
      {"go-zip/readme.notzip", {0, kZipErrNotZip}},
  };
  size_t files = 0, walked = 0;
  for (const auto& item : std::filesystem::recursive_directory_iterator(corpus)) {
    if (!item.is_regular_file()) continue;
    ++files;
    const FidString path = FidString::FromPosix(item.path().string());
    const int type = RkArchiveFactory::TestContent(path);
    EXPECT_TRUE(type >= 0 && type <= kArcTypeLast) << item.path();
    auto span = std::make_shared<RkSpanIn>();
    if (!span->Open(path, 32768, 64)) continue;
    RkZipDirReader reader(span, nullptr, kZipCharsetAuto);
    uint64_t seen = 0;
    uint32_t code = 0;
    try {
      reader.Locate();
      reader.Walk(0, -1, [&](uint64_t, const RkZipRecord& r) {
        ++seen;
        EXPECT_FALSE(r.name.empty());
      });
      EXPECT_EQ(seen, reader.EndRecord().entriesTotal) << item.path();
      ++walked;
    } catch (const RkLib::RkError& e) {
      code = e.isFatal() ? e.code() : UINT32_MAX;  // a failure that is not fatal matches no row
    }
    const auto expected = known.find(item.path().lexically_relative(corpus).string());
    if (expected == known.end()) continue;
    EXPECT_EQ(code, expected->second.second) << item.path();
    if (code == 0) {
      EXPECT_EQ(seen, expected->second.first) << item.path();
    }
    known.erase(expected);
  }
  EXPECT_GT(files, 0u);
  EXPECT_GT(walked, 0u);
  for (const auto& [file, counts] : known) ADD_FAILURE() << "corpus file missing: " << file;
}

}  // namespace
