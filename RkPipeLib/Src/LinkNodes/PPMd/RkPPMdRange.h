// RkPPMdRange: the carry-less range decoder of PPMd var.I (the coder of Subbotin), reading the
// compressed bytes straight from the buffer of an RkBStrm.
//
// `code` is kept relative to `low`, so that a threshold is one division. Renormalisation shifts
// in a byte while the top byte of low and low + range agree, or while the range is below 2^15;
// in the second case the range is first cut to what is left below the next 2^15 boundary of
// low, which is what makes the coder carry-less. The encoder shifts out in the same steps, so
// the decoder takes exactly the bytes that the encoder wrote, and never one more.
#pragma once

#include <cstdint>
#include <vector>

#include "RkBStrm.h"
#include "RkError.h"
#include "RkPPMdHeap.h"

namespace RkPipeLib {

class RkPPMdRange {
 public:
  // Reads from `reader` from now on, starting at its next byte.
  void Attach(RkBStrm* reader) {
    reader_ = reader;
    next_ = end_ = window_ = nullptr;
  }
  // A byte outside the code, for the header in front of it.
  uint8_t RawByte() { return static_cast<uint8_t>(NextByte()); }
  // Reads the four bytes that start the code.
  void Start() {
    low_ = 0;
    range_ = 0xFFFFFFFF;
    code_ = 0;
    for (int i = 0; i < 4; ++i) code_ = (code_ << 8) | NextByte();
  }

  // The count in [0, total) that the code stands for. A range too small for the total cannot
  // come from an encoder.
  uint32_t Threshold(uint32_t total) {
    if (total == 0 || (range_ /= total) == 0) [[unlikely]]
      throw RkLib::RkSevereError(kPPMdBadData);
    return code_ / range_;
  }
  // The same for the binary contexts, whose total is 2^14.
  uint32_t BinaryThreshold() {
    range_ >>= 14;
    return code_ / range_;
  }
  // Takes the interval [start, start + size) of the total given to the threshold.
  void Decode(uint32_t start, uint32_t size) {
    start *= range_;
    low_ += start;
    code_ -= start;
    range_ *= size;
    for (;;) {
      if ((low_ ^ (low_ + range_)) >= kTop) {
        if (range_ >= kBottom) break;
        range_ = (0 - low_) & (kBottom - 1);
      }
      code_ = (code_ << 8) | NextByte();
      range_ <<= 8;
      low_ <<= 8;
    }
  }

  // Hands the bytes taken from the current buffer over to the reader, so that the input's
  // bytesRead is the exact length of the stream.
  void Finish() {
    reader_->skip(static_cast<uint64_t>(next_ - window_));
    window_ = next_;
  }

 private:
  static constexpr uint32_t kTop = 1u << 24;
  static constexpr uint32_t kBottom = 1u << 15;

  uint32_t NextByte() {
    if (next_ == end_) [[unlikely]]
      Refill();
    return *next_++;
  }
  // Moves to the next buffer of the input; the end of the input raises RkSevereError(7006).
  void Refill();

  RkBStrm* reader_ = nullptr;
  const uint8_t* window_ = nullptr;  // the bytes shown by the last peek
  const uint8_t* next_ = nullptr;
  const uint8_t* end_ = nullptr;
  uint32_t low_ = 0;
  uint32_t range_ = 0;
  uint32_t code_ = 0;
};

// The encoder's half, for the round trips of the tests and the fuzz target: the same intervals,
// shifted out into a vector.
class RkPPMdRangeEncoder {
 public:
  explicit RkPPMdRangeEncoder(std::vector<uint8_t>& out) : out_(out) {}

  void Encode(uint32_t start, uint32_t size, uint32_t total) {
    range_ /= total;
    low_ += start * range_;
    range_ *= size;
    Normalize();
  }
  // A binary decision with a 14-bit probability of the first outcome.
  void EncodeBinary(bool second, uint32_t prob) {
    range_ >>= 14;
    if (second) {
      low_ += prob * range_;
      range_ *= (1u << 14) - prob;
    } else {
      range_ *= prob;
    }
    Normalize();
  }
  void Flush() {
    for (int i = 0; i < 4; ++i, low_ <<= 8) out_.push_back(static_cast<uint8_t>(low_ >> 24));
  }

 private:
  static constexpr uint32_t kTop = 1u << 24;
  static constexpr uint32_t kBottom = 1u << 15;

  void Normalize() {
    for (;;) {
      if ((low_ ^ (low_ + range_)) >= kTop) {
        if (range_ >= kBottom) break;
        range_ = (0 - low_) & (kBottom - 1);
      }
      out_.push_back(static_cast<uint8_t>(low_ >> 24));
      range_ <<= 8;
      low_ <<= 8;
    }
  }

  std::vector<uint8_t>& out_;
  uint32_t low_ = 0;
  uint32_t range_ = 0xFFFFFFFF;
};

}  // namespace RkPipeLib
