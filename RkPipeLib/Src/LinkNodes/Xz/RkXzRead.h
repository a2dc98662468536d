// RkXzRead: the records of the xz container, parsed from bytes already read. Internal to the xz
// node (and its fuzz target): it includes liblzma's header for the filter chain.
//
// An xz file is one or more streams, each followed by stream padding (zero bytes in groups of
// four). A stream is:
//   stream header   6-byte magic FD 37 7A 58 5A 00, 2 flag bytes (the check type), CRC32 of them
//   blocks          each: block header, compressed data, block padding to 4, the check
//   index           0x00, record count, (unpadded size, uncompressed size) per block, padding
//                   to 4, CRC32
//   stream footer   CRC32, backward size (index size / 4 - 1), the 2 flag bytes, "YZ"
// Every multi-byte field is little-endian; counts and sizes are variable-length integers of 7
// bits a byte, least significant first, at most 9 bytes.
//
// Malformed records raise RkSevereError(7016); sizes past what the format can express or what
// we accept raise RkSevereError(7017).
#pragma once

#include <lzma.h>

#include <array>
#include <cstdint>
#include <memory>

#include "RkDStream.h"
#include "RkDigest.h"
#include "RkError.h"

namespace RkPipeLib {

inline constexpr uint32_t kXzBadHeader = kPipeBadHeader;
inline constexpr uint32_t kXzTooLarge = kPipeUnsupported;

inline constexpr uint32_t kXzStreamHeaderBytes = 12;
inline constexpr uint32_t kXzMaxBlockHeaderBytes = 1024;
inline constexpr uint32_t kXzMaxFilters = 4;
inline constexpr uint64_t kXzVliMax = UINT64_MAX / 2;
inline constexpr uint64_t kXzSizeUnknown = UINT64_MAX;

// The check types that are verified; the others are skipped by their size.
enum RkXzCheckType : uint32_t {
  kXzCheckNone = 0x00,
  kXzCheckCrc32 = 0x01,
  kXzCheckCrc64 = 0x04,
  kXzCheckSha256 = 0x0A,
};

// Bytes of the check of a type from 0 to 15: the types are grouped by threes.
constexpr uint32_t RkXzCheckSize(uint32_t type) {
  constexpr uint8_t kSizes[16] = {0, 4, 4, 4, 8, 8, 8, 16, 16, 16, 32, 32, 32, 64, 64, 64};
  return kSizes[type & 15];
}

// Decodes a variable-length integer from `next()`, which yields one byte a call. A tenth byte,
// or a zero as the last byte of several (a needless one), is malformed.
template <typename NextByte>
uint64_t RkXzReadVli(NextByte&& next) {
  uint64_t value = 0;
  for (uint32_t i = 0; i < 9; ++i) {
    const uint8_t b = next();
    value |= uint64_t{b & 0x7Fu} << (7 * i);
    if ((b & 0x80) == 0) {
      if (b == 0 && i != 0) throw RkLib::RkSevereError(kXzBadHeader);
      return value;
    }
  }
  throw RkLib::RkSevereError(kXzBadHeader);
}

// The check type, from the 12 bytes of a stream header.
uint32_t RkXzParseStreamHeader(const uint8_t* bytes);

struct RkXzStreamFooter {
  uint64_t indexSize;  // the bytes of the index with its CRC32
  uint32_t checkType;
};
RkXzStreamFooter RkXzParseStreamFooter(const uint8_t* bytes);

struct RkXzFilterFlags {
  uint64_t id;
  const uint8_t* properties;  // inside the header's bytes
  uint32_t propertiesSize;
};

struct RkXzBlockHeader {
  uint32_t headerSize = 0;
  uint64_t compressedSize = kXzSizeUnknown;
  uint64_t uncompressedSize = kXzSizeUnknown;
  uint32_t filterCount = 0;
  std::array<RkXzFilterFlags, kXzMaxFilters> filters{};
};

// Parses a whole block header, `size` bytes from the size byte up to and including its CRC32;
// the filters point into `bytes`. `checkSize` bounds the sizes that the header may give.
RkXzBlockHeader RkXzParseBlockHeader(const uint8_t* bytes, uint32_t size, uint32_t checkSize);

// The filter chain of a block as liblzma takes it. The options that the library allocates while
// decoding the properties are freed with the object or at the next Set.
class RkXzFltRead {
 public:
  RkXzFltRead() { Clear(); }
  RkXzFltRead(const RkXzFltRead&) = delete;
  RkXzFltRead& operator=(const RkXzFltRead&) = delete;
  ~RkXzFltRead() { Clear(); }

  // Decodes the properties of each filter. A chain that does not end in LZMA2, or has it
  // elsewhere, a filter the library does not know and bad properties raise 7016; an LZMA2
  // dictionary above the node's bound raises 7017. The dictionary is cut to the block's size
  // when the header gives it, which is all that a block can refer back to.
  void Set(const RkXzBlockHeader& header);
  const lzma_filter* Filters() const noexcept { return filters_.data(); }
  // The LZMA2 dictionary in use, for tests.
  uint64_t Dictionary() const noexcept { return dictionary_; }

 private:
  void Clear() noexcept;

  std::array<lzma_filter, kXzMaxFilters + 1> filters_{};
  uint64_t dictionary_ = 0;
};

// The integrity check of a block over its uncompressed data.
class RkXzCheck {
 public:
  void Begin(uint32_t type);
  void Update(const uint8_t* data, uint64_t length);
  // Whether the stored check (RkXzCheckSize bytes) matches; true for types that are not verified.
  bool Matches(const uint8_t* stored);

 private:
  uint32_t type_ = kXzCheckNone;
  uint32_t crc32_ = 0;
  uint64_t crc64_ = 0;
  std::unique_ptr<RkLib::RkDigestSha256> sha256_;  // made at the first SHA-256 block, then kept
};

}  // namespace RkPipeLib
