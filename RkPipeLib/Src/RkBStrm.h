// RkBStrm: the buffered view that a codec keeps on one side of a stream.
//
// As a writer it sits on the node's own output stream and fills a private buffer, which it
// exchanges whole for a free one of the stream when full. As a reader it sits on the node's input
// stream and holds the buffer it last took, so that a codec can look at bytes in place (peek,
// skip) and copy only where it needs its own layout (readBytes).
//
// One object is used by one thread: the writer by the stream's producer, the reader by its
// consumer. Blocking is that of the stream: getFree when a full buffer goes out, take on refill.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "RkDStream.h"
#include "RkPipeBuffer.h"

namespace RkPipeLib {

// Selects the refill that answers the end of the input with false instead of an error.
struct RkSoftEnd {};
inline constexpr RkSoftEnd kSoftEnd{};

class RkBStrm {
 public:
  // A reader, until attach gives it a stream.
  RkBStrm() = default;
  // A writer on `output`; the buffer is allocated here, once.
  explicit RkBStrm(RkDStream* output);
  RkBStrm(const RkBStrm&) = delete;
  RkBStrm& operator=(const RkBStrm&) = delete;
  ~RkBStrm() { delete buffer_; }

  // ---- Writer.
  void writeBytes(const void* data, uint64_t length) {
    if (length != 0 && length <= buffer_->room()) {
      std::memcpy(buffer_->writeEnd(), data, length);
      buffer_->extend(length);
      return;
    }
    writeBytesSlow(static_cast<const uint8_t*>(data), length);
  }

  // Points `out` at room for at least `minimum` bytes, passing the buffer on first if it holds
  // data and lacks the room. Returns how many of the `length` bytes wanted may be written there;
  // commit says how many were. An empty buffer smaller than `minimum` throws
  // std::overflow_error.
  uint64_t reserve(uint8_t*& out, uint64_t length, uint64_t minimum);
  void commit(uint64_t length) {
    RK_ASSERT(length <= buffer_->room());
    buffer_->extend(length);
  }

  // Sends what is buffered and ends the stream.
  void finishOutput();

  // ---- Reader.
  // Sets the stream to read and empties the buffer, allocating one the first time.
  void attach(RkDStream* input);

  // Copies `length` bytes, or, once `minimum` have come, as many as there are before the end.
  // Returns the count. The end before `minimum` raises RkSevereError(7006).
  uint64_t readBytes(void* destination, uint64_t length, uint64_t minimum) {
    if (length <= buffer_->remaining()) {
      if (length) std::memcpy(destination, buffer_->readPos(), length);
      buffer_->consume(length);
      stream_->addBytesRead(length);
      return length;
    }
    return readBytesSlow(static_cast<uint8_t*>(destination), length, minimum);
  }

  // Points `out` at the unread bytes of the buffer, refilling an empty one. Returns how many may
  // be looked at: `wanted`, or fewer at the end of the input or where the buffer ends. Fewer than
  // `minimum` throws std::underflow_error.
  uint64_t peek(const uint8_t*& out, uint64_t wanted, uint64_t minimum) {
    if (buffer_->remaining() >= wanted && wanted >= minimum) {
      out = buffer_->readPos();
      return wanted;
    }
    return peekSlow(out, wanted, minimum);
  }

  // Consumes bytes that peek has shown; more than the buffer holds throws std::underflow_error.
  void skip(uint64_t length) {
    if (length > buffer_->remaining()) throwSkipUnderflow();
    buffer_->consume(length);
    stream_->addBytesRead(length);
  }

  // Exchanges the buffer for the next filled one. At the end of the input the first form raises
  // RkSevereError(7006) and the second returns false. Failures above are raised by both.
  void refill();
  bool refill(RkSoftEnd);

  uint64_t available() const noexcept { return buffer_->remaining(); }
  RkDStream* stream() const noexcept { return stream_; }

 private:
  void exchangeOutput();
  void writeBytesSlow(const uint8_t* data, uint64_t length);
  uint64_t readBytesSlow(uint8_t* destination, uint64_t length, uint64_t minimum);
  uint64_t peekSlow(const uint8_t*& out, uint64_t wanted, uint64_t minimum);
  [[noreturn]] static void throwSkipUnderflow();

  RkPipeBuffer* buffer_ = nullptr;  // owned; after an exchange it is one that came from a ring
  RkDStream* stream_ = nullptr;
};

}  // namespace RkPipeLib
