// RkPipeBuffer: one block of bytes that travels between the nodes of a pipe.
//
// A buffer is filled from `base` up to `writeEnd` and read from `readPos` up to `writeEnd`. It is
// owned by whichever ring or node holds it at the moment: buffers move between streams by
// exchange, so the storage is never tied to the stream that allocated it.
#pragma once

#include <cstdint>

namespace RkPipeLib {

class RkPipeBuffer {
 public:
  explicit RkPipeBuffer(uint64_t capacity);
  RkPipeBuffer(const RkPipeBuffer&) = delete;
  RkPipeBuffer& operator=(const RkPipeBuffer&) = delete;
  ~RkPipeBuffer() { delete[] base_; }

  uint8_t* base() const noexcept { return base_; }
  uint8_t* writeEnd() const noexcept { return writeEnd_; }
  uint8_t* readPos() const noexcept { return readPos_; }
  uint64_t capacity() const noexcept { return capacity_; }

  uint64_t length() const noexcept { return static_cast<uint64_t>(writeEnd_ - base_); }
  uint64_t remaining() const noexcept { return static_cast<uint64_t>(writeEnd_ - readPos_); }
  uint64_t room() const noexcept { return capacity_ - length(); }

  void reset() noexcept { writeEnd_ = readPos_ = base_; }
  // Makes the first n bytes the content, unread. More than the capacity throws std::out_of_range.
  void setLength(uint64_t n);
  // The caller has checked n against remaining() and room() respectively.
  void consume(uint64_t n) noexcept { readPos_ += n; }
  void extend(uint64_t n) noexcept { writeEnd_ += n; }

 private:
  uint8_t* base_;
  uint8_t* writeEnd_;
  uint8_t* readPos_;
  uint64_t capacity_;
};

}  // namespace RkPipeLib
