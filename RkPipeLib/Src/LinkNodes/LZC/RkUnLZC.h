// RkUnLZC: the decoder of the Unix compress format (.Z): a three-byte header, then LZW codes of 9
// up to 16 bits, least significant bit first, to the end of the input.
//
// Header: 1F 9D, then a byte whose low five bits give the widest code (9 to 16) and whose top bit
// selects block mode, in which code 256 empties the table. Anything else in the header, a code
// beyond the next free one, or a string that cannot be built raises RkSevereError(7010); the
// input ending inside the header raises RkSevereError(7006).
//
// The writers emit codes in groups of eight, each group a whole number of bytes, and start a new
// group when the width changes or the table is emptied: the unused rest of the group is skipped.
// The width rises when the next free code passes the largest code of the current width; as in the
// original program, a 9-bit limit does not stop that first rise to 10 bits.
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkLsbBitReader.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkUnLZC : public RkLinkNode {
 public:
  RkUnLZC(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
          const RkStreamSettings& settings = RkStreamSettings::Instance());

  void Run() override;
  // Empties the output stream for the next item.
  void Reset();

 private:
  static constexpr uint32_t kTableSize = 65536;  // 16-bit codes
  static constexpr uint32_t kOutSize = 1024;

  void Emit(const uint8_t* data, uint32_t length);

  RkBStrm reader_;
  RkBStrm writer_;
  RkLsbBitReader bits_;
  std::unique_ptr<uint16_t[]> prefix_;
  std::unique_ptr<uint8_t[]> suffix_;
  std::unique_ptr<uint8_t[]> stack_;  // a string is built here backwards
  std::unique_ptr<uint8_t[]> out_;
  uint32_t outCount_ = 0;
};

}  // namespace RkPipeLib
