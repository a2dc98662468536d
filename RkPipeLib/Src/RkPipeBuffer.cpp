#include "RkPipeBuffer.h"

#include <stdexcept>

namespace RkPipeLib {

// Not value-initialised: a buffer is always written before it is read, and zeroing megabytes for
// every stream would cost more than the pass it serves.
RkPipeBuffer::RkPipeBuffer(uint64_t capacity)
    : base_(new uint8_t[capacity]), writeEnd_(base_), readPos_(base_), capacity_(capacity) {}

void RkPipeBuffer::setLength(uint64_t n) {
  if (n > capacity_) throw std::out_of_range("RkPipeBuffer::setLength: length exceeds the capacity");
  readPos_ = base_;
  writeEnd_ = base_ + n;
}

}  // namespace RkPipeLib
