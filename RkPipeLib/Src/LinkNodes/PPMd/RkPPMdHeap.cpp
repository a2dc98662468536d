#include "RkPPMdHeap.h"

#include <algorithm>

#include "RkError.h"

namespace RkPipeLib {

using namespace RkPPMd;

namespace {

// Gluing is costly, so after one the allocator lives on what is left for this many shortages.
constexpr uint32_t kGluePeriod = 1 << 13;

}  // namespace

void RkPPMdHeap::ThrowBadRef() { throw RkLib::RkSevereError(kPPMdBadData); }

void RkPPMdHeap::Reserve(uint32_t size) {
  const size_t need = size_t{kFrontBytes} + size + kTailBytes;
  if (capacity_ < need) {
    arena_.reset();
    capacity_ = 0;
    // calloc: a large block comes as fresh zero pages, so a 256 MiB model costs only what it uses.
    arena_.reset(static_cast<uint8_t*>(std::calloc(need, 1)));
    if (!arena_) throw RkLib::RkFatalError(kPPMdOutOfMemory);
    capacity_ = need;
  }
  base_ = arena_.get();
  size_ = size;
  endRef_ = kFrontBytes + size;
}

void RkPPMdHeap::Restart() {
  std::fill(std::begin(freeList_), std::end(freeList_), 0);
  std::fill(std::begin(freeCount_), std::end(freeCount_), 0);
  text = TextStart();
  hiUnit = text + size_;
  loUnit = unitsStart = hiUnit - size_ / 8 / kUnitSize * 7 * kUnitSize;
  glueCount = 0;
}

void RkPPMdHeap::InsertNode(void* p, unsigned index) {
  Node* node = static_cast<Node*>(p);
  Store32(node->stamp, kFreeStamp);
  Store32(node->next, freeList_[index]);
  Store32(node->nu, I2U(index));
  freeList_[index] = Ref(node);
  ++freeCount_[index];
}

void* RkPPMdHeap::RemoveNode(unsigned index) {
  Node* node = NodeAt(freeList_[index]);
  freeList_[index] = Load32(node->next);
  --freeCount_[index];
  return node;
}

void RkPPMdHeap::SplitBlock(void* p, unsigned oldIndex, unsigned newIndex) {
  const unsigned rest = I2U(oldIndex) - I2U(newIndex);
  uint8_t* tail = static_cast<uint8_t*>(p) + U2B(I2U(newIndex));
  unsigned index = U2I(rest);
  if (I2U(index) != rest) {
    // No class fits exactly: the class below, and the one to four units over it.
    const unsigned k = I2U(--index);
    InsertNode(tail + U2B(k), rest - k - 1);
  }
  InsertNode(tail, index);
}

// Joins free blocks that lie next to each other. The lists are walked class by class, each in
// its own order, and a block absorbs every free block that follows it in memory (those get a
// size of 0 and drop out). The joined blocks are then cut into classes again, at most 128 units
// at a time. Order matters: it decides which block the next allocation gets.
void RkPPMdHeap::GlueFreeBlocks() {
  glueCount = kGluePeriod;
  std::fill(std::begin(freeCount_), std::end(freeCount_), 0);

  // Free blocks end at loUnit at the latest (the top unit is the order-0 context, never free),
  // so a guard there is the only one needed.
  if (loUnit != hiUnit) Store32(reinterpret_cast<Node*>(loUnit)->stamp, 0);

  uint8_t headField[4];
  uint8_t* link = headField;  // the next field that the next kept block goes into
  const uint8_t* end = base_ + endRef_;
  for (unsigned i = 0; i < kIndexes; ++i) {
    uint32_t next = freeList_[i];
    freeList_[i] = 0;
    while (next != 0) {
      Node* node = NodeAt(next);
      uint32_t nu = Load32(node->nu);
      if (nu != 0) {
        Store32(link, next);
        link = node->next;
        for (;;) {
          const uint8_t* after = reinterpret_cast<uint8_t*>(node) + size_t{nu} * kUnitSize;
          if (after >= end) break;
          Node* follower = reinterpret_cast<Node*>(const_cast<uint8_t*>(after));
          if (Load32(follower->stamp) != kFreeStamp) break;
          nu += Load32(follower->nu);
          Store32(follower->nu, 0);
          Store32(node->nu, nu);
        }
      }
      next = Load32(node->next);
    }
  }
  Store32(link, 0);

  for (uint32_t next = Load32(headField); next != 0;) {
    uint8_t* block = reinterpret_cast<uint8_t*>(NodeAt(next));
    next = Load32(reinterpret_cast<Node*>(block)->next);
    uint32_t nu = Load32(reinterpret_cast<Node*>(block)->nu);
    if (nu == 0) continue;
    for (; nu > kMaxUnits; nu -= kMaxUnits, block += U2B(kMaxUnits)) InsertNode(block, kIndexes - 1);
    unsigned index = U2I(nu);
    if (I2U(index) != nu) {
      const unsigned k = I2U(--index);
      InsertNode(block + U2B(k), nu - k - 1);
    }
    InsertNode(block, index);
  }
}

void* RkPPMdHeap::AllocUnitsRare(unsigned index) {
  if (glueCount == 0) {
    GlueFreeBlocks();
    if (freeList_[index] != 0) return RemoveNode(index);
  }
  unsigned i = index;
  do {
    if (++i == kIndexes) {
      // No larger free block: borrow from the text area, if it can spare more than asked.
      const uint32_t bytes = U2B(I2U(index));
      --glueCount;
      if (static_cast<uint32_t>(unitsStart - text) > bytes) return unitsStart -= bytes;
      return nullptr;
    }
  } while (freeList_[i] == 0);
  void* block = RemoveNode(i);
  SplitBlock(block, i, index);
  return block;
}

void* RkPPMdHeap::AllocUnits(unsigned index) {
  if (freeList_[index] != 0) return RemoveNode(index);
  const uint32_t bytes = U2B(I2U(index));
  if (bytes <= static_cast<uint32_t>(hiUnit - loUnit)) {
    void* block = loUnit;
    loUnit += bytes;
    return block;
  }
  return AllocUnitsRare(index);
}

void* RkPPMdHeap::AllocContext() {
  if (hiUnit != loUnit) return hiUnit -= kUnitSize;
  if (freeList_[0] != 0) return RemoveNode(0);
  return AllocUnitsRare(0);
}

void RkPPMdHeap::SpecialFreeUnit(void* p) {
  if (p != unitsStart) {
    InsertNode(p, 0);
  } else {
    unitsStart += kUnitSize;
  }
}

void* RkPPMdHeap::ShrinkUnits(void* p, unsigned oldUnits, unsigned newUnits) {
  const unsigned oldIndex = U2I(oldUnits);
  const unsigned newIndex = U2I(newUnits);
  if (oldIndex == newIndex) return p;
  if (freeList_[newIndex] != 0) {
    void* moved = RemoveNode(newIndex);
    std::memcpy(moved, p, U2B(newUnits));
    InsertNode(p, oldIndex);
    return moved;
  }
  SplitBlock(p, oldIndex, newIndex);
  return p;
}

void* RkPPMdHeap::MoveUnitsUp(void* p, unsigned units) {
  const unsigned index = U2I(units);
  // Only blocks within 16 KiB of the foot are worth moving, and only to a higher free block.
  if (static_cast<uint8_t*>(p) > unitsStart + 16 * 1024 || Ref(p) > freeList_[index]) return p;
  void* moved = RemoveNode(index);
  std::memcpy(moved, p, U2B(units));
  if (p != unitsStart) {
    InsertNode(p, index);
  } else {
    unitsStart += U2B(I2U(index));
  }
  return moved;
}

void RkPPMdHeap::ExpandTextArea() {
  uint32_t count[kIndexes] = {};
  if (loUnit != hiUnit) Store32(reinterpret_cast<Node*>(loUnit)->stamp, 0);

  // Free blocks at the foot become text area; a stamp of 0 marks them for the lists below.
  const uint8_t* end = base_ + endRef_;
  for (;;) {
    Node* node = reinterpret_cast<Node*>(unitsStart);
    if (unitsStart >= end || Load32(node->stamp) != kFreeStamp) break;
    const uint32_t nu = Load32(node->nu);
    Store32(node->stamp, 0);
    if (nu == 0 || nu > kMaxUnits) break;  // not a listed block: leave the rest alone
    ++count[U2I(nu)];
    unitsStart += U2B(nu);
  }

  for (unsigned i = 0; i < kIndexes; ++i) {
    Node* previous = nullptr;
    uint32_t ref = freeList_[i];
    while (count[i] != 0 && ref != 0) {
      Node* node = NodeAt(ref);
      ref = Load32(node->next);
      if (Load32(node->stamp) == 0) {
        if (previous) {
          Store32(previous->next, ref);
        } else {
          freeList_[i] = ref;
        }
        --freeCount_[i];
        --count[i];
      } else {
        previous = node;
      }
    }
  }
}

uint32_t RkPPMdHeap::UsedMemory() const noexcept {
  uint32_t freeUnits = 0;
  for (unsigned i = 0; i < kIndexes; ++i) freeUnits += freeCount_[i] * I2U(i);
  return size_ - static_cast<uint32_t>(hiUnit - loUnit) - static_cast<uint32_t>(unitsStart - text) -
         U2B(freeUnits);
}

}  // namespace RkPipeLib
