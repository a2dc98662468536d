// The xz node against files the xz tool makes at test time, every truncation and bit flip of a
// small file, and records changed field by field with their CRCs made right again.
#include <gtest/gtest.h>

#include "RkCodecTestUtil.h"
#include "RkCrc32.h"
#include "RkXzDecoder.h"
#include "RkXzRead.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkXzDecoder;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr uint32_t kBadHeader = 7016;
constexpr uint32_t kTooLarge = 7017;

void PutLe32(Bytes& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
}
uint32_t Crc(const Bytes& b, size_t at, size_t length) { return RkLib::RkCrc32(0, b.data() + at, length); }

void FixStreamHeader(Bytes& f) { PutLe32(f, 8, Crc(f, 6, 2)); }
void FixFooter(Bytes& f) { PutLe32(f, f.size() - 12, Crc(f, f.size() - 8, 6)); }
void FixBlockHeader(Bytes& f, size_t at) {
  const size_t size = (f[at] + 1u) * 4;
  PutLe32(f, at + size - 4, Crc(f, at, size - 4));
}

constexpr size_t kFirstBlock = 12;
// Change one byte of the first block header and fix its CRC.
void SetBlock(Bytes& f, size_t at, uint8_t v) { f[at] = v, FixBlockHeader(f, kFirstBlock); }
void AddBlock(Bytes& f, size_t at, int v) { SetBlock(f, at, static_cast<uint8_t>(f[at] + v)); }
void OrBlock(Bytes& f, size_t at, uint8_t v) { SetBlock(f, at, static_cast<uint8_t>(f[at] | v)); }

class XzFiles : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    if (!HaveTool("xz")) GTEST_SKIP() << "xz is not installed (scripts/install-deps)";
  }
  Bytes Compress(const Bytes& data, const std::string& options = "") {
    WriteAll(folder_ / "in", data);
    EXPECT_TRUE(Shell("xz -c " + options + " " + folder_ / "in" + " > " + folder_ / "in.xz"));
    return ReadAll(folder_ / "in.xz");
  }

  ScratchFolder folder_;
};

// Incompressible, so LZMA2 stores chunks.
Bytes Noise(size_t size) {
  Bytes out(size);
  uint64_t state = 88172645463325252ull;
  for (uint8_t& b : out) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    b = static_cast<uint8_t>(state);
  }
  return out;
}

struct XzRoundTrip {
  const char* name;
  const char* options;
  size_t size;
  bool noise = false;
};

const XzRoundTrip kXzRoundTrips[] = {
    {"Crc64", "", 300000},
    {"NoCheck", "--check=none", 300000},
    {"Crc32", "--check=crc32", 300000},
    {"Sha256", "--check=sha256", 300000},
    {"BranchX86", "--x86 --lzma2=preset=6", 300000},
    {"BranchArm64", "--arm64 --lzma2", 100000},
    {"X86Delta", "--x86 --delta=dist=4 --lzma2=preset=1", 300000},
    {"ManyBlocks", "--block-size=20000 --check=crc32", 300000},
    // The threaded encoder writes both sizes into every block header.
    {"SizesInHeaders", "-T2 --block-size=50000 --check=sha256", 300000},
    {"StoredChunks", "", 200000, true},
    {"Empty", "", 0},
    {"OneByte", "", 1},
};

class XzRoundTrips : public XzFiles, public testing::WithParamInterface<std::tuple<XzRoundTrip, BufferShape>> {};

TEST_P(XzRoundTrips, DecodesWhatTheToolWrote) {
  const auto& [trip, shape] = GetParam();
  const size_t size = shape.Fit(trip.size);
  const Bytes data = trip.noise ? Noise(size) : SampleData(size, 5);
  const Bytes compressed = Compress(data, trip.options);
  const DecodeResult result =
      Decode<RkXzDecoder>(compressed, SmallSettings(shape.inputSize), SmallSettings(shape.outputSize));
  EXPECT_TRUE(Decoded(result, data));
  EXPECT_EQ(result.bytesRead, compressed.size());
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, XzRoundTrips,
                         testing::Combine(testing::ValuesIn(kXzRoundTrips), testing::ValuesIn(kBufferShapes)),
                         [](const auto& row) {
                           return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name;
                         });

