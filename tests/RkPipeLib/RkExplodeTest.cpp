// The implode decoder (method 6) through a test-only encoder (no tool writes the method), plus
// hand-built trees for the refusals. Corpus samples live in the legacy zip corpus test.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <queue>
#include <string>
#include <unordered_map>

#include "RkExplode.h"
#include "RkLegacyZipTestUtil.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkExplode;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr uint8_t kLarge = RkExplode::kLargeWindow;
constexpr uint8_t kLiterals = RkExplode::kLiteralTree;

struct Token {
  uint32_t length;  // 0 for a literal
  uint32_t value;   // the byte, or the distance
};

// Huffman lengths on counts+1, flattened until none exceeds 16.
std::vector<uint8_t> CodeLengths(std::vector<uint64_t> counts) {
  for (uint64_t& c : counts) ++c;
  for (;;) {
    const size_t n = counts.size();
    std::vector<size_t> parent(2 * n, 0);
    using Node = std::pair<uint64_t, size_t>;
    std::priority_queue<Node, std::vector<Node>, std::greater<>> queue;
    for (size_t i = 0; i < n; ++i) queue.push({counts[i], i});
    size_t next = n;
    while (queue.size() > 1) {
      const Node a = queue.top();
      queue.pop();
      const Node b = queue.top();
      queue.pop();
      parent[a.second] = parent[b.second] = next;
      queue.push({a.first + b.first, next++});
    }
    std::vector<uint8_t> lengths(n);
    bool fits = true;
    for (size_t i = 0; i < n; ++i) {
      uint32_t depth = 0;
      for (size_t k = i; k != next - 1; k = parent[k]) ++depth;
      lengths[i] = static_cast<uint8_t>(depth);
      fits = fits && depth <= 16;
    }
    if (fits) return lengths;
    for (uint64_t& c : counts) c = c / 2 + 1;
  }
}

std::vector<uint32_t> ShannonFanoCodes(const std::vector<uint8_t>& lengths) {
  std::vector<uint32_t> order(lengths.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) { return lengths[a] < lengths[b]; });
  std::vector<uint32_t> codes(lengths.size());
  uint32_t code = 0, increment = 0, last = 0;
  for (size_t i = order.size(); i-- > 0;) {
    const uint32_t len = lengths[order[i]];
    code += increment;
    if (len != last) {
      last = len;
      increment = 1u << (16 - len);
    }
    codes[order[i]] = code >> (16 - len);
  }
  return codes;
}

void WriteTree(LsbBitWriter& w, const std::vector<uint8_t>& lengths) {
  std::vector<uint8_t> runs;
  for (size_t i = 0; i < lengths.size();) {
    size_t n = 1;
    while (n < 16 && i + n < lengths.size() && lengths[i + n] == lengths[i]) ++n;
    runs.push_back(static_cast<uint8_t>((n - 1) << 4 | (lengths[i] - 1)));
    i += n;
  }
  w.PutByte(static_cast<uint8_t>(runs.size() - 1));
  for (uint8_t r : runs) w.PutByte(r);
}

class Imploder {
 public:
  explicit Imploder(uint8_t flags)
      : literalTree_(flags & kLiterals), lowBits_(flags & kLarge ? 7 : 6), minMatch_(flags & kLiterals ? 3 : 2) {}

  uint32_t MinMatch() const { return minMatch_; }
  uint32_t MaxMatch() const { return minMatch_ + 63 + 255; }
  uint32_t MaxDistance() const { return 64u << lowBits_; }

  std::vector<Token> Tokenize(const Bytes& data) const {
    std::vector<Token> tokens;
    std::unordered_map<uint32_t, std::vector<size_t>> seen;
    const auto remember = [&](size_t at) {
      if (at + 1 < data.size()) seen[data[at] | data[at + 1] << 8].push_back(at);
    };
    for (size_t i = 0; i < data.size();) {
      size_t best = 0, distance = 0;
      if (i + 1 < data.size()) {
        const auto& list = seen[data[i] | data[i + 1] << 8];
        size_t tried = 0;
        for (auto it = list.rbegin(); it != list.rend() && i - *it <= MaxDistance() && tried < 64; ++it, ++tried) {
          size_t n = 0;
          while (n < MaxMatch() && i + n < data.size() && data[*it + n] == data[i + n]) ++n;
          if (n > best) best = n, distance = i - *it;
        }
      }
      if (best >= minMatch_) {
        tokens.push_back({static_cast<uint32_t>(best), static_cast<uint32_t>(distance)});
        for (size_t k = 0; k < best; ++k) remember(i + k);
        i += best;
      } else {
        tokens.push_back({0, data[i]});
        remember(i++);
      }
    }
    return tokens;
  }

