#include "RkHufTree.h"

#include <algorithm>

#include "RkError.h"

namespace RkPipeLib {

namespace {

struct SlotShape {
  uint32_t width;
  uint32_t symbols;
};

// The most entries a table can take: its first level, and for every code longer than the first
// level a sub-table of at most 2^(15 - width) entries. Each sub-table holds at least one code of
// its own full width, so there are no more sub-tables than long codes. The true worst cases
// (complete codes) are far smaller; this bound also holds for codes that leave room unused.
constexpr uint32_t Capacity(SlotShape s) {
  return (1u << s.width) + s.symbols * (1u << (RkHufTree::kMaxCodeBits - s.width));
}

constexpr SlotShape kShapes[RkHufTree::kSlotCount] = {
    {RkHufTree::kCodeLengthWidth, 19},
    {RkHufTree::kLiteralWidth, RkHufTree::kMaxSymbols},
    {RkHufTree::kDistanceWidth, 32},
    {RkHufTree::kLiteralWidth, RkHufTree::kMaxSymbols},
    {RkHufTree::kDistanceWidth, 32},
};

constexpr uint32_t TotalCapacity() {
  uint32_t total = 0;
  for (const SlotShape& s : kShapes) total += Capacity(s);
  return total;
}

// The code read least significant bit first is the canonical code with its bits turned round.
uint32_t Reverse(uint32_t code, uint32_t length) {
  uint32_t r = 0;
  for (uint32_t i = 0; i < length; ++i) {
    r = r << 1 | (code & 1);
    code >>= 1;
  }
  return r;
}

}  // namespace

RkHufTree::RkHufTree() : storage_(new uint32_t[TotalCapacity()]) {
  uint32_t* at = storage_.get();
  for (uint32_t s = 0; s < kSlotCount; ++s) {
    tables_[s] = at;
    capacity_[s] = Capacity(kShapes[s]);
    at += capacity_[s];
  }
}

RkHufTree::~RkHufTree() = default;

uint32_t RkHufTree::Build(Slot slot, const uint8_t* lengths, uint32_t count, const uint32_t* symbols,
                          uint32_t width) {
  RK_ASSERT(count <= kMaxSymbols && width <= kShapes[slot].width);
  uint32_t lengthCount[kMaxCodeBits + 1] = {};
  for (uint32_t i = 0; i < count; ++i) {
    RK_ASSERT(lengths[i] <= kMaxCodeBits);
    ++lengthCount[lengths[i]];
  }
  uint32_t maxLength = kMaxCodeBits;
  while (maxLength > 0 && lengthCount[maxLength] == 0) --maxLength;
  uint32_t* table = tables_[slot];
  const uint32_t firstSize = 1u << width;
  if (maxLength == 0) {
    // A lookup in an empty table, which no valid stream makes, finds an invalid code.
    std::fill(table, table + firstSize, RkHuf::kInvalid);
    return 0;
  }

  // The code space left at each length; below zero the lengths describe no prefix code.
  int32_t left = 1;
  for (uint32_t len = 1; len <= kMaxCodeBits; ++len) {
    left = left * 2 - static_cast<int32_t>(lengthCount[len]);
    if (left < 0) throw RkLib::RkSevereError(kInflateBadData);
  }
  const bool incomplete = left > 0;
  // The first level is always `width` bits wide, so that the hot loop can mask with a constant;
  // codes shorter than that repeat through it. A hole of the code is known after the shorter
  // of the width and the longest code, and its entry says so for the careful loop.
  const uint32_t holeBits = std::min(width, maxLength);

  // Symbols in canonical order: by length, then by symbol.
  uint32_t offset[kMaxCodeBits + 2] = {};
  for (uint32_t len = 1; len <= kMaxCodeBits; ++len) offset[len + 1] = offset[len] + lengthCount[len];
  uint16_t sorted[kMaxSymbols];
  for (uint32_t i = 0; i < count; ++i)
    if (lengths[i] != 0) sorted[offset[lengths[i]]++] = static_cast<uint16_t>(i);
  const uint32_t used = count - lengthCount[0];

  if (incomplete) std::fill(table, table + firstSize, RkHuf::kInvalid | holeBits << 8 | holeBits);

  uint32_t nextSub = firstSize;
  uint32_t subPrefix = ~0u;
  uint32_t subBase = 0;
  uint32_t subWidth = 0;
  uint32_t code = 0;  // canonical, most significant bit first
  for (uint32_t k = 0; k < used; ++k) {
    const uint32_t symbol = sorted[k];
    const uint32_t len = lengths[symbol];
    const uint32_t reversed = Reverse(code, len);
    if (len <= width) {
      const uint32_t entry = symbols[symbol] + (len << 8) + len;
      for (uint32_t i = reversed; i < firstSize; i += 1u << len) table[i] = entry;
    } else {
      const uint32_t prefix = reversed & (firstSize - 1);
      if (prefix != subPrefix) {
        // A new sub-table, as wide as the codes that share this prefix need: it grows while
        // the codes of each next length do not yet fill the prefix's share of the code space.
        subWidth = len - width;
        int32_t room = 1 << subWidth;
        while (subWidth + width < maxLength) {
          room -= static_cast<int32_t>(lengthCount[subWidth + width]);
          if (room <= 0) break;
          ++subWidth;
          room *= 2;
        }
        subPrefix = prefix;
        subBase = nextSub;
        nextSub += 1u << subWidth;
        RK_ASSERT(nextSub <= capacity_[slot]);
        table[prefix] = RkHuf::kLink | subBase << 16 | subWidth << 8 | width;
        if (incomplete)
          std::fill(table + subBase, table + nextSub, RkHuf::kInvalid | subWidth << 8 | subWidth);
      }
      const uint32_t subLen = len - width;
      const uint32_t entry = symbols[symbol] + (subLen << 8) + subLen;
      for (uint32_t i = reversed >> width; i < (1u << subWidth); i += 1u << subLen) table[subBase + i] = entry;
    }
    --lengthCount[len];
    ++code;
    if (k + 1 < used) code <<= lengths[sorted[k + 1]] - len;
  }
  return width;
}

}  // namespace RkPipeLib
