// The shrink decoder: round trips through a test-only encoder written from the format's
// description (no tool of this machine writes the method), with partial clears when the table
// fills and at any other moment, and streams built code by code for the table's corner cases.
// The corpus samples are in the legacy zip corpus test.
#include <gtest/gtest.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "RkLegacyZipTestUtil.h"
#include "RkUnshrink.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkUnshrink;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr uint32_t kEscape = 256;
constexpr uint32_t kTableSize = 8192;
constexpr uint16_t kFree = 0xFFFF;

// ---- The encoder. It keeps the same tree as the decoder: a new code takes the lowest free slot;
// a partial clear frees every code that is no other code's parent, and comes between a code and
// the entry that code defines, which is where the decoder, one code behind, meets it.
struct ShrinkOptions {
  uint32_t clearEvery = 0;    // a partial clear after this many codes as well; 0 for none
  bool clearWhenFull = true;  // false leaves a full table, which the decoder must refuse
  uint32_t startWidth = 9;    // widened by escapes before the first code
};

class ShrinkEncoder {
 public:
  explicit ShrinkEncoder(const ShrinkOptions& o) : o_(o), parent_(kTableSize, kFree), suffix_(kTableSize) {}

  Bytes Encode(const Bytes& data) {
    while (width_ < o_.startWidth) Widen();
    if (data.empty()) return out_.Finish();
    uint32_t prefix = data[0];
    for (size_t i = 1; i < data.size(); ++i) {
      const auto found = dict_.find(prefix << 8 | data[i]);
      if (found != dict_.end()) {
        prefix = found->second;
        continue;
      }
      EmitCode(prefix);
      AfterCode(prefix, data[i]);
      prefix = data[i];
    }
    EmitCode(prefix);
    return out_.Finish();
  }

 private:
  void Widen() {
    out_.Put(kEscape, width_);
    out_.Put(1, width_);
    ++width_;
  }
  void EmitCode(uint32_t code) {
    while (code >> width_) Widen();
    out_.Put(code, width_);
  }
  void AfterCode(uint32_t code, uint8_t next) {
    ++codes_;
    if ((nextFree_ >= kTableSize && o_.clearWhenFull) || (o_.clearEvery && codes_ % o_.clearEvery == 0)) {
      out_.Put(kEscape, width_);
      out_.Put(2, width_);
      PartialClear();
    }
    if (nextFree_ >= kTableSize) return;
    parent_[nextFree_] = static_cast<uint16_t>(code);
    suffix_[nextFree_] = next;
    dict_[code << 8 | next] = nextFree_;
    FindFree(nextFree_ + 1);
  }
  void PartialClear() {
    std::vector<bool> isParent(kTableSize);
    for (uint32_t c = 257; c < kTableSize; ++c)
      if (parent_[c] != kFree && parent_[c] >= 257) isParent[parent_[c]] = true;
    for (uint32_t c = 257; c < kTableSize; ++c) {
      if (isParent[c] || parent_[c] == kFree) continue;
      dict_.erase(static_cast<uint32_t>(parent_[c]) << 8 | suffix_[c]);
      parent_[c] = kFree;
    }
    FindFree(257);
  }
  void FindFree(uint32_t from) {
    while (from < kTableSize && parent_[from] != kFree) ++from;
    nextFree_ = from;
  }

  ShrinkOptions o_;
  LsbBitWriter out_;
  std::vector<uint16_t> parent_;
  std::vector<uint8_t> suffix_;
  std::unordered_map<uint32_t, uint32_t> dict_;
  uint32_t nextFree_ = 257;
  uint32_t width_ = 9;
  uint64_t codes_ = 0;
};

DecodeResult DecodeShrink(const Bytes& input, int32_t inSize = 64 * 1024, int32_t outSize = 64 * 1024) {
  return Decode<RkUnshrink>(input, SmallSettings(inSize), SmallSettings(outSize));
}

// ---- Round trips.
struct ShrinkVariant {
  const char* name;
  ShrinkOptions options;
  size_t size;
};

class ShrinkRoundTrip : public PipeTest, public testing::WithParamInterface<ShrinkVariant> {};