  Bytes Write(const std::vector<Token>& tokens, const std::vector<uint8_t>& distanceLengths = {}) const {
    std::vector<uint64_t> literalCounts(256), lengthCounts(64), distanceCounts(64);
    for (const Token& t : tokens) {
      if (t.length == 0) {
        ++literalCounts[t.value];
      } else {
        ++lengthCounts[std::min(t.length - minMatch_, 63u)];
        ++distanceCounts[(t.value - 1) >> lowBits_];
      }
    }
    const auto literalLengths = CodeLengths(literalCounts), lengthLengths = CodeLengths(lengthCounts);
    const auto distLengths = distanceLengths.empty() ? CodeLengths(distanceCounts) : distanceLengths;
    const auto literalCodes = ShannonFanoCodes(literalLengths), lengthCodes = ShannonFanoCodes(lengthLengths);
    const auto distCodes = ShannonFanoCodes(distLengths);

    LsbBitWriter w;
    if (literalTree_) WriteTree(w, literalLengths);
    WriteTree(w, lengthLengths);
    WriteTree(w, distLengths);
    for (const Token& t : tokens) {
      if (t.length == 0) {
        w.Put(1, 1);
        if (literalTree_) {
          w.PutCode(literalCodes[t.value], literalLengths[t.value]);
        } else {
          w.PutByte(static_cast<uint8_t>(t.value));
        }
        continue;
      }
      w.Put(0, 1);
      const uint32_t d = t.value - 1;
      w.Put(d & ((1u << lowBits_) - 1), lowBits_);
      w.PutCode(distCodes[d >> lowBits_], distLengths[d >> lowBits_]);
      const uint32_t l = t.length - minMatch_;
      const uint32_t symbol = std::min(l, 63u);
      w.PutCode(lengthCodes[symbol], lengthLengths[symbol]);
      if (symbol == 63) w.PutByte(static_cast<uint8_t>(l - 63));
    }
    return w.Finish();
  }

  Bytes Encode(const Bytes& data) const { return Write(Tokenize(data)); }

 private:
  bool literalTree_;
  uint32_t lowBits_;
  uint32_t minMatch_;
};

DecodeResult DecodeImploded(const Bytes& input, uint8_t flags, uint64_t size, int32_t inSize = 64 * 1024,
                            int32_t outSize = 64 * 1024) {
  return Decode<RkExplode>(input, SmallSettings(inSize), SmallSettings(outSize), flags, size);
}

const char* FlagName(uint8_t flags) {
  static const char* const kNames[] = {"Dict4K2Trees", "Dict8K2Trees", "Dict4K3Trees", "Dict8K3Trees"};
  return kNames[flags & 3];
}

class ImplodeVariant : public PipeTest, public testing::WithParamInterface<uint8_t> {};

// Text (mostly copies; trailing bytes are not the node's) and noise (flat literal tree), through
// every buffer shape.
TEST_P(ImplodeVariant, RoundTrips) {
  const uint8_t flags = GetParam();
  Bytes noise(30000);
  uint32_t state = 99;
  for (uint8_t& b : noise) b = static_cast<uint8_t>((state = state * 1664525u + 1013904223u) >> 24);
  for (const Bytes& data : {SampleData(200000, 21), noise}) {
    const Bytes packed = Imploder(flags).Encode(data);
    for (const BufferShape& shape : kBufferShapes) {
      const DecodeResult r = DecodeImploded(Concat(packed, FromString("trailing")), flags, data.size(),
                                            shape.inputSize, shape.outputSize);
      EXPECT_TRUE(Decoded(r, data)) << shape.name;
      EXPECT_EQ(r.bytesRead, packed.size()) << shape.name;
    }
  }
}

// Longest copy, farthest distance, and a complete distance tree with codes up to 16 bits.
TEST_P(ImplodeVariant, LimitsOfTheFormat) {
  const uint8_t flags = GetParam();
  const Imploder imploder(flags);
  Bytes data = SampleData(imploder.MaxDistance() + 10, 3);
  std::vector<Token> tokens;
  for (uint8_t b : data) tokens.push_back({0, b});
  tokens.push_back({imploder.MaxMatch(), imploder.MaxDistance()});
  for (uint32_t i = 0; i < imploder.MaxMatch(); ++i) data.push_back(data[data.size() - imploder.MaxDistance()]);
  tokens.push_back({imploder.MinMatch(), 1});
  for (uint32_t i = 0; i < imploder.MinMatch(); ++i) data.push_back(data.back());
  std::vector<uint8_t> deep = {1, 2, 3, 4, 5, 6, 7, 8};
  deep.insert(deep.end(), 26, 13);
  deep.insert(deep.end(), 18, 15);
  deep.insert(deep.end(), 12, 16);
  std::reverse(deep.begin(), deep.end());  // the far distances, at the top, get the short codes
  for (const std::vector<uint8_t>& distanceLengths : {std::vector<uint8_t>{}, deep}) {
    const Bytes packed = imploder.Write(tokens, distanceLengths);
    EXPECT_TRUE(Decoded(DecodeImploded(packed, flags, data.size()), data));
    EXPECT_TRUE(Decoded(DecodeImploded(packed, flags, data.size(), 1, 5), data));
  }
}

