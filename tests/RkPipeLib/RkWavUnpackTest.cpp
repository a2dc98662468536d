// The WavPack node against files that the wavpack tool makes at test time from WAV files built
// here: the output must be the WAV file again, byte for byte, whatever the sample format, the
// channel count, the mode, or a chunk after the samples.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "RkCodecTestUtil.h"
#include "RkWavUnpack.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkWavUnpack;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;

void Put(Bytes& b, uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void Put(Bytes& b, const char* tag) { b.insert(b.end(), tag, tag + 4); }

struct WavFormat {
  int channels;
  int bits;  // per sample
  bool isFloat = false;
};

// A WAV file of `frames` frames of a tone with some noise in it, then `after` (whole chunks).
Bytes Wav(const WavFormat& format, size_t frames, const Bytes& after = {}) {
  const int bytes = format.bits / 8;
  Bytes samples;
  for (size_t i = 0; i < frames; ++i) {
    for (int c = 0; c < format.channels; ++c) {
      const double v =
          0.7 * std::sin(static_cast<double>(i) * 0.013 * (c + 1)) +
          static_cast<double>(static_cast<int>((i * 7919 + static_cast<size_t>(c) * 31) % 97) - 48) / 500.0;
      if (format.isFloat) {
        const float f = static_cast<float>(v);
        uint32_t u;
        std::memcpy(&u, &f, 4);
        Put(samples, u, 4);
      } else if (bytes == 1) {
        samples.push_back(static_cast<uint8_t>(128 + static_cast<int>(v * 120)));
      } else {
        const double top = std::ldexp(1.0, format.bits - 1) - 1;
        Put(samples, static_cast<uint64_t>(static_cast<int64_t>(v * top)), bytes);
      }
    }
  }
  const uint32_t rate = 44100;
  const uint32_t align = static_cast<uint32_t>(format.channels * bytes);
  Bytes body;
  Put(body, "WAVE");
  Put(body, "fmt ");
  Put(body, 16, 4);
  Put(body, format.isFloat ? 3 : 1, 2);
  Put(body, static_cast<uint64_t>(format.channels), 2);
  Put(body, rate, 4);
  Put(body, rate * align, 4);
  Put(body, align, 2);
  Put(body, static_cast<uint64_t>(format.bits), 2);
  Put(body, "data");
  Put(body, samples.size(), 4);
  body.insert(body.end(), samples.begin(), samples.end());
  body.insert(body.end(), after.begin(), after.end());
  Bytes file;
  Put(file, "RIFF");
  Put(file, body.size(), 4);
  return Concat(file, body);
}

// A LIST chunk that a player left after the samples; WavPack keeps it as the trailer.
Bytes ListChunk() {
  Bytes b;
  Put(b, "LIST");
  Put(b, 18, 4);
  Put(b, "INFO");
  Put(b, "ISFT");
  Put(b, 6, 4);
  Put(b, "tests");
  b.push_back(0);
  return b;
}

class WavPackFiles : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    if (!HaveTool("wavpack")) GTEST_SKIP() << "wavpack is not installed (scripts/install-deps)";
  }
  Bytes Compress(const Bytes& wav, const std::string& options = "") {
    WriteAll(folder_ / "in.wav", wav);
    EXPECT_TRUE(Shell("wavpack -q -y " + options + " " + folder_ / "in.wav" + " -o " + folder_ / "in.wv"));
    return ReadAll(folder_ / "in.wv");
  }
  DecodeResult Unpack(const Bytes& wv, int32_t inputSize = 65536, int32_t outputSize = 65536) {
    return Decode<RkWavUnpack>(wv, SmallSettings(inputSize), SmallSettings(outputSize), uint64_t{wv.size()});
  }

  ScratchFolder folder_;
};

struct WavPackRoundTrip {
  const char* name;
  WavFormat format;
  size_t frames;
  const char* options;
  bool trailer = false;
};

const WavPackRoundTrip kWavPackRoundTrips[] = {
    {"Stereo16", {2, 16}, 30000, ""},
    {"Stereo16Fast", {2, 16}, 30000, "-f"},
    {"Stereo16VeryHigh", {2, 16}, 30000, "-hh"},
    {"Stereo16Extra", {2, 16}, 20000, "-x3"},
    {"Stereo16Md5", {2, 16}, 20000, "-m"},
    // Blocks of a tenth of a second: many blocks for a small file.
    {"Stereo16ShortBlocks", {2, 16}, 30000, "--blocksize=4410"},
    {"Stereo16WithTrailer", {2, 16}, 10000, "", true},
    // Past 1.2 MB the library looks for the trailer from 1 MiB before the end.
    {"Stereo16LargeWithTrailer", {2, 16}, 400000, "", true},
    {"Mono8", {1, 8}, 6000, ""},
    {"Stereo24", {2, 24}, 10000, ""},
    {"Mono32", {1, 32}, 10000, ""},
    {"StereoFloat", {2, 32, true}, 10000, "", true},
    {"SixChannels16", {6, 16}, 8000, ""},
    {"OneFrame", {2, 16}, 1, ""},
};

