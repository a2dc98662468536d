// RkPPMdHeap: the memory of a PPMd var.I model, and the unit allocator that carves it.
//
// The encoder decides when its model is full by what this allocator can still give, so the
// decoder must allocate exactly as the encoder did: same unit size, same free-list order (last
// in, first out), same moment of gluing and the same text area. Every rule below is there for
// that reason, not for speed or thrift.
//
// Layout of the arena (offsets are "refs", 32-bit, 0 meaning none):
//
//   0 ........ textStart ........ text -> ... <- unitsStart ... loUnit -> ... <- hiUnit ... end
//   [guard]    [symbol history grows up]        [units: stats from below, contexts from above]
//
// The top 7/8 of the memory (rounded to units) starts as the units area. The text area below it
// holds the raw symbols that a context not yet created points at; it can lend units to the
// allocator (unitsStart moves down) and take free units back (unitsStart moves up).
//
// Records are 12-byte units seen through the byte-only structs below. Being made of bytes only,
// they may alias each other and the arena freely; wider fields go through Load/Store.
//
// Safety. A ref comes out of the arena, so a bad one must not lead outside it: Ptr() checks the
// ref against the end of the model memory and the arena has a tail of kTailBytes, enough for
// the widest record read at the last unit (a stats array of 256 states). A failed check raises
// RkSevereError(7010): a valid stream never trips it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "RkDStream.h"

namespace RkPipeLib {

// Codes of the PPMd decoder.
inline constexpr uint32_t kPPMdBadData = kPipeBadData;      // the data cannot be PPMd of this form
inline constexpr uint32_t kPPMdOutOfMemory = kPipeOutOfMemory;  // the model memory cannot be had

namespace RkPPMd {

inline constexpr unsigned kUnitSize = 12;
inline constexpr unsigned kIndexes = 38;  // size classes, from 1 to 128 units
inline constexpr unsigned kMaxUnits = 128;

inline uint16_t Load16(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}
inline uint32_t Load32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}
inline void Store16(uint8_t* p, uint32_t v) {
  const uint16_t w = static_cast<uint16_t>(v);
  std::memcpy(p, &w, 2);
}
inline void Store32(uint8_t* p, uint32_t v) { std::memcpy(p, &v, 4); }

// A symbol of a context with its frequency and the context that follows it (or a ref into the
// text area, or 0).
struct State {
  uint8_t symbol;
  uint8_t freq;
  uint8_t successor[4];
};
static_assert(sizeof(State) == 6);

// A context. With one symbol (numStats 0) the state lives in place of summFreq and stats.
struct Context {
  uint8_t numStats;  // symbols - 1
  uint8_t flags;     // 0x04 rescaled, 0x08 a symbol >= 0x40 here, 0x10 the symbol before was >= 0x40
  uint8_t summFreq[2];
  uint8_t stats[4];
  uint8_t suffix[4];
};
static_assert(sizeof(Context) == kUnitSize);

// A free block. Contexts and states can never show 0xFFFFFFFF in their first four bytes (a
// frequency stays below 255), so the stamp tells a free block from a used one.
struct Node {
  uint8_t stamp[4];
  uint8_t next[4];
  uint8_t nu[4];
};
static_assert(sizeof(Node) == kUnitSize);

inline constexpr uint32_t kFreeStamp = 0xFFFFFFFF;

// Size classes: 1, 2, 3, 4 units in steps of 1, then steps of 2, 3 and 4 up to 128.
struct SizeClasses {
  uint8_t indexToUnits[kIndexes];
  uint8_t unitsToIndex[kMaxUnits];
};
constexpr SizeClasses MakeSizeClasses() {
  SizeClasses t{};
  unsigned units = 0;
  for (unsigned i = 0; i < kIndexes; ++i) {
    const unsigned step = i < 12 ? i / 4 + 1 : 4;
    for (unsigned k = 0; k < step; ++k) t.unitsToIndex[units++] = static_cast<uint8_t>(i);
    t.indexToUnits[i] = static_cast<uint8_t>(units);
  }
  return t;
}
inline constexpr SizeClasses kSizeClasses = MakeSizeClasses();
static_assert(kSizeClasses.indexToUnits[kIndexes - 1] == kMaxUnits);

inline constexpr unsigned I2U(unsigned index) { return kSizeClasses.indexToUnits[index]; }
inline constexpr unsigned U2I(unsigned units) { return kSizeClasses.unitsToIndex[units - 1]; }
inline constexpr uint32_t U2B(unsigned units) { return units * kUnitSize; }

}  // namespace RkPPMd

