#include "RkCrc32.h"

#include <array>

#include "RkCpu.h"
#include "RkTextCount.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define RK_CRC32_CLMUL 1
#endif

namespace RkLib {
namespace {

// Bit layout of a CRC register and of every constant in this file: bit j holds the coefficient
// of x^(31-j). That is the order in which ZIP feeds the message, least significant bit of each
// byte first, so multiplying by x is a shift right and x^31 is bit 0.
constexpr uint32_t kPolynomial = 0xEDB88320;  // P(x) without its x^32 term

constexpr uint32_t MulX(uint32_t v) { return (v >> 1) ^ ((v & 1) ? kPolynomial : 0); }

constexpr uint32_t XPowModP(unsigned n) {
  uint32_t v = 0x80000000u;  // x^0
  for (; n != 0; --n) v = MulX(v);
  return v;
}

// Sixteen bytes per step: 16 KiB of tables, which still fit the first-level cache beside the data.
constexpr int kSlices = 16;
using Crc32Tables = std::array<std::array<uint32_t, 256>, kSlices>;

// tables[k][b]: the register change that byte b causes when k more bytes follow it in the step.
constexpr Crc32Tables MakeTables() {
  Crc32Tables tables{};
  for (uint32_t b = 0; b < 256; ++b) {
    uint32_t v = b;
    for (int bit = 0; bit < 8; ++bit) v = MulX(v);
    tables[0][b] = v;
  }
  for (int k = 1; k < kSlices; ++k) {
    for (int b = 0; b < 256; ++b) {
      const uint32_t prev = tables[k - 1][b];
      tables[k][b] = (prev >> 8) ^ tables[0][prev & 0xFF];
    }
  }
  return tables;
}

constexpr Crc32Tables kTables = MakeTables();

// Byte by byte, so the same code is right on a big-endian host; compilers fuse it into one load.
inline uint32_t LoadLe32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

inline uint32_t SliceWord(uint32_t w, int k) {
  return kTables[k][w & 0xFF] ^ kTables[k - 1][(w >> 8) & 0xFF] ^ kTables[k - 2][(w >> 16) & 0xFF] ^
         kTables[k - 3][w >> 24];
}

// Works on the register itself, that is the complement of the CRC the callers see.
uint32_t UpdateTable(uint32_t state, const uint8_t* p, size_t n) {
  for (; n >= kSlices; n -= kSlices, p += kSlices) {
    state = SliceWord(LoadLe32(p) ^ state, 15) ^ SliceWord(LoadLe32(p + 4), 11) ^
            SliceWord(LoadLe32(p + 8), 7) ^ SliceWord(LoadLe32(p + 12), 3);
  }
  for (; n != 0; --n, ++p) state = (state >> 8) ^ kTables[0][(state ^ *p) & 0xFF];
  return state;
}

#ifdef RK_CRC32_CLMUL

// Folding. A 128-bit lane loaded from 16 message bytes holds in its bit k (bit k % 8 of byte k / 8)
// the coefficient of x^(127-k) of that stretch of the message: its low quadword H stands for
// H(x) x^64 and its high quadword L for L(x). Carrying the lane D bits further down the message
// multiplies it by x^D, and modulo P
//   H x^(64+D) + L x^D  =  H (x^(64+D) mod P) + L (x^D mod P).
// pclmulqdq of a quadword (bit i for x^(63-i)) with a 32-bit constant in the register layout
// (bit j for x^(31-j)) puts the coefficient of x^(94-k) in bit k, which as a lane is the product
// times x^33. So the constant for H is x^(D+31) mod P and the one for L is x^(D-33) mod P. Each
// product is at most 95 bits wide: the sum of the two is again a lane, D bits further on.
struct FoldConstants {
  uint64_t forLow;
  uint64_t forHigh;
};

constexpr FoldConstants FoldBy(unsigned bits) { return {XPowModP(bits + 31), XPowModP(bits - 33)}; }

// Element i carries data i steps of stepBytes further; element 0 is unused.
template <int kSteps>
constexpr std::array<FoldConstants, kSteps + 1> MakeFoldConstants(size_t stepBytes) {
  std::array<FoldConstants, kSteps + 1> constants{};
  for (unsigned i = 1; i <= kSteps; ++i) constants[i] = FoldBy(static_cast<unsigned>(i * stepBytes * 8));
  return constants;
}

constexpr int kLanes = 8;
constexpr size_t kLaneBytes = 16;
constexpr size_t kBlockBytes = kLanes * kLaneBytes;

// kFold[i] carries a lane i lanes further: kFold[8] across a whole block in the main loop
// (x^1055 and x^991), kFold[1..7] to merge the eight lanes at the end, kFold[1] (x^159 and x^95)
// also for single lanes.
constexpr auto kFold = MakeFoldConstants<kLanes>(kLaneBytes);

// Shorter inputs are left to the tables, which are faster there than one lane and the table
// pass over the final lane.
constexpr size_t kClmulMinLength = 64;

#define RK_CLMUL_TARGET __attribute__((target("pclmul,sse4.1,ssse3")))

RK_CLMUL_TARGET inline __m128i LoadFold(unsigned lanes) {
  return _mm_set_epi64x(static_cast<long long>(kFold[lanes].forHigh),
                        static_cast<long long>(kFold[lanes].forLow));
}

RK_CLMUL_TARGET inline __m128i Fold(__m128i lane, __m128i constants) {
  return _mm_xor_si128(_mm_clmulepi64_si128(lane, constants, 0x00),
                       _mm_clmulepi64_si128(lane, constants, 0x11));
}

// Folds the whole lanes left at in into acc and returns the register of the whole message. The
// lane is a message of 16 bytes whose CRC register, starting from zero, is the register of
// everything folded so far; the tables finish it and the tail.
RK_CLMUL_TARGET uint32_t FinishLanes(__m128i acc, const __m128i* in, size_t n) {
  const __m128i byLane = LoadFold(1);
  for (; n >= kLaneBytes; n -= kLaneBytes, ++in) acc = _mm_xor_si128(Fold(acc, byLane), _mm_loadu_si128(in));

  alignas(16) uint8_t lane[kLaneBytes];
  _mm_store_si128(reinterpret_cast<__m128i*>(lane), acc);
  const uint32_t state = UpdateTable(0, lane, kLaneBytes);
  return UpdateTable(state, reinterpret_cast<const uint8_t*>(in), n);
}

// Eight lanes at a time; returns the single lane that the eight fold into. Needs n >= kBlockBytes
// and p aligned to 16 bytes.
RK_CLMUL_TARGET __m128i FoldBlocks(uint32_t state, const __m128i*& in, size_t& n) {
  // Each loop over the lanes is unrolled so that the array lives in registers.
  __m128i x[kLanes];
#pragma GCC unroll 8
  for (int i = 0; i < kLanes; ++i) x[i] = _mm_load_si128(in + i);
  // The register stands for the message so far, shifted to line up with the next 32 bits.
  x[0] = _mm_xor_si128(x[0], _mm_cvtsi32_si128(static_cast<int>(state)));
  in += kLanes;
  n -= kBlockBytes;

  const __m128i byBlock = LoadFold(kLanes);
  for (; n >= kBlockBytes; n -= kBlockBytes, in += kLanes) {
#pragma GCC unroll 8
    for (int i = 0; i < kLanes; ++i) x[i] = _mm_xor_si128(Fold(x[i], byBlock), _mm_load_si128(in + i));
  }

  // Pairwise, so that the merge waits on one multiplication, not seven in a row.
  const __m128i m01 = _mm_xor_si128(Fold(x[0], LoadFold(7)), Fold(x[1], LoadFold(6)));
  const __m128i m23 = _mm_xor_si128(Fold(x[2], LoadFold(5)), Fold(x[3], LoadFold(4)));
  const __m128i m45 = _mm_xor_si128(Fold(x[4], LoadFold(3)), Fold(x[5], LoadFold(2)));
  const __m128i m67 = _mm_xor_si128(Fold(x[6], LoadFold(1)), x[7]);
  return _mm_xor_si128(_mm_xor_si128(m01, m23), _mm_xor_si128(m45, m67));
}

// Needs n >= kClmulMinLength.
RK_CLMUL_TARGET uint32_t UpdateClmul(uint32_t state, const uint8_t* p, size_t n) {
  const size_t head = (kLaneBytes - reinterpret_cast<uintptr_t>(p) % kLaneBytes) % kLaneBytes;
  state = UpdateTable(state, p, head);
  n -= head;

  const auto* in = reinterpret_cast<const __m128i*>(p + head);
  __m128i acc;
  if (n >= kBlockBytes) {
    acc = FoldBlocks(state, in, n);
  } else {
    acc = _mm_xor_si128(_mm_load_si128(in++), _mm_cvtsi32_si128(static_cast<int>(state)));
    n -= kLaneBytes;
  }

  return FinishLanes(acc, in, n);
}

// The same folding on 256-bit registers, each holding two lanes side by side, the earlier 16 bytes
// in its low half. The halves fold independently by the same distance, so a wide constant is the
// 128-bit pair twice. The multiplier starts a product every cycle but takes several over each;
// with eight registers in flight, two products each per block, no fold waits on the one before.
constexpr int kWideRegs = 8;
constexpr size_t kWideBytes = 2 * kLaneBytes;
constexpr size_t kWideBlockBytes = kWideRegs * kWideBytes;

// kWideFold[i] carries a register i registers further: kWideFold[8] across a whole block in the
// main loop (x^2079 and x^2015), kWideFold[1..7] to merge the eight registers and kWideFold[1]
// (x^287 and x^223) for single registers after that.
constexpr auto kWideFold = MakeFoldConstants<kWideRegs>(kWideBytes);

// The least the wide loop takes; measured, from one block up the wide routine is no slower than
// the 128-bit one even with its longer merge, and shorter inputs go to the 128-bit one.
constexpr size_t kVclmulMinLength = kWideBlockBytes;

#define RK_VCLMUL_TARGET __attribute__((target("vpclmulqdq,avx2,pclmul,sse4.1")))

RK_VCLMUL_TARGET inline __m256i LoadWideFold(unsigned regs) {
  const auto forLow = static_cast<long long>(kWideFold[regs].forLow);
  const auto forHigh = static_cast<long long>(kWideFold[regs].forHigh);
  return _mm256_set_epi64x(forHigh, forLow, forHigh, forLow);
}

RK_VCLMUL_TARGET inline __m256i FoldWide(__m256i regs, __m256i constants) {
  return _mm256_xor_si256(_mm256_clmulepi64_epi128(regs, constants, 0x00),
                          _mm256_clmulepi64_epi128(regs, constants, 0x11));
}

// Counts, in each byte lane, the bytes of v with a value from 7 to 127: adding 121 moves that
// range onto -128..-8 as signed bytes, where one signed comparison with -7 picks it out.
RK_VCLMUL_TARGET inline __m256i CountTextLanes(__m256i lanes, __m256i v) {
  const __m256i moved = _mm256_add_epi8(v, _mm256_set1_epi8(121));
  return _mm256_sub_epi8(lanes, _mm256_cmpgt_epi8(_mm256_set1_epi8(-7), moved));
}

RK_VCLMUL_TARGET inline uint64_t SumLanes(__m256i lanes) {
  const __m256i sums = _mm256_sad_epu8(lanes, _mm256_setzero_si256());
  const __m128i half = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
  return static_cast<uint64_t>(_mm_cvtsi128_si64(half)) + static_cast<uint64_t>(_mm_extract_epi64(half, 1));
}

// Needs n >= kVclmulMinLength. Unlike the 128-bit routine it takes the data unaligned: the loads
// keep up with the multiplier even across cache lines, and a table pass to align the start cost
// more than it saved on inputs of a few kilobytes. With kCount it also counts the text bytes of the
// data from the registers it has loaded anyway: the comparisons run on other ports than the
// multiplier, so the count costs next to nothing where a second pass would cost a third.
template <bool kCount>
RK_VCLMUL_TARGET uint32_t UpdateVclmul(uint32_t state, const uint8_t* p, size_t n, uint64_t* text) {
  const auto* in = reinterpret_cast<const __m256i*>(p);
  __m256i x[kWideRegs];
#pragma GCC unroll 8
  for (int i = 0; i < kWideRegs; ++i) x[i] = _mm256_loadu_si256(in + i);
  // Each block adds at most 4 to a byte lane of either counter: 63 blocks fit in a byte.
  constexpr int kBlocksPerSum = 63;
  __m256i lanesLow = _mm256_setzero_si256();
  __m256i lanesHigh = _mm256_setzero_si256();
  uint64_t counted = 0;
  if constexpr (kCount) {
    for (int i = 0; i < kWideRegs / 2; ++i) lanesLow = CountTextLanes(lanesLow, x[i]);
    for (int i = kWideRegs / 2; i < kWideRegs; ++i) lanesHigh = CountTextLanes(lanesHigh, x[i]);
  }
  x[0] = _mm256_xor_si256(x[0], _mm256_zextsi128_si256(_mm_cvtsi32_si128(static_cast<int>(state))));
  in += kWideRegs;
  n -= kWideBlockBytes;

  const __m256i byBlock = LoadWideFold(kWideRegs);
  int blocks = 1;
  for (; n >= kWideBlockBytes; n -= kWideBlockBytes, in += kWideRegs) {
#pragma GCC unroll 8
    for (int i = 0; i < kWideRegs; ++i) {
      const __m256i v = _mm256_loadu_si256(in + i);
      x[i] = _mm256_xor_si256(FoldWide(x[i], byBlock), v);
      if constexpr (kCount) {
        if (i < kWideRegs / 2) {
          lanesLow = CountTextLanes(lanesLow, v);
        } else {
          lanesHigh = CountTextLanes(lanesHigh, v);
        }
      }
    }
    if constexpr (kCount) {
      if (++blocks == kBlocksPerSum) {
        counted += SumLanes(lanesLow) + SumLanes(lanesHigh);
        lanesLow = lanesHigh = _mm256_setzero_si256();
        blocks = 0;
      }
    }
  }
  if constexpr (kCount) {
    counted += SumLanes(lanesLow) + SumLanes(lanesHigh);
    // The rest is under a block long.
    *text += counted + RkCountTextBytes(reinterpret_cast<const uint8_t*>(in), n);
  }

  const __m256i m01 = _mm256_xor_si256(FoldWide(x[0], LoadWideFold(7)), FoldWide(x[1], LoadWideFold(6)));
  const __m256i m23 = _mm256_xor_si256(FoldWide(x[2], LoadWideFold(5)), FoldWide(x[3], LoadWideFold(4)));
  const __m256i m45 = _mm256_xor_si256(FoldWide(x[4], LoadWideFold(3)), FoldWide(x[5], LoadWideFold(2)));
  const __m256i m67 = _mm256_xor_si256(FoldWide(x[6], LoadWideFold(1)), x[7]);
  __m256i acc = _mm256_xor_si256(_mm256_xor_si256(m01, m23), _mm256_xor_si256(m45, m67));

  const __m256i byReg = LoadWideFold(1);
  for (; n >= kWideBytes; n -= kWideBytes, ++in) {
    acc = _mm256_xor_si256(FoldWide(acc, byReg), _mm256_loadu_si256(in));
  }

  // The low half is one lane ahead of the high half.
  const __m128i lane =
      _mm_xor_si128(Fold(_mm256_castsi256_si128(acc), LoadFold(1)), _mm256_extracti128_si256(acc, 1));
  // FinishLanes is SSE code without the VEX prefix; with the upper halves still dirty each of its
  // instructions waits on them, which cost more than the whole fold on inputs of a few kilobytes.
  _mm256_zeroupper();
  return FinishLanes(lane, reinterpret_cast<const __m128i*>(in), n);
}

#endif  // RK_CRC32_CLMUL

using Crc32Routine = uint32_t (*)(uint32_t, const void*, size_t) noexcept;

Crc32Routine ChooseRoutine() noexcept {
  const RkCpuFeatures features = RkCpuFeatures::Query();
  if (RkCrc32VclmulUsable(features)) return &RkCrc32Vclmul;
  if (RkCrc32ClmulUsable(features)) return &RkCrc32Clmul;
  return &RkCrc32Table;
}

Crc32Routine ChosenRoutine() noexcept {
  static const Crc32Routine routine = ChooseRoutine();
  return routine;
}

}  // namespace

uint32_t RkCrc32(uint32_t crc, const void* data, size_t length) noexcept {
  return ChosenRoutine()(crc, data, length);
}

uint32_t RkCrc32Table(uint32_t crc, const void* data, size_t length) noexcept {
  if (data == nullptr) return 0;
  return ~UpdateTable(~crc, static_cast<const uint8_t*>(data), length);
}

uint32_t RkCrc32Clmul(uint32_t crc, const void* data, size_t length) noexcept {
  if (data == nullptr) return 0;
  const auto* p = static_cast<const uint8_t*>(data);
#ifdef RK_CRC32_CLMUL
  if (length >= kClmulMinLength) return ~UpdateClmul(~crc, p, length);
#endif
  return ~UpdateTable(~crc, p, length);
}

uint32_t RkCrc32Vclmul(uint32_t crc, const void* data, size_t length) noexcept {
#ifdef RK_CRC32_CLMUL
  if (data != nullptr && length >= kVclmulMinLength) {
    return ~UpdateVclmul<false>(~crc, static_cast<const uint8_t*>(data), length, nullptr);
  }
#endif
  return RkCrc32Clmul(crc, data, length);
}

uint32_t RkCrc32CountText(uint32_t crc, const void* data, size_t length, uint64_t& textBytes) noexcept {
  if (data == nullptr) return RkCrc32(crc, data, length);
#ifdef RK_CRC32_CLMUL
  if (ChosenRoutine() == &RkCrc32Vclmul && length >= kVclmulMinLength) {
    return ~UpdateVclmul<true>(~crc, static_cast<const uint8_t*>(data), length, &textBytes);
  }
#endif
  // Two passes in pieces small enough that the second finds the bytes still in the first-level
  // cache.
  constexpr size_t kPiece = 16 * 1024;
  const auto* p = static_cast<const uint8_t*>(data);
  for (size_t at = 0; at < length; at += kPiece) {
    const size_t piece = length - at < kPiece ? length - at : kPiece;
    crc = RkCrc32(crc, p + at, piece);
    textBytes += RkCountTextBytes(p + at, piece);
  }
  return crc;
}

bool RkCrc32HasClmul() noexcept { return ChosenRoutine() != &RkCrc32Table; }

const char* RkCrc32RoutineName() noexcept {
  const Crc32Routine routine = ChosenRoutine();
  if (routine == &RkCrc32Vclmul) return "RkCrc32Vclmul";
  if (routine == &RkCrc32Clmul) return "RkCrc32Clmul";
  return "RkCrc32Table";
}

}  // namespace RkLib
