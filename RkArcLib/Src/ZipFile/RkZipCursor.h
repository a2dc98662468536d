// RkZipCursor: reads little-endian fields in file order out of bytes already in memory. Every read
// is checked against the end, and running past it is a header cut short (code 18), never a read of
// memory that is not there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "RkError.h"

namespace RkArcLib {

inline constexpr uint32_t kZipErrHeaderEof = 18;

// Little-endian fields at a place whose bounds the caller has checked.
inline uint16_t RkZipLe16(const uint8_t* p) noexcept { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t RkZipLe32(const uint8_t* p) noexcept {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}
inline uint64_t RkZipLe64(const uint8_t* p) noexcept { return RkZipLe32(p) | (uint64_t{RkZipLe32(p + 4)} << 32); }

class RkZipCursor {
 public:
  RkZipCursor(const uint8_t* data, size_t size) noexcept : data_(data), size_(size) {}

  size_t Position() const noexcept { return pos_; }
  size_t Remaining() const noexcept { return size_ - pos_; }

  uint8_t U8() { return static_cast<uint8_t>(Take(1)[0]); }
  uint16_t U16() { return RkZipLe16(Take(2)); }
  uint32_t U32() { return RkZipLe32(Take(4)); }
  uint64_t U64() {
    const uint64_t low = U32();
    return low | (uint64_t{U32()} << 32);
  }
  std::string_view Bytes(size_t count) {
    return std::string_view(reinterpret_cast<const char*>(Take(count)), count);
  }
  void Skip(size_t count) { Take(count); }

 private:
  const uint8_t* Take(size_t count) {
    if (count > size_ - pos_) throw RkLib::RkFatalError(kZipErrHeaderEof);
    const uint8_t* p = data_ + pos_;
    pos_ += count;
    return p;
  }

  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

}  // namespace RkArcLib
