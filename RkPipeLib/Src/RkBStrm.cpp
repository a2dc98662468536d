#include "RkBStrm.h"

#include <stdexcept>

namespace RkPipeLib {

RkBStrm::RkBStrm(RkDStream* output) : buffer_(new RkPipeBuffer(output->bufferSize())), stream_(output) {}

// ---- Writer.

void RkBStrm::exchangeOutput() {
  RkPipeBuffer* next = stream_->getFree();
  stream_->put(buffer_);
  next->reset();
  buffer_ = next;
}

void RkBStrm::writeBytesSlow(const uint8_t* data, uint64_t length) {
  while (length > 0) {
    if (buffer_->room() == 0) exchangeOutput();
    const uint64_t n = std::min(length, buffer_->room());
    std::memcpy(buffer_->writeEnd(), data, n);
    buffer_->extend(n);
    data += n;
    length -= n;
  }
}

uint64_t RkBStrm::reserve(uint8_t*& out, uint64_t length, uint64_t minimum) {
  if (buffer_->room() < minimum) {
    if (buffer_->length() != 0) exchangeOutput();
    if (buffer_->room() < minimum)
      throw std::overflow_error("RkBStrm::reserve: the buffer is smaller than the minimum");
  }
  out = buffer_->writeEnd();
  return std::min(length, buffer_->room());
}

void RkBStrm::finishOutput() {
  if (buffer_->length() != 0) exchangeOutput();
  stream_->finish(nullptr);
  stream_->setLast();
}

// ---- Reader.

void RkBStrm::attach(RkDStream* input) {
  stream_ = input;
  if (!buffer_) buffer_ = new RkPipeBuffer(input->bufferSize());
  buffer_->reset();
}

void RkBStrm::refill() {
  if (!refill(kSoftEnd)) throw RkLib::RkSevereError(kPipeReadPastEnd);
}

bool RkBStrm::refill(RkSoftEnd) {
  RK_ASSERT(buffer_->remaining() == 0);
  RkPipeBuffer* filled = stream_->take(buffer_);
  if (!filled) return false;
  buffer_ = filled;
  return true;
}

uint64_t RkBStrm::readBytesSlow(uint8_t* destination, uint64_t length, uint64_t minimum) {
  uint64_t got = 0;
  for (;;) {
    const uint64_t n = std::min(length - got, buffer_->remaining());
    if (n) std::memcpy(destination + got, buffer_->readPos(), n);
    buffer_->consume(n);
    got += n;
    if (got == length) break;
    if (got < minimum) {
      refill();
    } else if (!refill(kSoftEnd)) {
      break;
    }
  }
  stream_->addBytesRead(got);
  return got;
}

uint64_t RkBStrm::peekSlow(const uint8_t*& out, uint64_t wanted, uint64_t minimum) {
  if (buffer_->remaining() == 0) refill(kSoftEnd);
  const uint64_t n = std::min(wanted, buffer_->remaining());
  if (n < minimum) throw std::underflow_error("RkBStrm::peek: fewer bytes than the minimum");
  out = buffer_->readPos();
  return n;
}

void RkBStrm::throwSkipUnderflow() {
  throw std::underflow_error("RkBStrm::skip: more bytes than the buffer holds");
}

}  // namespace RkPipeLib
