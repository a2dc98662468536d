// Processor features that choose between plain and instruction-set code paths.
#pragma once

#include <cstdint>

namespace RkLib {

// Bits of the ecx register of cpuid leaf 1 that our code paths depend on.
enum RkCpuFeatureBit : uint32_t {
  kCpuPclmulqdq = 1u << 1,
  kCpuSsse3 = 1u << 9,
  kCpuSse41 = 1u << 19,
  kCpuAes = 1u << 25,
};

struct RkCpuFeatures {
  // False on a processor (or an architecture) without cpuid leaf 1; then no bit counts.
  bool hasLeaf1 = false;
  uint32_t leaf1Ecx = 0;

  // Asks the processor every time: the answer is cheap and callers decide what to cache.
  static RkCpuFeatures Query() noexcept;

  bool HasAll(uint32_t bits) const noexcept { return hasLeaf1 && (leaf1Ecx & bits) == bits; }
};

// The folding CRC-32 routine is built to assume carry-less multiplication, SSSE3 and SSE4.1.
bool RkCrc32ClmulUsable(const RkCpuFeatures& features) noexcept;

// Which AES code the AES stages run: 0 the plain table code, 1 SSSE3 alone, 2 the AES
// instructions alone, 3 both. Zero when noAesOpt is set or leaf 1 is missing.
int RkAesLevel(const RkCpuFeatures& features, bool noAesOpt) noexcept;
// The same for this processor, asked afresh on each call.
int RkAesLevel(bool noAesOpt) noexcept;

}  // namespace RkLib
