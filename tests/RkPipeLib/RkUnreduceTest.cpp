// The reduce decoder (methods 2 to 5): round trips at every factor through a test-only encoder
// written from the format's description (no tool of this machine writes these methods), streams
// built byte by byte for the refusals and the corners, and one node reused across factors as the
// zip extraction does. The corpus samples are in the legacy zip corpus test.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <unordered_map>

#include "RkLegacyZipTestUtil.h"
#include "RkUnreduce.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkUnreduce;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr uint8_t kEscape = 144;

// ---- The encoder, in the format's two stages.

// Stage one: bytes and copies. A copy is 144, then a byte with the distance's top `factor` bits
// over the length's low bits (all ones: a further byte adds to the length), then the distance's
// low byte. A plain 144 is 144, 0; so a copy whose opening byte would be 0 cannot be written.
Bytes ReduceCopies(const Bytes& data, uint32_t factor) {
  const uint32_t lengthBits = 8 - factor;
  const uint32_t lengthMask = (1u << lengthBits) - 1;
  const size_t maxDistance = size_t{256} << factor;
  const size_t maxLength = lengthMask + 255 + 3;
  Bytes out;
  std::unordered_map<uint32_t, std::vector<size_t>> seen;  // three-byte prefix -> positions
  size_t i = 0;
  while (i < data.size()) {
    size_t bestLength = 0, bestDistance = 0;
    if (i + 3 <= data.size()) {
      const uint32_t key = data[i] | data[i + 1] << 8 | data[i + 2] << 16;
      auto& list = seen[key];
      for (auto it = list.rbegin(); it != list.rend() && i - *it <= maxDistance; ++it) {
        size_t n = 0;
        while (n < maxLength && i + n < data.size() && data[*it + n] == data[i + n]) ++n;
        if (n > bestLength) bestLength = n, bestDistance = i - *it;
      }
      list.push_back(i);
    }
    const uint32_t high = static_cast<uint32_t>((bestDistance - 1) >> 8);
    const uint32_t lengthCode = static_cast<uint32_t>(bestLength) - 3;
    const uint32_t opener = high << lengthBits | std::min(lengthCode, lengthMask);
    if (bestLength >= 3 && opener != 0) {
      out.push_back(kEscape);
      out.push_back(static_cast<uint8_t>(opener));
      if (lengthCode >= lengthMask) out.push_back(static_cast<uint8_t>(lengthCode - lengthMask));
      out.push_back(static_cast<uint8_t>((bestDistance - 1) & 0xFF));
      for (size_t k = 1; k < bestLength; ++k, ++i) {
        if (i + 1 + 3 > data.size()) continue;
        seen[data[i + 1] | data[i + 2] << 8 | data[i + 3] << 16].push_back(i + 1);
      }
      ++i;
      continue;
    }
    out.push_back(data[i]);
    if (data[i] == kEscape) out.push_back(0);
    ++i;
  }
  return out;
}

uint32_t IndexBits(size_t n) {
  uint32_t bits = 1;
  while ((size_t{1} << bits) < n) ++bits;
  return bits;
}

// Stage two: each byte from the follower set of the byte before it (up to `maxFollowers` of its
// most frequent followers), else whole.
Bytes ReduceBits(const Bytes& stream, uint32_t maxFollowers) {
  std::vector<std::array<uint32_t, 256>> counts(256);
  uint8_t last = 0;
  for (uint8_t c : stream) ++counts[last][c], last = c;
  std::array<std::vector<uint8_t>, 256> sets;
  for (uint32_t j = 0; j < 256; ++j) {
    for (uint32_t c = 0; c < 256; ++c)
      if (counts[j][c]) sets[j].push_back(static_cast<uint8_t>(c));
    std::stable_sort(sets[j].begin(), sets[j].end(), [&](uint8_t a, uint8_t b) { return counts[j][a] > counts[j][b]; });
    if (sets[j].size() > maxFollowers) sets[j].resize(maxFollowers);
  }
  LsbBitWriter w;
  for (int j = 255; j >= 0; --j) {
    w.Put(static_cast<uint32_t>(sets[j].size()), 6);
    for (uint8_t c : sets[j]) w.PutByte(c);
  }
  last = 0;
  for (uint8_t c : stream) {
    const auto& set = sets[last];
    const auto at = std::find(set.begin(), set.end(), c);
    if (set.empty()) {
      w.PutByte(c);
    } else if (at == set.end()) {
      w.Put(1, 1);
      w.PutByte(c);
    } else {
      w.Put(0, 1);
      w.Put(static_cast<uint32_t>(at - set.begin()), IndexBits(set.size()));
    }
    last = c;
  }
  return w.Finish();
}

