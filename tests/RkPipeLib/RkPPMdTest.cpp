// PPMd var.I rev. 1 in its ZIP form (method 98). Fixtures are zips 7zz writes at test time; what
// 7zz will not write (stored data, empty files, the freeze method) comes from the model's own
// encoding half, which is checked to match 7zz byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "RkCodecTestUtil.h"
#include "RkLegacyZipTestUtil.h"
#include "RkPPMdDecoder.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkPPMdDecoder;
using RkPipeLib::RkPPMdMod;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;

uint32_t NextRandom(uint32_t& state) {
  state = state * 1103515245u + 12345u;
  return state >> 8;
}

// Sentences of common words.
Bytes TextData(size_t size, uint32_t seed) {
  static const char* const kWords[] = {"the",   "of",     "and",    "to",    "in",     "is",    "that",    "for",
                                       "it",    "was",    "with",   "be",    "by",     "on",    "not",     "this",
                                       "which", "but",    "have",   "they",  "there",  "been",  "model",   "escape",
                                       "symbol", "order", "memory", "stream", "context", "buffer", "archive", "window"};
  uint32_t state = seed;
  Bytes out;
  bool capital = true;
  while (out.size() < size) {
    std::string word = kWords[NextRandom(state) % std::size(kWords)];
    if (capital) word[0] = static_cast<char>(std::toupper(word[0]));
    capital = false;
    out.insert(out.end(), word.begin(), word.end());
    const uint32_t r = NextRandom(state) % 20;
    if (r < 3) out.push_back(".,"[r / 2]);
    out.push_back(r == 0 ? '\n' : ' ');
    capital = r < 2;
  }
  out.resize(size);
  return out;
}

// Records: counter, growing offset, small signed delta, tag, zero padding (little-endian).
Bytes BinaryData(size_t size, uint32_t seed) {
  uint32_t state = seed;
  Bytes out;
  const auto put = [&out](uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
  };
  uint32_t offset = 0x1000;
  for (uint32_t record = 0; out.size() < size; ++record) {
    offset += 16 + NextRandom(state) % 200;
    const uint16_t delta = static_cast<uint16_t>(static_cast<int16_t>(NextRandom(state) % 64) - 32);
    const uint8_t tag = static_cast<uint8_t>("ABCDQRXZ"[NextRandom(state) % 8]);
    put(record, 4);
    put(offset, 4);
    put(delta, 2);
    put(tag, 1);
    out.insert(out.end(), NextRandom(state) % 6, 0);
  }
  out.resize(size);
  return out;
}

Bytes RandomData(size_t size, uint32_t seed, unsigned alphabet) {
  uint32_t state = seed;
  Bytes out(size);
  for (uint8_t& b : out) b = static_cast<uint8_t>(NextRandom(state) % alphabet);
  return out;
}

enum class Kind { kText, kBinary, kZero, kRandom200, kRandom256, kMixed };

Bytes MakeData(Kind kind, size_t size) {
  switch (kind) {
    case Kind::kText: return TextData(size, 7);
    case Kind::kBinary: return BinaryData(size, 11);
    case Kind::kZero: return Bytes(size, 0);
    case Kind::kRandom200: return RandomData(size, 13, 200);
    case Kind::kRandom256: return RandomData(size, 17, 256);
    case Kind::kMixed:
      return Concat(Concat(TextData(size / 3, 19), RandomData(size / 3, 23, 256)), BinaryData(size - 2 * (size / 3), 29));
  }
  return {};
}

Bytes HeaderBytes(unsigned order, unsigned memMiB, unsigned method) {
  const unsigned bits = (order - 1) | (memMiB - 1) << 4 | method << 12;
  return {static_cast<uint8_t>(bits), static_cast<uint8_t>(bits >> 8)};
}

// The member stream 7zz writes with `options` after -mm=PPMd; nothing if it failed or stored.
std::optional<Bytes> SevenZipStream(const ScratchFolder& folder, const Bytes& data, const std::string& options) {
  WriteAll(folder / "data.bin", data);
  std::remove((folder / "data.zip").c_str());
  if (!Shell("cd '" + folder / "" + "' && 7zz a -tzip -mm=PPMd" + options + " data.zip data.bin")) return std::nullopt;
  const std::vector<ZipMember> members = ReadZipMembers(ReadAll(folder / "data.zip"));
  if (members.size() != 1 || members[0].method != 98) return std::nullopt;
  return members[0].data;
}

