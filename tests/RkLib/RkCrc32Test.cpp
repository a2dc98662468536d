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

struct Routine {
  const char* name;
  uint32_t (*run)(uint32_t, const void*, size_t) noexcept;
  bool needsClmul;
};

const Routine kRoutines[] = {
    {"table", RkCrc32Table, false},
    {"clmul", RkCrc32Clmul, true},
    {"chosen", RkCrc32, false},
};

bool Runnable(const Routine& routine) {
  return !routine.needsClmul || RkCrc32ClmulUsable(RkCpuFeatures::Query());
}

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(n);
  for (auto& b : bytes) b = static_cast<uint8_t>(random());
  return bytes;
}

TEST(RkCrc32, PublishedVectors) {
  const struct {
    const char* text;
    uint32_t crc;
  } kVectors[] = {
      {"", 0x00000000},
      {"a", 0xE8B7BE43},
      {"abc", 0x352441C2},
      {"123456789", 0xCBF43926},
      {"The quick brown fox jumps over the lazy dog", 0x414FA339},
  };
  for (const Routine& routine : kRoutines) {
    if (!Runnable(routine)) continue;
    for (const auto& v : kVectors) {
      EXPECT_EQ(routine.run(0, v.text, std::strlen(v.text)), v.crc) << routine.name << " \"" << v.text << '"';
    }
  }
}

// The short vectors never reach the folding routine; a long text checks it against a published
// value rather than only against the other routines.
TEST(RkCrc32, MillionA) {
  const std::string text(1000000, 'a');
  for (const Routine& routine : kRoutines) {
    if (!Runnable(routine)) continue;
    EXPECT_EQ(routine.run(0, text.data(), text.size()), 0xDC25BFBCu) << routine.name;
  }
}

TEST(RkCrc32, NullDataGivesStartValue) {
  const uint8_t byte = 0x5A;
  for (const Routine& routine : kRoutines) {
    if (!Runnable(routine)) continue;
    EXPECT_EQ(routine.run(0, nullptr, 0), 0u) << routine.name;
    EXPECT_EQ(routine.run(0xDEADBEEF, nullptr, 1234), 0u) << routine.name;
    EXPECT_EQ(routine.run(0xDEADBEEF, &byte, 0), 0xDEADBEEFu) << routine.name;
  }
}

// Every short length at every alignment: the lengths cross from the tables to one lane and to
// eight, and the folding routine's head, block and tail splits all move with the start offset.
TEST(RkCrc32, EveryShortLengthAndOffset) {
  const std::vector<uint8_t> bytes = RandomBytes(300 + 16, 1);
  std::mt19937 random(2);
  for (size_t offset = 0; offset < 16; ++offset) {
    for (size_t length = 0; length <= 300; ++length) {
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

TEST(RkCrc32, LongLengths) {
  const size_t kLengths[] = {383, 384, 385, 1023, 1024, 1025, 4096 + 7, (1u << 20) + 3};
  const size_t kOffsets[] = {0, 1, 8, 15};
  const std::vector<uint8_t> bytes = RandomBytes((1u << 20) + 3 + 16, 3);
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
// empty pieces and pieces that do or do not reach the folding routine.
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
  EXPECT_EQ(RkCrc32HasClmul(), RkCrc32ClmulUsable(RkCpuFeatures::Query()));
}

}  // namespace
