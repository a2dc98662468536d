// RkLsbBitReader: the bit reader of the decoders whose codes are packed least significant bit
// first (shrink, reduce, implode, compress). It sits on the node's RkBStrm reader and moves whole
// bytes from the reader's buffer into a 64-bit register, as many as fit, so that the reader is
// called once per fill and not once per byte.
//
// Contract. Bits not yet used sit in the low end of the register, the oldest lowest; the bits
// above them are zero, so a lookup may index a table with a short register near the end of the
// input. Fill asks for at most 56 bits, Peek and Take for at most 32. Once the input has ended
// the reader asks the stream for nothing more, since a second take after the end is an error of
// the stream.
#pragma once

#include <cstdint>

#include "RkBStrm.h"
#include "RkError.h"

namespace RkPipeLib {

class RkLsbBitReader {
 public:
  void Attach(RkBStrm* reader) noexcept {
    reader_ = reader;
    bits_ = 0;
    count_ = 0;
    ended_ = false;
  }

  // Tries to hold `count` bits; returns how many are held, fewer only at the end of the input.
  uint32_t Fill(uint32_t count) {
    if (count_ >= count) return count_;
    return FillSlow(count);
  }
  uint32_t Peek(uint32_t count) const noexcept { return static_cast<uint32_t>(bits_ & ((uint64_t{1} << count) - 1)); }
  void Drop(uint32_t count) noexcept {
    bits_ >>= count;
    count_ -= count;
  }
  // The next `count` bits; the end of the input before them raises RkSevereError(7006).
  uint32_t Take(uint32_t count) {
    if (Fill(count) < count) throw RkLib::RkSevereError(kPipeReadPastEnd);
    const uint32_t value = Peek(count);
    Drop(count);
    return value;
  }
  // Drops up to `count` bits, fewer if the input ends first; false then.
  bool Skip(uint64_t count) {
    while (count > 0) {
      const uint32_t step = count > 32 ? 32 : static_cast<uint32_t>(count);
      const uint32_t held = Fill(step);
      if (held < step) {
        Drop(held);
        return false;
      }
      Drop(step);
      count -= step;
    }
    return true;
  }

  uint32_t Held() const noexcept { return count_; }
  bool InputEnded() const noexcept { return ended_; }

  // Sets the input's count to the bytes that hold a used bit. The reader may have taken up to
  // seven bytes more than the data needed; a container that reads on after this stream needs the
  // true figure.
  void StoreConsumption() const noexcept {
    RkDStream* stream = reader_->stream();
    stream->setBytesRead(stream->bytesRead() - count_ / 8);
  }

 private:
  uint32_t FillSlow(uint32_t count) {
    while (count_ < count && !ended_) {
      const uint8_t* p = nullptr;
      const uint64_t n = reader_->peek(p, (64 - count_) / 8, 0);
      if (n == 0) {
        ended_ = true;
        break;
      }
      for (uint64_t i = 0; i < n; ++i, count_ += 8) bits_ |= uint64_t{p[i]} << count_;
      reader_->skip(n);
    }
    return count_;
  }

  RkBStrm* reader_ = nullptr;
  uint64_t bits_ = 0;
  uint32_t count_ = 0;
  bool ended_ = false;
};

}  // namespace RkPipeLib
