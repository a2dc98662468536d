// RkPPMdDecoder: the link node that decodes PPMd var.I, revision 1, in its ZIP form (method 98).
//
// The stream starts with two bytes, little-endian: bits 0-3 the model order minus 1, bits 4-11
// the model memory in MiB minus 1, bits 12-15 the restore method. A range-coded body follows;
// it ends with the escape from the order-0 context, after which nothing more is read, so the
// input's bytesRead is the exact length of the stream.
//
// Failures: an order of 1 or a restore method above 2 in the header, or a code that no encoder
// could have written, raise RkSevereError(7010); input that ends before the end mark (the
// header included) raises RkSevereError(7006); model memory that cannot be had raises
// RkFatalError(7001).
//
// The model memory (1 to 256 MiB, as the header asks) is allocated at the first run and kept
// for the next; a later stream that asks for more makes it grow.
#pragma once

#include <cstdint>

#include "RkBStrm.h"
#include "RkNode.h"
#include "RkPPMdMod.h"
#include "RkPPMdRange.h"

namespace RkPipeLib {

class RkPPMdDecoder : public RkLinkNode {
 public:
  struct Header {
    unsigned order;       // 2 to 16
    uint32_t memorySize;  // bytes, 1 to 256 MiB
    unsigned method;      // RkPPMdMod::Restore
  };

  RkPPMdDecoder(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                const RkStreamSettings& settings = RkStreamSettings::Instance());

  void Run() override;

  // The fields of the two header bytes, checked: raises RkSevereError(7010) for an order of 1
  // or a restore method above 2.
  static Header ParseHeader(uint16_t bits);

  // The model of the last run, for its statistics.
  const RkPPMdMod& Model() const noexcept { return model_; }

 private:
  RkBStrm reader_;
  RkBStrm writer_;
  RkPPMdRange range_;
  RkPPMdMod model_;
};

}  // namespace RkPipeLib
