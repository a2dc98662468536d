// The zstd node against frames that the zstd tool makes at test time, at several levels, with and
// without checksum and content size, frames back to back and skippable frames, and against
// frames built by hand that claim a window past the bound.
#include <gtest/gtest.h>

#include "RkCodecTestUtil.h"
#include "RkZstdDecoder.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkZstdDecoder;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr uint32_t kTooLarge = 7017;

class ZstdFiles : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    if (!HaveTool("zstd")) GTEST_SKIP() << "zstd is not installed (scripts/install-deps)";
  }
  // `options` may read from standard input ("<") so that the frame holds no content size.
  Bytes Compress(const Bytes& data, const std::string& options = "-3", bool fromPipe = false) {
    WriteAll(folder_ / "in", data);
    const std::string in = fromPipe ? " < " + folder_ / "in" : " " + folder_ / "in";
    EXPECT_TRUE(Shell("zstd -q -c " + options + in + " > " + folder_ / "in.zst"));
    return ReadAll(folder_ / "in.zst");
  }

  ScratchFolder folder_;
};

struct ZstdRoundTrip {
  const char* name;
  const char* options;
  size_t size;
  bool fromPipe = false;
};

const ZstdRoundTrip kZstdRoundTrips[] = {
    {"Level1", "-1", 400000},
    {"Level3", "-3", 400000},
    {"Level19", "-19", 400000},
    {"Level22Ultra", "--ultra -22", 200000},
    {"NegativeLevel", "--fast=5", 400000},
    {"NoChecksum", "-3 --no-check", 400000},
    {"NoContentSize", "-3", 400000, true},
    {"LongWindow", "--long=27", 400000},
    {"Empty", "-3", 0},
    {"EmptyFromPipe", "-3", 0, true},
    {"OneByte", "-3", 1},
};

class ZstdRoundTrips : public ZstdFiles, public testing::WithParamInterface<std::tuple<ZstdRoundTrip, BufferShape>> {};

TEST_P(ZstdRoundTrips, DecodesWhatTheToolWrote) {
  const auto& [trip, shape] = GetParam();
  const size_t size = shape.Fit(trip.size);
  const Bytes data = SampleData(size, 11);
  const Bytes compressed = Compress(data, trip.options, trip.fromPipe);
  const DecodeResult result =
      Decode<RkZstdDecoder>(compressed, SmallSettings(shape.inputSize), SmallSettings(shape.outputSize));
  EXPECT_TRUE(Decoded(result, data));
  EXPECT_EQ(result.bytesRead, compressed.size());
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, ZstdRoundTrips,
                         testing::Combine(testing::ValuesIn(kZstdRoundTrips), testing::ValuesIn(kBufferShapes)),
                         [](const auto& row) {
                           return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name;
                         });

// A skippable frame: magic 0x184D2A50 to 0x184D2A5F, a 32-bit length, that many bytes.
Bytes Skippable(size_t length) {
  Bytes b = {0x53, 0x2A, 0x4D, 0x18, static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8), 0, 0};
  b.insert(b.end(), length, 0xAB);
  return b;
}

TEST_F(ZstdFiles, FramesBackToBackAreOneOutput) {
  const Bytes a = SampleData(50000, 1), b = SampleData(300, 2);
  const Bytes joined = Concat(
      Concat(Concat(Concat(Skippable(10), Compress(a, "-5")), Compress(b, "-1", true)), Skippable(300)), Compress({}));
  EXPECT_TRUE(Decoded(Decode<RkZstdDecoder>(joined), Concat(a, b)));
  EXPECT_TRUE(Decoded(Decode<RkZstdDecoder>(joined, SmallSettings(1), SmallSettings(9)), Concat(a, b)));
}

// A frame with no content size whose window descriptor (exponent in the high five bits, plus
// 10) claims 2^log bytes, then one raw block of one byte that ends the frame.
Bytes FrameWithWindowLog(int log) {
  return {0x28, 0xB5, 0x2F, 0xFD, 0x00, static_cast<uint8_t>((log - 10) << 3), 0x09, 0x00, 0x00, 'x'};
}