// The size ends the data, inside a copy too; a larger size is a cut-off stream. Copies before the
// start read zeros.
TEST_P(ImplodeVariant, SizeEndsTheData) {
  const uint8_t flags = GetParam();
  const Imploder imploder(flags);
  const Bytes packed = imploder.Write({{0, 'x'}, {100, 1}});
  EXPECT_TRUE(Decoded(DecodeImploded(packed, flags, 101), Bytes(101, 'x')));
  EXPECT_TRUE(Decoded(DecodeImploded(packed, flags, 50), Bytes(50, 'x')));
  EXPECT_TRUE(Decoded(DecodeImploded({}, flags, 0), {}));
  EXPECT_TRUE(FailedWith(DecodeImploded(packed, flags, 102), kReadPastEnd));
  EXPECT_TRUE(FailedWith(DecodeImploded(Bytes(packed.begin(), packed.end() - 1), flags, 101), kReadPastEnd));
  const Bytes early = imploder.Write({{0, 'a'}, {imploder.MinMatch() + 4, imploder.MaxDistance()}, {0, 'b'}});
  Bytes expected = {'a'};
  expected.insert(expected.end(), imploder.MinMatch() + 4, 0);
  expected.push_back('b');
  EXPECT_TRUE(Decoded(DecodeImploded(early, flags, expected.size()), expected));
}

INSTANTIATE_TEST_SUITE_P(Implode, ImplodeVariant, testing::Values(0, kLarge, kLiterals, kLarge | kLiterals),
                         [](const auto& row) { return std::string(FlagName(row.param)); });

class ImplodeNode : public PipeTest {};

TEST_F(ImplodeNode, IsReusedAcrossVariants) {
  const RkStreamSettings settings = SmallSettings(4096);
  RkExplode node(0, 0, nullptr, nullptr, settings);
  for (uint8_t flags : {3, 0, 2, 1, 3}) {
    const Bytes data = SampleData(30000 + flags * 100, flags + 1);
    node.Reset(flags, data.size());
    EXPECT_TRUE(Decoded(RunNode(node, Imploder(flags).Encode(data), settings), data)) << FlagName(flags);
  }
}

struct TreeCase {
  const char* name;
  Bytes lengthTree;
  uint32_t code;       // 0: the tree is good
  bool alone = false;  // the input ends with the tree
};

class ImplodeTree : public PipeTest, public testing::WithParamInterface<TreeCase> {};

TEST_P(ImplodeTree, IsTakenOrRefused) {
  const TreeCase& c = GetParam();
  // Length tree under test, then 64 six-bit distance codes and a raw literal 'q'.
  LsbBitWriter tail;
  tail.PutByte(0x03);
  for (int i = 0; i < 4; ++i) tail.PutByte(0xF5);
  tail.Put(1, 1);
  tail.PutByte('q');
  const DecodeResult r = DecodeImploded(c.alone ? c.lengthTree : Concat(c.lengthTree, tail.Finish()), 0, 1);
  if (c.code) {
    EXPECT_TRUE(FailedWith(r, c.code));
  } else {
    EXPECT_TRUE(Decoded(r, {'q'}));
  }
}

INSTANTIATE_TEST_SUITE_P(Implode, ImplodeTree,
                         testing::Values(TreeCase{"SixtyFourOfSixBits", {0x03, 0xF5, 0xF5, 0xF5, 0xF5}, 0},
    TreeCase{"TooFewSymbols", {0x00, 0xF5}, kBadData},
    TreeCase{"TooManySymbols", {0x04, 0xF5, 0xF5, 0xF5, 0xF5, 0x05}, kBadData},
    TreeCase{"OverSubscribed", {0x03, 0xF4, 0xF4, 0xF4, 0xF4}, kBadData},
    TreeCase{"Incomplete", {0x03, 0xF6, 0xF6, 0xF6, 0xF6}, kBadData},
    TreeCase{
                                             "IncompleteMixed", {0x05, 0x00, 0x01, 0xF7, 0xF7, 0xF7, 0xD7}, kBadData},
    TreeCase{"FullTooSoon", {0x04, 0x10, 0xFF, 0xFF, 0xFF, 0xDF}, kBadData},
    TreeCase{"CutOff", {0x03, 0xF5}, kReadPastEnd, true}),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace RkPipeTest