Bytes Reduce(const Bytes& data, uint32_t factor, uint32_t maxFollowers = 32) {
  return ReduceBits(ReduceCopies(data, factor), maxFollowers);
}

DecodeResult DecodeReduced(const Bytes& input, uint32_t factor, uint64_t size, int32_t inSize = 64 * 1024,
                           int32_t outSize = 64 * 1024) {
  return Decode<RkUnreduce>(input, SmallSettings(inSize), SmallSettings(outSize), factor, size);
}

// Data with long runs (copies of the longest length), far repeats (the farthest distance) and
// many 144s.
Bytes ReduceSample(size_t size, uint32_t seed) {
  Bytes data = SampleData(size, seed);
  for (size_t i = 0; i < data.size(); i += 97) data[i] = kEscape;
  return data;
}

// ---- Round trips.
struct ReduceVariant {
  const char* name;
  uint32_t factor;
  uint32_t maxFollowers;
  size_t size;
};

class ReduceRoundTrip : public PipeTest, public testing::WithParamInterface<ReduceVariant> {};

TEST_P(ReduceRoundTrip, GivesTheDataBack) {
  const ReduceVariant& v = GetParam();
  const Bytes data = ReduceSample(v.size, v.factor);
  const Bytes packed = Reduce(data, v.factor, v.maxFollowers);
  if (data.size() > 1000) {
    EXPECT_LT(packed.size(), data.size() / 2) << "the sample should be mostly copies";
  }
  const DecodeResult r = DecodeReduced(Concat(packed, {1, 2, 3, 4, 5, 6, 7, 8, 9}), v.factor, data.size());
  EXPECT_TRUE(Decoded(r, data));
  EXPECT_EQ(r.bytesRead, packed.size()) << "the bytes after the data are not the node's";
}

INSTANTIATE_TEST_SUITE_P(
    Reduce, ReduceRoundTrip,
    testing::Values(ReduceVariant{"Factor1", 1, 32, 150000}, ReduceVariant{"Factor2", 2, 32, 150000},
                    ReduceVariant{"Factor3", 3, 32, 150000}, ReduceVariant{"Factor4", 4, 32, 150000},
                    ReduceVariant{"Factor1NoFollowers", 1, 0, 30000}, ReduceVariant{"Factor4OneFollower", 4, 1, 30000},
                    ReduceVariant{"Factor2ThreeFollowers", 2, 3, 30000},
                    ReduceVariant{"Factor3SeventeenFollowers", 3, 17, 30000}, ReduceVariant{"OneByte", 4, 32, 1}),
    [](const auto& row) { return std::string(row.param.name); });

class ReduceBufferShape : public PipeTest, public testing::WithParamInterface<BufferShape> {};

TEST_P(ReduceBufferShape, GivesTheSameBytes) {
  const Bytes data = ReduceSample(40000, 9);
  for (uint32_t factor = 1; factor <= 4; ++factor) {
    EXPECT_TRUE(Decoded(
        DecodeReduced(Reduce(data, factor), factor, data.size(), GetParam().inputSize, GetParam().outputSize), data))
        << "factor " << factor;
  }
}

INSTANTIATE_TEST_SUITE_P(Reduce, ReduceBufferShape, testing::ValuesIn(kBufferShapes),
                         [](const auto& row) { return std::string(row.param.name); });

class ReduceNode : public PipeTest {};

// All four methods share one node in the zip extraction; Reset gives it the next factor.
TEST_F(ReduceNode, ServesEveryFactor) {
  const RkStreamSettings settings = SmallSettings(4096);
  RkUnreduce node(1, 0, nullptr, nullptr, settings);
  for (uint32_t round = 0; round < 2; ++round) {
    for (uint32_t factor : {3u, 1u, 4u, 2u}) {
      const Bytes data = ReduceSample(20000 + factor * 1000, factor + round);
      node.Reset(factor, data.size());
      EXPECT_TRUE(Decoded(RunNode(node, Reduce(data, factor), settings), data)) << factor;
    }
  }
}

// ---- Streams built byte by byte (stage one), then packed with or without follower sets.
Bytes NoSets(const Bytes& stream) { return ReduceBits(stream, 0); }

struct ReduceCase {
  const char* name;
  Bytes input;
  uint32_t factor;
  uint64_t size;
  Bytes expected;     // when it decodes
  uint32_t code = 0;  // the error otherwise
};

class ReduceStream : public PipeTest, public testing::WithParamInterface<ReduceCase> {};

