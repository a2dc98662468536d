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
  kCpuOsxsave = 1u << 27,
};

// Bits of cpuid leaf 7, subleaf 0: kCpu7Ebx... in its ebx register, kCpu7Ecx... in its ecx.
enum RkCpuLeaf7Bit : uint32_t {
  kCpu7EbxAvx2 = 1u << 5,
  kCpu7EcxVpclmulqdq = 1u << 10,
};

// Bits of XCR0, the register state the operating system saves on a context switch. Instructions
// on 256-bit registers are safe only when it saves both the low halves (SSE) and the high (AVX).
enum RkCpuXcr0Bit : uint64_t {
  kXcr0Sse = 1u << 1,
  kXcr0Avx = 1u << 2,
};

struct RkCpuFeatures {
  // False on a processor (or an architecture) without cpuid leaf 1; then no bit counts.
  bool hasLeaf1 = false;
  uint32_t leaf1Ecx = 0;
  // Zero on a processor without leaf 7.
  uint32_t leaf7Ebx = 0;
  uint32_t leaf7Ecx = 0;
  // Zero unless leaf 1 reports OSXSAVE: without it the register cannot be read.
  uint64_t xcr0 = 0;

  // Asks the processor every time: the answer is cheap and callers decide what to cache.
  static RkCpuFeatures Query() noexcept;

  bool HasAll(uint32_t bits) const noexcept { return hasLeaf1 && (leaf1Ecx & bits) == bits; }

  bool OsSavesYmm() const noexcept {
    return HasAll(kCpuOsxsave) && (xcr0 & (kXcr0Sse | kXcr0Avx)) == (kXcr0Sse | kXcr0Avx);
  }
};

// The folding CRC-32 routine is built to assume carry-less multiplication, SSSE3 and SSE4.1.
bool RkCrc32ClmulUsable(const RkCpuFeatures& features) noexcept;
// The wide folding routine needs 256-bit carry-less multiplication and AVX2, the operating system
// saving the 256-bit registers, and, for its last lanes, everything the 128-bit routine needs.
bool RkCrc32VclmulUsable(const RkCpuFeatures& features) noexcept;

// Which AES code the AES stages run: 0 the plain table code, 1 SSSE3 alone, 2 the AES
// instructions alone, 3 both. Zero when noAesOpt is set or leaf 1 is missing.
int RkAesLevel(const RkCpuFeatures& features, bool noAesOpt) noexcept;
// The same for this processor, asked afresh on each call.
int RkAesLevel(bool noAesOpt) noexcept;

}  // namespace RkLib