class RkPPMdHeap {
 public:
  // Below the text area, so that a text ref is never 0; and past the end, for the widest read.
  static constexpr uint32_t kFrontBytes = 16;
  static constexpr uint32_t kTailBytes = 256 * sizeof(RkPPMd::State) + 64;

  RkPPMdHeap() = default;
  RkPPMdHeap(const RkPPMdHeap&) = delete;
  RkPPMdHeap& operator=(const RkPPMdHeap&) = delete;

  // Makes the heap `size` bytes. The arena only grows: a smaller model reuses it. The pages
  // come zeroed from the system and are touched only as the model uses them.
  void Reserve(uint32_t size);
  // Empties the heap: the whole memory is text area and untouched units again.
  void Restart();

  uint32_t Size() const noexcept { return size_; }
  uint8_t* TextStart() const noexcept { return base_ + kFrontBytes; }

  uint32_t Ref(const void* p) const noexcept {
    return static_cast<uint32_t>(static_cast<const uint8_t*>(p) - base_);
  }
  // The byte at `ref`, which must lie inside the model memory.
  uint8_t* Ptr(uint32_t ref) const {
    if (ref >= endRef_) [[unlikely]]
      ThrowBadRef();
    return base_ + ref;
  }

  // Units of size class `index`, or null when the memory is full.
  void* AllocUnits(unsigned index);
  void* AllocContext();
  void FreeUnits(void* p, unsigned units) { InsertNode(p, RkPPMd::U2I(units)); }
  void InsertNode(void* p, unsigned index);
  // A unit at the foot of the units area goes back to the text area instead of a free list.
  void SpecialFreeUnit(void* p);
  // Gives back the tail of a block that shrinks from `oldUnits` to `newUnits`, or moves it to a
  // free block of the new size; returns where the block now is.
  void* ShrinkUnits(void* p, unsigned oldUnits, unsigned newUnits);
  // Moves a block near the foot of the units area to a free block higher up, if there is one,
  // so that the foot can become text area again.
  void* MoveUnitsUp(void* p, unsigned units);
  // Returns the free blocks at the foot of the units area to the text area.
  void ExpandTextArea();
  uint32_t UsedMemory() const noexcept;

  bool HasFree(unsigned index) const noexcept { return freeList_[index] != 0; }
  uint32_t FreeCount(unsigned index) const noexcept { return freeCount_[index]; }

  // The text and units boundaries; the model writes the text and moves `text` itself.
  uint8_t* text = nullptr;
  uint8_t* unitsStart = nullptr;
  uint8_t* loUnit = nullptr;
  uint8_t* hiUnit = nullptr;
  // Allocations left before the free lists are glued again; 0 glues at the next shortage.
  uint32_t glueCount = 0;

 private:
  struct FreeDeleter {
    void operator()(uint8_t* p) const noexcept { std::free(p); }
  };

  RkPPMd::Node* NodeAt(uint32_t ref) const { return reinterpret_cast<RkPPMd::Node*>(Ptr(ref)); }
  void* RemoveNode(unsigned index);
  void* AllocUnitsRare(unsigned index);
  void SplitBlock(void* p, unsigned oldIndex, unsigned newIndex);
  void GlueFreeBlocks();
  [[noreturn]] static void ThrowBadRef();

  std::unique_ptr<uint8_t, FreeDeleter> arena_;
  size_t capacity_ = 0;
  uint8_t* base_ = nullptr;
  uint32_t size_ = 0;
  uint32_t endRef_ = 0;  // one past the model memory
  uint32_t freeList_[RkPPMd::kIndexes] = {};
  uint32_t freeCount_[RkPPMd::kIndexes] = {};
};

}  // namespace RkPipeLib
