#include "RkCrcCalculator.h"

#include "RkCrc32.h"

namespace RkPipeLib {

RkCrcCalculator::RkCrcCalculator(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                                 const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings), crc_(RkLib::RkCrc32(0, nullptr, 0)) {}

void RkCrcCalculator::Run() {
  PassBuffers([this](RkPipeBuffer& buffer) {
    const uint64_t n = buffer.remaining();
    RK_ASSERT(n <= 0x7FFFFFFF);
    crc_ = RkLib::RkCrc32(crc_, buffer.readPos(), n);
  });
}

void RkCrcCalculator::Reset() {
  output_.Reset();
  crc_ = RkLib::RkCrc32(0, nullptr, 0);
}

}  // namespace RkPipeLib
