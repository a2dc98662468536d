#include "RkMemOut.h"

#include <algorithm>

namespace RkPipeLib {

RkMemOut::RkMemOut(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, uint64_t limit,
                   const RkStreamSettings& settings)
    : RkTargetNode(first, second),
      spare_(new RkPipeBuffer(static_cast<uint64_t>(settings.pipeBufferSize))),
      limit_(limit) {}

RkMemOut::~RkMemOut() { delete spare_; }

void RkMemOut::Run() {
  while (bytes_.size() < limit_ && TakeInto(spare_)) {
    const uint64_t n = std::min<uint64_t>(spare_->remaining(), limit_ - bytes_.size());
    bytes_.insert(bytes_.end(), spare_->readPos(), spare_->readPos() + n);
    if (!Poll()) throw RkLib::RkFatalError(kPipeCancelled);
  }
}

}  // namespace RkPipeLib
