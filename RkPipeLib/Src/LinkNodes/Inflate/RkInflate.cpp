#include "RkInflate.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "RkCpu.h"
#include "RkError.h"

namespace RkPipeLib {

namespace {

using namespace RkHuf;

constexpr uint32_t kWindowSize = RkInflate::kWindowSize;

// The fast loop runs while it cannot reach either end, so that it checks neither per symbol.
// Input: each pass refills the bit buffer at most three times, each refill reads 8 bytes and
// moves on at most 7, so 3 * 7 + 8 bytes are enough; 40 leave room. Output: a pass writes at
// most a literal and a match of 258, or two literals, and the match copy runs up to 32 bytes
// past its start or 15 past its end, into the slack behind the window. Longer Deflate64
// matches are checked one by one.
constexpr uint64_t kFastInputMargin = 40;
constexpr uint32_t kFastOutputRoom = 2 + 258;
constexpr uint32_t kWindowSlack = 64;
// The window goes out in parts of this size as they are done, not only whole when it fills: the
// copy then reads bytes still in the cache, and the nodes below get them sooner. The bytes and
// their order are the same.
constexpr uint32_t kFlushStep = 256 * 1024;

constexpr uint32_t kCodeLengthOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
constexpr uint16_t kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10,  11,  13,  15,  17,  19,  23, 27,
                                      31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
// Codes 30 and 31 reach 64 KiB back; plain deflate never writes them, Deflate64 does.
constexpr uint16_t kDistanceBase[32] = {1,    2,    3,    4,    5,    7,     9,     13,    17,    25,   33,
                                        49,   65,   97,   129,  193,  257,   385,   513,   769,   1025, 1537,
                                        2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577, 32769, 49153};
constexpr uint8_t kDistanceExtra[32] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,  6,
                                        7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 14, 14};

struct Alphabets {
  // [0] plain deflate, [1] Deflate64: the last length code is 3 plus 16 extra bits there.
  uint32_t literal[2][RkHufTree::kMaxSymbols];
  uint32_t distance[32];
  uint32_t codeLength[19];
};

constexpr Alphabets MakeAlphabets() {
  Alphabets a{};
  for (uint32_t mode = 0; mode < 2; ++mode) {
    for (uint32_t s = 0; s < 256; ++s) a.literal[mode][s] = SymbolLiteral(s);
    a.literal[mode][256] = kEndOfBlock;
    for (uint32_t s = 257; s < 286; ++s) a.literal[mode][s] = SymbolBase(kLengthBase[s - 257], kLengthExtra[s - 257]);
    // 286 and 287 take part in the code but mean nothing.
    a.literal[mode][286] = a.literal[mode][287] = kInvalid;
  }
  a.literal[1][285] = SymbolBase(3, 16);
  for (uint32_t s = 0; s < 32; ++s) a.distance[s] = SymbolBase(kDistanceBase[s], kDistanceExtra[s]);
  for (uint32_t s = 0; s < 19; ++s) a.codeLength[s] = SymbolPlain(s);
  return a;
}

constexpr Alphabets kAlphabets = MakeAlphabets();

enum FastExit : int {
  kFastLimit,       // near an end of the input or the window: the careful loop takes over
  kFastEndOfBlock,  // the end-of-block code was taken
  kFastMatch,       // a match that wraps round the window or would pass its end is pending
};

inline uint64_t Load64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;  // little-endian machines only, as is the whole pipe
}

inline uint64_t LowBits(uint64_t v, uint32_t n) { return v & ((uint64_t{1} << n) - 1); }

// The extra bits of a length or distance entry: those after its code, up to its drop count.
inline uint32_t ExtraValue(uint64_t bits, uint32_t entry) {
  return static_cast<uint32_t>(LowBits(bits, static_cast<uint8_t>(entry)) >> static_cast<uint8_t>(entry >> 8));
}

[[noreturn, gnu::noinline, gnu::cold]] void BadData() { throw RkLib::RkSevereError(kInflateBadData); }

}  // namespace

