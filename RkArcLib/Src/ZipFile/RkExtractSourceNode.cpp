#include "RkExtractSourceNode.h"

#include <algorithm>

#include "RkError.h"
#include "RkReadBuf.h"
#include "RkState.h"

namespace RkArcLib {

void RkExtractSourceNode::Run() {
  RK_ASSERT(reader_ != nullptr);
  uint64_t left = length_;
  RkPipeLib::RkPipeBuffer* buffer = output_.getFree();
  while (left > 0) {
    const size_t want = static_cast<size_t>(std::min<uint64_t>(left, buffer->capacity()));
    const size_t got = reader_->Read(buffer->base(), want);
    if (got != want) {
      output_.returnFree(buffer);
      throw RkLib::RkSevereError(reader_->ReadFailed() ? kArcReadFailure : kArcHeaderEof);
    }
    buffer->setLength(got);
    left -= got;
    output_.put(buffer);
    buffer = output_.getFree();
  }
  output_.finish(buffer);
  output_.setLast();
}

}  // namespace RkArcLib
