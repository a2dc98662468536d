// RkUnshrink: the decoder of the ZIP shrink method, an LZW whose codes grow from 9 to 13 bits,
// least significant bit first, only when the data says so, and whose table is thinned by
// partial clears instead of being emptied.
//
// The stream has no end mark: the input ending at a code boundary (with at most the seven bits
// that pad the last byte) ends the node. Code 256 is an escape: 256,1 widens the codes by a bit,
// 256,2 frees every leaf of the tree. New codes take the lowest free slot. Damaged data raises
// RkSevereError(7010); a code cut off by the end of the input raises RkSevereError(7006).
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkLsbBitReader.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkUnshrink : public RkLinkNode {
 public:
  RkUnshrink(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
             const RkStreamSettings& settings = RkStreamSettings::Instance());

  void Run() override;
  // Empties the output stream for the next item.
  void Reset();

 private:
  static constexpr uint32_t kTableSize = 8192;  // 13-bit codes
  static constexpr uint32_t kOutSize = 1024;

  void InitTable() noexcept;
  void PartialClear() noexcept;
  void FindFree(uint32_t from) noexcept;
  // Builds the string of `code` at the end of stack_ and returns its start.
  uint32_t Expand(uint32_t code) const;
  void Emit(const uint8_t* data, uint32_t length);

  RkBStrm reader_;
  RkBStrm writer_;
  RkLsbBitReader bits_;
  // The tree: a code's parent (kFree for a free slot) and its last byte. The third table is the
  // stack on which a string is built backwards, and marks the parents during a partial clear.
  std::unique_ptr<uint16_t[]> parent_;
  std::unique_ptr<uint8_t[]> suffix_;
  std::unique_ptr<uint8_t[]> stack_;
  std::unique_ptr<uint8_t[]> out_;
  uint32_t outCount_ = 0;
  uint32_t nextFree_ = 0;  // the lowest free slot, kTableSize when there is none
  uint32_t prev_ = 0;      // the code before the current one
  uint8_t prevFirst_ = 0;  // and the first byte of its string
};

}  // namespace RkPipeLib