// The decoder's moving state, kept in locals by the fast loop.
struct RkInflateCursor {
  uint64_t bits = 0;   // input bits not yet used, the next one lowest
  uint32_t count = 0;  // how many of `bits` are input, at most 63; outside the fast loop the
                       // bits above them are zero
  const uint8_t* chunk = nullptr;  // the reader's bytes as the last peek showed them
  const uint8_t* in = nullptr;     // the next byte for the bit buffer
  const uint8_t* inEnd = nullptr;
  uint8_t* window = nullptr;
  uint32_t pos = 0;  // write position in the window, below kWindowSize between steps
  uint32_t flushed = 0;  // the window's bytes before this position have gone out
  uint32_t pendingLength = 0;
  uint32_t pendingDistance = 0;
};

struct RkInflateTables {
  const uint32_t* literal = nullptr;
  const uint32_t* distance = nullptr;
  uint32_t literalBits = 0;
  uint32_t distanceBits = 0;
};

namespace {

// The match copy of the fast loop. `distance` is at most the bytes written before `out` in this
// pass of the window, and the window has room for max(length, 32) + 15 bytes at `out`. Most
// matches are 32 bytes or shorter: those take a fixed run of stores and no loop, so the only
// branch is the distance's class.
[[gnu::always_inline]] inline void FastCopy(uint8_t* out, uint32_t distance, uint32_t length) {
  const uint8_t* src = out - distance;
  uint8_t* const end = out + length;
  if (distance >= 16) [[likely]] {
    // Each 16-byte load lies before the store it feeds, or in what earlier stores wrote.
    std::memcpy(out, src, 16);
    std::memcpy(out + 16, src + 16, 16);
    if (length > 32) {
      out += 32;
      src += 32;
      do {
        std::memcpy(out, src, 16);
        out += 16;
        src += 16;
      } while (out < end);
    }
  } else if (distance >= 8) {
    for (int i = 0; i < 4; ++i) std::memcpy(out + 8 * i, src + 8 * i, 8);
    if (length > 32) {
      out += 32;
      src += 32;
      do {
        std::memcpy(out, src, 8);
        out += 8;
        src += 8;
      } while (out < end);
    }
  } else {
    // Distances below 8: the pattern of `distance` bytes, repeated across a word, goes out at a
    // stride that is a multiple of the distance, so that every store starts in phase.
    uint64_t v = Load64(src) & ((uint64_t{1} << (8 * distance)) - 1);
    for (uint32_t have = distance; have < 8; have *= 2) v |= v << (8 * have);
    const uint32_t stride = 8 - 8 % distance;
    do {
      std::memcpy(out, &v, 8);
      out += stride;
    } while (out < end);
  }
}

// The hot loop. Entry: inEnd - in >= kFastInputMargin, pos < kWindowSize - kFastOutputRoom,
// count <= 63 with the bits above it zero or the input's own next bits. On return the cursor
// holds the state, with the bits above `count` cleared.
//
// Right after a refill all 64 bits of the buffer are input, whatever `count` says: `count`
// tells only how many whole bytes were taken. So the next code can be looked up as soon as a
// symbol is consumed, before the refill that its own decoding needs, as long as no more than
// 64 - 11 bits went since the last refill; the lookup then overlaps the refill and the copy.
template <bool kDeflate64>
[[gnu::always_inline]] inline int FastLoop(RkInflateCursor& c, const RkInflateTables& t) {
  uint64_t bits = c.bits;
  uint32_t count = c.count;
  const uint8_t* in = c.in;
  const uint8_t* const inLimit = c.inEnd - kFastInputMargin;
  uint8_t* const window = c.window;
  uint8_t* out = window + c.pos;
  uint8_t* const outLimit = window + std::min(kWindowSize - kFastOutputRoom, c.flushed + kFlushStep);
  const uint32_t* const lit = t.literal;
  const uint32_t* const dist = t.distance;
  // The first levels have these widths whatever the code, which spares two registers.
  constexpr uint64_t litMask = (uint64_t{1} << RkHufTree::kLiteralWidth) - 1;
  constexpr uint64_t distMask = (uint64_t{1} << RkHufTree::kDistanceWidth) - 1;
  int exit = kFastLimit;

  // Tops the buffer up to 56 to 63 counted bits with one unaligned load. The bits loaded above
  // the new count are the input's own next bits, so loading them again later ORs equal values.
  auto refill = [&] {
    bits |= Load64(in) << count;
    in += (63 - count) >> 3;
    count |= 56;
  };
  auto consume = [&](uint32_t entry) {
    bits >>= static_cast<uint8_t>(entry);
    count -= static_cast<uint8_t>(entry);
  };

  refill();
  uint32_t e = lit[bits & litMask];
  while (in <= inLimit && out < outLimit) {
    refill();  // keeps the low bits that `e` was looked up with
    // Each entry is consumed as soon as it is loaded, before its kind is known, so that the next
    // lookup does not wait on the branch; a length takes its extra bits from `saved`.
    uint64_t saved = bits;
    consume(e);
    if (e & kLiteral) {
      // Two literals per refill, the second looked up while the first is stored. A third
      // would fit in the bits, but measured slower: its branch predicts worse.
      *out++ = static_cast<uint8_t>(Value(e));
      e = lit[bits & litMask];
      saved = bits;
      consume(e);
      if (e & kLiteral) {
        *out++ = static_cast<uint8_t>(Value(e));
        e = lit[bits & litMask];
        continue;
      }
      refill();
    }
    if (e & kSpecial) [[unlikely]] {
      if (Kind(e) == kLink) {
        e = lit[Value(e) + LowBits(bits, CodeBits(e))];
        saved = bits;
        consume(e);
        if (e & kLiteral) {
          *out++ = static_cast<uint8_t>(Value(e));
          e = lit[bits & litMask];
          continue;
        }
      }
      if (e & kSpecial) {
        if (Kind(e) != kEndOfBlock) BadData();
        exit = kFastEndOfBlock;
        break;
      }
    }
    const uint32_t length = Value(e) + ExtraValue(saved, e);
    // Plain deflate: 56 bits less a length of 15 + 5 leave 36, enough for a distance of 15 + 13,
    // and 16 after it for the next lookup. The long length of Deflate64 takes up to 31.
    if constexpr (kDeflate64) refill();
    uint32_t d = dist[bits & distMask];
    saved = bits;
    consume(d);
    if (d & kSpecial) [[unlikely]] {
      if (Kind(d) == kLink) {
        d = dist[Value(d) + LowBits(bits, CodeBits(d))];
        saved = bits;
        consume(d);
      }
      if (d & kSpecial) BadData();
    }
    const uint32_t distance = Value(d) + ExtraValue(saved, d);
    e = lit[bits & litMask];
    const uint32_t pos = static_cast<uint32_t>(out - window);
    if (distance > pos || (kDeflate64 && length >= kWindowSize - pos)) [[unlikely]] {
      c.pendingLength = length;
      c.pendingDistance = distance;
      exit = kFastMatch;
      break;
    }
    FastCopy(out, distance, length);
    out += length;
  }
  c.bits = LowBits(bits, count);
  c.count = count;
  c.in = in;
  c.pos = static_cast<uint32_t>(out - window);
  return exit;
}

int FastPlain(RkInflateCursor& c, const RkInflateTables& t) { return FastLoop<false>(c, t); }
int FastPlain64(RkInflateCursor& c, const RkInflateTables& t) { return FastLoop<true>(c, t); }

#if defined(__x86_64__)
// The same loops where the variable shifts and masks become single BMI2 instructions.
[[gnu::target("bmi,bmi2")]] int FastBmi2(RkInflateCursor& c, const RkInflateTables& t) {
  return FastLoop<false>(c, t);
}
[[gnu::target("bmi,bmi2")]] int FastBmi264(RkInflateCursor& c, const RkInflateTables& t) {
  return FastLoop<true>(c, t);
}

constexpr uint32_t kCpu7EbxBmi1 = 1u << 3;
constexpr uint32_t kCpu7EbxBmi2 = 1u << 8;

bool HasBmi2() {
  constexpr uint32_t both = kCpu7EbxBmi1 | kCpu7EbxBmi2;
  static const bool has = (RkLib::RkCpuFeatures::Query().leaf7Ebx & both) == both;
  return has;
}
#endif

}  // namespace

