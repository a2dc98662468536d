// RkCrcCalculator: passes each buffer on untouched and keeps the CRC-32 of what went through.
#pragma once

#include <cstdint>

#include "RkNode.h"

namespace RkPipeLib {

class RkCrcCalculator : public RkLinkNode {
 public:
  RkCrcCalculator(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                  const RkStreamSettings& settings = RkStreamSettings::Instance());

  void Run() override;
  // Empties the output stream and starts a new CRC, for the next item.
  virtual void Reset();
  virtual uint32_t GetCrc() const { return crc_; }

 private:
  uint32_t crc_;
};

}  // namespace RkPipeLib