struct ZstdFault {
  const char* name;
  Bytes input;
  uint32_t code;
  uint32_t severity = RkLib::kSeveritySevere;
};

class ZstdFaults : public PipeTest, public testing::WithParamInterface<ZstdFault> {};

TEST_P(ZstdFaults, FailWithTheirCode) {
  EXPECT_TRUE(FailedWith(Decode<RkZstdDecoder>(GetParam().input), GetParam().code, GetParam().severity));
  EXPECT_TRUE(FailedWith(Decode<RkZstdDecoder>(GetParam().input, SmallSettings(1), SmallSettings(1)), GetParam().code,
                         GetParam().severity));
}

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, ZstdFaults,
    testing::Values(ZstdFault{"WindowOf2GiB", FrameWithWindowLog(31), kTooLarge},
                    ZstdFault{"WindowOf4TiB", FrameWithWindowLog(41), kTooLarge},
                    // A single-segment frame's window is its content size: here 2^40 bytes.
                    ZstdFault{"ContentSizeAsWindow",
                              {0x28, 0xB5, 0x2F, 0xFD, 0xE0, 0, 0, 0, 0, 0, 1, 0, 0, 0x09, 0x00, 0x00, 'x'},
                              kTooLarge},
                    ZstdFault{"Empty", {}, kReadPastEnd},
                    ZstdFault{"MagicOnly", {0x28, 0xB5, 0x2F, 0xFD}, kReadPastEnd},
                    ZstdFault{"NotZstd", FromString("this is not a zstd frame"), kBadData},
                    ZstdFault{"ReservedBlockType", {0x28, 0xB5, 0x2F, 0xFD, 0x00, 0x00, 0x07, 0x00, 0x00}, kBadData}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ZstdFiles, TheLargestWindowAllowedDecodes) {
  const Bytes frame = FrameWithWindowLog(RkZstdDecoder::kMaxWindowLog);
  EXPECT_TRUE(Decoded(Decode<RkZstdDecoder>(frame), FromString("x")));
}

struct ZstdDamage {
  const char* name;
  void (*spoil)(Bytes& frame);
  uint32_t code;
};

class ZstdDamaged : public ZstdFiles, public testing::WithParamInterface<ZstdDamage> {};

TEST_P(ZstdDamaged, FailsWithTheCodeOfTheFault) {
  Bytes frame = Compress(SampleData(100000), "-3");
  GetParam().spoil(frame);
  EXPECT_TRUE(FailedWith(Decode<RkZstdDecoder>(frame), GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, ZstdDamaged,
    testing::Values(ZstdDamage{"Truncated",
                               [](Bytes& f) { f.erase(f.begin() + static_cast<long>(f.size() / 2), f.end()); },
                               kReadPastEnd},
                    ZstdDamage{"ChecksumCut", [](Bytes& f) { f.erase(f.end() - 2, f.end()); }, kReadPastEnd},
                    ZstdDamage{"ChecksumFlipped", [](Bytes& f) { f.back() ^= 1; }, kBadData},
                    ZstdDamage{"DataFlipped", [](Bytes& f) { f[f.size() / 2] ^= 0x20; }, kBadData},
                    ZstdDamage{"GarbageAfter",
                               [](Bytes& f) {
                                 f.insert(f.end(), {'j', 'u', 'n', 'k', 0, 0, 0, 0});
                               },
                               kBadData}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(ZstdFiles, AResetNodeDecodesCleanlyAfterAFailure) {
  const Bytes data = SampleData(300000);
  const Bytes good = Compress(data, "-3");
  const RkStreamSettings settings = SmallSettings(4096);
  RkZstdDecoder node(nullptr, nullptr, settings);
  EXPECT_TRUE(FailedWith(RunNode(node, FrameWithWindowLog(31), settings), kTooLarge));
  node.Reset();
  Bytes cut = good;
  cut.erase(cut.end() - 1000, cut.end());
  EXPECT_TRUE(FailedWith(RunNode(node, cut, settings), kReadPastEnd));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, good, settings), data));
}

}  // namespace
}  // namespace RkPipeTest