TEST_P(ShrinkRoundTrip, GivesTheDataBack) {
  const ShrinkVariant& v = GetParam();
  const Bytes data = SampleData(v.size, 11);
  const Bytes packed = ShrinkEncoder(v.options).Encode(data);
  const DecodeResult r = DecodeShrink(packed);
  EXPECT_TRUE(Decoded(r, data));
  EXPECT_EQ(r.bytesRead, packed.size());
}

INSTANTIATE_TEST_SUITE_P(Shrink, ShrinkRoundTrip,
                         testing::Values(ShrinkVariant{"Empty", {}, 0}, ShrinkVariant{"OneByte", {}, 1},
                                         ShrinkVariant{"Short", {}, 100},
                                         // Fills the table many times over; each time it clears.
                                         ShrinkVariant{"ClearsWhenFull", {}, 600000},
                                         ShrinkVariant{"ClearsOften", {97, true, 9}, 200000},
                                         ShrinkVariant{"ClearsAfterEveryCode", {1, true, 9}, 30000},
                                         ShrinkVariant{"WideFromTheStart", {0, true, 13}, 100000},
                                         ShrinkVariant{"WideAndClearing", {500, true, 12}, 200000}),
                         [](const auto& row) { return std::string(row.param.name); });

// Cuts anywhere: 1-byte input blocks put every code, escape and clear across a cut.
class ShrinkBufferShape : public PipeTest, public testing::WithParamInterface<BufferShape> {};

TEST_P(ShrinkBufferShape, GivesTheSameBytes) {
  const Bytes data = SampleData(60000, 2);
  const Bytes packed = ShrinkEncoder({40, true, 9}).Encode(data);
  EXPECT_TRUE(Decoded(DecodeShrink(packed, GetParam().inputSize, GetParam().outputSize), data));
}

INSTANTIATE_TEST_SUITE_P(Shrink, ShrinkBufferShape, testing::ValuesIn(kBufferShapes),
                         [](const auto& row) { return std::string(row.param.name); });

struct Code {
  uint32_t value;
  uint32_t width = 9;
};

Bytes Stream(std::initializer_list<Code> codes) {
  LsbBitWriter w;
  for (const Code& c : codes) w.Put(c.value, c.width);
  return w.Finish();
}

class Shrink : public PipeTest {};

// A writer that lets the table fill without clearing leaves the decoder no slot for the code it
// must define: that is damaged data, not a silent stop.
TEST_F(Shrink, FullTableWithoutAClearIsRefused) {
  const Bytes data = SampleData(200000, 4);
  EXPECT_TRUE(FailedWith(DecodeShrink(ShrinkEncoder({0, false, 9}).Encode(data)), kBadData));
}

TEST_F(Shrink, NodeIsReusedAfterReset) {
  const Bytes a = SampleData(100000, 5);
  const Bytes b = SampleData(3000, 6);
  const Bytes pa = ShrinkEncoder({}).Encode(a);
  const Bytes pb = ShrinkEncoder({7, true, 9}).Encode(b);
  const RkStreamSettings settings = SmallSettings(4096);
  RkUnshrink node(nullptr, nullptr, settings);
  EXPECT_TRUE(Decoded(RunNode(node, pa, settings), a));
  node.Reset();
  EXPECT_TRUE(FailedWith(RunNode(node, Stream({{'a'}, {258}}), settings), kBadData));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, pb, settings), b));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, pa, settings), a));
}

// ---- Streams built code by code.

const Code kWidenTo13[] = {{kEscape, 9},  {1, 9},  {kEscape, 10}, {1, 10},
                           {kEscape, 11}, {1, 11}, {kEscape, 12}, {1, 12}};

Bytes WideStream(std::initializer_list<Code> tail) {
  LsbBitWriter w;
  for (const Code& c : kWidenTo13) w.Put(c.value, c.width);
  for (const Code& c : tail) w.Put(c.value, c.width);
  return w.Finish();
}

struct ShrinkCase {
  const char* name;
  Bytes input;
  std::string expected;  // when it decodes
  uint32_t code = 0;     // the error otherwise
};

class ShrinkStream : public PipeTest, public testing::WithParamInterface<ShrinkCase> {};