TEST_P(ReduceStream, DecodesOrRefuses) {
  const ReduceCase& c = GetParam();
  for (const BufferShape& shape : kBufferShapes) {
    const DecodeResult r = DecodeReduced(c.input, c.factor, c.size, shape.inputSize, shape.outputSize);
    if (c.code) {
      EXPECT_TRUE(FailedWith(r, c.code)) << shape.name;
    } else {
      EXPECT_TRUE(Decoded(r, c.expected)) << shape.name;
    }
  }
}

// The follower sets for byte 255 down to the one for byte 0, which comes last and holds `last`.
Bytes SetsThen(uint32_t countFor0, std::initializer_list<uint8_t> setFor0,
               std::initializer_list<std::pair<uint32_t, uint32_t>> bits) {
  LsbBitWriter w;
  for (int j = 255; j > 0; --j) w.Put(0, 6);
  w.Put(countFor0, 6);
  for (uint8_t c : setFor0) w.PutByte(c);
  for (const auto& [value, width] : bits) w.Put(value, width);
  return w.Finish();
}

Bytes TooManyFollowers() {
  LsbBitWriter w;
  w.Put(33, 6);
  for (int i = 0; i < 33; ++i) w.PutByte(static_cast<uint8_t>(i));
  return w.Finish();
}

const Bytes kAbc = FromString("abc");

INSTANTIATE_TEST_SUITE_P(
    Reduce, ReduceStream,
    testing::Values(
        ReduceCase{"SizeZeroReadsNothing", {}, 4, 0, {}}, ReduceCase{"NoSetsIsCutOff", {}, 4, 1, {}, kReadPastEnd},
        ReduceCase{"PlainBytes", NoSets(kAbc), 1, 3, kAbc},
        ReduceCase{"EscapedEscape", NoSets({'a', kEscape, 0, 'b'}), 2, 3, {'a', kEscape, 'b'}},
        // Factor 4: 0x12 = distance high 1, length 2 + 3; low byte 0x03: distance 1 * 256 + 3 + 1.
        ReduceCase{"CopyBeforeTheStartIsZeros", NoSets({'a', kEscape, 0x12, 0x03}), 4, 6, {'a', 0, 0, 0, 0, 0}},
        ReduceCase{"CopyOverlapsItself", NoSets({'a', 'b', kEscape, 0x02, 0x01}), 4, 7, FromString("abababa")},
        // Factor 1: seven length bits all ones, then 10 more: 127 + 10 + 3 = 140 bytes.
        ReduceCase{"LengthByteAddsToTheLength", NoSets({'z', kEscape, 0x7F, 10, 0}), 1, 141, Bytes(141, 'z')},
        // Factor 3: distance high bits 7 -> 7 * 256 + 255 + 1 = 2048, the farthest.
        ReduceCase{"FarthestDistanceFactor3", NoSets({'q', kEscape, 0xE0, 0xFF}), 3, 4, {'q', 0, 0, 0}},
        ReduceCase{"SizeEndsInsideACopy", NoSets({'a', kEscape, 0x0F, 0x14, 0x00, 'x'}), 4, 10, Bytes(10, 'a')},
        ReduceCase{"SizeEndsBeforeTheEscapeIsRead", NoSets({'a', 'b', kEscape}), 4, 2, FromString("ab")},
        ReduceCase{"DataEndsBeforeTheSize", NoSets(kAbc), 1, 4, {}, kReadPastEnd},
        ReduceCase{"FollowerSetTooBig", TooManyFollowers(), 4, 1, {}, kBadData},
        // A set of three for byte 0 takes two index bits; index 2 is 'z', index 3 is past it.
        ReduceCase{"FollowerIndex", SetsThen(3, {'x', 'y', 'z'}, {{0, 1}, {2, 2}}), 4, 1, {'z'}},
        ReduceCase{"FollowerIndexPastTheSet", SetsThen(3, {'x', 'y', 'z'}, {{0, 1}, {3, 2}}), 4, 1, {}, kBadData},
        ReduceCase{"OneFollowerTakesOneBit", SetsThen(1, {'k'}, {{0, 1}, {0, 1}}), 4, 1, {'k'}},
        ReduceCase{"OneFollowerIndexOneIsPastIt", SetsThen(1, {'k'}, {{0, 1}, {1, 1}}), 4, 1, {}, kBadData},
        ReduceCase{"ByteOutsideTheSet", SetsThen(2, {'x', 'y'}, {{1, 1}, {'w', 8}}), 4, 1, {'w'}}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace RkPipeTest
