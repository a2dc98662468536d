// RkPipeBuffer: one block of bytes that travels between the nodes of a pipe.
//
// A buffer is filled from `base` up to `writeEnd` and read from `readPos` up to `writeEnd`. It is
// owned by whichever ring or node holds it at the moment: buffers move between streams by
// exchange, so the storage is never tied to the stream that allocated it.
//
// A buffer may also carry bytes that are not its own: a memory source lends it a piece of the
// owner's data instead of copying it in. Such bytes are read-only. A node that wants to change the
// bytes of a buffer it took in place calls makeOwn first; every way back to a free ring resets the
// buffer, which returns it to its own storage.
#pragma once

#include <cstdint>

namespace RkPipeLib {

class RkPipeBuffer {
 public:
  explicit RkPipeBuffer(uint64_t capacity);
  RkPipeBuffer(const RkPipeBuffer&) = delete;
  RkPipeBuffer& operator=(const RkPipeBuffer&) = delete;
  ~RkPipeBuffer() { delete[] own_; }

  uint8_t* base() const noexcept { return base_; }
  uint8_t* writeEnd() const noexcept { return writeEnd_; }
  uint8_t* readPos() const noexcept { return readPos_; }
  uint64_t capacity() const noexcept { return capacity_; }

  uint64_t length() const noexcept { return static_cast<uint64_t>(writeEnd_ - base_); }
  uint64_t remaining() const noexcept { return static_cast<uint64_t>(writeEnd_ - readPos_); }
  uint64_t room() const noexcept { return capacity_ - length(); }

  void reset() noexcept {
    base_ = own_;
    capacity_ = ownCapacity_;
    writeEnd_ = readPos_ = base_;
  }
  // Shows `length` bytes of the caller's, unread, without copying them; they must stay valid and
  // unchanged until the buffer is reset. At most the buffer's own capacity.
  void lend(const uint8_t* data, uint64_t length) noexcept;
  bool isLent() const noexcept { return base_ != own_; }
  // Copies lent bytes into the buffer's own storage, keeping the read position.
  void makeOwn() noexcept;
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
  uint8_t* own_;
  uint64_t ownCapacity_;
};

}  // namespace RkPipeLib