Bytes OwnStream(const Bytes& data, unsigned order, unsigned memMiB, unsigned method, uint64_t* restores = nullptr) {
  Bytes out = HeaderBytes(order, memMiB, method);
  RkPPMdMod model;
  model.Allocate(memMiB << 20);
  model.Start(order, method);
  RkPipeLib::RkPPMdRangeEncoder rc(out);
  for (uint8_t b : data) model.EncodeSymbol(b, rc);
  model.EncodeSymbol(RkPPMdMod::kEndMark, rc);
  rc.Flush();
  if (restores) *restores = model.RestoreCount();
  return out;
}

struct PPMdRun {
  DecodeResult result;
  uint64_t restores = 0;
};

PPMdRun DecodeStream(const Bytes& stream, int32_t inputBlock = 64 * 1024, int32_t outputBlock = 64 * 1024) {
  const RkStreamSettings settings = SmallSettings(outputBlock);  // the node's stream keeps a pointer
  RkPPMdDecoder node(nullptr, nullptr, settings);
  PPMdRun run;
  run.result = RunNode(node, stream, SmallSettings(inputBlock));
  run.restores = node.Model().RestoreCount();
  return run;
}

struct Blocks {
  const char* name;
  int32_t input, output;
};
constexpr Blocks kLargeBlocks{"Large", 64 * 1024, 64 * 1024};
constexpr Blocks kOddBlocks{"Odd", 509, 1021};
constexpr Blocks kByteBlocks{"ByteInput", 1, 3};

struct SevenZipCase {
  const char* name;
  Kind kind;
  size_t size;  // up to 50000 also decodes from 1-byte input and 3-byte output buffers
  const char* options;    // after -mm=PPMd
  unsigned order, method;  // what the header must then say
  bool memoryRunsOut;
};

void PrintTo(const SevenZipCase& c, std::ostream* os) { *os << c.name; }

const SevenZipCase kSevenZipCases[] = {
    {"TextLevel1", Kind::kText, 200000, " -mx=1", 4, 0, false},
    {"TextLevel9", Kind::kText, 200000, " -mx=9", 12, 1, false},
    {"TextOrder2", Kind::kText, 300000, ":o=2:mem=1m", 2, 0, false},
    {"TextOrder16Restart", Kind::kText, 700000, ":o=16:mem=1m", 16, 0, true},
    {"TextOrder16CutOff", Kind::kText, 700000, ":o=16:mem=1m:a=1", 16, 1, true},
    {"BinaryOrder5Mem2", Kind::kBinary, 300000, ":o=5:mem=2m", 5, 0, true},
    {"BinaryOrder12CutOff", Kind::kBinary, 900000, ":o=12:mem=1m:a=1", 12, 1, true},
    {"ZeroOrder16CutOff", Kind::kZero, 3000000, ":o=16:mem=1m:a=1", 16, 1, false},
    {"RandomOrder16CutOff", Kind::kRandom200, 200000, ":o=16:mem=1m:a=1", 16, 1, true},
    {"MixedOrder10CutOff", Kind::kMixed, 600000, ":o=10:mem=1m:a=1", 10, 1, true},
    {"SmallTextOrder6", Kind::kText, 30000, ":o=6:mem=1m:a=0", 6, 0, false},
    {"SmallBinaryOrder4CutOff", Kind::kBinary, 30000, ":o=4:mem=1m:a=1", 4, 1, false},
    {"SmallRandomOrder16CutOff", Kind::kRandom200, 40000, ":o=16:mem=1m:a=1", 16, 1, false},
    {"BinaryOrder8Restart", Kind::kBinary, 900000, ":o=8:mem=1m:a=0", 8, 0, true},
};

class PPMdWithSevenZip : public PipeTest {
 protected:
  void SetUp() override {
    PipeTest::SetUp();
    if (!HaveTool("7zz")) GTEST_SKIP() << "7zz is not installed (scripts/install-deps)";
  }
  ScratchFolder folder_;
};

class PPMdSevenZip : public PPMdWithSevenZip, public testing::WithParamInterface<SevenZipCase> {};

