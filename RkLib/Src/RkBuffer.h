// Byte buffers: RkBuffer, a sized array, and RkSecureBuffer, pinned in memory and wiped before
// its storage goes back, for passwords and keys.
#pragma once

#include <cstddef>
#include <cstdint>

namespace RkLib {

class RkBuffer {
 public:
  enum ResizeMode { kKeepContents = 0, kClearContents = 1 };

  RkBuffer() = default;
  explicit RkBuffer(size_t size);
  RkBuffer(const void* data, size_t size);
  RkBuffer(const RkBuffer& other);
  RkBuffer(RkBuffer&& other) noexcept;
  RkBuffer& operator=(const RkBuffer& other);
  RkBuffer& operator=(RkBuffer&& other) noexcept;
  virtual ~RkBuffer();

  uint8_t* Data() noexcept { return data_; }
  const uint8_t* Data() const noexcept { return data_; }
  size_t Size() const noexcept { return size_; }
  size_t Capacity() const noexcept { return capacity_; }
  bool Empty() const noexcept { return size_ == 0; }

  // Bounds-checked access; past the end throws std::out_of_range naming the operation.
  uint8_t& At(size_t index);
  uint8_t At(size_t index) const;
  // The index counts 16-bit little-endian units.
  char16_t WchAt(size_t index) const;

  // Growing keeps the old bytes with kKeepContents and zeroes everything with kClearContents;
  // new bytes are always zero.
  void Resize(size_t size, ResizeMode mode = kKeepContents);
  void Reserve(size_t capacity);
  void Assign(const void* data, size_t size);
  // A null source is an assertion failure, even for a length of zero.
  void Append(const void* data, size_t size);
  void AppendByte(uint8_t b);
  void Clear() noexcept { size_ = 0; }

  friend bool operator==(const RkBuffer& a, const RkBuffer& b) noexcept;

 protected:
  // Storage hooks, so that RkSecureBuffer can pin and wipe every block it owns.
  virtual uint8_t* AllocateBlock(size_t capacity);
  virtual void ReleaseBlock(uint8_t* block, size_t capacity) noexcept;
  void ReleaseStorage() noexcept;

 private:
  void Grow(size_t needed);

  uint8_t* data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

class RkSecureBuffer final : public RkBuffer {
 public:
  RkSecureBuffer() = default;
  explicit RkSecureBuffer(size_t size) { Resize(size, kClearContents); }
  RkSecureBuffer(const RkSecureBuffer&) = delete;
  RkSecureBuffer& operator=(const RkSecureBuffer&) = delete;
  ~RkSecureBuffer() override;

  // Fills the whole capacity, not only the used size.
  void Wipe(uint8_t fill = 0) noexcept;
  // Whether the last block could be pinned; without the privilege it is still wiped.
  bool IsLocked() const noexcept { return locked_; }

 protected:
  uint8_t* AllocateBlock(size_t capacity) override;
  void ReleaseBlock(uint8_t* block, size_t capacity) noexcept override;

 private:
  bool locked_ = false;
};

}  // namespace RkLib
