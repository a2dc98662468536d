// The compress (.Z) decoder: files made at test time by compress at every width it writes
// correctly, the corpus's .Z files against compress's own decoding, a test-only encoder for what
// the tool cannot write (block mode off, a 9-bit table that fills, clears anywhere), and streams
// built code by code for the checks that must refuse.
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

// ---- A test-only encoder after the original program: it mirrors the decoder's table to know
// when the width rises, pads the group of eight codes at each rise and each clear, and can clear
// after any number of codes.
struct LzcOptions {
  uint32_t maxBits = 16;
  bool blockMode = true;
  uint32_t clearEvery = 0;  // codes between clears; 0 for none
};

class LzcEncoder {
 public:
  explicit LzcEncoder(const LzcOptions& o) : o_(o), limit_(1u << o.maxBits) {}

  Bytes Encode(const Bytes& data) {
    out_.PutByte(0x1F);
    out_.PutByte(0x9D);
    out_.PutByte(static_cast<uint8_t>(o_.maxBits | (o_.blockMode ? 0x80 : 0)));
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
        sinceClear = 0;
        Emit(kClear, false);
        NewGroup();
        Restart();
        adds = false;
      }
    }
    Emit(prefix, adds);
    return out_.Finish();
  }

 private:
  void Restart() {
    width_ = 9;
    maxCode_ = 511;
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
      NewGroup();
      ++width_;
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
  uint32_t state = 7;
  for (size_t i = 0; i < noise; ++i) {
    state = state * 1664525u + 1013904223u;
    out.push_back(static_cast<uint8_t>(state >> 24));
  }
  const Bytes again = SampleData(text / 2, 3);
  out.insert(out.end(), again.begin(), again.end());
  return out;
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

// ---- The tool, at each width. Its 9-bit output goes wrong once the table is full (its own
// decoder and gzip refuse it too), so at 9 bits only data that never fills the table is used.
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

INSTANTIATE_TEST_SUITE_P(LZC, LzcToolWidth, testing::Range(9u, 17u),
                         [](const auto& row) { return "Bits" + std::to_string(row.param); });

// The same data through every buffer shape: codes and the skipped rests of groups fall across
// the cuts of the input anywhere.
class LzcBufferShape : public PipeTest, public testing::WithParamInterface<BufferShape> {};

TEST_P(LzcBufferShape, GivesTheSameBytes) {
  RK_REQUIRE_TOOL("compress");
  const Bytes data = MixedData(20000, 6000);
  const BufferShape& shape = GetParam();
  for (uint32_t bits : {10u, 16u}) {
    const Bytes z = CompressWithTool(data, bits);
    EXPECT_TRUE(Decoded(DecodeLzc(z, shape.inputSize, shape.outputSize), data)) << bits;
  }
  // Clears after every few codes put a skipped group rest at nearly every cut.
  const Bytes z = LzcEncoder({12, true, 5}).Encode(data);
  EXPECT_TRUE(Decoded(DecodeLzc(z, shape.inputSize, shape.outputSize), data));
}

INSTANTIATE_TEST_SUITE_P(LZC, LzcBufferShape, testing::ValuesIn(kBufferShapes),
                         [](const auto& row) { return std::string(row.param.name); });

// ---- The test-only encoder: every width, block mode on and off, clears rare and frequent.
struct LzcVariant {
  const char* name;
  LzcOptions options;
};

class LzcEncoderVariant : public PipeTest, public testing::WithParamInterface<LzcVariant> {};

TEST_P(LzcEncoderVariant, RoundTrips) {
  const LzcOptions& o = GetParam().options;
  // gzip empties its whole table at each clear: with a clear every few codes, a small sample.
  const Bytes data = o.clearEvery && o.clearEvery < 100 ? MixedData(2500, 500) : MixedData(150000, 30000);
  const Bytes z = LzcEncoder(o).Encode(data);
  EXPECT_TRUE(Decoded(DecodeLzc(z), data));
  // gzip's reader of the format, where present, vouches that the encoder writes the format and
  // not merely what our decoder expects.
  if (HaveTool("gzip")) {
    ScratchFolder dir;
    WriteAll(dir / "in.Z", z);
    ASSERT_TRUE(Shell("gzip -dc '" + dir / "in.Z" + "' > '" + dir / "out" + "'"));
    EXPECT_TRUE(ReadAll(dir / "out") == data);
  }
}

std::vector<LzcVariant> LzcVariants() {
  static const char* const kNames[] = {"Bits9", "Bits10", "Bits11", "Bits12", "Bits13", "Bits14", "Bits15", "Bits16"};
  std::vector<LzcVariant> v;
  for (uint32_t bits = 9; bits <= 16; ++bits) {
    const char* name = kNames[bits - 9];
    v.push_back({name, {bits, true, 0}});
  }
  v.push_back({"Bits9NoBlockMode", {9, false, 0}});
  v.push_back({"Bits12NoBlockMode", {12, false, 0}});
  v.push_back({"Bits16NoBlockMode", {16, false, 0}});
  v.push_back({"Bits9ClearEvery700", {9, true, 700}});
  v.push_back({"Bits16ClearEvery3000", {16, true, 3000}});
  v.push_back({"Bits16ClearEvery1", {16, true, 1}});
  v.push_back({"Bits13ClearEvery7", {13, true, 7}});
  return v;
}

INSTANTIATE_TEST_SUITE_P(LZC, LzcEncoderVariant, testing::ValuesIn(LzcVariants()),
                         [](const auto& row) { return std::string(row.param.name); });

// ---- Streams built code by code.
struct Code {
  uint32_t value;
  uint32_t width;
};

Bytes Stream(std::initializer_list<uint8_t> header, std::initializer_list<Code> codes) {
  LsbBitWriter w;
  for (uint8_t b : header) w.PutByte(b);
  for (const Code& c : codes) {
    for (uint32_t left = c.width; left > 0;) {  // pads wider than a register go in pieces
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
        LzcCase{"WidthNineHeaderOnly", {0x1F, 0x9D, 0x89}, {}}, LzcCase{"HeaderOnly", {0x1F, 0x9D, 0x90}, {}},
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

// ---- The corpus: every .Z file against compress's own decoding of it.
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
  // A header that names 30 bits, from a library's own regression set.
  const Bytes bad = ReadAll(CorpusPath("commons-compress/compress/COMPRESS-386").string());
  EXPECT_TRUE(FailedWith(DecodeLzc(bad), kBadData));
}

// The images stored beside their .Z in decompressed form.
TEST_F(Lzc, CorpusImagesMatchTheirPlainCopies) {
  RK_REQUIRE_CORPUS();
  const std::filesystem::path plain = CorpusPath("libarchive/iso/decompressed");
  ASSERT_TRUE(std::filesystem::is_directory(plain));
  size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(plain)) {
    const std::filesystem::path z = plain.parent_path() / (entry.path().filename().string() + ".Z");
    if (!std::filesystem::exists(z)) continue;
    EXPECT_TRUE(Decoded(DecodeLzc(ReadAll(z.string())), ReadAll(entry.path().string()))) << z;
    ++files;
  }
  EXPECT_EQ(files, 11u);
}

}  // namespace
}  // namespace RkPipeTest
