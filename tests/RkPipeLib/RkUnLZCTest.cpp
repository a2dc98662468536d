// The .Z decoder: compress's output at every width, the corpus against compress's own decoding,
// a test-only encoder for what the tool cannot write, and hand-built streams for the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <unordered_map>

#include "RkLegacyZipTestUtil.h"
#include "RkUnLZC.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkUnLZC;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr uint32_t kClear = 256;

// Mirrors the decoder's table to know when the width rises; pads the group of eight codes at each
// rise and clear.
struct LzcOptions {
  uint32_t maxBits = 16;
  bool blockMode = true;
  uint32_t clearEvery = 0;  // codes between clears; 0 for none
};

class LzcEncoder {
 public:
  explicit LzcEncoder(const LzcOptions& o) : o_(o), limit_(1u << o.maxBits) {}

  Bytes Encode(const Bytes& data) {
    for (uint8_t b : {uint8_t{0x1F}, uint8_t{0x9D}, static_cast<uint8_t>(o_.maxBits | (o_.blockMode ? 0x80 : 0))}) out_.PutByte(b);
    Restart();
    if (data.empty()) return out_.Finish();
    uint32_t prefix = data[0];
    bool adds = false;  // whether the decoder defines an entry when it reads the next code
    uint32_t sinceClear = 0;
    for (size_t i = 1; i < data.size(); ++i) {
      const uint32_t key = prefix << 8 | data[i];
      const auto found = dict_.find(key);
      if (found != dict_.end()) {
        prefix = found->second;
        continue;
      }
      Emit(prefix, adds);
      adds = true;
      if (encoderFree_ < limit_) dict_[key] = encoderFree_++;
      prefix = data[i];
      if (o_.blockMode && o_.clearEvery && ++sinceClear == o_.clearEvery) {
        Emit(kClear, false);
        NewGroup(), Restart();
        sinceClear = 0, adds = false;
      }
    }
    Emit(prefix, adds);
    return out_.Finish();
  }

 private:
  void Restart() {
    width_ = 9, maxCode_ = 511;
    decoderFree_ = encoderFree_ = o_.blockMode ? 257 : 256;
    dict_ = {};  // clear() would walk every bucket the map ever grew
  }
  void NewGroup() {
    for (uint32_t pad = inGroup_ ? (8 - inGroup_) * width_ : 0; pad > 0; pad -= std::min(pad, 16u))
      out_.Put(0, std::min(pad, 16u));
    inGroup_ = 0;
  }
  void Emit(uint32_t code, bool adds) {
    if (decoderFree_ > maxCode_) {
      NewGroup(), ++width_;
      maxCode_ = width_ == o_.maxBits ? limit_ : (1u << width_) - 1;
    }
    out_.Put(code, width_);
    inGroup_ = (inGroup_ + 1) % 8;
    if (adds && decoderFree_ < limit_) ++decoderFree_;
  }

  LzcOptions o_;
  uint32_t limit_;
  LsbBitWriter out_;
  std::unordered_map<uint32_t, uint32_t> dict_;
  uint32_t width_ = 9, maxCode_ = 511, decoderFree_ = 0, encoderFree_ = 0, inGroup_ = 0;
};

// Text, then noise that makes compress clear its table, then the text again.
Bytes MixedData(size_t text, size_t noise) {
  Bytes out = SampleData(text, 3);
  for (uint32_t i = 0, state = 7; i < noise; ++i)
    out.push_back(static_cast<uint8_t>((state = state * 1664525u + 1013904223u) >> 24));
  return Concat(out, SampleData(text / 2, 3));
}

Bytes CompressWithTool(const Bytes& data, uint32_t bits) {
  ScratchFolder dir;
  WriteAll(dir / "in", data);
  EXPECT_TRUE(Shell("compress -b" + std::to_string(bits) + " -c '" + dir / "in" + "' > '" + dir / "in.Z" + "'"));
  return ReadAll(dir / "in.Z");
}

DecodeResult DecodeLzc(const Bytes& input, int32_t inSize = 64 * 1024, int32_t outSize = 64 * 1024) {
  return Decode<RkUnLZC>(input, SmallSettings(inSize), SmallSettings(outSize));
}