TEST_P(ShrinkStream, DecodesOrRefuses) {
  const ShrinkCase& c = GetParam();
  for (const BufferShape& shape : kBufferShapes) {
    const DecodeResult r = DecodeShrink(c.input, shape.inputSize, shape.outputSize);
    if (c.code) {
      EXPECT_TRUE(FailedWith(r, c.code)) << shape.name;
    } else {
      EXPECT_TRUE(Decoded(r, FromString(c.expected))) << shape.name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shrink, ShrinkStream,
    testing::Values(
        ShrinkCase{"Empty", {}, ""}, ShrinkCase{"OneByte", Stream({{'a'}}), "a"},
        ShrinkCase{"UsesTheCodeItDefines", Stream({{'a'}, {257}}), "aaa"},
        ShrinkCase{"FreeCodeOtherThanTheNext", Stream({{'a'}, {258}}), "", kBadData},
        ShrinkCase{"FirstCodeNotAByte", Stream({{257}}), "", kBadData},
        ShrinkCase{"UnknownEscape", Stream({{'a'}, {kEscape}, {3}}), "", kBadData},
        ShrinkCase{"EscapeZero", Stream({{'a'}, {kEscape}, {0}}), "", kBadData},
        ShrinkCase{"EscapeBeforeTheFirstCode", Stream({{kEscape}, {1}, {'a', 10}}), "a"},
        ShrinkCase{"WidenedTo13", WideStream({{'a', 13}, {257, 13}}), "aaa"},
        ShrinkCase{"WidenedPast13", WideStream({{kEscape, 13}, {1, 13}, {'a', 13}}), "", kBadData},
        ShrinkCase{"EscapeCutOff", Stream({{'a'}, {kEscape}}), "", kReadPastEnd},
        // 110 bits of codes in 15 bytes: ten bits left over are more than padding.
        ShrinkCase{"CodeCutOff", WideStream({{'a', 13}, {'b', 13}, {0, 2}, {0, 8}}), "", kReadPastEnd},
        ShrinkCase{"PaddingEndsCleanly", WideStream({{'a', 13}, {'b', 13}}), "ab"},
        // 257 = ab and 258 = bc are leaves and go; the next new code takes 257 again.
        ShrinkCase{"PartialClearFreesLeaves", Stream({{'a'}, {'b'}, {'c'}, {kEscape}, {2}, {'d'}, {257}}), "abcdcd"},
        ShrinkCase{"WithoutAClear", Stream({{'a'}, {'b'}, {'c'}, {'d'}, {257}}), "abcdab"},
        // 259 was freed and is not the slot this step defines (258 is).
        ShrinkCase{"FreedCodeIsRefused", Stream({{'a'}, {'b'}, {'c'}, {'d'}, {kEscape}, {2}, {'e'}, {259}}), "",
                   kBadData},
        // 259 = (257, b) keeps 257 as a parent; 258 and 259 go.
        ShrinkCase{"PartialClearKeepsParents", Stream({{'a'}, {'b'}, {257}, {258}, {kEscape}, {2}, {257}}), "ababbaab"},
        // The code defined after that clear names the freed 258 as parent and lands in 258
        // itself: a string with no end.
        ShrinkCase{"CodeThatIsItsOwnParent", Stream({{'a'}, {'b'}, {257}, {258}, {kEscape}, {2}, {257}, {258}}), "",
                   kBadData},
        // After the clear, 257 = (259, x) names the freed 259 as parent: an orphan, unusable...
        ShrinkCase{"OrphanBeforeAdoption",
                   Stream({{'a'}, {'b'}, {'c'}, {'d'}, {'e'}, {259}, {kEscape}, {2}, {'x'}, {257}}), "", kBadData},
        // ...until its parent's slot is defined again: here 257 = (258, x), and 258 becomes xy...
        ShrinkCase{"OrphanAfterAdoption", Stream({{'a'}, {'b'}, {'c'}, {258}, {kEscape}, {2}, {'x'}, {'y'}, {257}}),
                   "abcbcxyxyx"},
        // ...or is the very slot this step defines, from the previous string x: 258 = xx.
        ShrinkCase{"OrphanAdoptedInTheSameStep", Stream({{'a'}, {'b'}, {'c'}, {258}, {kEscape}, {2}, {'x'}, {257}}),
                   "abcbcxxxx"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace RkPipeTest
