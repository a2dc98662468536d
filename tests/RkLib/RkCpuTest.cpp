#include <gtest/gtest.h>

#include "RkCpu.h"

using namespace RkLib;

namespace {

constexpr uint32_t kOtherBits = 0xFFFFFFFFu & ~(kCpuPclmulqdq | kCpuSsse3 | kCpuSse41 | kCpuAes);

TEST(RkCpu, AesLevel) {
  const struct {
    const char* name;
    RkCpuFeatures features;
    bool noAesOpt;
    int level;
  } kCases[] = {
      {"neither", {true, 0}, false, 0},
      {"neither, other bits set", {true, kOtherBits}, false, 0},
      {"ssse3 alone", {true, kCpuSsse3}, false, 1},
      {"aes alone", {true, kCpuAes}, false, 2},
      {"both", {true, kCpuSsse3 | kCpuAes}, false, 3},
      {"both, switched off", {true, kCpuSsse3 | kCpuAes}, true, 0},
      {"no leaf 1", {false, kCpuSsse3 | kCpuAes}, false, 0},
  };
  for (const auto& c : kCases) EXPECT_EQ(RkAesLevel(c.features, c.noAesOpt), c.level) << c.name;
}

TEST(RkCpu, AesLevelOfThisProcessor) {
  EXPECT_EQ(RkAesLevel(true), 0);
  EXPECT_EQ(RkAesLevel(false), RkAesLevel(RkCpuFeatures::Query(), false));
}

TEST(RkCpu, Crc32ClmulNeedsAllThreeBits) {
  const uint32_t all = kCpuPclmulqdq | kCpuSsse3 | kCpuSse41;
  const struct {
    const char* name;
    RkCpuFeatures features;
    bool usable;
  } kCases[] = {
      {"all three", {true, all}, true},
      {"all three and more", {true, all | kOtherBits | kCpuAes}, true},
      {"no pclmulqdq", {true, all & ~kCpuPclmulqdq}, false},
      {"no ssse3", {true, all & ~kCpuSsse3}, false},
      {"no sse4.1", {true, all & ~kCpuSse41}, false},
      {"no leaf 1", {false, all}, false},
  };
  for (const auto& c : kCases) EXPECT_EQ(RkCrc32ClmulUsable(c.features), c.usable) << c.name;
}

}  // namespace
