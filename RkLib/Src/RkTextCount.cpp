#include "RkTextCount.h"

#if defined(__x86_64__)
#include <immintrin.h>
#define RK_TEXT_COUNT_X86 1
#endif

namespace RkLib {

namespace {

// A byte counts when (uint8_t)(b - 7) < 121: one unsigned comparison, no branch.
inline uint64_t CountTail(const uint8_t* p, size_t n) {
  uint64_t count = 0;
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    count += (static_cast<uint8_t>(p[i] - 7) < 121) + (static_cast<uint8_t>(p[i + 1] - 7) < 121) +
             (static_cast<uint8_t>(p[i + 2] - 7) < 121) + (static_cast<uint8_t>(p[i + 3] - 7) < 121) +
             (static_cast<uint8_t>(p[i + 4] - 7) < 121) + (static_cast<uint8_t>(p[i + 5] - 7) < 121) +
             (static_cast<uint8_t>(p[i + 6] - 7) < 121) + (static_cast<uint8_t>(p[i + 7] - 7) < 121);
  }
  for (; i < n; ++i) count += static_cast<uint8_t>(p[i] - 7) < 121;
  return count;
}

#ifdef RK_TEXT_COUNT_X86

// The vector form of the same test: adding 121 moves 7..127 onto -128..-8 as signed bytes, so
// one signed comparison with -7 picks the range. Each lane counts its hits in a byte, which
// holds 255 of them: the horizontal sums come every 255 blocks of 64 bytes.
constexpr size_t kBlock = 64;
constexpr size_t kBlocksPerSum = 255;

uint64_t CountBlocksSse2(const uint8_t* p, size_t blocks) {
  const __m128i shift = _mm_set1_epi8(121);
  const __m128i limit = _mm_set1_epi8(-7);
  const __m128i zero = _mm_setzero_si128();
  uint64_t count = 0;
  while (blocks > 0) {
    const size_t run = blocks < kBlocksPerSum ? blocks : kBlocksPerSum;
    __m128i acc[4] = {zero, zero, zero, zero};
    for (size_t b = 0; b < run; ++b, p += kBlock) {
      for (int k = 0; k < 4; ++k) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
        acc[k] = _mm_sub_epi8(acc[k], _mm_cmplt_epi8(_mm_add_epi8(v, shift), limit));
      }
    }
    for (const __m128i& a : acc) {
      const __m128i sums = _mm_sad_epu8(a, zero);
      count += static_cast<uint64_t>(_mm_cvtsi128_si64(sums)) +
               static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
    }
    blocks -= run;
  }
  return count;
}

__attribute__((target("avx2"))) uint64_t CountBlocksAvx2(const uint8_t* p, size_t blocks) {
  const __m256i shift = _mm256_set1_epi8(121);
  const __m256i limit = _mm256_set1_epi8(-7);
  const __m256i zero = _mm256_setzero_si256();
  uint64_t count = 0;
  while (blocks > 0) {
    const size_t run = blocks < kBlocksPerSum ? blocks : kBlocksPerSum;
    __m256i acc0 = zero;
    __m256i acc1 = zero;
    for (size_t b = 0; b < run; ++b, p += kBlock) {
      const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
      const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32));
      acc0 = _mm256_sub_epi8(acc0, _mm256_cmpgt_epi8(limit, _mm256_add_epi8(v0, shift)));
      acc1 = _mm256_sub_epi8(acc1, _mm256_cmpgt_epi8(limit, _mm256_add_epi8(v1, shift)));
    }
    const __m256i sums = _mm256_add_epi64(_mm256_sad_epu8(acc0, zero), _mm256_sad_epu8(acc1, zero));
    const __m128i half = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    count += static_cast<uint64_t>(_mm_cvtsi128_si64(half)) +
             static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(half, half)));
    blocks -= run;
  }
  return count;
}

using CountBlocks = uint64_t (*)(const uint8_t*, size_t);

CountBlocks ChooseCountBlocks() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") ? CountBlocksAvx2 : CountBlocksSse2;
}

#endif

}  // namespace

uint64_t RkCountTextBytes(const uint8_t* data, size_t length) noexcept {
#ifdef RK_TEXT_COUNT_X86
  static const CountBlocks countBlocks = ChooseCountBlocks();
  const size_t blocks = length / kBlock;
  return countBlocks(data, blocks) + CountTail(data + blocks * kBlock, length - blocks * kBlock);
#else
  return CountTail(data, length);
#endif
}

}  // namespace RkLib