RkInflate::RkInflate(int mode, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                     const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      writer_(std::make_unique<RkBStrm>(&output_)),
      window_(new uint8_t[kWindowSize + kWindowSlack]()),
      deflate64_(mode == kModeDeflate64) {
  output_.Reset();
  UseBmi2(true);
}

RkInflate::~RkInflate() = default;

void RkInflate::UseBmi2(bool use) noexcept {
  fastLoop_ = deflate64_ ? FastPlain64 : FastPlain;
#if defined(__x86_64__)
  if (use && HasBmi2()) fastLoop_ = deflate64_ ? FastBmi264 : FastBmi2;
#else
  (void)use;
#endif
}

void RkInflate::Reset() {
  output_.Reset();
  if (!writerClean_) writer_ = std::make_unique<RkBStrm>(&output_);
  writerClean_ = true;
}

void RkInflate::Run() {
  RK_ASSERT(input_ != nullptr);
  writerClean_ = false;
  reader_.attach(input_);
  RkInflateCursor c;
  c.window = window_.get();
  bytesTaken_ = 0;
  DecodeStream(c);
  FlushPart(c);
  // The whole bytes of the bit buffer were taken but not used; a part-used byte counts.
  reader_.skip(static_cast<uint64_t>(c.in - c.chunk));
  bytesTaken_ += static_cast<uint64_t>(c.in - c.chunk);
  input_->setBytesRead(bytesTaken_ - c.count / 8);
  writer_->finishOutput();
  writerClean_ = true;
}

void RkInflate::DecodeStream(RkInflateCursor& c) {
  RkInflateTables t;
  for (;;) {
    EnsureBits(c, 3);
    const bool last = c.bits & 1;
    const uint32_t type = static_cast<uint32_t>(c.bits >> 1) & 3;
    c.bits >>= 3;
    c.count -= 3;
    if (type == 0) {
      StoredBlock(c);
    } else if (type == 1) {
      FixedTables(t);
      HuffmanBlock(c, t);
    } else if (type == 2) {
      DynamicTables(c, t);
      HuffmanBlock(c, t);
    } else {
      BadData();
    }
    if (last) return;
  }
}

void RkInflate::StoredBlock(RkInflateCursor& c) {
  c.bits >>= c.count & 7;
  c.count &= ~7u;
  EnsureBits(c, 32);
  uint32_t length = static_cast<uint32_t>(c.bits & 0xFFFF);
  const uint32_t complement = static_cast<uint32_t>(c.bits >> 16) & 0xFFFF;
  c.bits >>= 32;
  c.count -= 32;
  if (length != (~complement & 0xFFFF)) BadData();
  for (; length > 0 && c.count > 0; --length) {
    PutByte(c, static_cast<uint8_t>(c.bits));
    c.bits >>= 8;
    c.count -= 8;
  }
  while (length > 0) {
    if (c.in == c.inEnd) NextChunk(c);
    const uint32_t n = static_cast<uint32_t>(
        std::min<uint64_t>({length, static_cast<uint64_t>(c.inEnd - c.in), kWindowSize - c.pos}));
    std::memcpy(c.window + c.pos, c.in, n);
    c.in += n;
    c.pos += n;
    length -= n;
    if (c.pos == kWindowSize) {
      FlushWindow(c);
    } else if (c.pos - c.flushed >= kFlushStep) {
      FlushPart(c);
    }
  }
}

void RkInflate::FixedTables(RkInflateTables& t) {
  const int mode = deflate64_ ? 1 : 0;
  if (fixedMode_ != mode) {
    uint8_t lengths[RkHufTree::kMaxSymbols];
    std::fill(lengths, lengths + 144, 8);
    std::fill(lengths + 144, lengths + 256, 9);
    std::fill(lengths + 256, lengths + 280, 7);
    std::fill(lengths + 280, lengths + 288, 8);
    fixedLiteralBits_ = treeAllocator_.Build(RkHufTree::kFixedLiterals, lengths, 288, kAlphabets.literal[mode],
                                             RkHufTree::kLiteralWidth);
    std::fill(lengths, lengths + 32, 5);
    fixedDistanceBits_ = treeAllocator_.Build(RkHufTree::kFixedDistances, lengths, 32, kAlphabets.distance,
                                              RkHufTree::kDistanceWidth);
    fixedMode_ = mode;
  }
  t.literal = treeAllocator_.Table(RkHufTree::kFixedLiterals);
  t.literalBits = fixedLiteralBits_;
  t.distance = treeAllocator_.Table(RkHufTree::kFixedDistances);
  t.distanceBits = fixedDistanceBits_;
}

void RkInflate::DynamicTables(RkInflateCursor& c, RkInflateTables& t) {
  EnsureBits(c, 14);
  const uint32_t literalCount = static_cast<uint32_t>(c.bits & 31) + 257;
  const uint32_t distanceCount = static_cast<uint32_t>(c.bits >> 5 & 31) + 1;
  const uint32_t codeLengthCount = static_cast<uint32_t>(c.bits >> 10 & 15) + 4;
  c.bits >>= 14;
  c.count -= 14;

  uint8_t lengths[RkHufTree::kMaxSymbols + 32] = {};
  for (uint32_t i = 0; i < codeLengthCount; ++i) {
    EnsureBits(c, 3);
    lengths[kCodeLengthOrder[i]] = static_cast<uint8_t>(c.bits & 7);
    c.bits >>= 3;
    c.count -= 3;
  }
  const uint32_t clBits = treeAllocator_.Build(RkHufTree::kCodeLengths, lengths, 19, kAlphabets.codeLength,
                                               RkHufTree::kCodeLengthWidth);
  if (clBits == 0) BadData();
  const uint32_t* clTable = treeAllocator_.Table(RkHufTree::kCodeLengths);

  const uint32_t total = literalCount + distanceCount;
  std::fill(lengths, lengths + 19, 0);
  for (uint32_t i = 0; i < total;) {
    const uint32_t e = SlowLookup(c, clTable, clBits);
    c.bits >>= DropBits(e);
    c.count -= DropBits(e);
    const uint32_t symbol = Value(e);
    if (symbol < 16) {
      lengths[i++] = static_cast<uint8_t>(symbol);
      continue;
    }
    // 16: the previous length (0 before the first) 3 to 6 times; 17: zero 3 to 10 times;
    // 18: zero 11 to 138 times.
    const uint32_t extra = symbol == 16 ? 2 : symbol == 17 ? 3 : 7;
    EnsureBits(c, extra);
    const uint32_t repeat = (symbol == 18 ? 11 : 3) + static_cast<uint32_t>(LowBits(c.bits, extra));
    c.bits >>= extra;
    c.count -= extra;
    if (repeat > total - i) BadData();
    const uint8_t value = symbol == 16 && i > 0 ? lengths[i - 1] : 0;
    std::fill(lengths + i, lengths + i + repeat, value);
    i += repeat;
  }

  const uint32_t mode = deflate64_ ? 1 : 0;
  t.literalBits = treeAllocator_.Build(RkHufTree::kLiterals, lengths, literalCount, kAlphabets.literal[mode],
                                       RkHufTree::kLiteralWidth);
  if (t.literalBits == 0) BadData();
  t.distanceBits = treeAllocator_.Build(RkHufTree::kDistances, lengths + literalCount, distanceCount,
                                        kAlphabets.distance, RkHufTree::kDistanceWidth);
  // With no distance code, a length code could not be followed: only a literal alphabet that
  // stops at the end-of-block code may do without one.
  if (t.distanceBits == 0 && literalCount >= 258) BadData();
  t.literal = treeAllocator_.Table(RkHufTree::kLiterals);
  t.distance = treeAllocator_.Table(RkHufTree::kDistances);
}

void RkInflate::HuffmanBlock(RkInflateCursor& c, const RkInflateTables& t) {
  for (;;) {
    if (c.pos - c.flushed >= kFlushStep) FlushPart(c);
    if (c.inEnd - c.in >= static_cast<int64_t>(kFastInputMargin) && c.pos < kWindowSize - kFastOutputRoom) {
      const int exit = fastLoop_(c, t);
      if (exit == kFastEndOfBlock) return;
      if (exit == kFastMatch) {
        CopyMatch(c, c.pendingLength, c.pendingDistance);
        continue;
      }
    }
    if (SlowSymbol(c, t)) return;
  }
}

bool RkInflate::SlowSymbol(RkInflateCursor& c, const RkInflateTables& t) {
  const uint32_t e = SlowLookup(c, t.literal, t.literalBits);
  if (e & kLiteral) {
    c.bits >>= DropBits(e);
    c.count -= DropBits(e);
    PutByte(c, static_cast<uint8_t>(Value(e)));
    return false;
  }
  if (Kind(e) == kEndOfBlock) {
    c.bits >>= DropBits(e);
    c.count -= DropBits(e);
    return true;
  }
  EnsureBits(c, DropBits(e));
  const uint32_t length = Value(e) + ExtraValue(c.bits, e);
  c.bits >>= DropBits(e);
  c.count -= DropBits(e);
  const uint32_t d = SlowLookup(c, t.distance, t.distanceBits);
  EnsureBits(c, DropBits(d));
  const uint32_t distance = Value(d) + ExtraValue(c.bits, d);
  c.bits >>= DropBits(d);
  c.count -= DropBits(d);
  CopyMatch(c, length, distance);
  return false;
}

// Decodes the next code without taking a buffer that the code does not reach into: first with
// the bytes in hand, then buffer by buffer. Returns the entry with a sub-table's first-level bits
// dropped; an invalid code raises 7010 only once its bits have all come.
uint32_t RkInflate::SlowLookup(RkInflateCursor& c, const uint32_t* table, uint32_t width) {
  for (;;) {
    while (c.count < 56 && c.in < c.inEnd) {
      c.bits |= uint64_t{*c.in++} << c.count;
      c.count += 8;
    }
    uint32_t e = table[LowBits(c.bits, width)];
    uint32_t linkBits = 0;
    if (Kind(e) == kLink) {
      linkBits = width;
      e = table[Value(e) + LowBits(c.bits >> width, CodeBits(e))];
    }
    const uint32_t need = linkBits + (Kind(e) == kInvalid ? DropBits(e) : CodeBits(e));
    if (need <= c.count) {
      if (Kind(e) == kInvalid) BadData();
      c.bits >>= linkBits;
      c.count -= linkBits;
      return e;
    }
    NextChunk(c);
  }
}

void RkInflate::EnsureBits(RkInflateCursor& c, uint32_t n) {
  while (c.count < n) {
    if (c.in == c.inEnd) NextChunk(c);
    c.bits |= uint64_t{*c.in++} << c.count;
    c.count += 8;
  }
}

// The current bytes are used up: the next buffer of the input, or 7006 at its end.
void RkInflate::NextChunk(RkInflateCursor& c) {
  const uint64_t used = static_cast<uint64_t>(c.in - c.chunk);
  reader_.skip(used);
  bytesTaken_ += used;
  const uint8_t* p = nullptr;
  const uint64_t n = reader_.peek(p, std::numeric_limits<uint64_t>::max(), 0);
  if (n == 0) throw RkLib::RkSevereError(kPipeReadPastEnd);
  c.chunk = c.in = p;
  c.inEnd = p + n;
}

void RkInflate::PutByte(RkInflateCursor& c, uint8_t byte) {
  c.window[c.pos++] = byte;
  if (c.pos == kWindowSize) FlushWindow(c);
}

// The careful copy: in runs that neither end of the copy carries past the window's end, the
// source wrapping round to the window's start like the target.
void RkInflate::CopyMatch(RkInflateCursor& c, uint32_t length, uint32_t distance) {
  uint32_t src = (c.pos - distance) & (kWindowSize - 1);
  while (length > 0) {
    const uint32_t n = std::min(length, kWindowSize - std::max(src, c.pos));
    uint8_t* to = c.window + c.pos;
    const uint8_t* from = c.window + src;
    if (src < c.pos && c.pos - src < n) {
      for (uint32_t i = 0; i < n; ++i) to[i] = from[i];
    } else {
      std::memmove(to, from, n);
    }
    length -= n;
    src = (src + n) & (kWindowSize - 1);
    c.pos += n;
    if (c.pos == kWindowSize) FlushWindow(c);
  }
}

void RkInflate::FlushPart(RkInflateCursor& c) {
  if (c.pos > c.flushed) writer_->writeBytes(c.window + c.flushed, c.pos - c.flushed);
  c.flushed = c.pos;
}

void RkInflate::FlushWindow(RkInflateCursor& c) {
  FlushPart(c);
  c.pos = 0;
  c.flushed = 0;
}

}  // namespace RkPipeLib
