#include "RkPipeBuffer.h"

#include <cstring>
#include <stdexcept>

#include "RkError.h"

namespace RkPipeLib {

// Not value-initialised: a buffer is always written before it is read, and zeroing megabytes for
// every stream would cost more than the pass it serves.
RkPipeBuffer::RkPipeBuffer(uint64_t capacity)
    : base_(new uint8_t[capacity]),
      writeEnd_(base_),
      readPos_(base_),
      capacity_(capacity),
      own_(base_),
      ownCapacity_(capacity) {}

void RkPipeBuffer::lend(const uint8_t* data, uint64_t length) noexcept {
  RK_ASSERT(length <= ownCapacity_);
  // The bytes are only ever read through a lent buffer; makeOwn guards every writer.
  base_ = const_cast<uint8_t*>(data);
  capacity_ = length;
  readPos_ = base_;
  writeEnd_ = base_ + length;
}

void RkPipeBuffer::makeOwn() noexcept {
  if (!isLent()) return;
  const uint64_t length = this->length();
  const uint64_t read = static_cast<uint64_t>(readPos_ - base_);
  std::memcpy(own_, base_, length);
  base_ = own_;
  capacity_ = ownCapacity_;
  readPos_ = base_ + read;
  writeEnd_ = base_ + length;
}

void RkPipeBuffer::setLength(uint64_t n) {
  if (n > capacity_) throw std::out_of_range("RkPipeBuffer::setLength: length exceeds the capacity");
  readPos_ = base_;
  writeEnd_ = base_ + n;
}

}  // namespace RkPipeLib