// The own encoder must write what 7zz writes, or its fixtures below prove nothing.
TEST_P(PPMdSevenZip, DecodesWhatSevenZipWroteAndOwnEncoderMatches) {
  const SevenZipCase& c = GetParam();
  const Bytes data = MakeData(c.kind, c.size);
  const std::optional<Bytes> stream = SevenZipStream(folder_, data, c.options);
  ASSERT_TRUE(stream) << "7zz wrote no PPMd member";
  const unsigned bits = (*stream)[0] | (*stream)[1] << 8;
  ASSERT_EQ((bits & 15) + 1, c.order);
  ASSERT_EQ(bits >> 12, c.method);
  EXPECT_TRUE(OwnStream(data, c.order, ((bits >> 4) & 255) + 1, c.method) == *stream);
  for (const Blocks& blocks : {kLargeBlocks, kOddBlocks, kByteBlocks}) {
    if (blocks.input == 1 && c.size > 50000) continue;
    SCOPED_TRACE(blocks.name);
    const PPMdRun run = DecodeStream(*stream, blocks.input, blocks.output);
    EXPECT_TRUE(Decoded(run.result, data));
    EXPECT_EQ(run.result.bytesRead, stream->size());
    EXPECT_EQ(run.restores > 0, c.memoryRunsOut) << run.restores << " restores";
  }
}

INSTANTIATE_TEST_SUITE_P(PPMd, PPMdSevenZip, testing::ValuesIn(kSevenZipCases),
                         [](const auto& row) { return std::string(row.param.name); });

struct OwnCase {
  const char* name;
  Kind kind;
  size_t size;
  unsigned order, memMiB, method;
  bool memoryRunsOut;
};

void PrintTo(const OwnCase& c, std::ostream* os) { *os << c.name; }

const OwnCase kOwnCases[] = {
    {"Empty", Kind::kText, 0, 6, 1, 0, false},
    {"OneByte", Kind::kText, 1, 6, 1, 0, false},
    {"RandomOrder2", Kind::kRandom256, 100000, 2, 1, 0, true},
    {"RandomOrder2Roomy", Kind::kRandom256, 100000, 2, 4, 1, false},
    {"RandomOrder16CutOff", Kind::kRandom256, 100000, 16, 1, 1, true},
    // Freeze: the model stops growing when full.
    {"EmptyFreeze", Kind::kText, 0, 6, 1, 2, false},
    {"TextFreeze", Kind::kText, 700000, 16, 1, 2, true},
    {"RandomFreeze", Kind::kRandom256, 200000, 16, 1, 2, true},
    {"TextFreezeRoomy", Kind::kText, 300000, 5, 8, 2, false},
};

class PPMdOwnStream : public PipeTest, public testing::WithParamInterface<OwnCase> {};

TEST_P(PPMdOwnStream, RoundTrips) {
  const OwnCase& c = GetParam();
  const Bytes data = MakeData(c.kind, c.size);
  uint64_t encoderRestores = 0;
  const Bytes stream = OwnStream(data, c.order, c.memMiB, c.method, &encoderRestores);
  EXPECT_EQ(encoderRestores > 0, c.memoryRunsOut) << encoderRestores << " restores";
  // Bytes after the end mark are not the node's.
  const Bytes padded = Concat(stream, RandomData(5000, 3, 256));
  for (const Blocks& blocks : {kLargeBlocks, kOddBlocks}) {
    SCOPED_TRACE(blocks.name);
    const PPMdRun run = DecodeStream(padded, blocks.input, blocks.output);
    EXPECT_TRUE(Decoded(run.result, data));
    EXPECT_EQ(run.result.bytesRead, stream.size());
    EXPECT_EQ(run.restores, encoderRestores);
  }
}

INSTANTIATE_TEST_SUITE_P(PPMd, PPMdOwnStream, testing::ValuesIn(kOwnCases),
                         [](const auto& row) { return std::string(row.param.name); });

class PPMdDecoder : public PipeTest {};

