#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "RkCpu.h"
#include "RkCrc32.h"

using namespace RkLib;

namespace {

// Bit at a time, straight from the definition, as the control for both fast routines.
uint32_t ReferenceCrc32(uint32_t crc, const uint8_t* p, size_t n) {
  crc = ~crc;
  for (size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) ? 0xEDB88320u : 0u);
  }
  return ~crc;
}

using Crc32Routine = uint32_t (*)(uint32_t, const void*, size_t) noexcept;

struct Routine {
  const char* name;
  Crc32Routine run;
  bool (*usable)(const RkCpuFeatures&) noexcept;  // null: runs anywhere
};

const Routine kRoutines[] = {
    {"table", RkCrc32Table, nullptr},
    {"clmul", RkCrc32Clmul, RkCrc32ClmulUsable},
    {"vclmul", RkCrc32Vclmul, RkCrc32VclmulUsable},
    {"chosen", RkCrc32, nullptr},
};

bool Runnable(const Routine& routine) {
  return routine.usable == nullptr || routine.usable(RkCpuFeatures::Query());
}

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(n);
  for (auto& b : bytes) b = static_cast<uint8_t>(random());
  return bytes;
}

// The long text reaches the folding routines, so that they are checked against a published value
// and not only against each other.
TEST(RkCrc32, PublishedVectors) {
  const struct {
    std::string text;
    uint32_t crc;
  } kVectors[] = {
      {"", 0x00000000},
      {"a", 0xE8B7BE43},
      {"abc", 0x352441C2},
      {"123456789", 0xCBF43926},
      {"The quick brown fox jumps over the lazy dog", 0x414FA339},
      {std::string(1000000, 'a'), 0xDC25BFBC},
  };
  const uint8_t byte = 0x5A;
  for (const Routine& routine : kRoutines) {
    if (!Runnable(routine)) continue;
    for (const auto& v : kVectors) {
      EXPECT_EQ(routine.run(0, v.text.data(), v.text.size()), v.crc) << routine.name << " \"" << v.text.substr(0, 50);
    }
    // Null data gives the start value whatever the length; no data keeps the running value.
    EXPECT_EQ(routine.run(0xDEADBEEF, nullptr, 1234), 0u) << routine.name;
    EXPECT_EQ(routine.run(0xDEADBEEF, &byte, 0), 0xDEADBEEFu) << routine.name;
  }
}

// Every short length at every alignment: the lengths cross from the tables to one lane and to
// eight, and on to one and two blocks of the wide routine; the folding routines' head, block and
// tail splits all move with the start offset, which takes every byte of a 256-bit register.
TEST(RkCrc32, EveryShortLengthAndOffset) {
  const std::vector<uint8_t> bytes = RandomBytes(600 + 32, 1);
  std::mt19937 random(2);
  for (size_t offset = 0; offset < 32; ++offset) {
    for (size_t length = 0; length <= 600; ++length) {
      const uint32_t start = static_cast<uint32_t>(random());
      const uint32_t expected = ReferenceCrc32(start, bytes.data() + offset, length);
      for (const Routine& routine : kRoutines) {
        if (!Runnable(routine)) continue;
        ASSERT_EQ(routine.run(start, bytes.data() + offset, length), expected)
            << routine.name << " offset " << offset << " length " << length;
      }
    }
  }
}

// Odd lengths leave a table tail; those just under a multiple of 256 also run the wide routine's
// single-register loop to its longest.
TEST(RkCrc32, LongLengths) {
  const size_t kLengths[] = {1023, 1024,  1025,    2 * 256 + 255,  7 * 256 + 239,
                             4103, 65537, 1000003, (1u << 20) + 3, (1u << 20) + 255};
  const size_t kOffsets[] = {0, 1, 8, 15, 16, 31};
  const std::vector<uint8_t> bytes = RandomBytes((1u << 20) + 255 + 32, 3);
  for (size_t length : kLengths) {
    for (size_t offset : kOffsets) {
      const uint32_t expected = ReferenceCrc32(0x01234567, bytes.data() + offset, length);
      for (const Routine& routine : kRoutines) {
        if (!Runnable(routine)) continue;
        EXPECT_EQ(routine.run(0x01234567, bytes.data() + offset, length), expected)
            << routine.name << " offset " << offset << " length " << length;
      }
    }
  }
}