class WavPackRoundTrips : public WavPackFiles,
                          public testing::WithParamInterface<std::tuple<WavPackRoundTrip, BufferShape>> {};

TEST_P(WavPackRoundTrips, GiveTheWavFileBack) {
  const auto& [trip, shape] = GetParam();
  const size_t frames = shape.Fit(trip.frames * 4) / 4;
  const Bytes wav = Wav(trip.format, frames, trip.trailer ? ListChunk() : Bytes{});
  const Bytes wv = Compress(wav, trip.options);
  const DecodeResult result = Unpack(wv, shape.inputSize, shape.outputSize);
  EXPECT_TRUE(Decoded(result, wav));
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, WavPackRoundTrips,
                         testing::Combine(testing::ValuesIn(kWavPackRoundTrips), testing::ValuesIn(kBufferShapes)),
                         [](const auto& row) {
                           return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name;
                         });

// Without the original header in the stream (raw samples, or the tool told not to keep it) the
// library makes a RIFF header of its own; the node gives what wvunpack gives.
TEST_F(WavPackFiles, StreamsWithoutTheirHeaderComeOutAsWvunpackWritesThem) {
  RK_REQUIRE_TOOL("wvunpack");
  const Bytes raw = SampleData(40000, 4);
  WriteAll(folder_ / "in.raw", raw);
  WriteAll(folder_ / "in.wav", Wav({2, 16}, 5000));
  for (const std::string& make : {"--raw-pcm=44100,16,2 " + folder_ / "in.raw", "-r " + folder_ / "in.wav"}) {
    SCOPED_TRACE(make);
    ASSERT_TRUE(Shell("wavpack -q -y " + make + " -o " + folder_ / "bare.wv"));
    ASSERT_TRUE(Shell("wvunpack -q -y " + folder_ / "bare.wv" + " -o " + folder_ / "bare.wav"));
    EXPECT_TRUE(Decoded(Unpack(ReadAll(folder_ / "bare.wv")), ReadAll(folder_ / "bare.wav")));
  }
}

struct WavPackDamage {
  const char* name;
  void (*spoil)(Bytes& wv);
  uint32_t code;
};

class WavPackDamaged : public WavPackFiles, public testing::WithParamInterface<WavPackDamage> {};

TEST_P(WavPackDamaged, FailsWithTheCodeOfTheFault) {
  Bytes wv = Compress(Wav({2, 16}, 20000), "--blocksize=4000");
  GetParam().spoil(wv);
  EXPECT_TRUE(FailedWith(Unpack(wv), GetParam().code));
  EXPECT_TRUE(FailedWith(Unpack(wv, 5, 11), GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, WavPackDamaged,
    testing::Values(
        WavPackDamage{"AudioByteFlipped", [](Bytes& f) { f[f.size() / 2] ^= 0x04; }, kBadData},
        WavPackDamage{"LastBlockCut", [](Bytes& f) { f.erase(f.end() - 100, f.end()); }, kReadPastEnd},
        WavPackDamage{"HalfMissing", [](Bytes& f) { f.erase(f.begin() + static_cast<long>(f.size() / 2), f.end()); },
                      kReadPastEnd},
        WavPackDamage{"NotWavPack", [](Bytes& f) { f = FromString("RIFF but not a WavPack stream at all"); }, kBadData},
        WavPackDamage{"Empty", [](Bytes& f) { f.clear(); }, kBadData},
        WavPackDamage{"FirstBlockHeaderOnly", [](Bytes& f) { f.erase(f.begin() + 32, f.end()); }, kBadData}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(WavPackFiles, AResetNodeDecodesCleanlyAfterAFailure) {
  const Bytes wav = Wav({2, 16}, 30000, ListChunk());
  const Bytes wv = Compress(wav);
  Bytes bad = wv;
  bad[bad.size() / 2] ^= 0x10;
  const RkStreamSettings settings = SmallSettings(4096);
  RkWavUnpack node(bad.size(), nullptr, nullptr, settings);
  EXPECT_TRUE(FailedWith(RunNode(node, bad, settings), kBadData));
  node.Reset();
  node.SetCompressedSize(wv.size());
  EXPECT_TRUE(Decoded(RunNode(node, wv, settings), wav));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, wv, settings), wav));
}

}  // namespace
}  // namespace RkPipeTest
