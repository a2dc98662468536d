#include "RkCpu.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace RkLib {

RkCpuFeatures RkCpuFeatures::Query() noexcept {
  RkCpuFeatures features;
#if defined(__x86_64__) || defined(__i386__)
  // __get_cpuid_max also covers the old 32-bit processors that have no cpuid instruction at all.
  if (__get_cpuid_max(0, nullptr) >= 1) {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    __cpuid(1, eax, ebx, ecx, edx);
    features.hasLeaf1 = true;
    features.leaf1Ecx = ecx;
  }
#endif
  return features;
}

bool RkCrc32ClmulUsable(const RkCpuFeatures& features) noexcept {
  return features.HasAll(kCpuPclmulqdq | kCpuSsse3 | kCpuSse41);
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
