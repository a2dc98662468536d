// RkExplode: the decoder of the ZIP implode method (6): a sliding dictionary of 4 or 8 KiB whose
// literals, lengths and distances are coded by Shannon-Fano trees stored at the front of the data.
//
// The flag byte comes from the entry's flags: bit 0 selects the 8 KiB dictionary (7 raw low
// distance bits, not 6), bit 1 says that a literal tree is present (and that a copy is at least 3
// bytes long, not 2); without it a literal is 8 raw bits. The trees come in the order literal
// (256 codes, when present), length (64), distance (64). The data has no end mark: the node ends
// once it has delivered the uncompressed size. Bytes before the start of the data count as
// zeros. A tree that does not describe a complete code raises RkSevereError(7010); the input
// ending first raises RkSevereError(7006).
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkLsbBitReader.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkExplode : public RkLinkNode {
 public:
  static constexpr uint8_t kLargeWindow = 1;
  static constexpr uint8_t kLiteralTree = 2;

  RkExplode(uint8_t flags, uint64_t uncompressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
            const RkStreamSettings& settings = RkStreamSettings::Instance());

  void Run() override;
  // Empties the output stream and takes the flags and size of the next item.
  void Reset(uint8_t flags, uint64_t uncompressedSize);

 private:
  static constexpr uint32_t kWindowSize = 1u << 20;
  static constexpr uint32_t kMaxCodeBits = 16;

  // One tree as a single-level table indexed by the next `bits` bits of input (the longest code
  // of the tree): each entry holds the symbol in its low byte and the code's length above it.
  struct Tree {
    std::unique_ptr<uint16_t[]> table{new uint16_t[1u << kMaxCodeBits]};
    uint32_t bits = 0;
  };

  void ReadTree(Tree& tree, uint32_t symbols);
  uint32_t Decode(const Tree& tree);
  void Put(uint8_t byte) {
    window_[windowPos_++] = byte;
    if (windowPos_ == kWindowSize) FlushWindow();
  }
  void FlushWindow();

  RkBStrm reader_;
  RkBStrm writer_;
  RkLsbBitReader bits_;
  std::unique_ptr<uint8_t[]> window_;
  Tree literals_;
  Tree lengths_;
  Tree distances_;
  uint8_t flags_;
  uint64_t size_;
  uint32_t windowPos_ = 0;
};

}  // namespace RkPipeLib
