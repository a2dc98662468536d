// RkCountOut: the target that only counts what arrives, for benchmarks and for draining a
// stream whose bytes nobody needs (a test of an item's checksum).
#pragma once

#include <cstdint>

#include "RkNode.h"

namespace RkPipeLib {

class RkCountOut : public RkTargetNode {
 public:
  RkCountOut(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
             const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkCountOut() override;

  // The owner's cancel, seen through Poll after each buffer, throws RkFatalError(7002).
  void Run() override;
  uint64_t Bytes() const noexcept { return bytes_; }
  uint64_t Buffers() const noexcept { return buffers_; }

 private:
  RkPipeBuffer* spare_;
  uint64_t bytes_ = 0;
  uint64_t buffers_ = 0;
};

}  // namespace RkPipeLib
