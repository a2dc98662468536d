#include "RkCpu.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace RkLib {
namespace {

#if defined(__x86_64__) || defined(__i386__)
// In assembly rather than _xgetbv, which would need the whole file built for XSAVE.
uint64_t ReadXcr0() noexcept {
  uint32_t low = 0, high = 0;
  __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return uint64_t{high} << 32 | low;
}
#endif

}  // namespace

RkCpuFeatures RkCpuFeatures::Query() noexcept {
  RkCpuFeatures features;
#if defined(__x86_64__) || defined(__i386__)
  // __get_cpuid_max also covers the old 32-bit processors that have no cpuid instruction at all.
  const unsigned maxLeaf = __get_cpuid_max(0, nullptr);
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (maxLeaf >= 1) {
    __cpuid(1, eax, ebx, ecx, edx);
    features.hasLeaf1 = true;
    features.leaf1Ecx = ecx;
    if (ecx & kCpuOsxsave) features.xcr0 = ReadXcr0();
  }
  if (maxLeaf >= 7) {
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    features.leaf7Ebx = ebx;
    features.leaf7Ecx = ecx;
  }
#endif
  return features;
}

bool RkCrc32ClmulUsable(const RkCpuFeatures& features) noexcept {
  return features.HasAll(kCpuPclmulqdq | kCpuSsse3 | kCpuSse41);
}

bool RkCrc32VclmulUsable(const RkCpuFeatures& features) noexcept {
  return RkCrc32ClmulUsable(features) && features.OsSavesYmm() && (features.leaf7Ebx & kCpu7EbxAvx2) != 0 &&
         (features.leaf7Ecx & kCpu7EcxVpclmulqdq) != 0;
}

int RkAesLevel(const RkCpuFeatures& features, bool noAesOpt) noexcept {
  if (noAesOpt || !features.hasLeaf1) return 0;
  const int ssse3 = (features.leaf1Ecx & kCpuSsse3) ? 1 : 0;
  const int aes = (features.leaf1Ecx & kCpuAes) ? 2 : 0;
  return ssse3 | aes;
}

int RkAesLevel(bool noAesOpt) noexcept {
  if (noAesOpt) return 0;
  return RkAesLevel(RkCpuFeatures::Query(), false);
}

}  // namespace RkLib
