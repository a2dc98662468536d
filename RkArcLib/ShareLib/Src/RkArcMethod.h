// RkArcMethod: the compression method of an item in terms common to all containers.
#pragma once

#include <cstdint>

namespace RkArcLib {

enum class RkArcMethod : uint32_t {
  kNone = 0,  // not filled by the format
  kUnknown = 1,
  kStored = 2,
  kBzip2 = 3,
  kDeflate = 4,
  kDeflate64 = 5,
  kJpeg = 6,
  kLzma = 7,
  kPpmd = 8,
  kWavPack = 9,
  kShrink = 10,
  kReduce1 = 11,
  kReduce2 = 12,
  kReduce3 = 13,
  kReduce4 = 14,
  kImplode = 15,
  kTokenize = 16,
  kDclImplode = 17,
  kXz = 46,
  kMp3 = 47,
  kZstd = 48,
  kDuplicate = 50,
};

// The zip method number as stored in a header. For an AES entry the caller passes the real method of
// its AES record, since 99 itself says nothing about the compression.
RkArcMethod RkArcMethodFromZip(uint32_t zipMethod) noexcept;

}  // namespace RkArcLib