// Feeding the running CRC back in must not depend on where the pieces were cut, including
// empty pieces and pieces that do or do not reach the folding routines.
TEST(RkCrc32, SplitUpdatesEqualOneShot) {
  const std::vector<uint8_t> bytes = RandomBytes((1u << 20) + 3, 4);
  const uint32_t expected = ReferenceCrc32(0, bytes.data(), bytes.size());
  std::mt19937 random(5);
  for (const Routine& routine : kRoutines) {
    if (!Runnable(routine)) continue;
    for (int trial = 0; trial < 8; ++trial) {
      const size_t maxPiece = size_t{1} << (2 * trial + 2);
      uint32_t crc = routine.run(0, nullptr, 0);
      for (size_t pos = 0; pos < bytes.size();) {
        const size_t piece = std::min(bytes.size() - pos, static_cast<size_t>(random() % (maxPiece + 1)));
        crc = routine.run(crc, bytes.data() + pos, piece);
        pos += piece;
      }
      EXPECT_EQ(crc, expected) << routine.name << " pieces up to " << maxPiece;
    }
  }
}

TEST(RkCrc32, ChoiceFollowsProcessorFeatures) {
  const RkCpuFeatures features = RkCpuFeatures::Query();
  EXPECT_EQ(RkCrc32HasClmul(), RkCrc32ClmulUsable(features));
  const char* expected = RkCrc32VclmulUsable(features) ? "RkCrc32Vclmul"
                         : RkCrc32ClmulUsable(features) ? "RkCrc32Clmul"
                                                        : "RkCrc32Table";
  EXPECT_STREQ(RkCrc32RoutineName(), expected);
}

TEST(RkCrc32, WideRoutineNeedsEveryFeature) {
  const uint32_t leaf1 = kCpuPclmulqdq | kCpuSsse3 | kCpuSse41 | kCpuOsxsave;
  const uint64_t ymm = kXcr0Sse | kXcr0Avx;
  const struct {
    const char* name;
    RkCpuFeatures features;
    bool usable;
  } kCases[] = {
      {"all", {true, leaf1, kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, ymm}, true},
      {"all and more", {true, ~0u, ~0u, ~0u, ~uint64_t{0}}, true},
      {"no vpclmulqdq", {true, leaf1, kCpu7EbxAvx2, ~kCpu7EcxVpclmulqdq, ymm}, false},
      {"no avx2", {true, leaf1, ~kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, ymm}, false},
      {"no osxsave", {true, leaf1 & ~kCpuOsxsave, kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, ymm}, false},
      {"upper halves not saved", {true, leaf1, kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, kXcr0Sse}, false},
      {"sse state not saved", {true, leaf1, kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, kXcr0Avx}, false},
      {"no pclmulqdq", {true, leaf1 & ~kCpuPclmulqdq, kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, ymm}, false},
      {"no sse4.1", {true, leaf1 & ~kCpuSse41, kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, ymm}, false},
      {"no leaf 1", {false, leaf1, kCpu7EbxAvx2, kCpu7EcxVpclmulqdq, ymm}, false},
  };
  for (const auto& c : kCases) EXPECT_EQ(RkCrc32VclmulUsable(c.features), c.usable) << c.name;
}

uint64_t ReferenceTextCount(const uint8_t* p, size_t n) {
  uint64_t count = 0;
  for (size_t i = 0; i < n; ++i) count += p[i] >= 7 && p[i] <= 127;
  return count;
}

// The one-pass CRC and text count against the two done apart, on data where every byte value and
// every lane position occurs, over lengths that cross the wide loop's counter flush (63 blocks of
// 256 bytes) and its tails.
TEST(RkCrc32, CountTextEqualsCrcAndCountApart) {
  std::vector<uint8_t> bytes = RandomBytes(70000 + 64, 11);
  // A stretch of pure text and one of bytes at the edges of the range, so that counts are neither
  // all nor none.
  for (size_t i = 1000; i < 20000; ++i) bytes[i] = static_cast<uint8_t>(32 + i % 95);
  for (size_t i = 20000; i < 21000; ++i) bytes[i] = static_cast<uint8_t>(i % 2 ? 6 + i % 3 : 126 + i % 3);
  const size_t kLengths[] = {0, 1, 255, 256, 257, 511, 1024, 63 * 256 - 1, 63 * 256, 63 * 256 + 1,
                             64 * 256 + 31, 127 * 256 + 200, 70000};
  const size_t kOffsets[] = {0, 1, 33};
  for (size_t length : kLengths) {
    for (size_t offset : kOffsets) {
      const uint8_t* p = bytes.data() + offset;
      uint64_t text = 5;  // the count is added to what was there
      const uint32_t crc = RkCrc32CountText(0x12345678, p, length, text);
      EXPECT_EQ(crc, ReferenceCrc32(0x12345678, p, length)) << "offset " << offset << " length " << length;
      EXPECT_EQ(text, 5 + ReferenceTextCount(p, length)) << "offset " << offset << " length " << length;
    }
  }
}

}  // namespace
