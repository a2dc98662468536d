#include "RkBuffer.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>

#include "RkError.h"

namespace RkLib {

RkBuffer::RkBuffer(size_t size) { Resize(size, kClearContents); }

RkBuffer::RkBuffer(const void* data, size_t size) { Assign(data, size); }

RkBuffer::RkBuffer(const RkBuffer& other) { Assign(other.data_, other.size_); }

RkBuffer::RkBuffer(RkBuffer&& other) noexcept
    : data_(other.data_), size_(other.size_), capacity_(other.capacity_) {
  other.data_ = nullptr;
  other.size_ = other.capacity_ = 0;
}

RkBuffer& RkBuffer::operator=(const RkBuffer& other) {
  if (this != &other) Assign(other.data_, other.size_);
  return *this;
}

RkBuffer& RkBuffer::operator=(RkBuffer&& other) noexcept {
  if (this != &other) {
    ReleaseStorage();
    data_ = other.data_;
    size_ = other.size_;
    capacity_ = other.capacity_;
    other.data_ = nullptr;
    other.size_ = other.capacity_ = 0;
  }
  return *this;
}

RkBuffer::~RkBuffer() { ReleaseStorage(); }

void RkBuffer::ReleaseStorage() noexcept {
  if (data_) ReleaseBlock(data_, capacity_);
  data_ = nullptr;
  size_ = capacity_ = 0;
}

uint8_t* RkBuffer::AllocateBlock(size_t capacity) { return new uint8_t[capacity]; }

void RkBuffer::ReleaseBlock(uint8_t* block, size_t) noexcept { delete[] block; }

uint8_t& RkBuffer::At(size_t index) {
  if (index >= size_) throw std::out_of_range("RkBuffer::At()");
  return data_[index];
}

uint8_t RkBuffer::At(size_t index) const {
  if (index >= size_) throw std::out_of_range("RkBuffer::At()");
  return data_[index];
}

char16_t RkBuffer::WchAt(size_t index) const {
  if (index >= size_ / 2) throw std::out_of_range("RkBuffer::WchAt()");
  return static_cast<char16_t>(data_[2 * index] | (data_[2 * index + 1] << 8));
}

void RkBuffer::Grow(size_t needed) {
  if (needed <= capacity_) return;
  size_t capacity = std::max<size_t>({needed, capacity_ + capacity_ / 2, 64});
  uint8_t* block = AllocateBlock(capacity);
  if (size_) std::memcpy(block, data_, size_);
  uint8_t* old = data_;
  size_t oldCapacity = capacity_;
  data_ = block;
  capacity_ = capacity;
  if (old) ReleaseBlock(old, oldCapacity);
}

void RkBuffer::Reserve(size_t capacity) { Grow(capacity); }

void RkBuffer::Resize(size_t size, ResizeMode mode) {
  Grow(size);
  if (mode == kClearContents) {
    if (size) std::memset(data_, 0, size);
  } else if (size > size_) {
    std::memset(data_ + size_, 0, size - size_);
  }
  size_ = size;
}

void RkBuffer::Assign(const void* data, size_t size) {
  size_ = 0;
  if (size) Append(data, size);
}

void RkBuffer::Append(const void* data, size_t size) {
  RK_ASSERT(data != nullptr);
  if (size > SIZE_MAX - size_) throw std::bad_alloc();
  // The source may lie inside this buffer; growing would move it, so take its offset first.
  const uint8_t* src = static_cast<const uint8_t*>(data);
  const bool inside = data_ && src >= data_ && src < data_ + capacity_;
  const size_t offset = inside ? static_cast<size_t>(src - data_) : 0;
  Grow(size_ + size);
  if (inside) src = data_ + offset;
  std::memmove(data_ + size_, src, size);
  size_ += size;
}

void RkBuffer::AppendByte(uint8_t b) {
  Grow(size_ + 1);
  data_[size_++] = b;
}

bool operator==(const RkBuffer& a, const RkBuffer& b) noexcept {
  return a.size_ == b.size_ && (a.size_ == 0 || std::memcmp(a.data_, b.data_, a.size_) == 0);
}

RkSecureBuffer::~RkSecureBuffer() { ReleaseStorage(); }

uint8_t* RkSecureBuffer::AllocateBlock(size_t capacity) {
  uint8_t* block = new uint8_t[capacity];
  // Pinning can fail under RLIMIT_MEMLOCK; the buffer then still wipes itself.
  locked_ = mlock(block, capacity) == 0;
  return block;
}

void RkSecureBuffer::ReleaseBlock(uint8_t* block, size_t capacity) noexcept {
  explicit_bzero(block, capacity);
  munlock(block, capacity);
  delete[] block;
}

void RkSecureBuffer::Wipe(uint8_t fill) noexcept {
  if (Capacity() == 0) return;
  if (fill == 0) {
    explicit_bzero(Data(), Capacity());
  } else {
    volatile uint8_t* p = Data();
    for (size_t i = 0; i < Capacity(); ++i) p[i] = fill;
  }
}

}  // namespace RkLib
