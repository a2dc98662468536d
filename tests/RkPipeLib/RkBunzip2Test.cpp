// The bzip2 node against files that the bzip2 tool makes at test time: whole, concatenated,
// followed by other bytes, and damaged, through buffers of every shape.
#include <gtest/gtest.h>

#include "RkBunzip2.h"
#include "RkCodecTestUtil.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkBunzip2;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;

class Bzip2Files : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    if (!HaveTool("bzip2")) GTEST_SKIP() << "bzip2 is not installed (scripts/install-deps)";
  }
  // The tool's output for `data` at `level`.
  Bytes Compress(const Bytes& data, int level = 9) {
    WriteAll(folder_ / "in", data);
    EXPECT_TRUE(Shell("bzip2 -" + std::to_string(level) + " -c " + folder_ / "in" + " > " + folder_ / "in.bz2"));
    return ReadAll(folder_ / "in.bz2");
  }

  ScratchFolder folder_;
};

struct Bzip2RoundTrip {
  const char* name;
  size_t size;
  int level;
};

class Bzip2RoundTrips : public Bzip2Files,
                        public testing::WithParamInterface<std::tuple<Bzip2RoundTrip, BufferShape>> {};

TEST_P(Bzip2RoundTrips, DecodesWhatTheToolWrote) {
  const auto& [trip, shape] = GetParam();
  const size_t size = shape.Fit(trip.size);
  const Bytes data = SampleData(size, static_cast<uint32_t>(trip.level));
  const Bytes compressed = Compress(data, trip.level);
  const DecodeResult result =
      Decode<RkBunzip2>(compressed, SmallSettings(shape.inputSize), SmallSettings(shape.outputSize));
  EXPECT_TRUE(Decoded(result, data));
  EXPECT_EQ(result.bytesRead, compressed.size());
}

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, Bzip2RoundTrips,
    testing::Combine(testing::Values(Bzip2RoundTrip{"Empty", 0, 9}, Bzip2RoundTrip{"OneByte", 1, 9},
                                     Bzip2RoundTrip{"Small", 3000, 1},
                                     // Three blocks of 100 kB at level 1, one at 9.
                                     Bzip2RoundTrip{"ThreeBlocksLevel1", 250000, 1},
                                     Bzip2RoundTrip{"OneBlockLevel9", 250000, 9}),
                     testing::ValuesIn(kBufferShapes)),
    [](const auto& row) { return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name; });

TEST_F(Bzip2Files, ConcatenatedStreamsAreOneOutput) {
  const Bytes a = SampleData(40000, 1), b = SampleData(1000, 2), c = SampleData(0);
  const Bytes joined = Concat(Concat(Compress(a), Compress(b, 1)), Compress(c));
  EXPECT_TRUE(Decoded(Decode<RkBunzip2>(joined), Concat(a, b)));
  EXPECT_TRUE(Decoded(Decode<RkBunzip2>(joined, SmallSettings(1), SmallSettings(5)), Concat(a, b)));
}

TEST_F(Bzip2Files, BytesAfterTheLastStreamWithoutTheSignatureAreLeftAlone) {
  const Bytes data = SampleData(5000);
  const Bytes compressed = Compress(data);
  using namespace std::string_literals;
  for (const std::string& tail : {"garbage"s, "BZh0"s, "\0\0\0\0"s, "Bx"s}) {
    SCOPED_TRACE(tail);
    const DecodeResult result = Decode<RkBunzip2>(Concat(compressed, FromString(tail)));
    EXPECT_TRUE(Decoded(result, data));
  }
}

struct Bzip2Damage {
  const char* name;
  // Makes the bad input from a good one.
  Bytes (*make)(const Bytes& good);
  uint32_t code;
};

Bytes Truncated(const Bytes& good) { return Bytes(good.begin(), good.begin() + static_cast<long>(good.size() / 2)); }
Bytes LastByteMissing(const Bytes& good) { return Bytes(good.begin(), good.end() - 1); }
Bytes DataByteFlipped(const Bytes& good) {
  Bytes bad = good;
  bad[bad.size() / 2] ^= 0x10;
  return bad;
}
Bytes StreamCrcFlipped(const Bytes& good) {
  Bytes bad = good;
  bad[bad.size() - 2] ^= 0x01;  // the combined CRC ends the stream, before the bit padding
  return bad;
}
Bytes LevelZero(const Bytes& good) {
  Bytes bad = good;
  bad[3] = '0';
  return bad;
}
Bytes NotBzip2(const Bytes&) { return FromString("PK\x03\x04 not bzip2 at all"); }
Bytes Nothing(const Bytes&) { return {}; }
Bytes SignatureAfterStream(const Bytes& good) { return Concat(good, FromString("BZ")); }
Bytes BadStreamAfterStream(const Bytes& good) { return Concat(good, FromString("BZh9\x31\x41xx")); }

class Bzip2Damaged : public Bzip2Files, public testing::WithParamInterface<Bzip2Damage> {};

TEST_P(Bzip2Damaged, FailsWithTheCodeOfTheFault) {
  const Bytes good = Compress(SampleData(150000), 1);
  const Bytes bad = GetParam().make(good);
  EXPECT_TRUE(FailedWith(Decode<RkBunzip2>(bad), GetParam().code));
  EXPECT_TRUE(FailedWith(Decode<RkBunzip2>(bad, SmallSettings(997), SmallSettings(1000)), GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, Bzip2Damaged,
                         testing::Values(Bzip2Damage{"Truncated", Truncated, kReadPastEnd},
                                         Bzip2Damage{"LastByteMissing", LastByteMissing, kReadPastEnd},
                                         Bzip2Damage{"Empty", Nothing, kReadPastEnd},
                                         Bzip2Damage{"SignatureAfterStream", SignatureAfterStream, kReadPastEnd},
                                         Bzip2Damage{"DataByteFlipped", DataByteFlipped, kBadData},
                                         Bzip2Damage{"StreamCrcFlipped", StreamCrcFlipped, kBadData},
                                         Bzip2Damage{"LevelZero", LevelZero, kBadData},
                                         Bzip2Damage{"NotBzip2", NotBzip2, kBadData},
                                         Bzip2Damage{"BadStreamAfterStream", BadStreamAfterStream, kBadData}),
                         [](const auto& row) { return std::string(row.param.name); });

// A node kept for the next entry leaves nothing of a failed run in its output.
TEST_F(Bzip2Files, AResetNodeDecodesCleanlyAfterAFailure) {
  const Bytes data = SampleData(200000);
  const Bytes good = Compress(data, 1);
  const RkStreamSettings settings = SmallSettings(4096);
  RkBunzip2 node(nullptr, nullptr, settings);
  EXPECT_TRUE(FailedWith(RunNode(node, DataByteFlipped(good), settings), kBadData));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, good, settings), data));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, good, settings), data));
}

}  // namespace
}  // namespace RkPipeTest
