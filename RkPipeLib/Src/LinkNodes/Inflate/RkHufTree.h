// RkHufTree: decoding tables of canonical prefix codes, least significant bit first, built from
// code lengths into storage that is allocated once and kept.
//
// A table is a first level indexed by the next `width` input bits, whose entries either decode
// a symbol whole or link to a sub-table indexed by the bits after those. An entry is one 32-bit
// word, laid out so that the hot loop finds everything with shifts of the word:
//
//   bits  0-4   bits to drop for the whole symbol: its code length in this level plus the extra
//               bits of a length or distance (at most 15 + 16 for the long length of Deflate64).
//               A link drops the first-level width; an invalid entry holds how many bits of
//               its level it takes to know that no code starts so (0 in an empty table).
//   bits  8-11  code length in this level, where the extra bits start. A link: the index width
//               of its sub-table.
//   bit  12-13  with bit 14 only: 0 end of block, 1 link, 2 invalid code.
//   bit  14     special: end of block, link or invalid.
//   bit  15     literal.
//   bits 16-31  the literal byte, the base of a length or distance, the symbol of a code-length
//               code, or the offset of the sub-table from the start of the table.
//
// Entries without flags are lengths and distances (or code-length symbols), so bits 12-15 of a
// length entry are zero and `uint8_t(entry >> 8)` is its code length.
//
// So an entry is one of five kinds: a length or distance with 0 to 16 extra bits, the end of a
// block, a literal, a link to a sub-table, or an invalid code, which the decoder refuses with
// RkSevereError(7010) once its bits have come.
#pragma once

#include <cstdint>
#include <memory>

#include "RkDStream.h"

namespace RkPipeLib {

// Invalid compressed data, from the table build and from the inflater.
inline constexpr uint32_t kInflateBadData = kPipeBadData;

namespace RkHuf {

inline constexpr uint32_t kLiteral = 1u << 15;
inline constexpr uint32_t kSpecial = 1u << 14;
inline constexpr uint32_t kEndOfBlock = kSpecial;
inline constexpr uint32_t kLink = kSpecial | (1u << 12);
inline constexpr uint32_t kInvalid = kSpecial | (2u << 12);
inline constexpr uint32_t kKindMask = kLiteral | kSpecial | (3u << 12);

constexpr uint32_t DropBits(uint32_t entry) { return entry & 31; }
constexpr uint32_t CodeBits(uint32_t entry) { return (entry >> 8) & 15; }
constexpr uint32_t Value(uint32_t entry) { return entry >> 16; }
constexpr uint32_t Kind(uint32_t entry) { return entry & kKindMask; }

// What each symbol of an alphabet decodes to: an entry without its code length, that is the
// value and kind, and in bits 0-4 the count of extra bits that follow the code.
constexpr uint32_t SymbolLiteral(uint32_t byte) { return byte << 16 | kLiteral; }
constexpr uint32_t SymbolBase(uint32_t base, uint32_t extraBits) { return base << 16 | extraBits; }
constexpr uint32_t SymbolPlain(uint32_t symbol) { return symbol << 16; }

}  // namespace RkHuf

class RkHufTree {
 public:
  // The tables that an inflater keeps at once; each has storage of its own.
  enum Slot : uint32_t {
    kCodeLengths,
    kLiterals,
    kDistances,
    kFixedLiterals,
    kFixedDistances,
    kSlotCount,
  };

  RkHufTree();
  RkHufTree(const RkHufTree&) = delete;
  RkHufTree& operator=(const RkHufTree&) = delete;
  ~RkHufTree();

  // Builds the table of `count` code lengths (0 to 15; 0: not used) into `slot`, decoding symbol
  // i to symbols[i], with a first level of `width` bits. Returns the width, or 0 for a code with
  // no lengths at all, whose table decodes every index as invalid. Any length whose codes do
  // not fit in the code space raises RkSevereError(7010); a code that leaves room unused is
  // built, and the room decodes as invalid.
  uint32_t Build(Slot slot, const uint8_t* lengths, uint32_t count, const uint32_t* symbols, uint32_t width);

  const uint32_t* Table(Slot slot) const noexcept { return tables_[slot]; }

  // First-level widths that the inflater asks for; the storage below is sized for them.
  static constexpr uint32_t kLiteralWidth = 11;
  static constexpr uint32_t kDistanceWidth = 8;
  static constexpr uint32_t kCodeLengthWidth = 7;
  static constexpr uint32_t kMaxCodeBits = 15;
  static constexpr uint32_t kMaxSymbols = 288;

 private:
  std::unique_ptr<uint32_t[]> storage_;
  uint32_t* tables_[kSlotCount] = {};
  uint32_t capacity_[kSlotCount] = {};
};

}  // namespace RkPipeLib