// Then the largest model the header can ask for: order 16 in 256 MiB.
TEST_F(PPMdDecoder, DecodesEveryOrderAndMethodAndTheLargestModel) {
  const Bytes data = MakeData(Kind::kMixed, 30000);
  for (unsigned order = RkPPMdMod::kMinOrder; order <= RkPPMdMod::kMaxOrder; ++order) {
    for (unsigned method = 0; method <= 2; ++method) {
      SCOPED_TRACE("order " + std::to_string(order) + " method " + std::to_string(method));
      EXPECT_TRUE(Decoded(DecodeStream(OwnStream(data, order, 1, method)).result, data));
    }
  }
  const Bytes text = MakeData(Kind::kText, 50000);
  EXPECT_TRUE(Decoded(DecodeStream(OwnStream(text, 16, 256, 2)).result, text));
}

struct HeaderCase {
  const char* name;
  Bytes stream;
  uint32_t code;
};

void PrintTo(const HeaderCase& c, std::ostream* os) { *os << c.name; }

// A code that decodes to something, so only the header decides.
const Bytes kBody = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x11, 0x22, 0x33, 0x44};

std::vector<HeaderCase> HeaderCases() {
  return {
      {"OrderOne", Concat({0x00, 0x00}, kBody), kBadData},
      {"OrderOneLargeMemory", Concat({0xF0, 0x0F}, kBody), kBadData},
      {"MethodThree", Concat({0x05, 0x30}, kBody), kBadData},
      {"MethodFifteenOrderOne", Concat({0x00, 0xF0}, kBody), kBadData},
      // Past every symbol and escape of the order-0 context.
      {"CodeAllOnes", Concat({0x05, 0x00}, Bytes(8, 0xFF)), kBadData},
  };
}

// The top values of the fields too, which streams of test size never tell apart from others.
TEST(PPMdHeaderFields, ParseAsWritten) {
  const struct { uint16_t bits; unsigned order, memMiB, method; } cases[] = {
      {0x0001, 2, 1, 0}, {0x2FFF, 16, 256, 2}, {0x1075, 6, 8, 1}};
  for (const auto& c : cases) {
    const RkPPMdDecoder::Header h = RkPPMdDecoder::ParseHeader(c.bits);
    EXPECT_EQ(h.order, c.order);
    EXPECT_EQ(h.memorySize, c.memMiB << 20);
    EXPECT_EQ(h.method, c.method);
  }
}

class PPMdHeader : public PipeTest, public testing::WithParamInterface<HeaderCase> {};

TEST_P(PPMdHeader, RaisesItsCode) {
  const HeaderCase& c = GetParam();
  for (const Blocks& blocks : {kLargeBlocks, kByteBlocks}) {
    SCOPED_TRACE(blocks.name);
    EXPECT_TRUE(FailedWith(DecodeStream(c.stream, blocks.input, blocks.output).result, c.code));
  }
}

INSTANTIATE_TEST_SUITE_P(PPMd, PPMdHeader, testing::ValuesIn(HeaderCases()),
                         [](const auto& row) { return std::string(row.param.name); });

// Cut in the header, in the range coder's first four bytes, and in the symbols.
TEST_F(PPMdDecoder, TruncatedStreamRaisesReadPastEnd) {
  const Bytes data = MakeData(Kind::kText, 20000);
  const Bytes stream = OwnStream(data, 6, 1, 1);
  const size_t n = stream.size();
  for (size_t cut : {size_t{0}, size_t{1}, size_t{2}, size_t{3}, size_t{5}, size_t{6}, n / 3, n / 2, n - 4, n - 1}) {
    const Bytes truncated(stream.begin(), stream.begin() + static_cast<long>(cut));
    for (const Blocks& blocks : {kLargeBlocks, kByteBlocks}) {
      SCOPED_TRACE("cut at " + std::to_string(cut) + ", " + blocks.name);
      const PPMdRun run = DecodeStream(truncated, blocks.input, blocks.output);
      EXPECT_TRUE(FailedWith(run.result, kReadPastEnd));
      EXPECT_TRUE(std::equal(run.result.output.begin(), run.result.output.end(), data.begin()));
    }
  }
}

// Random bytes behind valid headers: a clean error (or by chance an end mark), no crash or hang.
TEST_F(PPMdDecoder, GarbageEndsCleanly) {
  for (uint32_t seed = 1; seed <= 60; ++seed) {
    const unsigned order = 2 + seed % 15;
    const unsigned method = seed % 3;
    const Bytes stream = Concat(HeaderBytes(order, 1, method), RandomData(2000 + seed * 37, seed, 256));
    const DecodeResult result = DecodeStream(stream).result;
    if (result.error) {
      EXPECT_TRUE(FailedWith(result, kBadData) || FailedWith(result, kReadPastEnd)) << "seed " << seed;
    }
  }
}