TEST_F(XzFiles, StreamsBackToBackWithPaddingAreOneOutput) {
  const Bytes a = SampleData(30000, 1), b = SampleData(500, 2);
  const Bytes xa = Compress(a), xb = Compress(b, "--check=sha256"), xe = Compress({});
  const Bytes four(4, 0), eight(8, 0);
  const Bytes joined = Concat(Concat(Concat(Concat(Concat(xa, four), xb), xe), eight), xa);
  EXPECT_TRUE(Decoded(Decode<RkXzDecoder>(joined), Concat(Concat(a, b), a)));
  EXPECT_TRUE(Decoded(Decode<RkXzDecoder>(joined, SmallSettings(1), SmallSettings(7)), Concat(Concat(a, b), a)));
}

struct XzTail {
  const char* name;
  Bytes tail;
  uint32_t code;
};

class XzTails : public XzFiles, public testing::WithParamInterface<XzTail> {};

TEST_P(XzTails, WhatFollowsAStreamIsPaddingOrAStream) {
  const Bytes bad = Concat(Compress(SampleData(1000)), GetParam().tail);
  EXPECT_TRUE(FailedWith(Decode<RkXzDecoder>(bad), GetParam().code));
  EXPECT_TRUE(FailedWith(Decode<RkXzDecoder>(bad, SmallSettings(1), SmallSettings(64)), GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, XzTails,
    testing::Values(XzTail{"PaddingOfThree", Bytes(3, 0), kBadHeader},
                    XzTail{"PaddingThenGarbage", Concat(Bytes(4, 0), FromString("garbage and more")), kBadHeader},
                    XzTail{"ShortGarbage", FromString("garbage"), kReadPastEnd},
                    XzTail{"LongGarbage", FromString("garbage after the stream"), kBadHeader},
                    XzTail{"HalfAStreamHeader", {0xFD, '7', 'z', 'X', 'Z', 0}, kReadPastEnd}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(XzFiles, EveryTruncationOfASmallFileIsTooShort) {
  const Bytes good = Compress(FromString("hello, xz"));
  for (size_t n = 0; n < good.size(); ++n) {
    SCOPED_TRACE(n);
    EXPECT_TRUE(
        FailedWith(Decode<RkXzDecoder>(Bytes(good.begin(), good.begin() + static_cast<long>(n))), kReadPastEnd));
  }
}

TEST_F(XzFiles, EveryBitFlipOfASmallFileFails) {
  const Bytes good = Compress(FromString("hello, hello, hello, xz"));
  for (size_t at = 0; at < good.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      Bytes bad = good;
      bad[at] ^= static_cast<uint8_t>(1 << bit);
      const DecodeResult result = Decode<RkXzDecoder>(bad, SmallSettings(16), SmallSettings(16));
      ASSERT_TRUE(result.error) << "byte " << at << " bit " << bit;
      EXPECT_EQ(result.error->severity(), RkLib::kSeveritySevere);
      const uint32_t code = result.error->code();
      EXPECT_TRUE(code == kBadData || code == kBadHeader || code == kTooLarge || code == kReadPastEnd)
          << "byte " << at << " bit " << bit << ": " << code;
    }
  }
}

struct XzField {
  const char* name;
  const char* options;
  void (*change)(Bytes& file);  // changes a field and fixes the CRC over it
  uint32_t code;  // 0: decodes to the original data
};

class XzFields : public XzFiles, public testing::WithParamInterface<XzField> {};

TEST_P(XzFields, AreCheckedForThemselves) {
  const Bytes data = SampleData(3000, 9);
  Bytes file = Compress(data, GetParam().options);
  GetParam().change(file);
  const DecodeResult result = Decode<RkXzDecoder>(file);
  if (GetParam().code == 0) {
    EXPECT_TRUE(Decoded(result, data));
  } else {
    EXPECT_TRUE(FailedWith(result, GetParam().code));
  }
}

// Threaded encoder: size byte, flags, compressed size (2), uncompressed size (2), LZMA2.
constexpr size_t kSizedPacked = kFirstBlock + 2;
constexpr size_t kSizedRaw = kFirstBlock + 4;
constexpr size_t kSizedDict = kFirstBlock + 8;
// Single-threaded: size byte, flags, LZMA2 id, property size, dictionary.
constexpr size_t kPlainDict = kFirstBlock + 4;
const char* const kSized = "-T2 --block-size=1000";

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, XzFields,
    testing::Values(
        // Dictionary byte 40 is 4 GiB - 1 (refused before allocating); 41 is no size.
        XzField{"Dictionary4GiB", "", [](Bytes& f) { SetBlock(f, kPlainDict, 40); }, kTooLarge},
        XzField{"DictionaryByte41", "", [](Bytes& f) { SetBlock(f, kPlainDict, 41); }, kBadHeader},
        XzField{"DictionaryReservedBits", "", [](Bytes& f) { OrBlock(f, kPlainDict, 0x40); }, kBadHeader},
        // With the block's size in its header the window needs no more than that.
        XzField{"Dictionary4GiBForASmallBlock", kSized, [](Bytes& f) { SetBlock(f, kSizedDict, 40); }, 0},
        XzField{"UncompressedSizeSmaller", kSized, [](Bytes& f) { AddBlock(f, kSizedRaw, -1); }, kBadData},
        XzField{"UncompressedSizeLarger", kSized, [](Bytes& f) { AddBlock(f, kSizedRaw, 1); }, kBadData},
        XzField{"CompressedSizeSmaller", kSized, [](Bytes& f) { AddBlock(f, kSizedPacked, -1); }, kBadData},
        XzField{"CompressedSizeLarger", kSized, [](Bytes& f) { AddBlock(f, kSizedPacked, 1); }, kBadData},
        XzField{"BlockFlagsReserved", "", [](Bytes& f) { OrBlock(f, kFirstBlock + 1, 0x10); }, kBadHeader},
        XzField{"BlockHeaderPadding", "", [](Bytes& f) { SetBlock(f, kFirstBlock + 6, 1); }, kBadHeader},
        XzField{"UnknownFilter", "", [](Bytes& f) { SetBlock(f, kFirstBlock + 2, 0x30); }, kBadHeader},
        // Two filters, LZMA2 then delta (distance 1): LZMA2 must be last.
        XzField{"Lzma2NotLast", "", [](Bytes& f) {
                  f[kFirstBlock + 1] = 1, f[kFirstBlock + 5] = 3, f[kFirstBlock + 6] = 1, f[kFirstBlock + 7] = 0;
                  FixBlockHeader(f, kFirstBlock); }, kBadHeader},
        XzField{"StreamFlagsReserved", "", [](Bytes& f) { f[6] = 1, FixStreamHeader(f); }, kBadHeader},
        XzField{"FooterCheckTypeDiffers", "", [](Bytes& f) { f[f.size() - 3] = 1, FixFooter(f); }, kBadHeader},
        XzField{"BackwardSizeDiffers", "", [](Bytes& f) { f[f.size() - 8] += 1, FixFooter(f); }, kBadHeader},
        XzField{"CheckValue", "--check=crc32", [](Bytes& f) { f[f.size() - 12 - 12 - 1] ^= 1; }, kBadData},
        // Check types without a verifier are skipped by size: 2 is 4 bytes like CRC32.
        XzField{"ReservedCheckType", "--check=crc32",
                [](Bytes& f) { f[7] = 2, FixStreamHeader(f), f[f.size() - 3] = 2, FixFooter(f); }, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(XzFiles, AResetNodeDecodesCleanlyAfterAFailure) {
  const Bytes data = SampleData(400000);
  const Bytes good = Compress(data, "--block-size=100000");
  Bytes bad = good;
  bad[good.size() / 2] ^= 0x55;
  const RkStreamSettings settings = SmallSettings(4096);
  RkXzDecoder node(nullptr, nullptr, settings);
  EXPECT_TRUE(RunNode(node, bad, settings).error);
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, good, settings), data));
}

// ---- The block header parser on its own: `fields` after the size byte, padded, CRC32 closed.
Bytes BlockHeader(const Bytes& fields) {
  Bytes b = {0};
  b.insert(b.end(), fields.begin(), fields.end());
  while ((b.size() + 4) % 4 != 0) b.push_back(0);
  b[0] = static_cast<uint8_t>((b.size() + 4) / 4 - 1);
  b.resize(b.size() + 4);
  PutLe32(b, b.size() - 4, Crc(b, 0, b.size() - 4));
  return b;
}

struct HeaderCase {
  const char* name;
  Bytes fields;
  uint32_t code;  // 0: parses
};

class XzBlockHeaders : public testing::TestWithParam<HeaderCase> {};

TEST_P(XzBlockHeaders, ParseOrFailWithTheirCode) {
  const Bytes header = BlockHeader(GetParam().fields);
  try {
    const RkPipeLib::RkXzBlockHeader parsed =
        RkPipeLib::RkXzParseBlockHeader(header.data(), static_cast<uint32_t>(header.size()), 8);
    RkPipeLib::RkXzFltRead chain;
    chain.Set(parsed);
    EXPECT_EQ(GetParam().code, 0u);
  } catch (const RkLib::RkError& e) {
    EXPECT_EQ(e.code(), GetParam().code);
    EXPECT_EQ(e.severity(), RkLib::kSeveritySevere);
  }
}

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, XzBlockHeaders,
    testing::Values(HeaderCase{"Lzma2", {0x00, 0x21, 0x01, 0x16}, 0},
                    HeaderCase{"BothSizes", {0xC0, 0x80, 0x01, 0x05, 0x21, 0x01, 0x16}, 0},
                    HeaderCase{"X86WithStartOffset", {0x01, 0x04, 0x04, 1, 2, 3, 4, 0x21, 0x01, 0x16}, 0},
                    HeaderCase{
                        "FourFilters", {0x03, 0x03, 0x01, 0x00, 0x04, 0x00, 0x03, 0x01, 0x01, 0x21, 0x01, 0x16}, 0},
                    HeaderCase{"CompressedSizeZero", {0x40, 0x00, 0x21, 0x01, 0x16}, kBadHeader},
                    // A VLI of ten bytes, and one that ends with a needless zero.
                    HeaderCase{"VliTooLong",
                               {0x40, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01, 0x21, 0x01, 0x16},
                               kBadHeader},
                    HeaderCase{"VliNeedlessZero", {0x80, 0x81, 0x00, 0x21, 0x01, 0x16}, kBadHeader},
                    // The largest VLI leaves no room for the header and check in the unpadded size.
                    HeaderCase{"CompressedSizePastTheLimit",
                               {0x40, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 0x21, 0x01, 0x16},
                               kTooLarge},
                    HeaderCase{"PropertiesPastTheHeader", {0x00, 0x21, 0x09, 0x16}, kBadHeader},
                    HeaderCase{"FilterIdReserved",
                               {0x00, 0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x40, 0x05, 0x5D, 0, 0, 1, 0},
                               kBadHeader},
                    HeaderCase{"Lzma2PropertiesOfTwoBytes", {0x00, 0x21, 0x02, 0x16, 0x00}, kBadHeader},
                    HeaderCase{"DeltaDistanceMissing", {0x01, 0x03, 0x00, 0x21, 0x01, 0x16}, kBadHeader},
                    HeaderCase{"NoLzma2AtTheEnd", {0x00, 0x03, 0x01, 0x00}, kBadHeader},
                    HeaderCase{"ReservedFlag", {0x20, 0x21, 0x01, 0x16}, kBadHeader},
                    HeaderCase{"NonZeroPadding", {0x00, 0x21, 0x01, 0x16, 0x01}, kBadHeader}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace RkPipeTest
