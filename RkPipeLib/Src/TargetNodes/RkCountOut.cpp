#include "RkCountOut.h"

namespace RkPipeLib {

RkCountOut::RkCountOut(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, const RkStreamSettings& settings)
    : RkTargetNode(first, second), spare_(new RkPipeBuffer(static_cast<uint64_t>(settings.pipeBufferSize))) {}

RkCountOut::~RkCountOut() { delete spare_; }

void RkCountOut::Run() {
  while (TakeInto(spare_)) {
    bytes_ += spare_->remaining();
    ++buffers_;
    if (!Poll()) throw RkLib::RkFatalError(kPipeCancelled);
  }
}

}  // namespace RkPipeLib