// One node reused across items: memory grows for a larger model, and a failure leaves nothing behind.
TEST_F(PPMdDecoder, NodeServesOneItemAfterAnother) {
  const Bytes text = MakeData(Kind::kText, 300000);
  const Bytes binary = MakeData(Kind::kBinary, 300000);
  const Bytes small = OwnStream(text, 16, 1, 1);
  const Bytes large = OwnStream(binary, 8, 4, 0);
  const Bytes frozen = OwnStream(binary, 12, 1, 2);
  const Bytes broken(small.begin(), small.begin() + static_cast<long>(small.size() / 2));

  struct Item {
    const Bytes* stream;
    const Bytes* data;  // null when the item must fail with 7006
  };
  const Item items[] = {{&small, &text},    {&large, &binary}, {&small, &text},   {&broken, nullptr},
                        {&frozen, &binary}, {&small, &text},   {&broken, nullptr}, {&large, &binary}};
  const RkStreamSettings settings = SmallSettings(4096);
  RkPPMdDecoder node(nullptr, nullptr, settings);
  for (size_t i = 0; i < std::size(items); ++i) {
    SCOPED_TRACE("item " + std::to_string(i));
    node.OutputStream()->Reset();
    const DecodeResult result = RunNode(node, *items[i].stream, settings);
    if (items[i].data) {
      EXPECT_TRUE(Decoded(result, *items[i].data));
    } else {
      EXPECT_TRUE(FailedWith(result, kReadPastEnd));
    }
  }
}

// Members written by another encoder, checked against their central-record CRC.
TEST_F(PPMdDecoder, DecodesCorpusMembers) {
  RK_REQUIRE_CORPUS();
  int members = 0;
  for (const char* name : {"libarchive/zip/test_read_format_zip_ppmd8.zipx",
                           "libarchive/zip/test_read_format_zip_ppmd8_multi.zipx"}) {
    for (const ZipMember& m : ReadZipMembers(ReadAll(CorpusPath(name).string()))) {
      SCOPED_TRACE(std::string(name) + ": " + m.name);
      ASSERT_EQ(m.method, 98);
      for (const Blocks& blocks : {kLargeBlocks, kByteBlocks}) {
        const PPMdRun run = DecodeStream(m.data, blocks.input, blocks.output);
        ASSERT_FALSE(run.result.error) << Describe(run.result.error);
        EXPECT_EQ(run.result.output.size(), m.size);
        EXPECT_EQ(Crc(run.result.output), m.crc);
        EXPECT_EQ(run.result.bytesRead, m.data.size());
      }
      ++members;
    }
  }
  EXPECT_EQ(members, 4);
}

// Damaged entries that once crashed a reader must end with the node's own error.
TEST_F(PPMdDecoder, CorpusCrashEntriesEndCleanly) {
  RK_REQUIRE_CORPUS();
  for (const char* name : {"libarchive/zip/test_read_format_zip_ppmd8_crash_1.zipx",
                           "libarchive/zip/test_read_format_zip_ppmd8_crash_2.zipx"}) {
    SCOPED_TRACE(name);
    const Bytes file = ReadAll(CorpusPath(name).string());
    const Bytes signature = {'P', 'K', 3, 4};
    const auto local = std::search(file.begin(), file.end(), signature.begin(), signature.end());
    ASSERT_NE(local, file.end());
    const size_t at = static_cast<size_t>(local - file.begin());
    ASSERT_LE(at + 30, file.size());
    const size_t data =
        std::min(file.size(), at + 30 + (file[at + 26] | file[at + 27] << 8) + (file[at + 28] | file[at + 29] << 8));
    const DecodeResult result = DecodeStream(Bytes(file.begin() + static_cast<long>(data), file.end())).result;
    EXPECT_TRUE(FailedWith(result, kBadData) || FailedWith(result, kReadPastEnd)) << Describe(result.error);
  }
}

}  // namespace
}  // namespace RkPipeTest