// compress's 9-bit output is broken once the table fills (its own decoder refuses it too).
class LzcToolWidth : public PipeTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(LzcToolWidth, DecodesWhatCompressWrote) {
  RK_REQUIRE_TOOL("compress");
  const uint32_t bits = GetParam();
  std::vector<std::pair<std::string, Bytes>> inputs = {
      {"empty", {}}, {"one byte", {'x'}}, {"short text", FromString("abababababababab hello hello hello")}};
  if (bits > 9) {
    inputs.emplace_back("text", SampleData(300000, 5));
    inputs.emplace_back("text, noise, text", MixedData(400000, 150000));
  }
  for (const auto& [name, data] : inputs) {
    const Bytes z = CompressWithTool(data, bits);
    ASSERT_GE(z.size(), 3u) << name;
    EXPECT_EQ(z[2], 0x80 | bits) << name;
    const DecodeResult r = DecodeLzc(z);
    EXPECT_TRUE(Decoded(r, data)) << name;
    EXPECT_EQ(r.bytesRead, z.size()) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(LZC, LzcToolWidth, testing::Values(9u, 10u, 13u, 16u),
                         [](const auto& row) { return "Bits" + std::to_string(row.param); });

struct LzcVariant {
  const char* name;
  LzcOptions options;
};

class LzcEncoderVariant : public PipeTest, public testing::WithParamInterface<LzcVariant> {};

TEST_P(LzcEncoderVariant, RoundTrips) {
  const LzcOptions& o = GetParam().options;
  // gzip empties its whole table at each clear: keep frequent-clear samples small.
  const Bytes data = o.clearEvery && o.clearEvery < 100 ? MixedData(2500, 500) : MixedData(150000, 30000);
  const Bytes z = LzcEncoder(o).Encode(data);
  // Codes and skipped group rests fall across input cuts anywhere.
  for (const BufferShape& shape : kBufferShapes)
    EXPECT_TRUE(Decoded(DecodeLzc(z, shape.inputSize, shape.outputSize), data)) << shape.name;
  // gzip vouches that the encoder writes the format, not just what our decoder expects.
  if (HaveTool("gzip")) {
    ScratchFolder dir;
    WriteAll(dir / "in.Z", z);
    ASSERT_TRUE(Shell("gzip -dc '" + dir / "in.Z" + "' > '" + dir / "out" + "'"));
    EXPECT_TRUE(ReadAll(dir / "out") == data);
  }
}

const LzcVariant kLzcVariants[] = {
    {"Bits9", {9, true, 0}},
    {"Bits12", {12, true, 0}},
    {"Bits16", {16, true, 0}},
    {"Bits9NoBlockMode", {9, false, 0}},
    {"Bits16NoBlockMode", {16, false, 0}},
    {"Bits9ClearEvery700", {9, true, 700}},
    {"Bits16ClearEvery1", {16, true, 1}},
    {"Bits13ClearEvery7", {13, true, 7}},
};

INSTANTIATE_TEST_SUITE_P(LZC, LzcEncoderVariant, testing::ValuesIn(kLzcVariants),
                         [](const auto& row) { return std::string(row.param.name); });

struct Code {
  uint32_t value;
  uint32_t width;
};

Bytes Stream(std::initializer_list<uint8_t> header, std::initializer_list<Code> codes) {
  LsbBitWriter w;
  for (uint8_t b : header) w.PutByte(b);
  for (const Code& c : codes) {
    for (uint32_t left = c.width; left > 0;) {  // wide pads go in pieces
      const uint32_t n = std::min(left, 16u);
      w.Put(left == c.width ? c.value : 0, n);
      left -= n;
    }
  }
  return w.Finish();
}

const std::initializer_list<uint8_t> kBlock16 = {0x1F, 0x9D, 0x90};
const std::initializer_list<uint8_t> kPlain16 = {0x1F, 0x9D, 0x10};
// Six unused 9-bit codes complete a group of eight begun with two codes.
const Code kPadSix = {0, 54};

struct LzcCase {
  const char* name;
  Bytes input;
  Bytes expected;     // when it decodes
  uint32_t code = 0;  // the error otherwise
};

class LzcStream : public PipeTest, public testing::WithParamInterface<LzcCase> {};

TEST_P(LzcStream, DecodesOrRefuses) {
  const LzcCase& c = GetParam();
  for (const BufferShape& shape : kBufferShapes) {
    const DecodeResult r = DecodeLzc(c.input, shape.inputSize, shape.outputSize);
    if (c.code) {
      EXPECT_TRUE(FailedWith(r, c.code)) << shape.name;
    } else {
      EXPECT_TRUE(Decoded(r, c.expected)) << shape.name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    LZC, LzcStream,
    testing::Values(
        LzcCase{"Empty", {}, {}, kReadPastEnd}, LzcCase{"MagicOnly", {0x1F, 0x9D}, {}, kReadPastEnd},
        LzcCase{"WrongFirstMagicByte", {0x1E, 0x9D, 0x90}, {}, kBadData},
        LzcCase{"WrongSecondMagicByte", {0x1F, 0x9E, 0x90}, {}, kBadData},
        LzcCase{"WrongMagicInTwoBytes", {0x1F, 0x8B}, {}, kBadData},
        LzcCase{"WidthEight", {0x1F, 0x9D, 0x88}, {}, kBadData},
        LzcCase{"WidthSeventeen", {0x1F, 0x9D, 0x91}, {}, kBadData},
        LzcCase{"WidthThirty", {0x1F, 0x9D, 0x1E, 0x42}, {}, kBadData},
        LzcCase{"WidthNineHeaderOnly", {0x1F, 0x9D, 0x89}, {}},
        LzcCase{"ReservedBitsIgnored", Stream({0x1F, 0x9D, 0xF0}, {{'a', 9}}), {'a'}},
        LzcCase{"UsesTheCodeItDefines", Stream(kBlock16, {{'a', 9}, {257, 9}}), FromString("aaa")},
        LzcCase{"CodeBeyondNextFree", Stream(kBlock16, {{'a', 9}, {258, 9}}), {}, kBadData},
        LzcCase{"FirstCodeNotAByte", Stream(kBlock16, {{300, 9}}), {}, kBadData},
        LzcCase{"FirstCodeIsClear", Stream(kBlock16, {{kClear, 9}}), {}, kBadData},
        LzcCase{"ClearPadsItsGroup", Stream(kBlock16, {{'a', 9}, {kClear, 9}, kPadSix, {'b', 9}}), FromString("ab")},
        LzcCase{"ClearWithoutPaddingSkipsTheNextCodes", Stream(kBlock16, {{'a', 9}, {kClear, 9}, {'b', 9}}),
                FromString("a")},
        LzcCase{"TwoClears", Stream(kBlock16, {{'a', 9}, {kClear, 9}, kPadSix, {kClear, 9}, {0, 63}, {'b', 9}}),
                FromString("ab")},
        LzcCase{"AfterAClearOnlyAByte", Stream(kBlock16, {{'a', 9}, {kClear, 9}, kPadSix, {257, 9}}), {}, kBadData},
        LzcCase{"AfterAClearTheTableIsEmpty",
                Stream(kBlock16, {{'a', 9}, {'b', 9}, {'c', 9}, {kClear, 9}, {0, 36}, {'x', 9}, {258, 9}}),
                {},
                kBadData},
        LzcCase{"WithoutBlockMode256IsAnEntry", Stream(kPlain16, {{'a', 9}, {'b', 9}, {256, 9}}), FromString("abab")},
        LzcCase{"WithoutBlockMode257IsTooFar", Stream(kPlain16, {{'a', 9}, {257, 9}}), {}, kBadData},
        LzcCase{"BitsShortOfACodeAreIgnored", Stream(kBlock16, {{'a', 9}, {0x7F, 7}}), {'a'}}),
    [](const auto& row) { return std::string(row.param.name); });

class Lzc : public PipeTest {};

TEST_F(Lzc, NodeIsReusedAfterReset) {
  const Bytes a = SampleData(50000, 1);
  const Bytes b = MixedData(20000, 3000);
  const Bytes za = LzcEncoder({16, true, 0}).Encode(a);
  const Bytes zb = LzcEncoder({11, false, 0}).Encode(b);
  const RkStreamSettings settings = SmallSettings(4096);
  RkUnLZC node(nullptr, nullptr, settings);
  EXPECT_TRUE(Decoded(RunNode(node, za, settings), a));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, zb, settings), b));
  node.Reset();
  EXPECT_TRUE(FailedWith(RunNode(node, {0x1F, 0x9D, 0x99}, settings), kBadData));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, za, settings), a));
}

TEST_F(Lzc, CorpusMatchesCompress) {
  RK_REQUIRE_CORPUS();
  RK_REQUIRE_TOOL("compress");
  size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(RK_CORPUS_DIR)) {
    const std::string path = entry.path().string();
    if (!entry.is_regular_file() || entry.path().extension() != ".Z") continue;
    ScratchFolder dir;
    ASSERT_TRUE(Shell("compress -dc '" + path + "' > '" + dir / "plain" + "'")) << path;
    const DecodeResult r = DecodeLzc(ReadAll(path));
    EXPECT_TRUE(Decoded(r, ReadAll(dir / "plain"))) << path;
    ++files;
  }
  EXPECT_GE(files, 43u);
  // A header that names 30 bits.
  const Bytes bad = ReadAll(CorpusPath("commons-compress/compress/COMPRESS-386").string());
  EXPECT_TRUE(FailedWith(DecodeLzc(bad), kBadData));
}

}  // namespace
}  // namespace RkPipeTest
