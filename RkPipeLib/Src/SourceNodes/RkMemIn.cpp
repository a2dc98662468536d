#include "RkMemIn.h"

#include <algorithm>

namespace RkPipeLib {

void RkMemIn::Run() {
  for (size_t at = 0; at < size_;) {
    RkPipeBuffer* buffer = output_.getFree();
    const size_t n = static_cast<size_t>(std::min<uint64_t>(buffer->capacity(), size_ - at));
    buffer->lend(data_ + at, n);
    output_.put(buffer);
    at += n;
  }
  output_.finish(nullptr);
  output_.setLast();
}

}  // namespace RkPipeLib
